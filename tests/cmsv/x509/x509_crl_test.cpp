// CRLs made by OpenSSL, decoded by the engine and compared with libcrypto's
// reading of the same DER.
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "x509_test_util.h"

namespace x509test {
namespace {

Bytes MakeCrl(const pki::CrlProfile &profile) {
    return pki::make_crl(profile, TestCa(kRoot), RsaKey(2048));
}

pki::CrlProfile BasicProfile() {
    pki::CrlProfile profile;
    profile.this_update = pki::utc(2024, 3, 1);
    profile.next_update = pki::utc(2024, 4, 1);
    return profile;
}

struct CrlCase {
    const char *what;
    pki::CrlProfile profile;
};

std::vector<CrlCase> CrlCases() {
    std::vector<CrlCase> cases;
    cases.push_back({"empty", BasicProfile()});  // no revokedCertificates at all
    pki::CrlProfile entries = BasicProfile();
    entries.revoked = {{{0x05}, pki::utc(2024, 2, 1), 1},
                       {{0x90, 0x01}, pki::utc(2024, 2, 2), 4},
                       {{0x07, 0x08, 0x09}, pki::utc(2024, 2, 3), std::nullopt}};
    entries.digest = "sha384";
    cases.push_back({"entries_and_reasons", entries});
    pki::CrlProfile idp = entries;
    idp.with_idp = true;
    idp.digest = "sha512";
    cases.push_back({"direct_idp", idp});
    pki::CrlProfile indirect = BasicProfile();
    indirect.indirect = true;
    indirect.revoked = {{{0x11}, pki::utc(2024, 1, 1), 5}};
    cases.push_back({"indirect_idp", indirect});
    pki::CrlProfile generalized = BasicProfile();
    generalized.next_update = pki::utc(2051, 1, 1);  // GeneralizedTime from 2050 on
    cases.push_back({"generalized_next_update", generalized});
    return cases;
}

class CrlDecode : public ::testing::TestWithParam<CrlCase> {};

TEST_P(CrlDecode, FieldsMatchOpenSsl) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok()) << std::hex << ctx.status();
    const Bytes der = MakeCrl(GetParam().profile);
    CrlPtr crl = DecodeCrl(ctx, der);
    ASSERT_NE(crl, nullptr);
    EXPECT_EQ(crl->refCount, 1);

    const uint8_t *p = der.data();
    std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> owned(
        d2i_X509_CRL(nullptr, &p, static_cast<long>(der.size())), X509_CRL_free);
    X509_CRL *x = owned.get();
    ASSERT_NE(x, nullptr);
    const CmsvTbsCertList &tbs = crl->tbsCertList;
    EXPECT_EQ(tbs.version, X509_CRL_get_version(x));
    const auto seconds = [](const CmsvAsnOcts &t) {
        int64_t s = -1;
        EXPECT_EQ(cmsv_convert_datetime_to_time(&t, &s), CMSV_OK);
        return s;
    };
    const auto osslSeconds = [](const ASN1_TIME *t) {
        struct tm tm = {};
        EXPECT_EQ(ASN1_TIME_to_tm(t, &tm), 1);
        return static_cast<int64_t>(timegm(&tm));
    };
    EXPECT_EQ(seconds(tbs.thisUpdate), osslSeconds(X509_CRL_get0_lastUpdate(x)));
    EXPECT_EQ(seconds(tbs.nextUpdate), osslSeconds(X509_CRL_get0_nextUpdate(x)));
    EXPECT_EQ(tbs.nextUpdate.tag,
              static_cast<uint32_t>(ASN1_STRING_type(X509_CRL_get0_nextUpdate(x))));

    STACK_OF(X509_REVOKED) *revoked = X509_CRL_get_REVOKED(x);
    ASSERT_EQ(tbs.revokedCertificates.count,
              revoked == nullptr ? 0u : static_cast<uint32_t>(sk_X509_REVOKED_num(revoked)));
    for (uint32_t i = 0; i < tbs.revokedCertificates.count; i++) {
        const X509_REVOKED *r = sk_X509_REVOKED_value(revoked, static_cast<int>(i));
        const CmsvRevokedEntry &entry = tbs.revokedCertificates.entries[i];
        BIGNUM *bn = ASN1_INTEGER_to_BN(X509_REVOKED_get0_serialNumber(r), nullptr);
        Bytes serial(BN_num_bytes(bn));
        BN_bn2bin(bn, serial.data());
        BN_free(bn);
        EXPECT_EQ(View(entry.userCertificate), serial);
        EXPECT_EQ(seconds(entry.revocationDate), osslSeconds(X509_REVOKED_get0_revocationDate(r)));
        auto *reason = static_cast<ASN1_ENUMERATED *>(
            X509_REVOKED_get_ext_d2i(r, NID_crl_reason, nullptr, nullptr));
        EXPECT_EQ(entry.reasonCode, reason == nullptr ? 0 : ASN1_ENUMERATED_get(reason));
        ASN1_ENUMERATED_free(reason);
    }
    auto *idp = static_cast<ISSUING_DIST_POINT *>(
        X509_CRL_get_ext_d2i(x, NID_issuing_distribution_point, nullptr, nullptr));
    EXPECT_EQ(tbs.crlExtensions.issuingDistributionPoint.indirectCRL,
              idp != nullptr && idp->indirectCRL ? 1 : 0);
    ISSUING_DIST_POINT_free(idp);

    // OpenSSL's signature verifies with the issuer's key; a flipped byte in the
    // signed part (a digit of thisUpdate) does not.
    const Bytes issuerDer = pki::der(TestCa(kRoot));
    CertPtr issuer = DecodeCert(ctx, issuerDer);
    ASSERT_NE(issuer, nullptr);
    const auto verify = [&](const CmsvCrl &c) {
        uint32_t result = 0;
        (void)cmsv_x509_pkey_verify(ctx, c.tbsRaw.data, c.tbsRaw.len, c.signatureValue.data,
                                    c.signatureValue.len, &issuer->tbs.subjectPublicKeyInfo.rsaKey,
                                    &c.signatureAlgorithm, &result);
        return result;
    };
    EXPECT_EQ(verify(*crl), 1u);
    Bytes bad = der;
    bad[tbs.thisUpdate.data - der.data() + 3] ^= 0x01;
    CrlPtr flipped = DecodeCrl(ctx, bad);
    ASSERT_NE(flipped, nullptr);
    EXPECT_NE(verify(*flipped), 1u);
}

INSTANTIATE_TEST_SUITE_P(Crls, CrlDecode, ::testing::ValuesIn(CrlCases()),
                         [](const auto &p) { return std::string(p.param.what); });

}  // namespace
}  // namespace x509test
