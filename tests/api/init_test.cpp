#include <fstream>

#include "api_fixture.h"

namespace tavo::test {
namespace {

class InitTest : public ApiTest {};

TEST_F(InitTest, EveryChipBecomesACardKeyedByItsSlot) {
    load_host(R"({"cards": [
        {"slot_id": 7, "board_id": 3, "pcb_id": 2, "bom_id": 1, "chips": [{"logic_id": 4}]},
        {"slot_id": 2, "board_id": 5, "pcb_id": 2, "bom_id": 1, "chips": [{"logic_id": 9}]}]})");
    ASSERT_EQ(tavo_init(), 0);
    EXPECT_EQ(g_tavoBoardInfo.initialised, 1u);
    EXPECT_EQ(g_tavoBoardInfo.card_count, 2);
    EXPECT_EQ(g_tavoBoardInfo.total_device_count, 2u);
    EXPECT_EQ(g_tavoBoardInfo.board_id, 3u);  // from the first chip only
    EXPECT_EQ(g_mcuExist, 1);
    const tavo_card_record &first = g_tavoBoardInfo.cards[0];
    EXPECT_EQ(first.card_id, 7u);
    EXPECT_EQ(first.device_count, 1);
    EXPECT_EQ(first.devices[0].logic_id, 4u);
    EXPECT_EQ(first.mcu_device_id, TAVO_ABSENT);
    EXPECT_EQ(first.embedded_device_id, TAVO_ABSENT);
    EXPECT_EQ(first.pcie_slot, TAVO_ABSENT);
    EXPECT_EQ(g_tavoBoardInfo.cards[1].card_id, 2u);
    EXPECT_EQ(g_tavoBoardInfo.cards[1].devices[0].logic_id, 9u);
    EXPECT_EQ(err_count(), 0u);
}

TEST_F(InitTest, SecondInitDoesNotAskTheDeviceLibraryAgain) {
    ASSERT_EQ(tavo_init(), 0);
    uint32_t calls = rumo_sim_call_count("rumo_get_device_count");
    rumo_sim_set_device_count(1);
    EXPECT_EQ(tavo_init(), 0);
    EXPECT_EQ(rumo_sim_call_count("rumo_get_device_count"), calls);
    EXPECT_EQ(g_tavoBoardInfo.card_count, 4);
}

TEST_F(InitTest, HostWithoutChipsLeavesTheTableEmpty) {
    rumo_sim_set_device_count(0);
    EXPECT_EQ(tavo_init(), -1);
    EXPECT_EQ(g_tavoBoardInfo.initialised, 0u);
    EXPECT_EQ(g_tavoBoardInfo.card_count, 0);
    EXPECT_TRUE(err_logged("tavo_pallas_init", "call function rumo_get_device_count fail\n\r\n"));
}

TEST_F(InitTest, FailedCountOrListFailsInit) {
    rumo_sim_fail_next("rumo_get_device_count", 1, 5);
    EXPECT_EQ(tavo_init(), -1);
    EXPECT_TRUE(err_logged("tavo_pallas_init", "call function rumo_get_device_count fail\n\r\n"));
    rumo_sim_fail_next("rumo_list_device", 1, 5);
    EXPECT_EQ(tavo_init(), -1);
    EXPECT_TRUE(err_logged("tavo_pallas_init", "call function rumo_list_device fail\n\r\n"));
    EXPECT_EQ(g_tavoBoardInfo.initialised, 0u);
    EXPECT_EQ(tavo_init(), 0);
}

TEST_F(InitTest, ChipWithoutBoardInformationKeepsAnEmptyRecord) {
    load_host(host_with_cards(3, 5));
    rumo_sim_fail_next("rumo_get_board_info", 1, 17);
    ASSERT_EQ(tavo_init(), 0);
    EXPECT_TRUE(err_logged("tavo_pallas_init",
                           "call rumo_get_board_info failed.17. Get chip 0 board information "
                           "failed. Reboot OS to repair if necessary.\n\r\n"));
    EXPECT_EQ(g_tavoBoardInfo.card_count, 3);
    EXPECT_EQ(g_tavoBoardInfo.cards[0].card_id, 0u);
    EXPECT_EQ(g_tavoBoardInfo.cards[0].device_count, 0);
    EXPECT_EQ(g_tavoBoardInfo.cards[1].card_id, 2u);
    EXPECT_EQ(g_tavoBoardInfo.board_id, 5u);
}

TEST_F(InitTest, MoreChipsThanCardRecordsAreCutAtSixteen) {
    load_host(host_with_cards(18));
    ASSERT_EQ(tavo_init(), 0);
    EXPECT_EQ(g_tavoBoardInfo.card_count, TAVO_MAX_CARDS);
    EXPECT_EQ(g_tavoBoardInfo.total_device_count, uint32_t{TAVO_MAX_CARDS});
    EXPECT_EQ(g_tavoBoardInfo.cards[15].card_id, 16u);
    EXPECT_TRUE(err_logged("tavo_pallas_init",
                           "device count 18 exceeds the card table, only the first 16 chips are "
                           "managed.\n\r\n"));
}

TEST_F(InitTest, RetryRebuildsOnlyWhenTheChipCountChanged) {
    ASSERT_EQ(tavo_init(), 0);
    uint32_t lists = rumo_sim_call_count("rumo_list_device");
    tavo_retry_init();
    EXPECT_EQ(rumo_sim_call_count("rumo_list_device"), lists);

    rumo_sim_set_device_count(3);
    tavo_retry_init();
    EXPECT_EQ(rumo_sim_call_count("rumo_list_device"), lists + 1);
    EXPECT_EQ(g_tavoBoardInfo.initialised, 1u);
    EXPECT_EQ(g_tavoBoardInfo.card_count, 3);
    EXPECT_EQ(g_tavoBoardInfo.cards[3].card_id, 0u);  // the old fourth record is gone
}

TEST_F(InitTest, RetryLogsAFailedCount) {
    ASSERT_EQ(tavo_init(), 0);
    rumo_sim_fail_next("rumo_get_device_count", 1, 9);
    tavo_retry_init();
    EXPECT_TRUE(err_logged("tavo_retry_init", "Call rumo_get_device_count failed. 9.\n\r\n"));
    EXPECT_EQ(g_tavoBoardInfo.card_count, 4);
}

TEST_F(InitTest, FixedTableWithAndWithoutTheMinidMarker) {
    ::unlink(tavo::api::kNoMinidMarkerPath);
    ASSERT_EQ(tavo_init_inn(), 0);
    EXPECT_EQ(g_tavoBoardInfo.card_count, 1);
    EXPECT_EQ(g_tavoBoardInfo.no_minid, 0u);
    EXPECT_EQ(g_tavoBoardInfo.total_device_count, 1u);
    EXPECT_EQ(g_tavoBoardInfo.cards[0].device_count, 1);

    reset_library_state();
    std::ofstream(tavo::api::kNoMinidMarkerPath).put('\n');
    ASSERT_EQ(tavo_init_inn(), 0);
    ::unlink(tavo::api::kNoMinidMarkerPath);
    EXPECT_EQ(g_tavoBoardInfo.no_minid, 1u);
    EXPECT_EQ(g_tavoBoardInfo.total_device_count, 0u);
    EXPECT_EQ(g_tavoBoardInfo.cards[0].device_count, 0);
    EXPECT_EQ(g_tavoBoardInfo.cards[0].mcu_device_id, TAVO_ABSENT);
    EXPECT_EQ(rumo_sim_call_count("rumo_get_device_count"), 0u);
}

TEST_F(InitTest, VirtualMachineCheckNeedsTheWordAndACard) {
    ASSERT_EQ(tavo_init(), 0);
    EXPECT_EQ(tavo_check_run_in_vm(), 0);
    g_tavoBoardInfo.in_virtual_machine = 1;
    EXPECT_NE(tavo_check_run_in_vm(), 0);
    g_tavoBoardInfo.board_id = 47;
    EXPECT_EQ(tavo_check_run_in_vm(), 0);
}

struct BoardConfigCase {
    const char *name;
    const char *content;  // nullptr: no file
    int result;
    int32_t board_type;
    const char *error;  // expected error record text, nullptr: none
};

class BoardTypeTest : public ApiTest, public ::testing::WithParamInterface<BoardConfigCase> {};

TEST_P(BoardTypeTest, ReadsTheVariantFromTheBoardDescription) {
    const BoardConfigCase &c = GetParam();
    ::unlink(tavo::api::kBoardConfigPath);
    if (c.content != nullptr) {
        std::ofstream(tavo::api::kBoardConfigPath, std::ios::binary) << c.content;
    }
    EXPECT_EQ(tavo_get_board_type(), c.result);
    EXPECT_EQ(g_tavoBoardType, c.board_type);
    if (c.error != nullptr) {
        EXPECT_TRUE(err_logged("tavo_get_board_type", c.error)) << read_file(kErrLog);
    } else {
        EXPECT_EQ(err_count(), 0u) << read_file(kErrLog);
    }
    bool info = logged(kInfoLog, "tavo_drv_api,tavo_get_board_type",
                       "g_tavoBoardType = " + std::to_string(c.board_type) + ".\n\r\n");
    EXPECT_EQ(info, c.result == 0);
    ::unlink(tavo::api::kBoardConfigPath);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BoardTypeTest,
    ::testing::Values(BoardConfigCase{"missing", nullptr, -1, 0,
                                      "open config file(/run/board_cfg.ini) failed.\n\r\n"},
                      BoardConfigCase{"empty", "", -1, 0, "call fread failed.read_count=0\n\r\n"},
                      BoardConfigCase{"fennec", "board_type=fennec\n", 0, 1, nullptr},
                      BoardConfigCase{"fennec_with_suffix", "id=3\nboard_type=fennecX2\n", 0, 1,
                                      nullptr},
                      BoardConfigCase{"other_board", "board_type=standard\n", 0, 0, nullptr},
                      BoardConfigCase{"mid_line", "x board_type=fennec\n", -1, 0, nullptr},
                      BoardConfigCase{"no_key", "board=fennec\n", -1, 0, nullptr}),
    [](const auto &param_info) { return std::string(param_info.param.name); });

}  // namespace
}  // namespace tavo::test
