// The crypto provider's callback table: digests against NIST vectors, RSA PKCS#1
// v1.5 verification against signatures made by OpenSSL, and the system slots'
// statuses.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "log_reader.h"
#include "pki.h"
#include "tavo/tavo_upgrade.h"
#include "upgrade/upgrade_cmsv_callback.h"

namespace {

using tavo::test::kErrLog;
using tavo::test::logged;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kFail = 0xFFFFFFFFu;
constexpr const char *kNist448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";

std::string hex(const uint8_t *data, uint32_t len) {
    return tavo::pki::hex(Bytes(data, data + len));
}

class ProviderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tavo::test::remove_logs();
        ASSERT_EQ(CmsvSetCallbackFuncs(&funcs_), 0);
    }

    // Digest of `message` fed in pieces of `step` bytes (0: in one piece).
    std::string digest(uint32_t hashId, const std::string &message, std::size_t step = 0) {
        void *md = nullptr;
        EXPECT_EQ(funcs_.mdCtxCreate(&md), 0u);
        EXPECT_EQ(funcs_.mdInit(md, hashId), 0u);
        const auto *bytes = reinterpret_cast<const uint8_t *>(message.data());
        std::size_t piece = step == 0 ? message.size() : step;
        for (std::size_t at = 0; at < message.size(); at += piece) {
            uint32_t len = static_cast<uint32_t>(std::min(piece, message.size() - at));
            EXPECT_EQ(funcs_.mdUpdate(md, bytes + at, len), 0u);
            // empty updates between the pieces change nothing
            EXPECT_EQ(funcs_.mdUpdate(md, bytes, 0), 0u);
            EXPECT_EQ(funcs_.mdUpdate(md, nullptr, 3), 0u);
        }
        uint8_t out[tavo::upgrade::kCvbDigestMax] = {};
        uint32_t len = 0;
        EXPECT_EQ(funcs_.mdFinal(md, out, &len), 0u);
        funcs_.mdCtxDestroy(md);
        return hex(out, len);
    }

    CmsvCallbackFuncs funcs_{};
};

TEST_F(ProviderTest, TableHasItsSizeWordsAndEmptyReservedSlots) {
    EXPECT_EQ(funcs_.size, 248u);
    EXPECT_EQ(funcs_.sysSize, 144u);
    EXPECT_EQ(funcs_.sysInnerSize, 136u);
    EXPECT_EQ(funcs_.verifySize, 48u);
    EXPECT_EQ(funcs_.mdSize, 48u);
    EXPECT_NE(funcs_.vsnprintfFn, nullptr);
    for (void *slot : funcs_.reserved) {
        EXPECT_EQ(slot, nullptr);
    }
    EXPECT_EQ(CmsvSetCallbackFuncs(nullptr), -1);
    EXPECT_TRUE(logged(kErrLog, "upgrade_cmsv_callback,CmsvSetCallbackFuncs",
                       "Input parameter error : pFuncs is null.\r\n\r\n"));
}

struct Vector {
    uint32_t hashId;
    std::string message;
    const char *expected;
};

class DigestVectors : public ProviderTest, public ::testing::WithParamInterface<Vector> {};

TEST_P(DigestVectors, OneShotAndIncrementalGiveTheKnownDigest) {
    const Vector &v = GetParam();
    EXPECT_EQ(digest(v.hashId, v.message), v.expected);
    EXPECT_EQ(digest(v.hashId, v.message, 1), v.expected);
    EXPECT_EQ(digest(v.hashId, v.message, 7), v.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Nist, DigestVectors,
    ::testing::Values(
        // SHA-256
        Vector{AOID_SHA256, "abc",
               "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        Vector{AOID_SHA256, kNist448,
               "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        Vector{AOID_SHA256, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        // SHA-384: a truncated SHA-512 with its own initial values
        Vector{AOID_SHA384, "abc",
               "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc23"
               "58baeca134c825a7"},
        Vector{AOID_SHA384, kNist448,
               "3391fdddfc8dc7393707a65b1b4709397cf8b1d162af05abfe8f450de5f36bc6b0455a8520bc4e6f"
               "5fe95b1fe3c8452b"},
        // SHA-512
        Vector{AOID_SHA512, "abc",
               "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a8"
               "36ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
        Vector{AOID_SHA512, kNist448,
               "204a8fc6dda82f0a0ced7beb8e08a41657c16ef468b228a8279be331a703c33596fd15c13b1b07f9"
               "aa1d3bea57789ca031ad85c7a71dd70354ec631238ca3445"},
        // a million 'a': many blocks through the incremental path
        Vector{AOID_SHA256, std::string(1000000, 'a'),
               "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}));

class UnknownHash : public ProviderTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(UnknownHash, InitUpdateAndFinalRefuseIt) {
    uint32_t id = GetParam();
    std::string record =
        "Undefined hash algorithm : hash_algo = " + std::to_string(id) + "\r\n\r\n";
    void *md = nullptr;
    ASSERT_EQ(funcs_.mdCtxCreate(&md), 0u);
    EXPECT_EQ(funcs_.mdInit(md, id), kFail);
    EXPECT_TRUE(logged(kErrLog, "upgrade_cmsv_callback,CvbMdInitImpl", record));
    const uint8_t data[] = {1, 2, 3};
    EXPECT_EQ(funcs_.mdUpdate(md, data, sizeof(data)), kFail);
    EXPECT_TRUE(logged(kErrLog, "upgrade_cmsv_callback,CvbMdUpdateImpl", record));
    uint8_t out[64] = {};
    uint32_t len = 0;
    EXPECT_EQ(funcs_.mdFinal(md, out, &len), kFail);
    EXPECT_TRUE(logged(kErrLog, "upgrade_cmsv_callback,CvbMdFinalImpl", record));
    EXPECT_EQ(len, 0u);
    funcs_.mdCtxDestroy(md);
}

INSTANTIATE_TEST_SUITE_P(Ids, UnknownHash, ::testing::Values(0u, 46u));

// An RSA key as the engine hands it over, and a private key to sign with.
struct RsaKey {
    tavo::pki::Key key;
    CmsvKeyPart e{};
    CmsvKeyPart n{};
};

RsaKey make_key(int bits) {
    RsaKey out{tavo::pki::make_rsa_key(bits)};
    for (auto [name, part] :
         {std::pair{OSSL_PKEY_PARAM_RSA_E, &out.e}, std::pair{OSSL_PKEY_PARAM_RSA_N, &out.n}}) {
        BIGNUM *bn = nullptr;
        EXPECT_EQ(EVP_PKEY_get_bn_param(out.key.get(), name, &bn), 1);
        part->len = static_cast<uint32_t>(BN_bn2bin(bn, part->data));
        BN_free(bn);
    }
    return out;
}

Bytes rsa_sign(const tavo::pki::Key &key, const char *digest, const std::string &message) {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EXPECT_EQ(
        EVP_DigestSignInit_ex(ctx.get(), nullptr, digest, nullptr, nullptr, key.get(), nullptr), 1);
    std::size_t len = 0;
    const auto *data = reinterpret_cast<const unsigned char *>(message.data());
    EXPECT_EQ(EVP_DigestSign(ctx.get(), nullptr, &len, data, message.size()), 1);
    Bytes sig(len);
    EXPECT_EQ(EVP_DigestSign(ctx.get(), sig.data(), &len, data, message.size()), 1);
    sig.resize(len);
    return sig;
}

struct VerifyCase {
    const char *what;
    int bits;
    const char *signDigest;  // digest OpenSSL signs with
    uint32_t verifyId;       // hash id the context is initialised with
    int tamper;              // 0 none, 1 drop the last byte, 2 flip a byte, 3 other message
    uint32_t status;
    uint32_t result;
};

class RsaVerify : public ProviderTest, public ::testing::WithParamInterface<VerifyCase> {
  protected:
    static RsaKey &key(int bits) {
        static RsaKey k2048 = make_key(2048);
        static RsaKey k4096 = make_key(4096);
        return bits == 4096 ? k4096 : k2048;
    }
};

TEST_P(RsaVerify, FinalReportsWhetherTheSignatureHolds) {
    const VerifyCase &c = GetParam();
    RsaKey &k = key(c.bits);
    const std::string message = "file list bytes";
    Bytes sig = rsa_sign(k.key, c.signDigest, c.tamper == 3 ? "other bytes" : message);
    if (c.tamper == 1) {
        sig.pop_back();
    } else if (c.tamper == 2) {
        sig[sig.size() / 2] ^= 0x01;
    }
    void *vrf = nullptr;
    ASSERT_EQ(funcs_.verifyCtxCreate(&vrf), 0u);
    ASSERT_EQ(funcs_.verifyInit(vrf, &k.e, &k.n, c.verifyId), 0u);
    ASSERT_EQ(funcs_.verifyUpdate(vrf, reinterpret_cast<const uint8_t *>(message.data()),
                                  static_cast<uint32_t>(message.size())),
              0u);
    uint32_t result = 7;
    EXPECT_EQ(funcs_.verifyFinal(vrf, sig.data(), static_cast<uint32_t>(sig.size()), &result),
              c.status);
    EXPECT_EQ(result, c.result);
    funcs_.verifyCtxDestroy(vrf);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RsaVerify,
    ::testing::Values(VerifyCase{"sha256_2048", 2048, "SHA256", AOID_SHA256, 0, 0, 1},
                      VerifyCase{"sha384_2048", 2048, "SHA384", AOID_SHA384, 0, 0, 1},
                      VerifyCase{"sha512_4096", 4096, "SHA512", AOID_SHA512, 0, 0, 1},
                      // the same SHA-384 signature checked as SHA-512: digest and DigestInfo differ
                      VerifyCase{"sha384_as_sha512", 2048, "SHA384", AOID_SHA512, 0, kFail, 0},
                      // one byte short of the key length: refused before mbedtls sees it
                      VerifyCase{"short_signature", 2048, "SHA256", AOID_SHA256, 1, kFail, 0},
                      VerifyCase{"flipped_bit", 4096, "SHA256", AOID_SHA256, 2, kFail, 0},
                      VerifyCase{"other_message", 2048, "SHA256", AOID_SHA256, 3, kFail, 0}),
    [](const auto &p) { return std::string(p.param.what); });

struct StringCase {
    const char *what;
    const char *dest;
    std::size_t destMax;
    const char *src;
    uint32_t status;
    const char *after;
};

class Strcat : public ProviderTest, public ::testing::WithParamInterface<StringCase> {};

TEST_P(Strcat, StatusIsTurnedRound) {
    const StringCase &c = GetParam();
    char buffer[16] = {};
    std::strcpy(buffer, c.dest);
    EXPECT_EQ(funcs_.strcatS(buffer, c.destMax, c.src), c.status);
    EXPECT_STREQ(buffer, c.after);
}

INSTANTIATE_TEST_SUITE_P(Cases, Strcat,
                         ::testing::Values(
                             // a concatenation that fits reports 0x880004FF
                             StringCase{"fits", "ab", 8, "cd", CMSV_ERR_STR_RANGE, "abcd"},
                             // one that does not fit reports 0 (and leaves an empty string)
                             StringCase{"too_long", "ab", 4, "cd", 0, ""},
                             StringCase{"null_source", "ab", 8, nullptr, CMSV_ERR_PARAM, "ab"}),
                         [](const auto &p) { return std::string(p.param.what); });

}  // namespace
