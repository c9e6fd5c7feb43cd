// Name comparison and the readable name, on hand-made DER Names.
#include "x509_test_util.h"

namespace x509test {
namespace {

// Content octets of the attribute types.
const Bytes kCn{0x55, 0x04, 0x03};
const Bytes kL{0x55, 0x04, 0x07};
const Bytes kSt{0x55, 0x04, 0x08};
const Bytes kO{0x55, 0x04, 0x0A};
const Bytes kOu{0x55, 0x04, 0x0B};
const Bytes kC{0x55, 0x04, 0x06};
const Bytes kEmail{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x01};

Bytes Cn(const std::string &value) {
    return Atv(kCn, Utf8(value));
}

struct CompareCase {
    const char *what;
    Bytes a;
    Bytes b;
    uint32_t expected;
};

const CompareCase kCompareCases[] = {
    // Only the first attribute of a multi-valued RDN is compared.
    {"second_attribute_ignored", NameDer({Rdn({Atv(kO, Utf8("tavo")), Atv(kOu, Utf8("fw-a"))})}),
     NameDer({Rdn({Atv(kO, Utf8("tavo")), Atv(kOu, Utf8("fw-b"))})}), CMSV_OK},
    // A different first attribute value.
    {"first_value", NameDer({Rdn({Cn("a")})}), NameDer({Rdn({Cn("b")})}), CMSV_ERR_GENERIC},
    // Same value under a different attribute type.
    {"first_type", NameDer({Rdn({Cn("a")})}), NameDer({Rdn({Atv(kO, Utf8("a"))})}),
     CMSV_ERR_GENERIC},
    // One RDN more.
    {"rdn_count", NameDer({Rdn({Cn("a")})}), NameDer({Rdn({Cn("a")}), Rdn({Cn("a")})}),
     CMSV_ERR_GENERIC},
    // String type is not compared: PrintableString and UTF8String with equal bytes.
    {"string_type", NameDer({Rdn({Atv(kC, Tlv(0x13, {'C', 'N'}))})}),
     NameDer({Rdn({Atv(kC, Utf8("CN"))})}), CMSV_OK},
    // A value that is a prefix of the other.
    {"prefix", NameDer({Rdn({Cn("ab")})}), NameDer({Rdn({Cn("abc")})}), CMSV_ERR_GENERIC},
};

TEST(NameCompare, Result) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    for (const CompareCase &c : kCompareCases) {
        NameRecord a(ctx, c.a);
        NameRecord b(ctx, c.b);
        ASSERT_EQ(a.status | b.status, CMSV_OK) << c.what;
        EXPECT_EQ(cmsv_compare_x509_name(ctx, a.get(), b.get()), c.expected) << c.what;
        EXPECT_EQ(cmsv_compare_x509_name(ctx, b.get(), a.get()), c.expected) << c.what;
    }
}

struct ReadableCase {
    const char *what;
    Bytes name;
    std::string expected;
};

const std::string k120(120, 'a');
const std::string k124(124, 'b');

const ReadableCase kReadableCases[] = {
    // Every short prefix, in encoding order.
    {"prefixes",
     NameDer({Rdn({Atv(kC, Utf8("c"))}), Rdn({Atv(kSt, Utf8("s"))}), Rdn({Atv(kL, Utf8("l"))}),
              Rdn({Atv(kO, Utf8("o"))}), Rdn({Atv(kOu, Utf8("u"))}), Rdn({Cn("n")}),
              Rdn({Atv(kEmail, Tlv(0x16, {'e'}))})}),
     "C=c,S=s,L=l,O=o,OU=u,CN=n,E=e"},
    // Each attribute of a multi-valued RDN is its own component.
    {"multi_valued", NameDer({Rdn({Atv(kO, Utf8("o")), Atv(kOu, Utf8("u"))}), Rdn({Cn("n")})}),
     "O=o,OU=u,CN=n"},
    // A known OID that has no short name.
    {"other_known_type", NameDer({Rdn({Atv({0x55, 0x1D, 0x0F}, Utf8("v"))})}), "xx=v"},
    // "CN=" + 125 characters is 128: the last one goes.
    {"component_of_128", NameDer({Rdn({Cn(k124 + "X")})}), "CN=" + k124},
    // "CN=" + 126 characters does not fit: the prefix stays alone.
    {"component_over_128", NameDer({Rdn({Cn(k124 + "XY")}), Rdn({Cn("n")})}), "CN=,CN=n"},
    // 247 characters so far; OU (23) would pass 255 and is left out, C (4) still fits.
    {"cut_skips_rdn",
     NameDer({Rdn({Cn(k120)}), Rdn({Atv(kO, Utf8(k120))}),
              Rdn({Atv(kOu, Utf8(std::string(20, 'u')))}), Rdn({Atv(kC, Utf8("ab"))})}),
     "CN=" + k120 + ",O=" + k120 + ",C=ab"},
    // The rest of an RDN whose component does not fit is left out with it.
    {"cut_skips_rest_of_rdn",
     NameDer({Rdn({Cn(k120)}), Rdn({Atv(kO, Utf8(k120))}),
              Rdn({Atv(kOu, Utf8(std::string(20, 'u'))), Atv(kC, Utf8("ab"))}),
              Rdn({Atv(kL, Utf8("x"))})}),
     "CN=" + k120 + ",O=" + k120 + ",L=x"},
    // No RDN at all.
    {"empty", NameDer({}), ""},
};

TEST(ReadableName, Text) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    for (const ReadableCase &c : kReadableCases) {
        NameRecord name(ctx, c.name);
        ASSERT_EQ(name.status, CMSV_OK) << c.what;
        char *text = nullptr;
        uint32_t len = 0;
        ASSERT_EQ(cmsv_convert_from_x509_name(ctx, name.get(), &text, &len), CMSV_OK) << c.what;
        EXPECT_EQ(std::string(text), c.expected) << c.what;
        EXPECT_EQ(len, c.expected.size()) << c.what;
        cmsv_free(ctx, text);
    }
}

TEST(ReadableNameErrors, AttributeOutsideTableFails) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok());
    NameRecord name(ctx, NameDer({Rdn({Cn("n")}), Rdn({Atv({0x2A, 0x03, 0x04}, Utf8("v"))})}));
    ASSERT_EQ(name.status, CMSV_OK);
    char *text = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(cmsv_convert_from_x509_name(ctx, name.get(), &text, &len), CMSV_ERR_NAME_ATTRIBUTE);
    EXPECT_EQ(text, nullptr);
}

}  // namespace
}  // namespace x509test
