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

struct DecodeCase {
    const char *why;
    const CmsvAsnItem *item;
    Bytes der;
    uint32_t status;
    uint32_t consumed;  // on success
    int64_t word;       // first 32-bit word of the record, or -1 for "not checked"
};

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

TEST(CmsvDecode, HostileAndEdgeInputs) {
    const Bytes keyUsageOid = Oid({0x55, 0x1D, 0x0F});
    const DecodeCase cases[] = {
        {"high-tag-number form", &CMSV_ASN_OCTS_item, {0x1F, 0x01, 0x00}, CMSV_ERR_ASN_TAG, 0, -1},
        {"indefinite length",
         &CMSV_ASN_OCTS_item,
         {0x04, 0x80, 0x00, 0x00},
         CMSV_ERR_ASN_LENGTH,
         0,
         -1},
        {"five length octets",
         &CMSV_ASN_OCTS_item,
         {0x04, 0x85, 0, 0, 0, 0, 1, 0},
         CMSV_ERR_ASN_LENGTH,
         0,
         -1},
        {"length past the input",
         &CMSV_ASN_OCTS_item,
         {0x04, 0x05, 0x01, 0x02},
         CMSV_ERR_ASN_LENGTH,
         0,
         -1},
        {"length octets cut off",
         &CMSV_ASN_OCTS_item,
         {0x04, 0x82, 0x00},
         CMSV_ERR_ASN_LENGTH,
         0,
         -1},
        {"non-minimal length accepted",
         &CMSV_ASN_OCTS_item,
         {0x04, 0x81, 0x01, 0xAA},
         CMSV_OK,
         4,
         1},
        {"wrong tag for a capture",
         &CMSV_ASN_BIGINT_item,
         {0x04, 0x01, 0x00},
         CMSV_ERR_ASN_TAG_MISMATCH,
         0,
         -1},
        {"wrong tag for a sequence",
         &kSeqOneInt,
         {0x31, 0x03, 0x02, 0x01, 0x05},
         CMSV_ERR_ASN_TAG,
         0,
         -1},
        {"spare byte inside the SEQUENCE",
         &kSeqOneInt,
         {0x30, 0x04, 0x02, 0x01, 0x05, 0x00},
         CMSV_ERR_ASN_SEQUENCE,
         0,
         -1},
        {"spare byte after the element",
         &kSeqOneInt,
         {0x30, 0x03, 0x02, 0x01, 0x05, 0x00},
         CMSV_OK,
         5,
         5},
        {"INTEGER running past its SEQUENCE",
         &kSeqOneInt,
         {0x30, 0x03, 0x02, 0x02, 0x05, 0x06},
         CMSV_ERR_ASN_LENGTH,
         0,
         -1},
        {"mandatory field missing",
         &kSeqTwoInts,
         {0x30, 0x03, 0x02, 0x01, 0x05},
         CMSV_ERR_ASN_SEQUENCE,
         0,
         -1},
        {"INTEGER sign-extended", &CMSV_ASN_INT_item, {0x02, 0x02, 0xFF, 0x7F}, CMSV_OK, 4, -129},
        {"INTEGER of five bytes",
         &CMSV_ASN_INT_item,
         {0x02, 0x05, 1, 2, 3, 4, 5},
         CMSV_ERR_ASN_INTEGER,
         0,
         -1},
        {"empty INTEGER", &CMSV_ASN_INT_item, {0x02, 0x00}, CMSV_ERR_ASN_INTEGER, 0, -1},
        {"BOOLEAN 01 is FALSE", &CMSV_ASN_BOOL_item, {0x01, 0x01, 0x01}, CMSV_OK, 3, 0},
        {"BOOLEAN FF is TRUE", &CMSV_ASN_BOOL_item, {0x01, 0x01, 0xFF}, CMSV_OK, 3, 1},
        {"BOOLEAN of two bytes",
         &CMSV_ASN_BOOL_item,
         {0x01, 0x02, 0xFF, 0xFF},
         CMSV_ERR_ASN_BOOLEAN,
         0,
         -1},
        {"constructed BIT STRING",
         &CMSV_ASN_BITS_item,
         {0x23, 0x03, 0x03, 0x01, 0x00},
         CMSV_ERR_ASN_BITS,
         0,
         -1},
        {"empty BIT STRING", &CMSV_ASN_BITS_item, {0x03, 0x00}, CMSV_ERR_ASN_BITS, 0, -1},
        {"key usage of one byte", &kKeyUsage, {0x03, 0x02, 0x01, 0x86}, CMSV_OK, 4, 0x86},
        {"key usage of two bytes", &kKeyUsage, {0x03, 0x03, 0x07, 0x86, 0x80}, CMSV_OK, 5, 0x8680},
        {"key usage of three bytes",
         &kKeyUsage,
         {0x03, 0x04, 0x00, 1, 2, 3},
         CMSV_ERR_ASN_BITS,
         0,
         -1},
        {"EKU codeSigning first", &kEku, Wrap(0x30, kCodeSigning + kTimeStamping), CMSV_OK, 22,
         CMSV_EKU_CODE_SIGNING},
        {"EKU codeSigning second", &kEku, Wrap(0x30, kTimeStamping + kCodeSigning), CMSV_OK, 22,
         CMSV_EKU_TIME_STAMPING},
        {"EKU unknown first", &kEku, Wrap(0x30, Oid({0x2A}) + kCodeSigning), CMSV_OK, 15, 0},
        {"EKU of 11 OIDs", &kEku, Wrap(0x30, Repeat(kCodeSigning, 11)), CMSV_ERR_ASN_SET, 0, -1},
        {"Name of 10 RDNs", &CMSV_X509_NAME_item, Wrap(0x30, Repeat(Rdn(1), 10)), CMSV_OK, 122, 10},
        {"Name of 11 RDNs", &CMSV_X509_NAME_item, Wrap(0x30, Repeat(Rdn(1), 11)), CMSV_ERR_ASN_SET,
         0, -1},
        {"RDN of 11 attributes", &CMSV_X509_NAME_item, Wrap(0x30, Rdn(11)), CMSV_ERR_ASN_SET, 0,
         -1},
        {"RDN holding a non-attribute", &CMSV_X509_NAME_item, Wrap(0x30, Wrap(0x31, {0x05, 0x00})),
         CMSV_ERR_ASN_SET, 0, -1},
        {"unknown critical extension stepped over", &kKeyUsageMap,
         Wrap(0x30, Extension(Oid({0x2A, 0x03}), true, {0x05, 0x00}) +
                        Extension(keyUsageOid, false, {0x03, 0x02, 0x07, 0x80})),
         CMSV_OK, 28, 0x80},
        {"extension without a value", &kKeyUsageMap, Wrap(0x30, Wrap(0x30, keyUsageOid)),
         CMSV_ERR_ASN_SET, 0, -1},
        {"extension value with trailing bytes", &kKeyUsageMap,
         Wrap(0x30, Extension(keyUsageOid, false, {0x03, 0x02, 0x07, 0x80, 0x00})),
         CMSV_ERR_ASN_SET, 0, -1},
    };
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    for (const auto &c : cases) {
        void *record = nullptr;
        uint32_t consumed = 0;
        const uint32_t status = cmsv_asn_decode(
            ctx, c.der.data(), static_cast<uint32_t>(c.der.size()), c.item, 0, &record, &consumed);
        EXPECT_EQ(status, c.status) << c.why << std::hex << " got 0x" << status;
        if (status != CMSV_OK) {
            EXPECT_EQ(record, nullptr) << c.why;
            continue;
        }
        EXPECT_EQ(consumed, c.consumed) << c.why;
        if (c.word != -1) {
            EXPECT_EQ(*static_cast<int32_t *>(record), static_cast<int32_t>(c.word)) << c.why;
        }
        cmsv_asn_free(ctx, record);
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
    const Case cases[] = {
        {"BIGINT drops the sign octet", &CMSV_ASN_BIGINT_item, 0, {0x02, 0x02, 0x00, 0x80}, {0x80}},
        {"raw keeps the header",
         &CMSV_ASN_BIGINT_item,
         CMSV_ASN_FLAG_RAW,
         {0x02, 0x02, 0x00, 0x80},
         {0x02, 0x02, 0x00, 0x80}},
        {"BIT STRING drops unused-bits octet",
         &CMSV_ASN_BITS_item,
         0,
         {0x03, 0x03, 0x00, 0xAB, 0xCD},
         {0xAB, 0xCD}},
        {"empty value", &CMSV_ASN_OCTS_item, 0, {0x05, 0x00}, {}},
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
