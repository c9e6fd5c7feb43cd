#include "base/bounded.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>

namespace {

using tavo::base::kBoundedInvalid;
using tavo::base::kBoundedMax;
using tavo::base::kBoundedOverlap;
using tavo::base::kBoundedRange;

constexpr size_t kDestMax = 8;
constexpr size_t kLead = 8;
constexpr unsigned char kCanary = 0xA5;
constexpr const char *kPattern = "0123456789abcdefghijklmnopqrstuvwxyz";

// dest[0..kDestMax) sits inside a larger array filled with a canary, so a write on
// either side of it shows.
struct Arena {
    std::array<char, 48> bytes;
    Arena() { bytes.fill(static_cast<char>(kCanary)); }
    char *dest() { return bytes.data() + kLead; }
    bool outside_equal(const Arena &other) const {
        return std::memcmp(bytes.data(), other.bytes.data(), kLead) == 0 &&
               std::memcmp(bytes.data() + kLead + kDestMax, other.bytes.data() + kLead + kDestMax,
                           bytes.size() - kLead - kDestMax) == 0;
    }
};

enum class OnFailure { kCleared, kTerminated, kFilled };

// Each op is driven by `need`: the number of dest bytes it writes when it succeeds,
// terminator included.
struct Op {
    const char *name;
    void (*prepare)(char *dest);
    int (*call)(char *dest, size_t destMax, size_t need, bool nullSrc);
    std::string (*expect)(size_t need);
    OnFailure on_failure;
};

const char *src_or_null(const char *src, bool nullSrc) {
    return nullSrc ? nullptr : src;
}
std::string pattern_bytes(size_t need) {
    return std::string(kPattern, need);
}
std::string pattern_string(size_t need) {
    return std::string(kPattern, need - 1) + '\0';
}
void prefix_01(char *dest) {
    std::memcpy(dest, "01", 3);
}

const Op kOps[] = {
    {"memcpy_s", nullptr,
     [](char *d, size_t m, size_t need, bool ns) {
         return memcpy_s(d, m, src_or_null(kPattern, ns), need);
     },
     pattern_bytes, OnFailure::kCleared},
    {"memmove_s", nullptr,
     [](char *d, size_t m, size_t need, bool ns) {
         return memmove_s(d, m, src_or_null(kPattern, ns), need);
     },
     pattern_bytes, OnFailure::kCleared},
    {"memset_s", nullptr,
     [](char *d, size_t m, size_t need, bool) { return memset_s(d, m, 'x', need); },
     [](size_t need) { return std::string(need, 'x'); }, OnFailure::kFilled},
    {"strcpy_s", nullptr,
     [](char *d, size_t m, size_t need, bool ns) {
         std::string src(kPattern, need - 1);
         return strcpy_s(d, m, src_or_null(src.c_str(), ns));
     },
     pattern_string, OnFailure::kTerminated},
    {"strncpy_s", nullptr,
     [](char *d, size_t m, size_t need, bool ns) {
         return strncpy_s(d, m, src_or_null(kPattern, ns), need - 1);
     },
     pattern_string, OnFailure::kTerminated},
    {"strcat_s", prefix_01,
     [](char *d, size_t m, size_t need, bool ns) {
         std::string src(kPattern + 2, need - 3);
         return strcat_s(d, m, src_or_null(src.c_str(), ns));
     },
     pattern_string, OnFailure::kTerminated},
    {"strncat_s", prefix_01,
     [](char *d, size_t m, size_t need, bool ns) {
         return strncat_s(d, m, src_or_null(kPattern + 2, ns), need - 3);
     },
     pattern_string, OnFailure::kTerminated},
};

void PrintTo(const Op &op, std::ostream *os) {
    *os << op.name;
}

enum class Case { kNullDest, kZeroMax, kHugeMax, kCountAbove, kNullSrc, kExactFit, kOneShort };

struct CaseSetup {
    bool null_dest = false;
    size_t dest_max = kDestMax;
    size_t need = kDestMax;
    bool null_src = false;
    int status = 0;
};

CaseSetup setup(Case c) {
    switch (c) {
        case Case::kNullDest:
            return {.null_dest = true, .status = kBoundedInvalid};
        case Case::kZeroMax:
            return {.dest_max = 0, .status = kBoundedRange};
        case Case::kHugeMax:
            return {.dest_max = kBoundedMax + 1, .status = kBoundedRange};
        case Case::kCountAbove:
            return {.need = 2 * kDestMax + 5, .status = kBoundedRange};
        case Case::kNullSrc:
            return {.null_src = true, .status = kBoundedInvalid};
        case Case::kExactFit:
            return {};
        case Case::kOneShort:
            return {.need = kDestMax + 1, .status = kBoundedRange};
    }
    return {};
}

class BoundedFailure : public testing::TestWithParam<std::tuple<Op, Case>> {};

TEST_P(BoundedFailure, StatusAndNothingWrittenPastDest) {
    auto [op, c] = GetParam();
    CaseSetup s = setup(c);
    if (op.on_failure == OnFailure::kFilled && c == Case::kNullSrc) {
        GTEST_SKIP() << "memset_s has no source";
    }
    Arena arena;
    if (op.prepare != nullptr) {
        op.prepare(arena.dest());
    }
    const Arena before = arena;
    int status = op.call(s.null_dest ? nullptr : arena.dest(), s.dest_max, s.need, s.null_src);

    EXPECT_EQ(status, s.status);
    EXPECT_TRUE(arena.outside_equal(before));
    if (c == Case::kExactFit) {
        EXPECT_EQ(std::string(arena.dest(), s.need), op.expect(s.need));
    } else if (s.null_dest || s.dest_max != kDestMax) {
        EXPECT_EQ(arena.bytes, before.bytes) << "rejected arguments must not write at all";
    } else if (op.on_failure == OnFailure::kTerminated) {
        EXPECT_EQ(arena.dest()[0], '\0');
    } else {
        char fill = op.on_failure == OnFailure::kFilled ? 'x' : '\0';
        EXPECT_EQ(std::string(arena.dest(), kDestMax), std::string(kDestMax, fill));
    }
}

std::string case_name(const testing::TestParamInfo<BoundedFailure::ParamType> &param) {
    static const char *const kNames[] = {"NullDest", "ZeroMax",  "HugeMax", "CountAbove",
                                         "NullSrc",  "ExactFit", "OneShort"};
    return std::string(std::get<0>(param.param).name) + "_" +
           kNames[static_cast<int>(std::get<1>(param.param))];
}

INSTANTIATE_TEST_SUITE_P(AllOps, BoundedFailure,
                         testing::Combine(testing::ValuesIn(kOps),
                                          testing::Values(Case::kNullDest, Case::kZeroMax,
                                                          Case::kHugeMax, Case::kCountAbove,
                                                          Case::kNullSrc, Case::kExactFit,
                                                          Case::kOneShort)),
                         case_name);

TEST(BoundedCopy, OverlapFailsForMemcpyButNotMemmove) {
    char text[16] = "abcdefgh";
    EXPECT_EQ(memcpy_s(text + 2, 14, text, 6), kBoundedOverlap);
    EXPECT_EQ(std::string(text + 2, 14), std::string(14, '\0'));

    std::memcpy(text, "abcdefgh", 9);
    EXPECT_EQ(memcpy_s(text, 16, text + 2, 2), 0) << "adjacent ranges do not overlap";
    EXPECT_EQ(memmove_s(text + 2, 14, text, 6), 0);
    EXPECT_STREQ(text, "cdcdcdef");
}

TEST(BoundedString, OverlappingSourceFails) {
    char text[16] = "abcdef";
    EXPECT_EQ(strcpy_s(text + 1, 15, text), kBoundedOverlap);
    std::memcpy(text, "abcdef", 7);
    EXPECT_EQ(strcat_s(text, sizeof text, text + 3), kBoundedOverlap);
    EXPECT_EQ(text[0], '\0');
}

TEST(BoundedString, CountLimitsWhatIsReadAndDestMustBeTerminated) {
    char dest[4];
    EXPECT_EQ(strncpy_s(dest, sizeof dest, "abcdef", 2), 0);
    EXPECT_STREQ(dest, "ab");
    EXPECT_EQ(strncpy_s(dest, sizeof dest, "ab", 100), 0) << "count above destMax, short source";
    EXPECT_STREQ(dest, "ab");
    EXPECT_EQ(strncat_s(dest, sizeof dest, "xyz", 1), 0);
    EXPECT_STREQ(dest, "abx");
    EXPECT_EQ(strncpy_s(dest, sizeof dest, "ab", kBoundedMax + 1), kBoundedRange);
    std::memcpy(dest, "abcd", 4);
    EXPECT_EQ(strcat_s(dest, sizeof dest, ""), kBoundedInvalid) << "unterminated destination";
    EXPECT_EQ(dest[0], '\0');
}

TEST(BoundedFormat, CutAt4095ReportsFullLength) {
    std::string message(5000, 'm');
    std::array<char, 4096 + 16> buffer;
    buffer.fill('#');
    int length = snprintf_s(buffer.data(), 4096, 4096, "%s", message.c_str());
    EXPECT_EQ(length, 5000);
    EXPECT_EQ(std::strlen(buffer.data()), 4095u);
    EXPECT_EQ(buffer[4096], '#');
}

TEST(BoundedFormat, CountBelowDestMaxLimitsOutput) {
    char dest[16];
    EXPECT_EQ(snprintf_s(dest, sizeof dest, 4, "%s-%d", "abc", 12), 6);
    EXPECT_STREQ(dest, "abc-");
    EXPECT_EQ(snprintf_s(dest, sizeof dest, 0, "%d", 5), 1);
    EXPECT_STREQ(dest, "");
}

TEST(BoundedFormat, InvalidArgumentsFail) {
    char dest[8] = "keep";
    EXPECT_EQ(snprintf_s(nullptr, 8, 8, "x"), -1);
    EXPECT_EQ(snprintf_s(dest, 0, 0, "x"), -1);
    EXPECT_STREQ(dest, "keep");
    EXPECT_EQ(snprintf_s(dest, 8, 9, "x"), -1);
    EXPECT_EQ(dest[0], '\0');
    std::memcpy(dest, "keep", 5);
    EXPECT_EQ(sprintf_s(dest, kBoundedMax + 1, "x"), -1);
    EXPECT_STREQ(dest, "keep");
}

TEST(BoundedFormat, SprintfFailsWhenOutputDoesNotFit) {
    Arena arena;
    const Arena before = arena;
    EXPECT_EQ(sprintf_s(arena.dest(), kDestMax, "%s", "1234567"), 7);
    EXPECT_STREQ(arena.dest(), "1234567");
    EXPECT_EQ(sprintf_s(arena.dest(), kDestMax, "%s%d", "1234567", 8), -1);
    EXPECT_EQ(arena.dest()[0], '\0');
    EXPECT_TRUE(arena.outside_equal(before));
}

TEST(BoundedToken, SkipsRepeatedDelimitersAndIsReentrant) {
    char outer[] = ",,a b,,c d;;";
    char inner[] = "x y";
    char *outer_context = nullptr;
    char *inner_context = nullptr;
    std::string seen;
    for (char *token = strtok_s(outer, ",;", &outer_context); token != nullptr;
         token = strtok_s(nullptr, ",;", &outer_context)) {
        seen += std::string(token) + "|";
        if (char *word = strtok_s(inner, " ", &inner_context)) {
            seen += std::string(word) + "|";
        }
        std::strcpy(inner, "x y");
        inner_context = nullptr;
    }
    EXPECT_EQ(seen, "a b|x|c d|x|");
    EXPECT_EQ(strtok_s(nullptr, ",;", &outer_context), nullptr) << "stays at the end";
    EXPECT_EQ(strtok_s(outer, nullptr, &outer_context), nullptr);
    EXPECT_EQ(strtok_s(outer, ",", nullptr), nullptr);
    char *unset = nullptr;
    EXPECT_EQ(strtok_s(nullptr, ",", &unset), nullptr);
}

}  // namespace
