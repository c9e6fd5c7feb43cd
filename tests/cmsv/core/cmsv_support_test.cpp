#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "pki.h"
#include "tavo/cmsv.h"
#include "tests/cmsv/cmsv_test_context.h"

namespace {

namespace pki = tavo::pki;

int g_calls = 0;
uint32_t CountingMemset(void *dest, size_t destMax, int c, size_t count) {
    ++g_calls;
    std::memset(dest, c, std::min(destMax, count));
    return 0;
}
uint32_t FailingMemset(void *, size_t, int, size_t) {
    return 1;
}
int g_frees = 0;
void CountingFree(void *p) {
    ++g_frees;
    std::free(p);
}

struct CreateCase {
    const char *name;
    void (*mutate)(CmsvCreateParams &);
    uint32_t expected;
};

TEST(CmsvContext, CreationChecksInOrder) {
    const CreateCase cases[] = {
        {"record size word not 320", [](CmsvCreateParams &p) { p.size = 328; },
         CMSV_ERR_TABLE_SIZE},
        {"table size 256", [](CmsvCreateParams &p) { p.funcs.size = 256; }, CMSV_ERR_TABLE_SIZE},
        {"system block size", [](CmsvCreateParams &p) { p.funcs.sysSize = 136; },
         CMSV_ERR_TABLE_SIZE},
        {"inner block size", [](CmsvCreateParams &p) { p.funcs.sysInnerSize = 0; },
         CMSV_ERR_TABLE_SIZE},
        // Wrong size words are reported before missing callbacks.
        {"size and slot",
         [](CmsvCreateParams &p) {
             p.funcs.size = 0;
             p.funcs.mallocFn = nullptr;
         },
         CMSV_ERR_TABLE_SIZE},
        {"binder slot 15 empty", [](CmsvCreateParams &p) { p.funcs.vsnprintfFn = nullptr; },
         CMSV_OK},
        {"crypto block sizes unchecked",
         [](CmsvCreateParams &p) {
             p.funcs.verifySize = 0;
             p.funcs.mdSize = 7;
         },
         CMSV_OK},
        {"md_final empty", [](CmsvCreateParams &p) { p.funcs.mdFinal = nullptr; },
         CMSV_ERR_CALLBACK_MISSING},
        {"malloc empty", [](CmsvCreateParams &p) { p.funcs.mallocFn = nullptr; },
         CMSV_ERR_CALLBACK_MISSING},
        {"strcat_s empty", [](CmsvCreateParams &p) { p.funcs.strcatS = nullptr; },
         CMSV_ERR_CALLBACK_MISSING},
        {"verify_ctx_destroy empty",
         [](CmsvCreateParams &p) { p.funcs.verifyCtxDestroy = nullptr; },
         CMSV_ERR_CALLBACK_MISSING},
    };
    for (const auto &c : cases) {
        CmsvCreateParams params = CmsvTestContext::DefaultParams();
        c.mutate(params);
        CmsvTestContext ctx(params);
        EXPECT_EQ(ctx.status(), c.expected) << c.name;
        EXPECT_EQ(ctx.get() != nullptr, c.expected == CMSV_OK) << c.name;
    }
}

TEST(CmsvContext, FreshContextAndNullArguments) {
    CmsvTestContext ctx;
    ASSERT_TRUE(ctx.ok()) << std::hex << ctx.status();
    EXPECT_EQ(ctx.get()->size, CMSV_VRF_CTX_SIZE);
    EXPECT_EQ(ctx.get()->crlLock, 0u);
    EXPECT_NE(ctx.get()->pkiStore, nullptr);
    EXPECT_EQ(ctx.get()->signerWork.count, 0);

    CmsvCreateParams params = CmsvTestContext::DefaultParams();
    CmsvVrfCtx *out = nullptr;
    EXPECT_EQ(cmsv_verify_create_ctx(nullptr, &params), CMSV_ERR_PARAM);
    EXPECT_EQ(cmsv_verify_create_ctx(&out, nullptr), CMSV_ERR_PARAM);
    EXPECT_EQ(cmsv_vrf_ctx_free(nullptr), CMSV_ERR_PARAM);
    EXPECT_EQ(std::strlen(cmsv_get_version()), 17u);
}

TEST(CmsvContext, FailedClearFreesTheBlock) {
    CmsvCreateParams params = CmsvTestContext::DefaultParams();
    params.funcs.memsetS = FailingMemset;
    params.funcs.freeFn = CountingFree;
    g_frees = 0;
    CmsvVrfCtx *out = reinterpret_cast<CmsvVrfCtx *>(&params);
    EXPECT_EQ(cmsv_verify_create_ctx(&out, &params), CMSV_ERR_CTX_CLEAR);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(g_frees, 1);
}

TEST(CmsvSupport, WrapperRules) {
    CmsvCreateParams params = CmsvTestContext::DefaultParams();
    params.funcs.memsetS = CountingMemset;
    CmsvTestContext ctx(params);
    ASSERT_TRUE(ctx.ok());
    char buf[8] = {};

    // Null context: each wrapper's own failure value, nothing called.
    EXPECT_EQ(cmsv_malloc(nullptr, nullptr, 1), CMSV_ERR_GENERIC);
    EXPECT_EQ(cmsv_memset_s(nullptr, buf, 8, 0, 8), CMSV_ERR_GENERIC);
    EXPECT_EQ(cmsv_memcpy_s(nullptr, buf, 8, "x", 1), CMSV_ERR_GENERIC);
    EXPECT_EQ(cmsv_memcmp(nullptr, "a", "a", 1), -1);
    EXPECT_EQ(cmsv_strcmp(nullptr, "a", "a"), -1);
    EXPECT_EQ(cmsv_strstr(nullptr, "a", "a"), nullptr);
    EXPECT_EQ(cmsv_strlen(nullptr, "abc"), 0u);
    EXPECT_EQ(cmsv_strcpy_s(nullptr, buf, 8, "a"), CMSV_ERR_PARAM);
    EXPECT_EQ(cmsv_strcat_s(nullptr, buf, 8, "a"), CMSV_ERR_PARAM);
    EXPECT_EQ(cmsv_md_ctx_create(nullptr, nullptr), CMSV_ERR_GENERIC);
    EXPECT_EQ(cmsv_verify_final(nullptr, nullptr, nullptr, 0, nullptr), CMSV_ERR_GENERIC);

    // A count beyond the destination is refused before the callback runs.
    g_calls = 0;
    EXPECT_EQ(cmsv_memset_s(ctx, buf, 4, 0, 5), CMSV_ERR_MEM_RANGE);
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(cmsv_memset_s(ctx, buf, 4, 'z', 4), CMSV_OK);
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(cmsv_memcpy_s(ctx, buf, 2, "abc", 3), CMSV_ERR_MEM_RANGE);

    // strcpy_s/strcat_s need room for the terminator.
    EXPECT_EQ(cmsv_strcpy_s(ctx, buf, 4, "abcd"), CMSV_ERR_STR_RANGE);
    EXPECT_EQ(cmsv_strcpy_s(ctx, buf, 5, "abcd"), CMSV_OK);
    EXPECT_EQ(cmsv_strcpy_s(ctx, buf, 8, "ab"), CMSV_OK);
    EXPECT_EQ(cmsv_strcat_s(ctx, buf, 4, "cd"), CMSV_ERR_STR_RANGE);
    // The provider's own status for a done concatenation is passed on as is.
    (void)cmsv_strcat_s(ctx, buf, 5, "cd");
    EXPECT_STREQ(buf, "abcd");

    void *block = nullptr;
    ASSERT_EQ(cmsv_malloc_with0(ctx, &block, 16), CMSV_OK);
    EXPECT_TRUE(std::all_of(static_cast<uint8_t *>(block), static_cast<uint8_t *>(block) + 16,
                            [](uint8_t b) { return b == 0; }));
    cmsv_free(ctx, block);
    cmsv_free(ctx, nullptr);
}

TEST(CmsvBuf, CursorBounds) {
    const uint8_t data[4] = {1, 2, 3, 4};
    CmsvBuf buf{};
    EXPECT_EQ(cmsv_buf_init(&buf, data, 0), CMSV_ERR_PARAM);
    ASSERT_EQ(cmsv_buf_init(&buf, data, 4), CMSV_OK);
    EXPECT_EQ(cmsv_buf_seek(&buf, 4, 1), CMSV_OK);  // exactly the end
    uint8_t b = 0;
    EXPECT_EQ(cmsv_buf_get(&buf, &b), CMSV_ERR_BUF_END);
    EXPECT_EQ(cmsv_buf_seek(&buf, 1, 1), CMSV_ERR_GENERIC);  // one past
    EXPECT_EQ(buf.pos, 4u);
    EXPECT_EQ(cmsv_buf_seek(&buf, -5, 1), CMSV_ERR_GENERIC);  // before the start
    EXPECT_EQ(cmsv_buf_seek(&buf, -4, 0), CMSV_ERR_GENERIC);  // absolute seeks unsupported
    EXPECT_EQ(buf.pos, 4u);
    EXPECT_EQ(cmsv_buf_seek(&buf, -1, 1), CMSV_OK);
    EXPECT_EQ(cmsv_buf_get(&buf, &b), CMSV_OK);
    EXPECT_EQ(b, 4);
    EXPECT_EQ(cmsv_buf_seek(nullptr, 0, 1), CMSV_ERR_PARAM);
}

struct Keyed {
    int key;
    int order;
};
int32_t CompareKeys(const void *a, const void *b) {
    return static_cast<const Keyed *>(a)->key - static_cast<const Keyed *>(b)->key;
}

TEST(CmsvList, CapacityAndStableSort) {
    // Several key patterns, each checked against std::stable_sort; 16 entries fill the list.
    const std::vector<std::vector<int>> patterns = {
        {3, 1, 2}, {5, 5, 1, 5, 0, 1},      {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 9, 8, 7, 6, 5, 4}, {1},
        {},        {2, 2, 2, 1, 1, 1, 0, 0}};
    for (const auto &keys : patterns) {
        CmsvList l{};
        std::vector<Keyed> values;
        for (size_t i = 0; i < keys.size(); ++i) {
            values.push_back({keys[i], static_cast<int>(i)});
        }
        for (auto &v : values) {
            ASSERT_EQ(cmsv_list_add(&l, &v), CMSV_OK);
        }
        if (keys.size() == 16) {
            Keyed extra{};
            EXPECT_EQ(cmsv_list_add(&l, &extra), CMSV_ERR_LIST_FULL);
        }
        ASSERT_EQ(cmsv_list_sort(&l, CompareKeys), CMSV_OK);
        std::vector<Keyed> want = values;
        std::stable_sort(want.begin(), want.end(),
                         [](const Keyed &a, const Keyed &b) { return a.key < b.key; });
        for (size_t i = 0; i < want.size(); ++i) {
            const auto *got = static_cast<const Keyed *>(l.items[i]);
            EXPECT_EQ(got->key, want[i].key);
            EXPECT_EQ(got->order, want[i].order);
        }
    }
    EXPECT_EQ(cmsv_list_sort(nullptr, CompareKeys), CMSV_ERR_PARAM);
}

TEST(CmsvTime, AsnTimeConversion) {
    struct Case {
        uint32_t tag;
        const char *text;
        uint32_t status;
        int64_t seconds;
    };
    const Case cases[] = {
        {23, "491231235959Z", CMSV_OK, pki::utc(2049, 12, 31, 23, 59, 59)},  // yy 49 -> 2049
        {23, "500101000000Z", CMSV_OK, pki::utc(1950, 1, 1)},                // yy 50 -> 1950
        {24, "20000301000000Z", CMSV_OK, 951868800},
        {24, "20500101000000Z", CMSV_OK, pki::utc(2050, 1, 1)},
        {23, "4912312359590Z", CMSV_ERR_TIME_FORMAT, 0},  // 14-byte UTCTime
        {24, "491231235959Z", CMSV_ERR_TIME_FORMAT, 0},   // GeneralizedTime of 13
        {4, "491231235959Z", CMSV_ERR_TIME_FORMAT, 0},    // not a time tag
    };
    for (const auto &c : cases) {
        const CmsvAsnOcts t{static_cast<uint32_t>(std::strlen(c.text)), 0, 0, c.tag,
                            reinterpret_cast<const uint8_t *>(c.text)};
        int64_t seconds = -1;
        EXPECT_EQ(cmsv_convert_datetime_to_time(&t, &seconds), c.status) << c.text;
        if (c.status == CMSV_OK) {
            EXPECT_EQ(seconds, c.seconds) << c.text;
        }
    }
}

TEST(CmsvTime, MktimeAgreesWithTimegm) {
    const CmsvDateTime dates[] = {
        {1970, 1, 1, 0, 0, 0},      {2000, 2, 29, 12, 0, 0}, {2000, 3, 1, 0, 0, 0},
        {1999, 12, 31, 23, 59, 59}, {2038, 1, 19, 3, 14, 8}, {2100, 3, 1, 0, 0, 0},
        {2024, 2, 29, 6, 30, 15},   {2049, 1, 1, 0, 0, 1},
    };
    for (const auto &d : dates) {
        EXPECT_EQ(static_cast<int64_t>(cmsv_mktime(&d)),
                  pki::utc(d.year, d.month, d.day, d.hour, d.minute, static_cast<int>(d.second)))
            << d.year << "-" << int(d.month) << "-" << int(d.day);
    }
    const CmsvDateTime shortYear{100, 3, 1, 0, 0, 0};  // below 1901: 1900 is added
    EXPECT_EQ(cmsv_mktime(&shortYear), 951868800u);
    EXPECT_EQ(cmsv_mktime(nullptr), 0u);
}

}  // namespace
