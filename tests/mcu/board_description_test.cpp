// The cards' MCUs come from "mcu_card=" lines of the board description; a host
// whose description has none keeps every MCU unreachable.
#include <unistd.h>

#include "mcu_fixture.h"

namespace tavo::test {
namespace {

struct DescriptionCase {
    const char *name;
    const char *text;  // nullptr: no file
    uint32_t mcu_device_id;
    uint32_t chip_slot;
    const char *error;  // the one error record of initialisation, nullptr: none
};

class BoardDescriptionTest : public McuTest,
                             public ::testing::WithParamInterface<DescriptionCase> {};

TEST_P(BoardDescriptionTest, DeclaresTheCardsMcu) {
    const DescriptionCase &c = GetParam();
    g_tavoBoardInfo = tavo_card_table{};
    ::unlink(tavo::api::kBoardConfigPath);
    if (c.text != nullptr) {
        write_board_description(c.text);
    }
    remove_logs();
    ASSERT_EQ(tavo_init(), 0);
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(kMcuCard, &card), 0);
    EXPECT_EQ(card->mcu_device_id, c.mcu_device_id);
    EXPECT_EQ(card->devices[0].chip_slot, c.chip_slot);
    if (c.error != nullptr) {
        EXPECT_TRUE(err_logged("apply_board_description", c.error)) << read_file(kErrLog);
    }
    EXPECT_EQ(err_count(), c.error != nullptr ? 1u : 0u) << read_file(kErrLog);
    tavo_card_record *other = nullptr;
    ASSERT_EQ(tavo_get_card_info(1, &other), 0);
    EXPECT_EQ(other->mcu_device_id, TAVO_ABSENT);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BoardDescriptionTest,
    ::testing::Values(
        DescriptionCase{"NoFile", nullptr, TAVO_ABSENT, 0, nullptr},
        DescriptionCase{"NoMcuLine", "board_type=pcie_card\n", TAVO_ABSENT, 0, nullptr},
        DescriptionCase{"SlotOne", "board_type=pcie_card\nmcu_card=2:1\n", 1, 1, nullptr},
        DescriptionCase{"SlotThreeWithoutNewline", "mcu_card=2:3", 1, 3, nullptr},
        DescriptionCase{"CrLf", "mcu_card=2:1\r\n", 1, 1, nullptr},
        DescriptionCase{"NotAtLineStart", "x mcu_card=2:1\n", TAVO_ABSENT, 0, nullptr},
        DescriptionCase{"CardNotOnThisHost", "mcu_card=9:1\n", TAVO_ABSENT, 0, nullptr},
        DescriptionCase{"SlotTwo", "mcu_card=2:2\n", TAVO_ABSENT, 0,
                        "line 1 of /run/board_cfg.ini is malformed, ignored: mcu_card=2:2\n\r\n"},
        DescriptionCase{"NoSlot", "a=b\nmcu_card=2:\n", TAVO_ABSENT, 0,
                        "line 2 of /run/board_cfg.ini is malformed, ignored: mcu_card=2:\n\r\n"},
        DescriptionCase{"NoCard", "mcu_card=:1\n", TAVO_ABSENT, 0,
                        "line 1 of /run/board_cfg.ini is malformed, ignored: mcu_card=:1\n\r\n"},
        DescriptionCase{"SlotTwice", "mcu_card=2:1,1\n", TAVO_ABSENT, 0,
                        "line 1 of /run/board_cfg.ini is malformed, ignored: mcu_card=2:1,1\n\r\n"},
        DescriptionCase{"TrailingText", "mcu_card=2:1 # relay\n", TAVO_ABSENT, 0,
                        "line 1 of /run/board_cfg.ini is malformed, ignored: mcu_card=2:1 # "
                        "relay\n\r\n"},
        DescriptionCase{"CardTwice", "mcu_card=2:1\nmcu_card=2:3\n", 1, 1,
                        "line 2 of /run/board_cfg.ini names card 2 again, ignored.\n\r\n"},
        DescriptionCase{"MoreSlotsThanChips", "mcu_card=2:3,1\n", 1, 3,
                        "card 2 has 1 chip(s); chip slots after them on line 1 of "
                        "/run/board_cfg.ini ignored.\n\r\n"}),
    [](const auto &param_info) { return std::string(param_info.param.name); });

TEST_F(McuTest, DeclaredMcuIsAddressableAndAnswers) {
    int32_t type = -1;
    ASSERT_EQ(tavo_get_device_info(&type, kMcuCard, 1), 0);
    EXPECT_EQ(type, TAVO_DEVICE_MCU);
    int32_t chips = 0, mcu = 0, embedded = 0;
    ASSERT_EQ(tavo_get_device_num_in_card_api(kMcuCard, &chips, &mcu, &embedded), 0);
    EXPECT_EQ(mcu, 1);
    int32_t temperature = 0;
    ASSERT_EQ(tavo_mcu_get_temperature(kMcuCard, &temperature), 0);
    EXPECT_EQ(temperature, 300);
    EXPECT_EQ(mcu_frames().at(0).relay, kRelayChip);
}

TEST_F(McuTest, WithoutTheDescriptionTheMcuCannotBeReached) {
    start(mcu_host(kDefaultMcu), "board_type=pcie_card\n");
    int32_t type = -1;
    EXPECT_EQ(tavo_get_device_info(&type, kMcuCard, 1), -1);
    int32_t temperature = 0;
    EXPECT_EQ(tavo_mcu_get_temperature(kMcuCard, &temperature), -1);
    EXPECT_EQ(count_logged("Card 2 can not connect with MCU.\r\n"), 3u);
    EXPECT_TRUE(mcu_requests().empty());
}

}  // namespace
}  // namespace tavo::test
