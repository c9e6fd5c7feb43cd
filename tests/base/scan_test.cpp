#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "base/bounded.h"

namespace {

// A buffer followed by a canary, to show a conversion never writes past its size.
template <size_t N>
struct Guarded {
    char text[N];
    char guard[8];
    Guarded() {
        std::memset(text, '#', N);
        std::memset(guard, '!', sizeof guard);
    }
    bool intact() const { return std::string(guard, sizeof guard) == std::string(8, '!'); }
};

TEST(ScanNumbers, ConversionsAndLengthModifiers) {
    unsigned hex = 0;
    unsigned long big = 0;
    float f = 0;
    double d = 0;
    EXPECT_EQ(sscanf_s("ff 123456789012 3.5 -2e3", "%x %lu %f %lf", &hex, &big, &f, &d), 4);
    EXPECT_EQ(hex, 0xffu);
    EXPECT_EQ(big, 123456789012ul);
    EXPECT_FLOAT_EQ(f, 3.5f);
    EXPECT_DOUBLE_EQ(d, -2000.0);

    struct {
        signed char value;
        char after;
    } small{0, '!'};
    long long wide = 0;
    EXPECT_EQ(sscanf_s("-5 9000000000", "%hhd %lld", &small.value, &wide), 2);
    EXPECT_EQ(small.value, -5);
    EXPECT_EQ(small.after, '!');
    EXPECT_EQ(wide, 9000000000ll);
}

TEST(ScanStrings, TooSmallFailsThatConversion) {
    int number = 0;
    Guarded<4> word;
    EXPECT_EQ(sscanf_s("7 hello", "%d %s", &number, word.text, 4u), 1);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(word.text[0], '\0');
    EXPECT_TRUE(word.intact());
}

TEST(ScanStrings, ExactFitAndWidth) {
    Guarded<4> first;
    Guarded<4> second;
    EXPECT_EQ(sscanf_s("abc", "%s", first.text, 4u), 1);
    EXPECT_STREQ(first.text, "abc");
    EXPECT_EQ(sscanf_s("abcdef", "%3s%s", first.text, 4u, second.text, 4u), 2);
    EXPECT_STREQ(first.text, "abc");
    EXPECT_STREQ(second.text, "def");
    EXPECT_TRUE(first.intact() && second.intact());
    EXPECT_EQ(sscanf_s("abcd", "%s", first.text, 4u), 0) << "no room for the terminator";
    EXPECT_EQ(first.text[0], '\0');
    EXPECT_TRUE(first.intact());
}

TEST(ScanStrings, ScanSet) {
    char key[8];
    char value[8];
    EXPECT_EQ(sscanf_s("mode=fast", "%[^=]=%s", key, 8u, value, 8u), 2);
    EXPECT_STREQ(key, "mode");
    EXPECT_STREQ(value, "fast");
    EXPECT_EQ(sscanf_s("]]x", "%[]]", key, 8u), 1) << "']' first belongs to the set";
    EXPECT_STREQ(key, "]]");

    Guarded<3> small;
    EXPECT_EQ(sscanf_s("abcd", "%[a-z]", small.text, 3u), 0);
    EXPECT_EQ(small.text[0], '\0');
    EXPECT_TRUE(small.intact());
}

TEST(ScanStrings, CharsAreNotTerminated) {
    Guarded<2> pair;
    EXPECT_EQ(sscanf_s("xyz", "%2c", pair.text, 2u), 1);
    EXPECT_EQ(std::string(pair.text, 2), "xy");
    EXPECT_TRUE(pair.intact());
    EXPECT_EQ(sscanf_s("xyz", "%2c", pair.text, 1u), 0);
    char one = 0;
    EXPECT_EQ(sscanf_s(" q", "%c", &one, 1u), 1);
    EXPECT_EQ(one, ' ') << "%c does not skip white space";
}

TEST(ScanStrings, WideString) {
    wchar_t fits[4];
    wchar_t small[3];
    EXPECT_EQ(sscanf_s("abc", "%ls", fits, 4u), 1);
    EXPECT_STREQ(fits, L"abc");
    EXPECT_EQ(sscanf_s("abc", "%ls", small, 3u), 0);
    EXPECT_EQ(small[0], L'\0');
}

TEST(ScanDirectives, SuppressedTakeNoArgumentsAndCountPosition) {
    int value = 0;
    int position = 0;
    EXPECT_EQ(sscanf_s("skip  42 rest", "%*s %d%n", &value, &position), 1);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(position, 8);
    unsigned percent = 0;
    EXPECT_EQ(sscanf_s("50 %", "%u %%", &percent), 1);
    EXPECT_EQ(percent, 50u);
}

TEST(ScanDirectives, FailuresBeforeAndAfterFirstConversion) {
    int a = -1;
    int b = -1;
    char text[4];
    EXPECT_EQ(sscanf_s("", "%d", &a), EOF);
    EXPECT_EQ(sscanf_s("   ", "%s", text, 4u), EOF);
    EXPECT_EQ(sscanf_s(nullptr, "%d", &a), EOF);
    EXPECT_EQ(sscanf_s("1", nullptr), EOF);
    EXPECT_EQ(sscanf_s("abc", "%d", &a), 0) << "matching failure, not input failure";
    EXPECT_EQ(sscanf_s("3-4", "%d+%d", &a, &b), 1);
    EXPECT_EQ(sscanf_s("3", "%d %d", &a, &b), 1);
    EXPECT_EQ(b, -1);
    EXPECT_EQ(sscanf_s("3 4", "%d %q", &a, &b), 1) << "an unknown conversion stops scanning";
}

}  // namespace
