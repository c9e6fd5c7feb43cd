// Templates against certificates, CRLs, signatures and time-stamps made by OpenSSL.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "pki.h"
#include "tavo/cmsv.h"
#include "tests/cmsv/cmsv_test_context.h"

namespace {

namespace pki = tavo::pki;
using pki::Bytes;

Bytes Value(const CmsvAsnOcts &v) {
    return Bytes(v.data, v.data + v.len);
}

struct World {
    pki::Key key = pki::make_rsa_key(2048);
    pki::Cert root;
    pki::Cert tsa;
    Bytes rootDer;
    World() {
        pki::CertProfile profile;
        profile.subject = pki::name({{"O", "tavo"}, {"CN", "root"}});
        profile.serial = {0x80, 0x01};
        profile.not_before = pki::utc(2020, 1, 1);
        profile.not_after = pki::utc(2040, 1, 1);
        profile.ca = true;
        profile.key_usage = pki::kDigitalSignature | pki::kKeyCertSign | pki::kCrlSign;
        profile.eku = {"codeSigning", "timeStamping"};
        profile.extra = {{"1.2.3.4", true, {0x05, 0x00}}};  // unknown and critical
        root = pki::issue(profile, key, nullptr, key);
        rootDer = pki::der(root);
        pki::CertProfile t;
        t.subject = pki::name({{"CN", "tsa"}});
        t.not_before = profile.not_before;
        t.not_after = profile.not_after;
        t.key_usage = pki::kDigitalSignature;
        t.eku = {"timeStamping"};
        t.eku_critical = true;
        tsa = pki::issue(t, key, &root, key);
    }
};

const World &TheWorld() {
    static World world;
    return world;
}

template <typename T>
T *Decode(CmsvVrfCtx *ctx, const Bytes &der, const CmsvAsnItem &item, uint32_t *status,
          uint32_t *consumed = nullptr) {
    void *record = nullptr;
    uint32_t used = 0;
    *status = cmsv_asn_decode(ctx, der.data(), static_cast<uint32_t>(der.size()), &item, 0, &record,
                              &used);
    if (consumed != nullptr) {
        *consumed = used;
    }
    return static_cast<T *>(record);
}

TEST(CmsvTemplates, CertificateFields) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    const Bytes &der = TheWorld().rootDer;
    uint32_t status = 0;
    uint32_t consumed = 0;
    auto *cert = Decode<CmsvCert>(ctx, der, CMSV_X509_CERT_item, &status, &consumed);
    ASSERT_EQ(status, CMSV_OK) << std::hex << status;
    EXPECT_EQ(consumed, der.size());

    // tbsRaw is the TBSCertificate with its header; the signature algorithm follows.
    EXPECT_EQ(cert->tbsRaw.data, der.data() + 4);
    EXPECT_EQ(cert->tbsRaw.data[0], 0x30);
    EXPECT_EQ(cert->tbsRaw.data[cert->tbsRaw.len], 0x30);
    // Names, times, key and extensions are compared with OpenSSL in the x509 suite; the
    // unknown critical extension must not stop the extensions that follow it.
    EXPECT_EQ(cert->tbs.extensions.keyUsage,
              CMSV_KU_DIGITAL_SIGNATURE | CMSV_KU_KEY_CERT_SIGN | CMSV_KU_CRL_SIGN);
    EXPECT_EQ(cmsv_find_aoid(ctx, &cert->signatureAlgorithm.algorithm),
              AOID_SHA256WITHRSAENCRYPTION);
    EXPECT_EQ(cert->signatureValue.len, 256u);
    EXPECT_EQ(cert->signatureValue.data + 256, der.data() + der.size());
    cmsv_asn_free(ctx, cert);
}

TEST(CmsvTemplates, EveryTruncatedCertificateFails) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    const Bytes &der = TheWorld().rootDer;
    for (size_t len = 1; len < der.size(); ++len) {
        const Bytes cut(der.begin(), der.begin() + static_cast<long>(len));
        uint32_t status = 0;
        auto *cert = Decode<CmsvCert>(ctx, cut, CMSV_X509_CERT_item, &status);
        EXPECT_NE(status, CMSV_OK) << "length " << len;
        EXPECT_EQ(cert, nullptr);
    }
    // The same bytes with the outer length patched to the cut: inner elements
    // now run past their parent.
    Bytes patched(der.begin(), der.end() - 1);
    const uint32_t inner = static_cast<uint32_t>(patched.size() - 4);
    patched[2] = static_cast<uint8_t>(inner >> 8);
    patched[3] = static_cast<uint8_t>(inner);
    uint32_t status = 0;
    EXPECT_EQ(Decode<CmsvCert>(ctx, patched, CMSV_X509_CERT_item, &status), nullptr);
    EXPECT_EQ(status, CMSV_ERR_ASN_LENGTH);
}

// 21 revoked entries exceed the list; the CRL is refused, not truncated.
TEST(CmsvTemplates, CrlOfTwentyOneEntriesIsRefused) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    pki::CrlProfile profile;
    profile.this_update = pki::utc(2024, 1, 1);
    profile.next_update = pki::utc(2024, 2, 1);
    for (uint8_t i = 1; i <= 21; ++i) {
        profile.revoked.push_back({{i}, pki::utc(2023, 6, 1), {}});
    }
    const Bytes big = pki::make_crl(profile, TheWorld().root, TheWorld().key);
    uint32_t status = 0;
    EXPECT_EQ(Decode<CmsvCrl>(ctx, big, CMSV_X509_CRL_item, &status), nullptr);
    EXPECT_EQ(status, CMSV_ERR_ASN_SEQUENCE);
}

TEST(CmsvTemplates, SignedDataWithTimeStamp) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    const World &w = TheWorld();
    const Bytes content = {'f', 'i', 'l', 'e', 's'};
    const Bytes unsignedCms = pki::sign_detached(content, w.root, w.key);
    pki::TsProfile ts;
    ts.gen_time = pki::utc(2024, 3, 1, 12);
    const Bytes token =
        pki::make_timestamp_token(pki::signature_value(unsignedCms), w.tsa, w.key, ts);
    const Bytes cms = pki::attach_timestamp(unsignedCms, token);

    uint32_t status = 0;
    auto *sd = Decode<CmsvSignedData>(ctx, cms, CMSV_PKCS7_CONTENT_item, &status);
    ASSERT_EQ(status, CMSV_OK) << std::hex << status;
    EXPECT_EQ(cmsv_find_aoid(ctx, &sd->contentType), AOID_PKCS7_SIGNEDDATA);
    EXPECT_EQ(sd->signedData.encapContentInfo.content.len, 0u);  // detached
    ASSERT_EQ(sd->signedData.certificates.count, 1u);
    EXPECT_EQ(Value(sd->signedData.certificates.items[0]), w.rootDer);  // raw capture
    ASSERT_EQ(sd->signedData.signerInfos.count, 1u);
    const CmsvSignerInfo &si = sd->signedData.signerInfos.items[0];
    EXPECT_EQ(Value(si.issuerAndSerialNumber.serialNumber), (Bytes{0x80, 0x01}));
    EXPECT_EQ(cmsv_find_aoid(ctx, &si.digestAlgorithm.algorithm), AOID_SHA256);
    // The [0] IMPLICIT attributes are recorded as the universal SET that is signed.
    EXPECT_EQ(si.signedAttrsRaw.data[0], 0xA0);
    EXPECT_EQ(si.signedAttrsRaw.tag, 17u);
    EXPECT_EQ(si.signedAttrsRaw.cls, 0u);
    EXPECT_EQ(Value(si.signedAttrs.messageDigest), pki::digest("sha256", content));
    EXPECT_EQ(Value(si.encryptedDigest), pki::signature_value(cms));
    EXPECT_EQ(Value(si.unsignedAttrs.timeStampToken), token);

    // The token is itself a SignedData whose content is a TSTInfo.
    auto *tokenSd = Decode<CmsvSignedData>(ctx, token, CMSV_PKCS7_CONTENT_item, &status);
    ASSERT_EQ(status, CMSV_OK) << std::hex << status;
    const Bytes tstDer = Value(tokenSd->signedData.encapContentInfo.content);
    auto *tst = Decode<CmsvTstInfo>(ctx, tstDer, CMSV_TST_INFO_item, &status);
    ASSERT_EQ(status, CMSV_OK) << std::hex << status;
    EXPECT_EQ(Value(tst->messageImprint.hashedMessage),
              pki::digest("sha256", pki::signature_value(cms)));
    int64_t genTime = 0;
    EXPECT_EQ(cmsv_convert_datetime_to_time(&tst->genTime, &genTime), CMSV_OK);
    EXPECT_EQ(genTime, ts.gen_time);
    cmsv_asn_free(ctx, tst);
    cmsv_asn_free(ctx, tokenSd);
    cmsv_asn_free(ctx, sd);
}

}  // namespace
