// Detached signatures made by OpenSSL, judged by the engine and by `openssl cms
// -verify` / `openssl ts -verify` at the time-stamp's genTime. Where the two
// disagree, the row says why; every other row must agree.
#include <gtest/gtest.h>

#include "cmsv_pki_world.h"
#include "tests/cmsv/cmsv_test_context.h"

namespace pkitest {
namespace {

using Tweak = std::function<void(Scenario &)>;

struct Case {
    const char *name;
    Tweak tweak;
    uint32_t status;
    uint32_t result;
    const char *disagreement;  // why OpenSSL decides otherwise; null when it agrees
};

constexpr std::time_t kBefore = kGenTime - 10 * kDay;
constexpr std::time_t kAfter = kGenTime + 10 * kDay;
constexpr int kKeyCompromise = 1;
constexpr int kSuperseded = 4;

pki::Revoked Revoked(const Party &p, std::time_t when, std::optional<int> reason) {
    return {pki::serial(p.cert), when, reason};
}
// Revocations of certificates nobody uses.
std::vector<pki::Revoked> Filler(size_t count) {
    std::vector<pki::Revoked> out;
    for (size_t i = 0; i < count; ++i) {
        out.push_back({Bytes{0x70, static_cast<uint8_t>(i)}, kBefore, kKeyCompromise});
    }
    return out;
}
// The default bundle's root (slot 0) or CA (slot 1) CRL replaced by one revoking `who`.
Tweak Revoke(size_t slot, const Party World::*who, std::time_t when, std::optional<int> reason,
             std::time_t nextUpdate = 0) {
    return [=](Scenario &s) {
        s.crlBundle[slot] = Crl(slot == 0 ? s.w.root : s.w.ca, {Revoked(s.w.*who, when, reason)},
                                false, nextUpdate);
    };
}
Tweak Signer(const Party World::*who) {
    return [=](Scenario &s) { s.signer = &(s.w.*who); };
}

const char *const kByDate =
    "an end-entity code signer is judged by revocation date; OpenSSL "
    "rejects any listed certificate";

const Case kCases[] = {
    // Shapes that verify.
    {"Sha256SignedAttrs", [](Scenario &) {}, CMSV_OK, 1, nullptr},
    {"Sha384", [](Scenario &s) { s.sign.digest = "sha384"; }, CMSV_OK, 1, nullptr},
    {"Sha512", [](Scenario &s) { s.sign.digest = "sha512"; }, CMSV_OK, 1, nullptr},
    {"NoSignedAttrs", [](Scenario &s) { s.sign.signed_attrs = false; }, CMSV_OK, 1, nullptr},
    {"TokenWithoutSignedAttrs", [](Scenario &s) { s.ts.signed_attrs = false; }, CMSV_OK, 1,
     "OpenSSL requires the ESS signing-certificate attribute in the token; the engine accepts "
     "a signature directly over TSTInfo"},
    {"TokenLongSerial", [](Scenario &s) { s.ts.serial = Bytes(20, 0x7F); }, CMSV_OK, 1, nullptr},
    {"TokenSha512Imprint", [](Scenario &s) { s.ts.digest = "sha512"; }, CMSV_OK, 1, nullptr},
    // The CA certificate arrives with the CRLs instead of inside the signature.
    {"CaShippedWithCrls",
     [](Scenario &s) {
         s.sign.embed = Certs{&s.w.signer.cert};
         s.crlBundle.push_back(s.w.ca.der());
     },
     CMSV_OK, 1, nullptr},
    {"SignerExpiredNowValidAtGenTime", Signer(&World::signerExpiredNow), CMSV_OK, 1, nullptr},
    {"IndirectCrlFromRoot", [](Scenario &s) { s.crlBundle[1] = Crl(s.w.root, {}, true); }, CMSV_OK,
     1, "OpenSSL needs -extended_crl for indirect CRLs and still wants the CA's own CRL"},

    // Time-stamp failures.
    {"NoTimestamp", [](Scenario &s) { s.timestamp = false; }, CMSV_ERR_PARAM, 0,
     "the engine requires a time-stamp token; OpenSSL cms does not look at it"},
    {"TokenSha1Imprint", [](Scenario &s) { s.ts.digest = "sha1"; }, CMSV_ERR_TST_HASH, 0,
     "the engine knows SHA-256/384/512 only"},
    {"TokenImprintMismatch", [](Scenario &s) { s.ts.wrong_imprint = true; }, CMSV_ERR_TST_IMPRINT,
     0, nullptr},
    {"TokenFractionalGenTime", [](Scenario &s) { s.ts.fractional_seconds = true; },
     CMSV_ERR_TIME_FORMAT, 0, "the engine reads only the 15-character GeneralizedTime form"},
    {"TokenContentAltered",
     [](Scenario &s) { s.tamper = [n = *s.ts.nonce](Bytes &d) { FlipIn(d, n); }; },
     CMSV_ERR_TST_SIGNATURE, 0, nullptr},
    {"TokenWithoutSignedAttrsAltered",
     [](Scenario &s) {
         s.ts.signed_attrs = false;
         s.tamper = [n = *s.ts.nonce](Bytes &d) { FlipIn(d, n); };
     },
     CMSV_ERR_TST_SIGNATURE, 0, nullptr},
    {"TsaWithoutTimeStampingEku", [](Scenario &s) { s.tsa = &s.w.tsaCodeSigning; },
     CMSV_ERR_KEY_USAGE, 0, nullptr},

    // Structure limits.
    {"SignerBySubjectKeyId", [](Scenario &s) { s.sign.signer_by_ski = true; },
     CMSV_ERR_PKCS7_DECODE, 0, "the engine identifies signers by issuer and serial only"},
    {"TwoSignerInfos",
     [](Scenario &s) {
         s.sign.extra_signers = {{&s.w.signer.cert, &s.w.signer.key}};
     },
     CMSV_ERR_PKCS7_DECODE, 0, "the engine accepts one SignerInfo at most"},
    {"ThreeEmbeddedCerts",
     [](Scenario &s) {
         s.sign.embed = Certs{&s.w.signer.cert, &s.w.ca.cert, &s.w.tsa.cert};
     },
     CMSV_ERR_PKCS7_DECODE, 0, "the engine accepts two embedded certificates at most"},
    {"EmbeddedCertNotASequence",
     [](Scenario &s) {
         s.tamper = [der = s.w.signer.der()](Bytes &d) {
             auto it = std::search(d.begin(), d.end(), der.begin(), der.end());
             ASSERT_NE(it, d.end());
             *it = 0xA1;  // the obsolete extendedCertificate choice
         };
     },
     CMSV_ERR_NAME_ATTRIBUTE, 0, nullptr},

    // Signer and chain.
    {"SignerNotFound",
     [](Scenario &s) {
         s.sign.embed = Certs{};
         s.crlBundle.push_back(s.w.ca.der());
     },
     CMSV_ERR_SIGNER_NOT_FOUND, 0, nullptr},
    {"TsaNotFound", [](Scenario &s) { s.ts.embed = Certs{}; }, CMSV_ERR_SIGNER_NOT_FOUND, 0,
     nullptr},
    {"Sha1SignedAttrs", [](Scenario &s) { s.sign.digest = "sha1"; }, CMSV_ERR_SIGNED_ATTRS, 0,
     "the engine knows SHA-256/384/512 only"},
    {"Sha1NoSignedAttrs",
     [](Scenario &s) {
         s.sign.digest = "sha1";
         s.sign.signed_attrs = false;
     },
     CMSV_ERR_SIGNATURE_ALGORITHM, 0, "the engine knows SHA-256/384/512 only"},
    {"SignerNotYetValid", Signer(&World::signerNotYet), CMSV_ERR_NOT_YET_VALID, 0, nullptr},
    {"SignerExpiredAtGenTime", Signer(&World::signerExpired), CMSV_ERR_EXPIRED, 0, nullptr},
    {"CodeSigningSecondEku", Signer(&World::signerEkuSecond), CMSV_ERR_KEY_USAGE, 0,
     "the engine reads only the first extended key usage"},
    {"SignerWithoutDigitalSignature", Signer(&World::signerNoDigSig), CMSV_ERR_KEY_USAGE, 0,
     "the engine requires digitalSignature; OpenSSL's CMS verification does not"},
    {"CaNowhere", [](Scenario &s) { s.sign.embed = Certs{&s.w.signer.cert}; }, CMSV_ERR_NO_ISSUER,
     0, nullptr},
    {"WrongRoot", [](Scenario &s) { s.trusted = {s.w.otherRoot.der()}; }, CMSV_ERR_NO_ISSUER, 0,
     nullptr},
    {"LookAlikeRoot", [](Scenario &s) { s.trusted = {s.w.lookAlike.der()}; }, CMSV_ERR_NO_ISSUER, 0,
     nullptr},
    {"CaWithoutKeyUsageCannotIssue",
     [](Scenario &s) {
         s.signer = &s.w.underNoKu;
         s.sign.embed = Certs{&s.w.underNoKu.cert, &s.w.caNoKu.cert};
         s.crlBundle[1] = Crl(s.w.caNoKu);
     },
     CMSV_ERR_NO_ISSUER, 0, "OpenSSL lets a CA without keyUsage sign certificates and CRLs"},

    // Content and signed attributes.
    {"ContentAlteredByOneByte", [](Scenario &s) { s.alterContent = true; }, CMSV_OK, 0, nullptr},
    // The provider answers a signature that does not verify with status -1.
    {"ContentAlteredNoSignedAttrs",
     [](Scenario &s) {
         s.alterContent = true;
         s.sign.signed_attrs = false;
     },
     CMSV_ERR_GENERIC, 0, nullptr},
    {"SignedAttrsAltered",
     [](Scenario &s) {
         s.tamper = [md = pki::digest("sha256", s.content)](Bytes &d) { FlipIn(d, md); };
     },
     CMSV_ERR_SIGNED_ATTRS, 0, nullptr},

    // Revocation of the code signer (mode 0: by date whatever the reason).
    {"SignerSupersededBeforeGenTime", Revoke(1, &World::signer, kBefore, kSuperseded),
     CMSV_ERR_CERT_REVOKED, 0, nullptr},
    {"SignerSupersededAfterGenTime", Revoke(1, &World::signer, kAfter, kSuperseded), CMSV_OK, 1,
     kByDate},
    {"SignerKeyCompromiseAfterGenTime", Revoke(1, &World::signer, kAfter, kKeyCompromise), CMSV_OK,
     1, kByDate},
    {"SignerNoReasonAfterGenTime", Revoke(1, &World::signer, kAfter, std::nullopt), CMSV_OK, 1,
     kByDate},
    {"SignerTwentiethEntry",
     [](Scenario &s) {
         auto revoked = Filler(19);
         revoked.push_back(Revoked(s.w.signer, kBefore, kSuperseded));
         s.crlBundle[1] = Crl(s.w.ca, revoked);
     },
     CMSV_ERR_CERT_REVOKED, 0, nullptr},
    {"CrlWithTwentyOneEntries", [](Scenario &s) { s.crlBundle[1] = Crl(s.w.ca, Filler(21)); },
     CMSV_ERR_CRL_BUNDLE, 0, "the engine reads at most 20 entries per CRL"},
    {"IndirectCrlRevokesSigner",
     [](Scenario &s) {
         s.crlBundle[1] = Crl(s.w.root, {Revoked(s.w.signer, kBefore, kKeyCompromise)}, true);
     },
     CMSV_ERR_CERT_REVOKED, 0, nullptr},
    // Revocation of the TSA (mode 1: anything but reasons 3/4/5 revokes at once).
    {"TsaKeyCompromiseAfterGenTime", Revoke(0, &World::tsa, kAfter, kKeyCompromise),
     CMSV_ERR_CERT_REVOKED, 0, nullptr},
    {"TsaNoReasonAfterGenTime", Revoke(0, &World::tsa, kAfter, std::nullopt), CMSV_ERR_CERT_REVOKED,
     0, nullptr},
    {"TsaSupersededAfterGenTime", Revoke(0, &World::tsa, kAfter, kSuperseded), CMSV_OK, 1,
     "superseded after genTime leaves the TSA valid at genTime"},
    {"TsaSupersededBeforeGenTime", Revoke(0, &World::tsa, kBefore, kSuperseded),
     CMSV_ERR_CERT_REVOKED, 0, nullptr},
    // A CA is revoked at once unless the reason is 3/4/5.
    {"CaKeyCompromiseAfterGenTime", Revoke(0, &World::ca, kAfter, kKeyCompromise),
     CMSV_ERR_CERT_REVOKED, 0, nullptr},
    {"CaSupersededAfterGenTime", Revoke(0, &World::ca, kAfter, kSuperseded), CMSV_OK, 1,
     "superseded after genTime leaves the CA valid at genTime"},
    // Missing and stale CRLs.
    {"MissingCrlForTsa", [](Scenario &s) { s.crlBundle = {Crl(s.w.ca)}; }, CMSV_ERR_NO_CRL, 0,
     nullptr},
    {"MissingCrlForSigner", [](Scenario &s) { s.crlBundle = {Crl(s.w.root)}; }, CMSV_ERR_NO_CRL, 0,
     nullptr},
    {"StaleCrl", [](Scenario &s) { s.crlBundle[1] = Crl(s.w.ca, {}, false, kGenTime - 1); },
     CMSV_ERR_NO_CRL, 0, nullptr},
    {"StaleCrlListingSignerStillUsed",
     Revoke(1, &World::signer, kBefore, kKeyCompromise, kGenTime - 1), CMSV_ERR_CERT_REVOKED, 0,
     nullptr},
    {"StaleCrlListingSignerLaterRevocation",
     Revoke(1, &World::signer, kAfter, kSuperseded, kGenTime - 1), CMSV_OK, 1,
     "a stale CRL that lists the certificate is still used; OpenSSL refuses an expired CRL"},
    {"PemCrl", [](Scenario &s) { s.pemCrls = true; }, CMSV_ERR_CRL_BUNDLE, 0,
     "the engine reads DER only; OpenSSL was given the same CRLs in PEM"},
};

class SignatureTest : public ::testing::TestWithParam<Case> {};

TEST_P(SignatureTest, EngineVerdictAndOpenSslOpinion) {
    const Case &c = GetParam();
    Scenario s;
    c.tweak(s);
    const Material m = Build(s);
    if (s.alterContent) {
        s.content[100] ^= 0x01;
    }
    const Verdict v = RunEngine(s, m);
    EXPECT_EQ(v.status, c.status) << std::hex << v.status;
    EXPECT_EQ(v.result, c.result);

    const bool openssl = OpenSslAccepts(s, m);
    if (c.disagreement == nullptr) {
        EXPECT_EQ(openssl, v.accepted()) << "OpenSSL disagrees without a recorded reason";
    } else {
        EXPECT_NE(openssl, v.accepted()) << "recorded disagreement no longer holds";
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, SignatureTest, ::testing::ValuesIn(kCases),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(DetachedStreamTest, OneMebibyteInSmallChunks) {
    Scenario s;
    s.content = Bytes(1 << 20);
    for (size_t i = 0; i < s.content.size(); ++i) {
        s.content[i] = static_cast<uint8_t>(i ^ (i >> 8));
    }
    for (bool signedAttrs : {true, false}) {
        s.sign.signed_attrs = signedAttrs;
        const Verdict v = RunEngine(s, Build(s), 256);
        EXPECT_EQ(v.status, CMSV_OK) << std::hex << v.status;
        EXPECT_EQ(v.result, 1u) << "signed attributes " << signedAttrs;
    }
}

TEST(DetachedStreamTest, CallOrder) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    const uint8_t byte = 0;
    EXPECT_EQ(cmsv_verify_detach_signature_update(ctx, &byte, 1), CMSV_ERR_NO_WORK);
    // Without work items final reports success: callers must stop on a failed begin.
    uint32_t result = 0;
    EXPECT_EQ(cmsv_verify_detach_signature_final(ctx, &result), CMSV_OK);
    EXPECT_EQ(result, 1u);

    // A failed begin leaves nothing to stream into.
    Scenario s;
    s.timestamp = false;
    const Material m = Build(s);
    EXPECT_EQ(cmsv_verify_detach_signature_begin(ctx, m.signature.data(),
                                                 static_cast<uint32_t>(m.signature.size())),
              CMSV_ERR_PARAM);
    EXPECT_EQ(cmsv_verify_detach_signature_update(ctx, &byte, 1), CMSV_ERR_NO_WORK);
}

}  // namespace
}  // namespace pkitest
