// The trust store and path verification driven directly: duplicates, limits, the
// bundle entry points and the nesting bound of CRL-signer verification.
#include <gtest/gtest.h>

#include <list>

#include "cmsv/cmsv_pki.h"

#include "cmsv_pki_world.h"
#include "tests/cmsv/cmsv_test_context.h"

namespace pkitest {
namespace {

// The store points into the DER it was given, so every buffer lives as long as the test.
const Bytes &Keep(Bytes der) {
    static std::list<Bytes> kept;
    return kept.emplace_back(std::move(der));
}
uint32_t AddCert(CmsvVrfCtx *ctx, Bytes der) {
    const Bytes &kept = Keep(std::move(der));
    return cmsv_verify_add_cert(ctx, kept.data(), static_cast<uint32_t>(kept.size()));
}
uint32_t AddCrl(CmsvVrfCtx *ctx, Bytes der) {
    const Bytes &kept = Keep(std::move(der));
    return cmsv_verify_add_crl(ctx, kept.data(), static_cast<uint32_t>(kept.size()));
}
int32_t CertCount(CmsvVrfCtx *ctx) {
    return ctx->pkiStore->certs.count;
}
int32_t CrlCount(CmsvVrfCtx *ctx) {
    return ctx->pkiStore->crls.count;
}

TEST(PkiStoreTest, SameObjectTwiceIsStoredOnce) {
    const World &w = TheWorld();
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    EXPECT_EQ(AddCert(ctx, w.root.der()), CMSV_OK);
    EXPECT_EQ(AddCert(ctx, w.root.der()), CMSV_OK);
    EXPECT_EQ(CertCount(ctx), 1);
    const Bytes crl = Crl(w.root);
    EXPECT_EQ(AddCrl(ctx, crl), CMSV_OK);
    EXPECT_EQ(AddCrl(ctx, crl), CMSV_OK);
    EXPECT_EQ(CrlCount(ctx), 1);
    // The store itself reports the duplicate.
    CmsvCert *kept = static_cast<CmsvCert *>(ctx.get()->pkiStore->certs.items[0]);
    EXPECT_EQ(cmsv_pki_store_add_cert(ctx, kept), CMSV_ERR_CERT_DUPLICATE);
    CmsvCrl *keptCrl = static_cast<CmsvCrl *>(ctx.get()->pkiStore->crls.items[0]);
    EXPECT_EQ(cmsv_pki_store_add_crl(ctx, keptCrl), CMSV_ERR_CRL_DUPLICATE);
}

TEST(PkiStoreTest, BundleEntryPoints) {
    const World &w = TheWorld();
    const Bytes crl = Crl(w.root);
    struct Row {
        const char *what;
        bool crlCall;
        Bytes bundle;
        uint32_t status;
        int32_t certs;
    } rows[] = {
        // A CRL-only bundle gives add_cert nothing to add.
        {"crl to add_cert", false, crl, CMSV_ERR_GENERIC, 0},
        // A certificate-only bundle gives add_crl nothing to add.
        {"cert to add_crl", true, w.ca.der(), CMSV_ERR_CRL_BUNDLE, 0},
        // Certificates beside CRLs are kept unless self-signed.
        {"crl with ca and root", true, Concat({crl, w.ca.der(), w.root.der()}), CMSV_OK, 1},
        // add_cert keeps self-signed ones too.
        {"root and ca", false, Concat({w.root.der(), w.ca.der()}), CMSV_OK, 2},
        // Garbage longer than the tolerated padding.
        {"garbage", true, Concat({crl, Bytes(40, 0)}), CMSV_ERR_CRL_BUNDLE, 0},
    };
    for (const Row &row : rows) {
        CmsvTestContext ctx;
        ASSERT_TRUE(ctx.ok());
        EXPECT_EQ(row.crlCall ? AddCrl(ctx, row.bundle) : AddCert(ctx, row.bundle), row.status)
            << row.what;
        EXPECT_EQ(CertCount(ctx), row.certs) << row.what;
    }
    CmsvTestContext locked;
    ASSERT_TRUE(locked.ok());
    locked.get()->crlLock = 1;
    EXPECT_EQ(AddCrl(locked, crl), CMSV_ERR_CRL_LOCKED);
}

TEST(PkiStoreTest, SeventeenthCertificateDoesNotFit) {
    const World &w = TheWorld();
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    for (uint8_t serial = 1; serial <= 17; ++serial) {
        pki::CertProfile profile;
        profile.subject = pki::name({{"CN", "filler"}});
        profile.serial = {0x60, serial};
        profile.not_before = pki::utc(2020, 1, 1);
        profile.not_after = pki::utc(2045, 1, 1);
        const Bytes der = pki::der(pki::issue(profile, w.signer.key, &w.root.cert, w.root.key));
        EXPECT_EQ(AddCert(ctx, der), serial <= 16 ? CMSV_OK : CMSV_ERR_LIST_FULL) << +serial;
    }
}

// root -> ca1 -> ... -> caN -> leaf, each CA with a CRL for its child. Verifying the
// leaf nests through every CA (as CRL signer) down to the root: N + 2 levels.
uint32_t VerifyNested(int cas) {
    const World &w = TheWorld();
    CmsvTestContext ctx;
    EXPECT_TRUE(ctx.ok());
    EXPECT_EQ(AddCert(ctx, w.root.der()), CMSV_OK);
    Bytes crls = Crl(w.root);
    Party parent = w.root;
    for (int i = 0; i <= cas; ++i) {
        pki::CertProfile profile;
        profile.subject = pki::name({{"CN", "level " + std::to_string(i)}});
        profile.serial = {static_cast<uint8_t>(0x50 + i)};
        profile.not_before = pki::utc(2020, 1, 1);
        profile.not_after = pki::utc(2045, 1, 1);
        const bool leaf = i == cas;
        profile.ca = !leaf;
        profile.key_usage = leaf ? pki::kDigitalSignature : pki::kKeyCertSign | pki::kCrlSign;
        Party child{pki::issue(profile, w.ca.key, &parent.cert, parent.key), w.ca.key};
        EXPECT_EQ(AddCert(ctx, child.der()), CMSV_OK);
        if (!leaf) {
            const Bytes crl = Crl(child);
            crls.insert(crls.end(), crl.begin(), crl.end());
        }
        parent = child;
    }
    EXPECT_EQ(AddCrl(ctx, crls), CMSV_OK);
    ctx.get()->verifyTime = kGenTime;
    auto *leaf = static_cast<CmsvCert *>(ctx.get()->pkiStore->certs.items[CertCount(ctx) - 1]);
    uint32_t ok = 7;
    const uint32_t status = cmsv_pki_verify_cert(ctx, leaf, 1, 0, &ok);
    EXPECT_EQ(ok, status == CMSV_OK ? 1u : 0u);
    EXPECT_EQ(ctx.get()->depth, 0);
    return status;
}

TEST(PkiPathTest, CrlSignerNestingIsBounded) {
    EXPECT_EQ(VerifyNested(9), CMSV_OK);                // eleven levels
    EXPECT_EQ(VerifyNested(10), CMSV_ERR_CHAIN_DEPTH);  // twelve
}

TEST(PkiPathTest, SignerCheckNeedsUsage) {
    const World &w = TheWorld();
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    ASSERT_EQ(AddCert(ctx, Concat({w.root.der(), w.tsa.der()})), CMSV_OK);
    ASSERT_EQ(AddCrl(ctx, Crl(w.root)), CMSV_OK);
    ctx.get()->verifyTime = kGenTime;
    auto *tsa = static_cast<CmsvCert *>(ctx.get()->pkiStore->certs.items[1]);
    EXPECT_EQ(cmsv_pki_check_signer(ctx, tsa, CMSV_EKU_TIME_STAMPING), CMSV_OK);
    EXPECT_EQ(cmsv_pki_check_signer(ctx, tsa, CMSV_EKU_CODE_SIGNING), CMSV_ERR_KEY_USAGE);
    // The root is its own path but has no digitalSignature.
    auto *root = static_cast<CmsvCert *>(ctx.get()->pkiStore->certs.items[0]);
    EXPECT_EQ(cmsv_pki_check_signer(ctx, root, CMSV_EKU_TIME_STAMPING), CMSV_ERR_KEY_USAGE);
    uint32_t ok = 0;
    EXPECT_EQ(cmsv_pki_verify_cert(ctx, root, 1, 1, &ok), CMSV_OK);
    EXPECT_EQ(ok, 1u);
}

}  // namespace
}  // namespace pkitest
