// CRL file summaries and the "which CRL set is newer" decision, on a root and two
// subordinate CAs made by OpenSSL.
#include "x509_test_util.h"

namespace x509test {
namespace {

const std::time_t kT1 = pki::utc(2024, 1, 1);
const std::time_t kT2 = pki::utc(2024, 6, 1);
const Bytes kCa2Serial{0x12};

struct CrlOf {
    Who who;
    std::time_t thisUpdate;
    bool revokesCa2 = false;  // only meaningful for the root
};

// The CRLs in order, then the certificates of the CAs that signed any of them.
Bytes MakeBundle(const std::vector<CrlOf> &crls, bool withCaCerts = true) {
    Bytes bundle;
    bool used[3] = {};
    for (const CrlOf &c : crls) {
        pki::CrlProfile profile;
        profile.this_update = c.thisUpdate;
        profile.next_update = c.thisUpdate + 365 * 86400;
        profile.crl_number = static_cast<long>(c.thisUpdate % 100000);
        if (c.revokesCa2) {
            profile.revoked.push_back({kCa2Serial, c.thisUpdate - 86400, 1});
        }
        if (c.who != kRoot) {
            profile.revoked.push_back({{0x77}, c.thisUpdate - 86400, 1});  // a leaf of the CA
        }
        bundle = Concat({bundle, pki::make_crl(profile, TestCa(c.who), RsaKey(2048, c.who))});
        used[c.who] = true;
    }
    for (Who who : {kCa1, kCa2}) {
        if (withCaCerts && used[who]) {
            bundle = Concat({bundle, pki::der(TestCa(who))});
        }
    }
    return bundle;
}

// A summary list decoded in its own context that trusts the root.
class Summaries {
  public:
    explicit Summaries(const Bytes &bundle) {
        const Bytes root = pki::der(TestCa(kRoot));
        EXPECT_EQ(cmsv_verify_add_cert(ctx_, root.data(), static_cast<uint32_t>(root.size())),
                  CMSV_OK);
        ctx_.get()->decodeFlags = 0x5A;
        status_ =
            cmsv_decode_crl(ctx_, bundle.data(), static_cast<uint32_t>(bundle.size()), &list_);
    }
    ~Summaries() {
        if (list_ != nullptr) {
            cmsv_crl_free(ctx_, list_);
        }
    }
    Summaries(const Summaries &) = delete;
    Summaries &operator=(const Summaries &) = delete;

    uint32_t status() const { return status_; }
    const CmsvCrlInfoList *get() const { return list_; }
    CmsvVrfCtx *ctx() const { return ctx_; }

  private:
    CmsvTestContext ctx_;
    CmsvCrlInfoList *list_ = nullptr;
    uint32_t status_ = CMSV_ERR_GENERIC;
};

TEST(CrlSummary, RootAndCaCrls) {
    Bytes bundle = MakeBundle({{kRoot, kT1, true}, {kCa1, kT2}});
    bundle.resize(bundle.size() + 32, 0);  // padding shorter than 33 bytes is tolerated
    Summaries s(bundle);
    ASSERT_EQ(s.status(), CMSV_OK) << std::hex << s.status();
    EXPECT_EQ(s.ctx()->decodeFlags, 0u);
    const CmsvCrlInfoList &list = *s.get();
    EXPECT_EQ(list.size, CMSV_CRL_INFO_LIST_SIZE);
    ASSERT_EQ(list.count, 2u);

    const CmsvCrlInfo &root = *list.items[0];
    EXPECT_EQ(root.valid, 1u);
    EXPECT_STREQ(root.issuer, "O=tavo,CN=root");
    EXPECT_EQ(root.thisUpdate, kT1);
    EXPECT_EQ(root.nextUpdate, kT1 + 365 * 86400);
    EXPECT_EQ(Bytes(root.issuerSerial, root.issuerSerial + root.issuerSerialLen), Bytes{0x01});
    ASSERT_EQ(root.revokedCount, 1u);
    EXPECT_EQ(Bytes(root.revokedSerials[0].data,
                    root.revokedSerials[0].data + root.revokedSerials[0].len),
              kCa2Serial);

    // A subordinate CA's CRL keeps no serials; its signer's serial is recorded.
    const CmsvCrlInfo &ca = *list.items[1];
    EXPECT_EQ(ca.valid, 1u);
    EXPECT_STREQ(ca.issuer, "O=tavo,CN=ca1");
    EXPECT_EQ(ca.thisUpdate, kT2);
    EXPECT_EQ(Bytes(ca.issuerSerial, ca.issuerSerial + ca.issuerSerialLen), Bytes{0x11});
    EXPECT_EQ(ca.revokedCount, 0u);
}

TEST(CrlSummaryErrors, NoList) {
    std::vector<CrlOf> seventeen;
    for (int i = 0; i < 17; i++) {
        seventeen.push_back({kRoot, kT1 + i});
    }
    const struct {
        const char *what;
        Bytes bundle;
        uint32_t status;
    } cases[] = {
        {"seventeen_crls", MakeBundle(seventeen), CMSV_ERR_CRL_TOO_MANY},
        {"certificate_only", pki::der(TestCa(kCa1)), CMSV_ERR_CRL_BUNDLE},
        {"padding_of_33", Concat({MakeBundle({{kRoot, kT1}}), Bytes(33, 0)}), CMSV_ERR_CRL_BUNDLE},
    };
    for (const auto &c : cases) {
        Summaries s(c.bundle);
        EXPECT_EQ(s.status(), c.status) << c.what;
        EXPECT_EQ(s.get(), nullptr) << c.what;
    }
}

struct CompareCase {
    const char *what;
    std::vector<CrlOf> a;
    std::vector<CrlOf> b;
    uint32_t status;
    uint32_t result;
};

// Root, ca1 and ca2 CRLs at kT1 and kT2; R2x is the kT2 root CRL that revokes ca2.
const CrlOf R1{kRoot, kT1}, R2{kRoot, kT2}, R2x{kRoot, kT2, true};
const CrlOf A1{kCa1, kT1}, A2{kCa1, kT2}, B1{kCa2, kT1};

const CompareCase kCompareCases[] = {
    {"same", {R1, A1}, {R1, A1}, CMSV_OK, 0},
    {"b_newer", {R1, A1}, {R2, A2}, CMSV_OK, 2},
    // One newer, the other unchanged.
    {"a_newer", {R2, A1}, {R1, A1}, CMSV_OK, 1},
    {"mixed", {R2, A1}, {R1, A2}, CMSV_OK, 3},
    // No vote: the set with an extra CA is newer.
    {"more_issuers", {R1, A1, B1}, {R1, A1}, CMSV_OK, 1},
    {"duplicate_issuer", {R1, R2}, {R1}, CMSV_ERR_CRL_SAME_ISSUER, 3},
    // ca2 dropped out of the newer set because the newer root CRL revokes it.
    {"dropped_ca_revoked", {R1, A1, B1}, {R2x, A2}, CMSV_OK, 2},
    // ca2 dropped out without being revoked.
    {"dropped_ca_not_revoked", {R1, A1, B1}, {R2, A2}, CMSV_ERR_CRL_COVERAGE, 3},
};

TEST(CrlCompare, Result) {
    for (const CompareCase &c : kCompareCases) {
        Summaries a(MakeBundle(c.a));
        Summaries b(MakeBundle(c.b));
        ASSERT_EQ(a.status() | b.status(), CMSV_OK) << c.what;
        uint32_t result = 99;
        EXPECT_EQ(cmsv_crl_compare(a.ctx(), a.get(), b.get(), &result), c.status) << c.what;
        EXPECT_EQ(result, c.result) << c.what;
    }
}

TEST(CrlCompareErrors, UnverifiedSummaryCannotBeOrdered) {
    // ca1's CRL without ca1's certificate: nobody in the store signed it.
    Summaries unverified(MakeBundle({{kCa1, kT1}}, false));
    Summaries good(MakeBundle({{kCa1, kT1}}));
    ASSERT_EQ(unverified.status(), CMSV_OK);
    ASSERT_EQ(unverified.get()->count, 1u);
    EXPECT_EQ(unverified.get()->items[0]->valid, 0u);
    uint32_t result = 0;
    EXPECT_EQ(cmsv_crl_compare(good.ctx(), good.get(), unverified.get(), &result),
              CMSV_ERR_CRL_UNVERIFIED);
    EXPECT_EQ(result, 3u);
}

}  // namespace
}  // namespace x509test
