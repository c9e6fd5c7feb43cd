#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "cmsv/cmsv_asn_decode.h"
#include "tavo/cmsv.h"
#include "tests/cmsv/cmsv_test_context.h"

namespace {

using Bytes = std::vector<uint8_t>;

// SEQUENCE { INTEGER } and SEQUENCE { INTEGER, INTEGER } into int32 words.
const CmsvAsnField kOneInt[] = {{&CMSV_ASN_INT_item, 0, 0, 0, 0, 0}};
const CmsvAsnItem kSeqOneInt = {kOneInt, &g_cvbAsnFuncSeq, 0, 1, 16, 1, 4};
const CmsvAsnField kTwoInts[] = {{&CMSV_ASN_INT_item, 0, 0, 0, 0, 0},
                                 {&CMSV_ASN_INT_item, 0, 0, 0, 4, 0}};
const CmsvAsnItem kSeqTwoInts = {kTwoInts, &g_cvbAsnFuncSeq, 0, 1, 16, 2, 8};
// keyUsage and extKeyUsage decoders, and an extension map reading keyUsage.
const CmsvAsnItem kKeyUsage = {nullptr, &g_cvbAsnFuncBitsToInt, 0, 0, 3, 0, 4};
const CmsvAsnItem kEku = {nullptr, &g_cvbAsnFuncExku, 0, 1, 16, 0, 4};
const CmsvAsnField kMapFields[] = {{&kKeyUsage, AOID_CE_KEYUSAGE, 0, 1, 0, 0}};
const CmsvAsnItem kKeyUsageMap = {kMapFields, &g_cvbAsnFuncMap, 0, 1, 16, 1, 4};

// Concatenation for building DER by hand.
Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes Oid(const Bytes &content) {
    Bytes out{0x06, static_cast<uint8_t>(content.size())};
    out.insert(out.end(), content.begin(), content.end());
    return out;
}
Bytes Wrap(uint8_t tag, const Bytes &content) {
    Bytes out{tag};
    if (content.size() >= 128) {
        out.push_back(0x82);
        out.push_back(static_cast<uint8_t>(content.size() >> 8));
    }
    out.push_back(static_cast<uint8_t>(content.size()));
    out.insert(out.end(), content.begin(), content.end());
    return out;
}
Bytes Repeat(const Bytes &part, int n) {
    Bytes out;
    for (int i = 0; i < n; ++i) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

const Bytes kCodeSigning = Oid({0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03});
const Bytes kTimeStamping = Oid({0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08});
Bytes Attribute() {
    return Wrap(0x30, Oid({0x55, 0x04, 0x03}) + Bytes{0x0C, 0x01, 'a'});
}
Bytes Rdn(int attributes) {
    return Wrap(0x31, Repeat(Attribute(), attributes));
}
Bytes Extension(const Bytes &oid, bool critical, const Bytes &value) {
    return Wrap(0x30, oid + (critical ? Bytes{0x01, 0x01, 0xFF} : Bytes{}) + Wrap(0x04, value));
}

const CmsvAsnItem *const kOcts = &CMSV_ASN_OCTS_item;
const CmsvAsnItem *const kInt = &CMSV_ASN_INT_item;
const CmsvAsnItem *const kBool = &CMSV_ASN_BOOL_item;
const CmsvAsnItem *const kBits = &CMSV_ASN_BITS_item;
const CmsvAsnItem *const kName = &CMSV_X509_NAME_item;
const Bytes kKeyUsageOid = Oid({0x55, 0x1D, 0x0F});

struct Decoded {
    uint32_t status;
    uint32_t consumed;
    int32_t word;  // first 32-bit word of the record
};
Decoded DecodeOne(CmsvVrfCtx *ctx, const CmsvAsnItem *item, const Bytes &der) {
    void *record = nullptr;
    Decoded d{0, 0, 0};
    d.status = cmsv_asn_decode(ctx, der.data(), static_cast<uint32_t>(der.size()), item, 0, &record,
                               &d.consumed);
    if (record != nullptr) {
        EXPECT_EQ(d.status, CMSV_OK);
        d.word = *static_cast<int32_t *>(record);
        cmsv_asn_free(ctx, record);
    }
    return d;
}

struct RejectCase {
    const char *why;
    const CmsvAsnItem *item;
    Bytes der;
    uint32_t status;
};

TEST(CmsvDecode, HostileInputsAreRejectedWithoutARecord) {
    const RejectCase cases[] = {
        {"high-tag-number form", kOcts, {0x1F, 0x01, 0x00}, CMSV_ERR_ASN_TAG},
        {"indefinite length", kOcts, {0x04, 0x80, 0x00, 0x00}, CMSV_ERR_ASN_LENGTH},
        {"five length octets", kOcts, {0x04, 0x85, 0, 0, 0, 0, 1, 0}, CMSV_ERR_ASN_LENGTH},
        {"length past the input", kOcts, {0x04, 0x05, 0x01, 0x02}, CMSV_ERR_ASN_LENGTH},
        {"length octets cut off", kOcts, {0x04, 0x82, 0x00}, CMSV_ERR_ASN_LENGTH},
        {"wrong tag for a capture",
         &CMSV_ASN_BIGINT_item,
         {0x04, 0x01, 0x00},
         CMSV_ERR_ASN_TAG_MISMATCH},
        {"wrong tag for a sequence", &kSeqOneInt, {0x31, 0x03, 0x02, 0x01, 0x05}, CMSV_ERR_ASN_TAG},
        {"spare byte inside the SEQUENCE",
         &kSeqOneInt,
         {0x30, 0x04, 0x02, 0x01, 0x05, 0x00},
         CMSV_ERR_ASN_SEQUENCE},
        {"INTEGER running past its SEQUENCE",
         &kSeqOneInt,
         {0x30, 0x03, 0x02, 0x02, 0x05, 0x06},
         CMSV_ERR_ASN_LENGTH},
        {"mandatory field missing",
         &kSeqTwoInts,
         {0x30, 0x03, 0x02, 0x01, 0x05},
         CMSV_ERR_ASN_SEQUENCE},
        {"INTEGER of five bytes", kInt, {0x02, 0x05, 1, 2, 3, 4, 5}, CMSV_ERR_ASN_INTEGER},
        {"empty INTEGER", kInt, {0x02, 0x00}, CMSV_ERR_ASN_INTEGER},
        {"BOOLEAN of two bytes", kBool, {0x01, 0x02, 0xFF, 0xFF}, CMSV_ERR_ASN_BOOLEAN},
        {"constructed BIT STRING", kBits, {0x23, 0x03, 0x03, 0x01, 0x00}, CMSV_ERR_ASN_BITS},
        {"empty BIT STRING", kBits, {0x03, 0x00}, CMSV_ERR_ASN_BITS},
        {"key usage of three bytes", &kKeyUsage, {0x03, 0x04, 0x00, 1, 2, 3}, CMSV_ERR_ASN_BITS},
        {"EKU of 11 OIDs", &kEku, Wrap(0x30, Repeat(kCodeSigning, 11)), CMSV_ERR_ASN_SET},
        {"Name of 11 RDNs", kName, Wrap(0x30, Repeat(Rdn(1), 11)), CMSV_ERR_ASN_SET},
        {"RDN of 11 attributes", kName, Wrap(0x30, Rdn(11)), CMSV_ERR_ASN_SET},
        {"RDN holding a non-attribute", kName, Wrap(0x30, Wrap(0x31, {0x05, 0x00})),
         CMSV_ERR_ASN_SET},
        {"extension without a value", &kKeyUsageMap, Wrap(0x30, Wrap(0x30, kKeyUsageOid)),
         CMSV_ERR_ASN_SET},
        {"extension value with trailing bytes", &kKeyUsageMap,
         Wrap(0x30, Extension(kKeyUsageOid, false, {0x03, 0x02, 0x07, 0x80, 0x00})),
         CMSV_ERR_ASN_SET},
    };
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    for (const auto &c : cases) {
        EXPECT_EQ(DecodeOne(ctx, c.item, c.der).status, c.status) << c.why;
    }
}

struct AcceptCase {
    const char *why;
    const CmsvAsnItem *item;
    Bytes der;
    uint32_t consumed;
    int32_t word;
};

TEST(CmsvDecode, EdgeInputsAreAccepted) {
    const AcceptCase cases[] = {
        {"non-minimal length accepted", kOcts, {0x04, 0x81, 0x01, 0xAA}, 4, 1},
        {"spare byte after the element", &kSeqOneInt, {0x30, 0x03, 0x02, 0x01, 0x05, 0x00}, 5, 5},
        {"INTEGER sign-extended", kInt, {0x02, 0x02, 0xFF, 0x7F}, 4, -129},
        {"BOOLEAN 01 is FALSE", kBool, {0x01, 0x01, 0x01}, 3, 0},
        {"BOOLEAN FF is TRUE", kBool, {0x01, 0x01, 0xFF}, 3, 1},
        {"key usage of one byte", &kKeyUsage, {0x03, 0x02, 0x01, 0x86}, 4, 0x86},
        {"key usage of two bytes", &kKeyUsage, {0x03, 0x03, 0x07, 0x86, 0x80}, 5, 0x8680},
        {"EKU codeSigning first", &kEku, Wrap(0x30, kCodeSigning + kTimeStamping), 22,
         CMSV_EKU_CODE_SIGNING},
        {"EKU codeSigning second", &kEku, Wrap(0x30, kTimeStamping + kCodeSigning), 22,
         CMSV_EKU_TIME_STAMPING},
        {"EKU unknown first", &kEku, Wrap(0x30, Oid({0x2A}) + kCodeSigning), 15, 0},
        {"Name of 10 RDNs", kName, Wrap(0x30, Repeat(Rdn(1), 10)), 122, 10},
        {"unknown critical extension stepped over", &kKeyUsageMap,
         Wrap(0x30, Extension(Oid({0x2A, 0x03}), true, {0x05, 0x00}) +
                        Extension(kKeyUsageOid, false, {0x03, 0x02, 0x07, 0x80})),
         28, 0x80},
    };
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    for (const auto &c : cases) {
        const Decoded d = DecodeOne(ctx, c.item, c.der);
        EXPECT_EQ(d.status, CMSV_OK) << c.why << std::hex << " got 0x" << d.status;
        EXPECT_EQ(d.consumed, c.consumed) << c.why;
        EXPECT_EQ(d.word, c.word) << c.why;
    }
}

TEST(CmsvDecode, CapturedValues) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    struct Case {
        const char *why;
        const CmsvAsnItem *item;
        uint8_t flags;
        Bytes der;
        Bytes value;
    };
    const Bytes int80{0x02, 0x02, 0x00, 0x80};
    const Case cases[] = {
        {"BIGINT drops the sign octet", &CMSV_ASN_BIGINT_item, 0, int80, {0x80}},
        {"raw keeps the header", &CMSV_ASN_BIGINT_item, CMSV_ASN_FLAG_RAW, int80, int80},
        {"BIT STRING drops unused-bits octet",
         kBits,
         0,
         {0x03, 0x03, 0x00, 0xAB, 0xCD},
         {0xAB, 0xCD}},
        {"empty value", kOcts, 0, {0x05, 0x00}, {}},
    };
    for (const auto &c : cases) {
        void *record = nullptr;
        uint32_t consumed = 0;
        ASSERT_EQ(cmsv_asn_decode(ctx, c.der.data(), static_cast<uint32_t>(c.der.size()), c.item,
                                  c.flags, &record, &consumed),
                  CMSV_OK)
            << c.why;
        const auto *v = static_cast<const CmsvAsnOcts *>(record);
        EXPECT_EQ(Bytes(v->data, v->data + v->len), c.value) << c.why;
        cmsv_asn_free(ctx, record);
    }
}

TEST(CmsvOid, LookupsAndHashMapping) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    const uint8_t sha256Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B};
    CmsvAlgorithmIdentifier algo{};
    algo.algorithm = {sizeof(sha256Rsa), 0, 0, 6, sha256Rsa};
    EXPECT_EQ(cmsv_find_aoid(ctx, &algo.algorithm), AOID_SHA256WITHRSAENCRYPTION);
    EXPECT_EQ(cmsv_get_hash_aoid_from_sign(ctx, &algo), AOID_SHA256);
    algo.algorithm = *cmsv_find_oid(AOID_SHA512);  // a bare digest OID maps to itself
    EXPECT_EQ(cmsv_get_hash_aoid_from_sign(ctx, &algo), AOID_SHA512);
    algo.algorithm.len -= 1;  // a prefix is not a match
    EXPECT_EQ(cmsv_find_aoid(ctx, &algo.algorithm), AOID_UNKNOWN);
    EXPECT_EQ(cmsv_find_oid(46), nullptr);
    EXPECT_EQ(cmsv_compare_asn_octs(ctx, nullptr, &algo.algorithm), CMSV_ERR_GENERIC);
}

}  // namespace
