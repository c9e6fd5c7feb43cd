// Detached CMS SignedData and its unsigned time-stamp attribute.
#include "pki_internal.h"

namespace tavo::pki {

using namespace detail;

namespace {

CMS_SignerInfo *first_signer(CMS_ContentInfo *cms) {
    STACK_OF(CMS_SignerInfo) *sis = CMS_get0_SignerInfos(cms);
    if (sis == nullptr || sk_CMS_SignerInfo_num(sis) < 1) {
        throw Error("CMS SignedData without a SignerInfo");
    }
    return sk_CMS_SignerInfo_value(sis, 0);
}

void add_signer(CMS_ContentInfo *cms, const Cert &cert, const Key &key,
                const SignProfile &profile) {
    if (!cert || !key) {
        throw Error("signer needs a certificate and a key");
    }
    unsigned flags = CMS_BINARY | CMS_NOCERTS | CMS_NOSMIMECAP;
    flags |= profile.signed_attrs ? 0 : CMS_NOATTR;
    flags |= profile.signer_by_ski ? CMS_USE_KEYID : 0;
    if (CMS_add1_signer(cms, cert.get(), key.get(), md_by_name(profile.digest), flags) == nullptr) {
        fail("adding the signer " + subject_text(cert));
    }
}

void add_certs(CMS_ContentInfo *cms, const std::vector<const Cert *> &certs) {
    for (const Cert *c : certs) {
        if (c == nullptr || !*c) {
            throw Error("null certificate to embed");
        }
        if (CMS_add1_cert(cms, c->get()) != 1) {
            fail("embedding " + subject_text(*c));
        }
    }
}

}  // namespace

namespace detail {

SignerSummary summarize(CMS_SignerInfo *si) {
    SignerSummary s;
    ASN1_OCTET_STRING *keyid = nullptr;
    X509_NAME *issuer = nullptr;
    ASN1_INTEGER *sn = nullptr;
    check(CMS_SignerInfo_get0_signer_id(si, &keyid, &issuer, &sn) == 1, "signer id");
    if (issuer != nullptr) {
        s.issuer = name_text(issuer);
    }
    if (sn != nullptr) {
        s.serial = integer_bytes(sn);
    }
    if (keyid != nullptr) {
        s.key_id.assign(ASN1_STRING_get0_data(keyid),
                        ASN1_STRING_get0_data(keyid) + ASN1_STRING_length(keyid));
    }
    X509_ALGOR *dig = nullptr;
    CMS_SignerInfo_get0_algs(si, nullptr, nullptr, &dig, nullptr);
    if (dig != nullptr) {
        const ASN1_OBJECT *obj = nullptr;
        X509_ALGOR_get0(&obj, nullptr, nullptr, dig);
        s.digest = OBJ_nid2sn(OBJ_obj2nid(obj));
    }
    s.signed_attrs = CMS_signed_get_attr_count(si) >= 0;
    return s;
}

std::vector<SignerSummary> summarize_all(CMS_ContentInfo *cms) {
    std::vector<SignerSummary> out;
    STACK_OF(CMS_SignerInfo) *sis = CMS_get0_SignerInfos(cms);
    for (int i = 0; i < sk_CMS_SignerInfo_num(sis); ++i) {
        out.push_back(summarize(sk_CMS_SignerInfo_value(sis, i)));
    }
    return out;
}

std::vector<Cert> certs_of(CMS_ContentInfo *cms) {
    std::vector<Cert> out;
    STACK_OF(X509) *certs = CMS_get1_certs(cms);
    if (certs == nullptr) {
        return out;
    }
    for (int i = 0; i < sk_X509_num(certs); ++i) {
        out.emplace_back(sk_X509_value(certs, i));
    }
    sk_X509_free(certs);  // the references now belong to the Cert objects
    return out;
}

}  // namespace detail

Bytes sign_detached(const Bytes &content, const Cert &signer, const Key &key,
                    const SignProfile &profile) {
    const unsigned flags = CMS_BINARY | (profile.detached ? CMS_DETACHED : 0);
    CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags | CMS_PARTIAL));
    check(cms != nullptr, "CMS_sign");
    add_signer(cms.get(), signer, key, profile);
    for (const auto &[c, k] : profile.extra_signers) {
        if (c == nullptr || k == nullptr) {
            throw Error("extra signer without certificate or key");
        }
        add_signer(cms.get(), *c, *k, profile);
    }
    add_certs(cms.get(), profile.embed ? *profile.embed : std::vector<const Cert *>{&signer});
    BioPtr in(check_ptr(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())),
                        "BIO_new_mem_buf"));
    check(CMS_final(cms.get(), in.get(), nullptr, flags) == 1, "CMS_final");
    return encode(cms.get(), i2d_CMS_ContentInfo, "i2d_CMS_ContentInfo");
}

Bytes signature_value(const Bytes &cms_der) {
    CmsPtr cms = parse_cms(cms_der);
    const ASN1_OCTET_STRING *sig = CMS_SignerInfo_get0_signature(first_signer(cms.get()));
    check(sig != nullptr, "SignerInfo without a signature");
    return Bytes(ASN1_STRING_get0_data(sig), ASN1_STRING_get0_data(sig) + ASN1_STRING_length(sig));
}

Bytes attach_timestamp(const Bytes &cms_der, const Bytes &token) {
    CmsPtr cms = parse_cms(cms_der);
    if (CMS_unsigned_add1_attr_by_NID(first_signer(cms.get()), NID_id_smime_aa_timeStampToken,
                                      V_ASN1_SEQUENCE, token.data(),
                                      static_cast<int>(token.size())) != 1) {
        fail("adding the time-stamp attribute");
    }
    return encode(cms.get(), i2d_CMS_ContentInfo, "i2d_CMS_ContentInfo");
}

std::optional<Bytes> timestamp_of(const Bytes &cms_der) {
    CmsPtr cms = parse_cms(cms_der);
    CMS_SignerInfo *si = first_signer(cms.get());
    int idx = CMS_unsigned_get_attr_by_NID(si, NID_id_smime_aa_timeStampToken, -1);
    if (idx < 0) {
        return std::nullopt;
    }
    X509_ATTRIBUTE *attr = CMS_unsigned_get_attr(si, idx);
    ASN1_TYPE *value = X509_ATTRIBUTE_get0_type(attr, 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        throw Error("time-stamp attribute does not hold a SEQUENCE");
    }
    const ASN1_STRING *seq = value->value.sequence;
    return Bytes(ASN1_STRING_get0_data(seq), ASN1_STRING_get0_data(seq) + ASN1_STRING_length(seq));
}

std::vector<Cert> embedded_certs(const Bytes &cms_der) {
    CmsPtr cms = parse_cms(cms_der);
    return certs_of(cms.get());
}

std::vector<SignerSummary> signers(const Bytes &cms_der) {
    CmsPtr cms = parse_cms(cms_der);
    return summarize_all(cms.get());
}

}  // namespace tavo::pki
