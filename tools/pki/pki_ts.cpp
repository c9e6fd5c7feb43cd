// RFC 3161 time-stamp tokens, requests and responses.
//
// TimeStampToken ::= ContentInfo (SignedData, eContentType id-ct-TSTInfo)
// TSTInfo ::= SEQUENCE { version, policy, messageImprint, serialNumber,
//     genTime GeneralizedTime, accuracy OPTIONAL, ordering DEFAULT FALSE,
//     nonce OPTIONAL, tsa [0] GeneralName OPTIONAL, extensions [1] OPTIONAL }
#include <openssl/ess.h>

#include "pki_internal.h"

namespace tavo::pki {

using namespace detail;

namespace {

std::string digest_name_of(const ASN1_OBJECT *obj) {
    switch (OBJ_obj2nid(obj)) {
        case NID_sha1:
            return "sha1";
        case NID_sha256:
            return "sha256";
        case NID_sha384:
            return "sha384";
        case NID_sha512:
            return "sha512";
        default:
            return {};
    }
}

Ptr<ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free> gen_time(std::time_t t, bool fractional) {
    Ptr<ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free> gt(ASN1_GENERALIZEDTIME_set(nullptr, t));
    check(gt != nullptr, "ASN1_GENERALIZEDTIME_set");
    if (fractional) {
        struct tm tm {};
        gmtime_r(&t, &tm);
        char buf[32];
        std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S.5Z", &tm);
        check(ASN1_GENERALIZEDTIME_set_string(gt.get(), buf) == 1, "fractional genTime");
    }
    return gt;
}

Bytes encode_tst_info(const Bytes &hashed_message, const Cert &tsa, const TsProfile &profile) {
    const EVP_MD *md = md_by_name(profile.digest);
    if (hashed_message.size() != static_cast<std::size_t>(EVP_MD_get_size(md))) {
        throw Error("imprint length does not match " + profile.digest);
    }
    TstPtr tst(check_ptr(TS_TST_INFO_new(), "TS_TST_INFO_new"));
    check(TS_TST_INFO_set_version(tst.get(), 1) == 1, "TSTInfo version");
    ObjPtr policy(OBJ_txt2obj(profile.policy.c_str(), 1));
    if (!policy) {
        fail("bad policy OID " + profile.policy);
    }
    check(TS_TST_INFO_set_policy_id(tst.get(), policy.get()) == 1, "TSTInfo policy");

    ImprintPtr imprint(check_ptr(TS_MSG_IMPRINT_new(), "TS_MSG_IMPRINT_new"));
    AlgorPtr alg(check_ptr(X509_ALGOR_new(), "X509_ALGOR_new"));
    check(X509_ALGOR_set0(alg.get(), OBJ_nid2obj(EVP_MD_get_type(md)), V_ASN1_NULL, nullptr) == 1,
          "X509_ALGOR_set0");
    check(TS_MSG_IMPRINT_set_algo(imprint.get(), alg.get()) == 1, "imprint algorithm");
    Bytes msg = hashed_message;
    if (profile.wrong_imprint) {
        msg.back() ^= 0x01;
    }
    check(TS_MSG_IMPRINT_set_msg(imprint.get(), msg.data(), static_cast<int>(msg.size())) == 1,
          "imprint");
    check(TS_TST_INFO_set_msg_imprint(tst.get(), imprint.get()) == 1, "TSTInfo imprint");

    IntPtr sn = make_integer(profile.serial);
    check(TS_TST_INFO_set_serial(tst.get(), sn.get()) == 1, "TSTInfo serial");
    auto gt = gen_time(profile.gen_time, profile.fractional_seconds);
    check(TS_TST_INFO_set_time(tst.get(), gt.get()) == 1, "TSTInfo genTime");
    if (profile.nonce) {
        IntPtr nonce = make_integer(*profile.nonce);
        check(TS_TST_INFO_set_nonce(tst.get(), nonce.get()) == 1, "TSTInfo nonce");
    }
    Ptr<GENERAL_NAME, GENERAL_NAME_free> tsa_name(GENERAL_NAME_new());
    check(tsa_name != nullptr, "GENERAL_NAME_new");
    X509_NAME *dn = check_ptr(X509_NAME_dup(X509_get_subject_name(tsa.get())), "X509_NAME_dup");
    GENERAL_NAME_set0_value(tsa_name.get(), GEN_DIRNAME, dn);
    check(TS_TST_INFO_set_tsa(tst.get(), tsa_name.get()) == 1, "TSTInfo tsa");
    return encode(tst.get(), i2d_TS_TST_INFO, "i2d_TS_TST_INFO");
}

// ESS signingCertificateV2 naming the TSA certificate, which RFC 3161
// clients such as `openssl ts -verify` require among the signed attributes.
void add_signing_certificate(CMS_SignerInfo *si, const Cert &tsa, const EVP_MD *md) {
    Ptr<ESS_SIGNING_CERT_V2, ESS_SIGNING_CERT_V2_free> ess(
        OSSL_ESS_signing_cert_v2_new_init(md, tsa.get(), nullptr, 1));
    check(ess != nullptr, "ESS signingCertificateV2");
    Bytes der = encode(ess.get(), i2d_ESS_SIGNING_CERT_V2, "i2d_ESS_SIGNING_CERT_V2");
    check(CMS_signed_add1_attr_by_NID(si, NID_id_smime_aa_signingCertificateV2, V_ASN1_SEQUENCE,
                                      der.data(), static_cast<int>(der.size())) == 1,
          "signingCertificateV2 attribute");
}

Bytes der_tlv(uint8_t tag, const Bytes &content) {
    Bytes out{tag};
    std::size_t n = content.size();
    if (n < 0x80) {
        out.push_back(static_cast<uint8_t>(n));
    } else {
        Bytes len;
        for (; n != 0; n >>= 8) {
            len.insert(len.begin(), static_cast<uint8_t>(n & 0xFF));
        }
        out.push_back(static_cast<uint8_t>(0x80 | len.size()));
        out.insert(out.end(), len.begin(), len.end());
    }
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

// TimeStampResp ::= SEQUENCE { status PKIStatusInfo, timeStampToken OPTIONAL }
Bytes ts_response(int status, const Bytes &token) {
    Bytes body = der_tlv(0x30, {0x02, 0x01, static_cast<uint8_t>(status)});
    body.insert(body.end(), token.begin(), token.end());
    return der_tlv(0x30, body);
}

}  // namespace

Bytes make_timestamp_token_for_imprint(const Bytes &hashed_message, const Cert &tsa,
                                       const Key &tsa_key, const TsProfile &profile) {
    if (!tsa || !tsa_key) {
        throw Error("time-stamping needs the TSA certificate and key");
    }
    const Bytes tst = encode_tst_info(hashed_message, tsa, profile);
    const EVP_MD *md = md_by_name(profile.signer_digest);
    CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_BINARY | CMS_PARTIAL));
    check(cms != nullptr, "CMS_sign");
    check(CMS_set1_eContentType(cms.get(), OBJ_nid2obj(NID_id_smime_ct_TSTInfo)) == 1,
          "eContentType");
    unsigned flags = CMS_BINARY | CMS_NOCERTS | CMS_NOSMIMECAP;
    flags |= profile.signed_attrs ? 0 : CMS_NOATTR;
    CMS_SignerInfo *si = CMS_add1_signer(cms.get(), tsa.get(), tsa_key.get(), md, flags);
    if (si == nullptr) {
        fail("adding the TSA signer");
    }
    if (profile.signed_attrs) {
        add_signing_certificate(si, tsa, md);
        // Fixed signingTime so the token depends on gen_time only.
        TimePtr when(check_ptr(ASN1_TIME_set(nullptr, profile.gen_time), "ASN1_TIME_set"));
        check(CMS_signed_add1_attr_by_NID(si, NID_pkcs9_signingTime, ASN1_STRING_type(when.get()),
                                          when.get(), -1) == 1,
              "signingTime attribute");
    }
    const std::vector<const Cert *> embed = profile.embed ? *profile.embed : std::vector{&tsa};
    for (const Cert *c : embed) {
        if (c == nullptr || CMS_add1_cert(cms.get(), c->get()) != 1) {
            fail("embedding a certificate in the token");
        }
    }
    BioPtr in(
        check_ptr(BIO_new_mem_buf(tst.data(), static_cast<int>(tst.size())), "BIO_new_mem_buf"));
    check(CMS_final(cms.get(), in.get(), nullptr, CMS_BINARY) == 1, "signing the token");
    return encode(cms.get(), i2d_CMS_ContentInfo, "i2d_CMS_ContentInfo");
}

Bytes make_timestamp_token(const Bytes &sig_value, const Cert &tsa, const Key &tsa_key,
                           const TsProfile &profile) {
    return make_timestamp_token_for_imprint(digest(profile.digest, sig_value), tsa, tsa_key,
                                            profile);
}

TokenInfo describe_token(const Bytes &token) {
    CmsPtr cms = parse_cms(token);
    if (OBJ_obj2nid(CMS_get0_eContentType(cms.get())) != NID_id_smime_ct_TSTInfo) {
        throw Error("token does not carry a TSTInfo");
    }
    ASN1_OCTET_STRING **content = CMS_get0_content(cms.get());
    if (content == nullptr || *content == nullptr) {
        throw Error("token without encapsulated TSTInfo");
    }
    const unsigned char *p = ASN1_STRING_get0_data(*content);
    TstPtr tst(d2i_TS_TST_INFO(nullptr, &p, ASN1_STRING_length(*content)));
    if (!tst) {
        fail("bad TSTInfo");
    }
    TokenInfo info;
    const ASN1_GENERALIZEDTIME *gt = TS_TST_INFO_get_time(tst.get());
    info.gen_time_text.assign(reinterpret_cast<const char *>(ASN1_STRING_get0_data(gt)),
                              static_cast<std::size_t>(ASN1_STRING_length(gt)));
    info.gen_time = asn1_time_to_time_t(gt);
    TS_MSG_IMPRINT *imprint = TS_TST_INFO_get_msg_imprint(tst.get());
    const ASN1_OBJECT *alg = nullptr;
    X509_ALGOR_get0(&alg, nullptr, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
    info.imprint_digest = digest_name_of(alg);
    if (info.imprint_digest.empty()) {
        info.imprint_digest = OBJ_nid2sn(OBJ_obj2nid(alg));
    }
    const ASN1_OCTET_STRING *msg = TS_MSG_IMPRINT_get_msg(imprint);
    info.imprint.assign(ASN1_STRING_get0_data(msg),
                        ASN1_STRING_get0_data(msg) + ASN1_STRING_length(msg));
    info.serial = integer_bytes(TS_TST_INFO_get_serial(tst.get()));
    if (const ASN1_INTEGER *nonce = TS_TST_INFO_get_nonce(tst.get()); nonce != nullptr) {
        info.nonce = integer_bytes(nonce);
    }
    char oid[128];
    OBJ_obj2txt(oid, sizeof oid, TS_TST_INFO_get_policy_id(tst.get()), 1);
    info.policy = oid;
    info.signers = summarize_all(cms.get());
    info.certs = certs_of(cms.get());
    return info;
}

Bytes make_ts_request(const std::string &digest_name, const Bytes &hashed_message,
                      const std::optional<Bytes> &nonce) {
    const EVP_MD *md = md_by_name(digest_name);
    TsReqPtr req(check_ptr(TS_REQ_new(), "TS_REQ_new"));
    check(TS_REQ_set_version(req.get(), 1) == 1, "request version");
    ImprintPtr imprint(check_ptr(TS_MSG_IMPRINT_new(), "TS_MSG_IMPRINT_new"));
    AlgorPtr alg(check_ptr(X509_ALGOR_new(), "X509_ALGOR_new"));
    check(X509_ALGOR_set0(alg.get(), OBJ_nid2obj(EVP_MD_get_type(md)), V_ASN1_NULL, nullptr) == 1,
          "X509_ALGOR_set0");
    check(TS_MSG_IMPRINT_set_algo(imprint.get(), alg.get()) == 1, "imprint algorithm");
    check(TS_MSG_IMPRINT_set_msg(imprint.get(), const_cast<uint8_t *>(hashed_message.data()),
                                 static_cast<int>(hashed_message.size())) == 1,
          "imprint");
    check(TS_REQ_set_msg_imprint(req.get(), imprint.get()) == 1, "request imprint");
    if (nonce) {
        IntPtr n = make_integer(*nonce);
        check(TS_REQ_set_nonce(req.get(), n.get()) == 1, "request nonce");
    }
    check(TS_REQ_set_cert_req(req.get(), 1) == 1, "certReq");
    return encode(req.get(), i2d_TS_REQ, "i2d_TS_REQ");
}

Bytes answer_ts_request(const Bytes &request, const Cert &tsa, const Key &tsa_key, std::time_t now,
                        const Bytes &serial_number) {
    const unsigned char *p = request.data();
    TsReqPtr req(d2i_TS_REQ(nullptr, &p, static_cast<long>(request.size())));
    if (!req || TS_REQ_get_version(req.get()) != 1) {
        return ts_response(2, {});
    }
    TS_MSG_IMPRINT *imprint = TS_REQ_get_msg_imprint(req.get());
    const ASN1_OBJECT *alg = nullptr;
    X509_ALGOR_get0(&alg, nullptr, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
    TsProfile profile;
    profile.digest = digest_name_of(alg);
    const ASN1_OCTET_STRING *msg = TS_MSG_IMPRINT_get_msg(imprint);
    Bytes hashed(ASN1_STRING_get0_data(msg), ASN1_STRING_get0_data(msg) + ASN1_STRING_length(msg));
    if (profile.digest.empty() ||
        hashed.size() != static_cast<std::size_t>(EVP_MD_get_size(md_by_name(profile.digest)))) {
        return ts_response(2, {});
    }
    profile.gen_time = now;
    profile.serial = serial_number;
    if (const ASN1_INTEGER *nonce = TS_REQ_get_nonce(req.get()); nonce != nullptr) {
        profile.nonce = integer_bytes(nonce);
    }
    if (const ASN1_OBJECT *policy = TS_REQ_get_policy_id(req.get()); policy != nullptr) {
        char oid[128];
        OBJ_obj2txt(oid, sizeof oid, policy, 1);
        profile.policy = oid;
    }
    if (TS_REQ_get_cert_req(req.get()) == 0) {
        profile.embed = std::vector<const Cert *>{};
    }
    return ts_response(0, make_timestamp_token_for_imprint(hashed, tsa, tsa_key, profile));
}

Bytes token_from_ts_response(const Bytes &response) {
    const unsigned char *p = response.data();
    TsRespPtr resp(d2i_TS_RESP(nullptr, &p, static_cast<long>(response.size())));
    if (!resp) {
        fail("bad TimeStampResp");
    }
    long status = ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(TS_RESP_get_status_info(resp.get())));
    if (status != 0 && status != 1) {
        throw Error("time-stamping authority refused the request (status " +
                    std::to_string(status) + ")");
    }
    PKCS7 *token = TS_RESP_get_token(resp.get());
    if (token == nullptr) {
        throw Error("granted TimeStampResp without a token");
    }
    return encode(token, i2d_PKCS7, "i2d_PKCS7");
}

}  // namespace tavo::pki
