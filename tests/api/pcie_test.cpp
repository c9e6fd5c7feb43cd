// PCIe address texts and card lookups by address.
#include <string>

#include "api_fixture.h"
#include "tavo/tavo_pcie.h"

namespace tavo::test {
namespace {

using PcieTest = ApiTest;

struct BusIdCase {
    const char *text;
    int result;
    uint32_t bus;
    int result_without_switch;
    uint32_t without_switch;
};

TEST_F(PcieTest, AddressTextsConvertToBusNumbers) {
    constexpr uint32_t kUntouched = 0xDEAD;
    const BusIdCase cases[] = {
        {"0000:3b:00.0", 0, 59, 0, 944},
        {"0000:3b:08.0", 0, 59, 0, 946},
        {"0000:3b:07.0", 0, 59, 0, 945},
        {"0000:ff:1f.7", 0, 255, 0, 255 * 16 + 7},
        {"0000:03:00.0 trailing", 0, 3, 0, 48},
        // Too short: 11 characters.
        {"0000:3b:00.", -1, kUntouched, -1, kUntouched},
        {"", -1, kUntouched, -1, kUntouched},
        // Not hexadecimal: 0, and the value reads 0.
        {"0000:zz:zz.0", 0, 0, 0, 0},
    };
    for (const BusIdCase &c : cases) {
        SCOPED_TRACE(c.text);
        uint32_t bus = kUntouched;
        EXPECT_EQ(tavo_trans_pcie_bus_id(c.text, &bus), c.result);
        EXPECT_EQ(bus, c.bus);
        uint32_t number = kUntouched;
        EXPECT_EQ(tavo_trans_pcie_bus_id_without_switch(c.text, &number), c.result_without_switch);
        EXPECT_EQ(number, c.without_switch);
    }
    EXPECT_EQ(tavo_trans_pcie_bus_id(nullptr, nullptr), -1);
}

TEST_F(PcieTest, BadDigitsAreLogged) {
    uint32_t out = 0;
    EXPECT_EQ(tavo_trans_pcie_bus_id("0000:zz:00.0", &out), 0);
    EXPECT_TRUE(err_logged("tavo_trans_pcie_bus_id", "call sscanf_s failed.0.\n\r\n"));
    EXPECT_EQ(tavo_trans_pcie_bus_id_without_switch("0000:3b:zz.0", &out), 0);
    EXPECT_EQ(out, 944U);
    EXPECT_TRUE(
        err_logged("tavo_trans_pcie_bus_id_without_switch", "rc_id call sscanf_s failed.0.\n\r\n"));
}

struct SplitCase {
    const char *text;
    const char *separator;
    uint32_t count;
};

TEST_F(PcieTest, SeparatorOccurrencesDoNotOverlap) {
    const SplitCase cases[] = {
        {"0000:00:01.0/0000:01:00.0/0000:02:00.0", "/", 2},
        {"0000:02:00.0", "/", 0},
        {"aaaa", "aa", 2},
        {"aaa", "aa", 1},
        {"", "/", 0},
        {"//", "/", 2},
    };
    for (const SplitCase &c : cases) {
        SCOPED_TRACE(c.text);
        uint32_t count = 99;
        EXPECT_EQ(tavo_get_same_split_num_from_str(c.text, c.separator, &count), 0);
        EXPECT_EQ(count, c.count);
    }
}

TEST_F(PcieTest, CardsAreFoundByBusTextAndByCardId) {
    g_tavoBoardInfo.card_count = 3;
    const char *buses[] = {"0000:3b:00.0", "0000:5e:00.0", "0000:3b:00.0"};
    const uint32_t ids[] = {7, 3, 3};
    for (int i = 0; i < 3; ++i) {
        std::snprintf(g_tavoBoardInfo.cards[i].pcie_bus, TAVO_PCIE_TEXT_LEN, "%s", buses[i]);
        g_tavoBoardInfo.cards[i].card_id = ids[i];
    }
    int32_t index = 42;
    EXPECT_EQ(tavo_find_card_id_with_pcie(&index, "0000:5e:00.0"), 0);
    EXPECT_EQ(index, 1);
    // The first of two equal texts.
    EXPECT_EQ(tavo_find_card_id_with_pcie(&index, "0000:3b:00.0"), 0);
    EXPECT_EQ(index, 0);
    // Equality, not a prefix.
    EXPECT_EQ(tavo_find_card_id_with_pcie(&index, "0000:3b:00"), 0);
    EXPECT_EQ(index, -1);
    EXPECT_EQ(tavo_find_card_id_with_bus_id(&index, 3), 0);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(tavo_find_card_id_with_bus_id(&index, 9), 0);
    EXPECT_EQ(index, -1);
    // Cards past the count are not searched.
    g_tavoBoardInfo.card_count = 1;
    EXPECT_EQ(tavo_find_card_id_with_bus_id(&index, 3), 0);
    EXPECT_EQ(index, -1);
}

}  // namespace
}  // namespace tavo::test
