// Certificates made by OpenSSL, decoded by the engine and compared field by field
// with libcrypto's reading of the same DER; their signatures checked through the
// provider.
#include <openssl/core_names.h>
#include <openssl/x509v3.h>

#include "x509_test_util.h"

namespace x509test {
namespace {

Bytes BnParam(EVP_PKEY *key, const char *name) {
    BIGNUM *bn = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key, name, &bn), 1);
    Bytes out(BN_num_bytes(bn));
    BN_bn2bin(bn, out.data());
    BN_free(bn);
    return out;
}

// OpenSSL's entries, in order, must be the engine's RDNs and attributes.
void ExpectSameName(const CmsvX509Name &name, const X509_NAME *ossl) {
    int rdn = -1;
    uint32_t index = 0;
    for (int i = 0; i < X509_NAME_entry_count(ossl); i++) {
        const X509_NAME_ENTRY *entry = X509_NAME_get_entry(ossl, i);
        index = X509_NAME_ENTRY_set(entry) == rdn ? index + 1 : 0;
        rdn = X509_NAME_ENTRY_set(entry);
        ASSERT_LT(rdn, static_cast<int>(name.count));
        ASSERT_LT(index, name.rdns[rdn].count);
        const CmsvAttributeTypeValue &atv = name.rdns[rdn].attributes[index];
        const ASN1_OBJECT *type = X509_NAME_ENTRY_get_object(entry);
        EXPECT_EQ(View(atv.type),
                  Bytes(OBJ_get0_data(type), OBJ_get0_data(type) + OBJ_length(type)));
        const ASN1_STRING *value = X509_NAME_ENTRY_get_data(entry);
        const uint8_t *bytes = ASN1_STRING_get0_data(value);
        EXPECT_EQ(View(atv.value), Bytes(bytes, bytes + ASN1_STRING_length(value)));
        EXPECT_EQ(atv.value.tag, static_cast<uint32_t>(ASN1_STRING_type(value)));
    }
    EXPECT_EQ(name.count, static_cast<uint32_t>(rdn + 1));
}

void ExpectSameTime(const CmsvAsnOcts &engine, const ASN1_TIME *ossl, std::time_t expected) {
    EXPECT_EQ(engine.tag, static_cast<uint32_t>(ASN1_STRING_type(ossl)));
    int64_t seconds = 0;
    EXPECT_EQ(cmsv_convert_datetime_to_time(&engine, &seconds), CMSV_OK);
    EXPECT_EQ(seconds, expected);
}

// What the engine should read as key usage and EKU flags, from OpenSSL's view.
uint32_t ExpectedKeyUsage(X509 *x) {
    auto *ku = static_cast<ASN1_BIT_STRING *>(X509_get_ext_d2i(x, NID_key_usage, nullptr, nullptr));
    const uint32_t bits = X509_get_key_usage(x);  // second byte folded into bits 8..15
    const uint32_t expected = ku == nullptr                 ? 0
                              : ASN1_STRING_length(ku) == 2 ? ((bits & 0xFF) << 8) | (bits >> 8)
                                                            : bits;
    ASN1_BIT_STRING_free(ku);
    return expected;
}
uint32_t ExpectedEku(X509 *x) {
    auto *eku =
        static_cast<EXTENDED_KEY_USAGE *>(X509_get_ext_d2i(x, NID_ext_key_usage, nullptr, nullptr));
    const int first = eku == nullptr ? NID_undef : OBJ_obj2nid(sk_ASN1_OBJECT_value(eku, 0));
    EXTENDED_KEY_USAGE_free(eku);
    return first == NID_code_sign    ? CMSV_EKU_CODE_SIGNING
           : first == NID_time_stamp ? CMSV_EKU_TIME_STAMPING
                                     : 0;
}

struct CertCase {
    const char *what;
    int bits;
    const char *digest;
    pki::Name subject;
    std::optional<unsigned> keyUsage;
    std::vector<std::string> eku;
    int notAfterYear;
    bool ca, twoBytes, generalized;
};
CertCase Row(const char *what, int bits, const char *digest, pki::Name subject,
             std::optional<unsigned> keyUsage, std::vector<std::string> eku, int notAfterYear,
             bool ca = false, bool twoBytes = false, bool generalized = false) {
    return CertCase{what, bits,         digest, subject,  keyUsage,
                    eku,  notAfterYear, ca,     twoBytes, generalized};
}

const CertCase kCertCases[] = {
    // RSA 2048 / SHA-256, codeSigning first, UTCTime.
    Row("rsa2048", 2048, "sha256", pki::name({{"C", "CN"}, {"O", "tavo"}, {"CN", "signer"}}),
        pki::kDigitalSignature, {"codeSigning", "timeStamping"}, 2040),
    // RSA 3072 / SHA-384 CA, GeneralizedTime forced before 2050.
    Row("rsa3072", 3072, "sha384", pki::name({{"O", "tavo"}, {"CN", "root"}}),
        pki::kKeyCertSign | pki::kCrlSign, {}, 2040, true, false, true),
    // RSA 4096 / SHA-512, key usage forced into two bytes, codeSigning not first.
    Row("rsa4096", 4096, "sha512", pki::name({{"CN", "big"}}), pki::kDigitalSignature,
        {"serverAuth", "codeSigning"}, 2060, false, true),
    // Multi-valued RDN; decipherOnly needs the second byte; notAfter in 2050.
    Row("multi_valued", 2048, "sha256", pki::Name{{{{"O", "tavo"}, {"OU", "fw"}}, {{"CN", "m"}}}},
        pki::kDigitalSignature | pki::kDecipherOnly, {"timeStamping"}, 2050),
    // Neither key usage nor extended key usage.
    Row("bare", 2048, "sha256", pki::name({{"CN", "bare"}, {"emailAddress", "a@b.c"}}),
        std::nullopt, {}, 2030),
};

class CertDecode : public ::testing::TestWithParam<CertCase> {};

TEST_P(CertDecode, MatchesOpenSslAndVerifies) {
    const CertCase &c = GetParam();
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok()) << std::hex << ctx.status();
    pki::CertProfile profile;
    profile.subject = c.subject;
    profile.serial = {0x83, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};  // DER adds 0x00
    profile.not_before = pki::utc(2020, 2, 29, 12, 30, 45);
    profile.not_after = pki::utc(c.notAfterYear, 1, 1);
    profile.ca = c.ca;
    profile.key_usage = c.keyUsage;
    profile.key_usage_two_bytes = c.twoBytes;
    profile.eku = c.eku;
    profile.digest = c.digest;
    profile.generalized_time = c.generalized;
    const pki::Cert issued = pki::issue(profile, RsaKey(c.bits), nullptr, RsaKey(c.bits));
    Bytes der = pki::der(issued);
    X509 *x = issued.get();

    CertPtr cert = DecodeCert(ctx, der);
    ASSERT_NE(cert, nullptr);
    EXPECT_EQ(cert->refCount, 1);
    EXPECT_EQ(View(cert->tbs.serialNumber), pki::serial(issued));
    ExpectSameName(cert->tbs.subject, X509_get_subject_name(x));
    ExpectSameName(cert->tbs.issuer, X509_get_issuer_name(x));
    ExpectSameTime(cert->tbs.validity.notBefore, X509_get0_notBefore(x), profile.not_before);
    ExpectSameTime(cert->tbs.validity.notAfter, X509_get0_notAfter(x), profile.not_after);
    EXPECT_EQ(cert->tbs.extensions.keyUsage, ExpectedKeyUsage(x));
    EXPECT_EQ(cert->tbs.extensions.extKeyUsage, ExpectedEku(x));
    EXPECT_EQ(cert->tbs.extensions.basicConstraintsCa,
              (X509_get_extension_flags(x) & EXFLAG_CA) != 0 ? 1 : 0);
    CmsvKeyPart e;
    CmsvKeyPart n;
    ASSERT_EQ(cmsv_x509_extract_public_key(ctx, cert.get(), &e, &n), CMSV_OK);
    EXPECT_EQ(Bytes(n.data, n.data + n.len), BnParam(X509_get0_pubkey(x), OSSL_PKEY_PARAM_RSA_N));
    EXPECT_EQ(Bytes(e.data, e.data + e.len), BnParam(X509_get0_pubkey(x), OSSL_PKEY_PARAM_RSA_E));

    uint32_t self = 0;
    ASSERT_EQ(cmsv_x509_is_self_signed(ctx, cert.get(), &self), CMSV_OK);
    EXPECT_EQ(self, 1u);
    EXPECT_EQ(cert->issuerCache, cert.get());
    der.back() ^= 0xFF;  // the record points into der: only the cache can still say 1
    self = 0;
    EXPECT_EQ(cmsv_x509_is_self_signed(ctx, cert.get(), &self), CMSV_OK);
    EXPECT_EQ(self, 1u);
    der.back() ^= 0xFF;

    // The last seconds digit of notAfter flipped: still decodes, names still equal,
    // the signature no longer verifies (a provider may also say so in its status).
    Bytes bad = der;
    bad[cert->tbs.validity.notAfter.data - der.data() + cert->tbs.validity.notAfter.len - 2] ^= 1;
    CertPtr flipped = DecodeCert(ctx, bad);
    ASSERT_NE(flipped, nullptr);
    self = 1;
    (void)cmsv_x509_is_self_signed(ctx, flipped.get(), &self);
    EXPECT_EQ(self, 0u);
    EXPECT_EQ(flipped->issuerCache, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Certs, CertDecode, ::testing::ValuesIn(kCertCases),
                         [](const auto &p) { return std::string(p.param.what); });

}  // namespace
}  // namespace x509test
