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
        return tavo::pki::hex(Bytes(out, out + len));
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

TEST_F(ProviderTest, DigestsOneShotAndIncrementalGiveTheKnownValue) {
    const struct {
        uint32_t hashId;
        std::string message;
        const char *expected;
    } vectors[] = {
        // SHA-256: one block, two blocks (448 bits), empty
        {AOID_SHA256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {AOID_SHA256, kNist448, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {AOID_SHA256, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        // SHA-384: a truncated SHA-512 with its own initial values
        {AOID_SHA384, "abc",
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc23"
         "58baeca134c825a7"},
        // SHA-512
        {AOID_SHA512, "abc",
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a8"
         "36ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
        // a million 'a': many blocks through the incremental path
        {AOID_SHA256, std::string(1000000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}};
    for (const auto &v : vectors) {
        for (std::size_t step : {0, 1, 7}) {
            EXPECT_EQ(digest(v.hashId, v.message, step), v.expected) << v.hashId << "/" << step;
        }
    }
}

TEST_F(ProviderTest, UnknownHashIsRefusedByInitUpdateAndFinal) {
    for (uint32_t id : {0u, 46u}) {
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
}

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

TEST_F(ProviderTest, RsaFinalReportsWhetherTheSignatureHolds) {
    static RsaKey k2048 = make_key(2048), k4096 = make_key(4096);
    enum Tamper { kNone, kDropLastByte, kFlipByte, kOtherMessage };
    const struct {
        const char *what;
        RsaKey &k;
        const char *signDigest;  // digest OpenSSL signs with
        uint32_t verifyId;       // hash id the context is initialised with
        Tamper tamper;
        uint32_t status, result;
    } cases[] = {
        {"sha256_2048", k2048, "SHA256", AOID_SHA256, kNone, 0, 1},
        {"sha384_2048", k2048, "SHA384", AOID_SHA384, kNone, 0, 1},
        {"sha512_4096", k4096, "SHA512", AOID_SHA512, kNone, 0, 1},
        // the same SHA-384 signature checked as SHA-512: digest and DigestInfo differ
        {"sha384_as_sha512", k2048, "SHA384", AOID_SHA512, kNone, kFail, 0},
        // one byte short of the key length: refused before mbedtls sees it
        {"short_signature", k2048, "SHA256", AOID_SHA256, kDropLastByte, kFail, 0},
        {"flipped_bit", k4096, "SHA256", AOID_SHA256, kFlipByte, kFail, 0},
        {"other_message", k2048, "SHA256", AOID_SHA256, kOtherMessage, kFail, 0},
    };
    const std::string message = "file list bytes";
    for (const auto &c : cases) {
        Bytes sig = rsa_sign(c.k.key, c.signDigest, c.tamper == kOtherMessage ? "other" : message);
        if (c.tamper == kDropLastByte) {
            sig.pop_back();
        } else if (c.tamper == kFlipByte) {
            sig[sig.size() / 2] ^= 0x01;
        }
        void *vrf = nullptr;
        ASSERT_EQ(funcs_.verifyCtxCreate(&vrf), 0u);
        ASSERT_EQ(funcs_.verifyInit(vrf, &c.k.e, &c.k.n, c.verifyId), 0u) << c.what;
        ASSERT_EQ(funcs_.verifyUpdate(vrf, reinterpret_cast<const uint8_t *>(message.data()),
                                      static_cast<uint32_t>(message.size())),
                  0u);
        uint32_t result = 7;
        EXPECT_EQ(funcs_.verifyFinal(vrf, sig.data(), static_cast<uint32_t>(sig.size()), &result),
                  c.status)
            << c.what;
        EXPECT_EQ(result, c.result) << c.what;
        funcs_.verifyCtxDestroy(vrf);
    }
}

TEST_F(ProviderTest, StrcatStatusIsTurnedRound) {
    const struct {
        const char *dest;
        std::size_t destMax;
        const char *src;
        uint32_t status;
        const char *after;
    } cases[] = {
        {"ab", 8, "cd", CMSV_ERR_STR_RANGE, "abcd"},  // a concatenation that fits: 0x880004FF
        {"ab", 4, "cd", 0, ""},                       // one that does not fit: 0, emptied
        {"ab", 8, nullptr, CMSV_ERR_PARAM, "ab"},
    };
    for (const auto &c : cases) {
        char buffer[16] = {};
        std::strcpy(buffer, c.dest);
        EXPECT_EQ(funcs_.strcatS(buffer, c.destMax, c.src), c.status) << c.destMax;
        EXPECT_STREQ(buffer, c.after);
    }
}

}  // namespace
