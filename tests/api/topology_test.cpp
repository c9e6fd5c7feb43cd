#include <array>
#include <cstring>

#include "api_fixture.h"

namespace tavo::test {
namespace {

class TopologyTest : public ApiTest {};

TEST_F(TopologyTest, BeforeInitDeviceIdsStandForThemselves) {
    int32_t type = -1;
    ASSERT_EQ(tavo_get_device_info(&type, 7, 2), 0);
    EXPECT_EQ(type, TAVO_DEVICE_EMBEDDED);
    uint32_t logic = 0;
    ASSERT_EQ(tavo_get_device_logic_id(&logic, 7, 5), 0);
    EXPECT_EQ(logic, 5u);
    int32_t count = -1;
    ASSERT_EQ(tavo_get_device_num_in_card(7, &count), 0);
    EXPECT_EQ(count, 0);

    int32_t chips = -1, mcu = 0, embedded = 0;
    ASSERT_EQ(tavo_get_device_num_in_card_api(7, &chips, &mcu, &embedded), 0);
    EXPECT_EQ(chips, 0);
    EXPECT_EQ(mcu, 1);
    EXPECT_EQ(embedded, 2);
    g_tavoBoardType = TAVO_BOARD_FENNEC;
    ASSERT_EQ(tavo_get_device_num_in_card_api(7, &chips, &mcu, &embedded), 0);
    EXPECT_EQ(mcu, -1);
    EXPECT_EQ(err_count(), 0u);
}

TEST_F(TopologyTest, CardQueriesRefuseAnEmptyTable) {
    uint32_t word = 0;
    int32_t count = 0;
    std::array<uint32_t, 4> ids{};
    char text[TAVO_BOARD_PCIE_INFO_LEN];
    EXPECT_EQ(tavo_get_card_num_list(&count, ids.data(), 4), -1);
    EXPECT_EQ(tavo_get_pcie_slot(1, &word), -1);
    EXPECT_EQ(tavo_get_elable_pos_in_card_api(1, &word), -1);
    EXPECT_EQ(tavo_get_board_id_pos_in_card_api(1, &word), -1);
    EXPECT_EQ(tavo_get_board_pcie_info(1, text), -1);
    for (const char *fn :
         {"tavo_get_card_num_list", "tavo_get_pcie_slot", "tavo_get_elable_pos_in_card_api",
          "tavo_get_board_id_pos_in_card_api", "tavo_get_board_pcie_info"}) {
        EXPECT_TRUE(err_logged(fn, "not init.\n\r\n")) << fn;
    }
    uint32_t faults = 99;
    EXPECT_EQ(tavo_get_fault_device_num_in_card(1, &faults), 0);
    EXPECT_EQ(faults, 99u);
}

TEST_F(TopologyTest, ChipsAreTheOnlyAddressableDevicesAfterInit) {
    ASSERT_EQ(tavo_init(), 0);
    int32_t type = -1;
    ASSERT_EQ(tavo_get_device_info(&type, 1, 0), 0);
    EXPECT_EQ(type, TAVO_DEVICE_CHIP);
    EXPECT_EQ(tavo_get_device_info(&type, 1, 1), -1);
    EXPECT_TRUE(
        err_logged("tavo_get_device_info", "card_id(1) device_id(1) >= device_count(1).\n\r\n"));

    EXPECT_EQ(tavo_get_device_info(&type, 99, 0), -1);  // unknown card: not logged
    EXPECT_EQ(err_count(), 1u);

    uint32_t logic = 0;
    EXPECT_EQ(tavo_get_device_logic_id(&logic, 99, 0), -1);
    EXPECT_TRUE(
        err_logged("tavo_get_device_logic_id",
                   "Can not find card (99) device (0). Please check the input parameter.\n\r\n"));
    EXPECT_EQ(tavo_get_device_logic_id(&logic, 1, 1), -1);
    EXPECT_TRUE(
        err_logged("tavo_get_device_logic_id", "card (1) device (1) >= device_count(1).\n\r\n"));
}

TEST_F(TopologyTest, McuAndEmbeddedIdsResolveWhenACardHasThem) {
    ASSERT_EQ(tavo_init(), 0);
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(2, &card), 0);
    card->mcu_device_id = 1;
    card->embedded_device_id = 2;
    int32_t type = -1;
    ASSERT_EQ(tavo_get_device_info(&type, 2, 1), 0);
    EXPECT_EQ(type, TAVO_DEVICE_MCU);
    ASSERT_EQ(tavo_get_device_info(&type, 2, 2), 0);
    EXPECT_EQ(type, TAVO_DEVICE_EMBEDDED);
    int32_t chips = 0, mcu = 0, embedded = 0;
    ASSERT_EQ(tavo_get_device_num_in_card_api(2, &chips, &mcu, &embedded), 0);
    EXPECT_EQ(chips, 1);
    EXPECT_EQ(mcu, 1);
    EXPECT_EQ(embedded, 2);
    g_tavoBoardType = TAVO_BOARD_FENNEC;  // the camera board never has an MCU
    ASSERT_EQ(tavo_get_device_num_in_card_api(2, &chips, &mcu, &embedded), 0);
    EXPECT_EQ(mcu, -1);
    EXPECT_EQ(tavo_get_device_num_in_card_api(99, &chips, &mcu, &embedded), -1);

    EXPECT_EQ(tavo_flush_device_id(), 0);
    EXPECT_EQ(card->mcu_device_id, TAVO_ABSENT);
    EXPECT_EQ(tavo_get_device_info(&type, 2, 1), -1);
}

TEST_F(TopologyTest, CardListReportsTheTrueCountBeyondTheCapacity) {
    ASSERT_EQ(tavo_init(), 0);
    std::array<uint32_t, 3> ids{0, 0, 77};
    int32_t count = 0;
    ASSERT_EQ(tavo_get_card_num_list(&count, ids.data(), 2), 0);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(ids[0], 1u);
    EXPECT_EQ(ids[1], 2u);
    EXPECT_EQ(ids[2], 77u);
    EXPECT_EQ(tavo_get_total_device_count(), 4);
}

TEST_F(TopologyTest, CardRecordIsTheLiveOne) {
    ASSERT_EQ(tavo_init(), 0);
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(3, &card), 0);
    card->elabel_pos = 5;
    card->board_id_pos = 6;
    card->fault_device_count = 2;
    std::strcpy(card->pcie_bus, "0000:3b:00.0");
    uint32_t word = 0;
    ASSERT_EQ(tavo_get_elable_pos_in_card_api(3, &word), 0);
    EXPECT_EQ(word, 5u);
    ASSERT_EQ(tavo_get_board_id_pos_in_card_api(3, &word), 0);
    EXPECT_EQ(word, 6u);
    ASSERT_EQ(tavo_get_fault_device_num_in_card(3, &word), 0);
    EXPECT_EQ(word, 2u);
    ASSERT_EQ(tavo_get_pcie_slot(3, &word), 0);
    EXPECT_EQ(word, TAVO_ABSENT);
    char text[TAVO_BOARD_PCIE_INFO_LEN];
    std::memset(text, 'x', sizeof text);
    ASSERT_EQ(tavo_get_board_pcie_info(3, text), 0);
    EXPECT_STREQ(text, "0000:3b:00.0");

    EXPECT_EQ(tavo_get_card_info(42, &card), -1);
    EXPECT_TRUE(err_logged("tavo_get_card_info", "Can not find card num 42 .\n\r\n"));
    EXPECT_EQ(tavo_get_pcie_slot(42, &word), -1);
    EXPECT_EQ(tavo_get_fault_device_num_in_card(42, &word), -1);
}

TEST_F(TopologyTest, NullOutputsAreRefused) {
    ASSERT_EQ(tavo_init(), 0);
    EXPECT_EQ(tavo_get_device_num_in_card(1, nullptr), -1);
    EXPECT_TRUE(err_logged("tavo_get_device_num_in_card", "Input device_num error!\n\r\n"));
    EXPECT_EQ(tavo_get_device_info(nullptr, 1, 0), -1);
    EXPECT_EQ(tavo_get_device_logic_id(nullptr, 1, 0), -1);
    EXPECT_EQ(tavo_get_card_info(1, nullptr), -1);
    EXPECT_EQ(tavo_get_card_num_list(nullptr, nullptr, 0), -1);
    EXPECT_EQ(tavo_get_pcie_slot(1, nullptr), -1);
    EXPECT_EQ(tavo_get_board_pcie_info(1, nullptr), -1);
    EXPECT_EQ(tavo_get_device_num_in_card_api(1, nullptr, nullptr, nullptr), -1);
    int32_t count = 0;
    EXPECT_EQ(tavo_get_device_num_in_card(99, &count), -1);
    EXPECT_TRUE(err_logged("tavo_get_device_num_in_card", "Input card id error!\n\r\n"));
}

struct FamilyCase {
    int board_id;
    int is_card;
    int is_server;
};

class BoardFamilyTest : public ApiTest, public ::testing::WithParamInterface<FamilyCase> {};

TEST_P(BoardFamilyTest, FamilyFollowsTheFirstChipsBoardId) {
    load_host(host_with_cards(2, GetParam().board_id));
    ASSERT_EQ(tavo_init(), 0);
    EXPECT_EQ(tavo_is_card(), GetParam().is_card);
    EXPECT_EQ(tavo_is_server(), GetParam().is_server);
    EXPECT_EQ(tavo_has_minid(), 1);
}

INSTANTIATE_TEST_SUITE_P(Boards, BoardFamilyTest,
                         ::testing::Values(FamilyCase{1, 1, 0}, FamilyCase{3, 1, 0},
                                           FamilyCase{5, 1, 0}, FamilyCase{200, 1, 0},
                                           FamilyCase{47, 0, 1}, FamilyCase{2, 0, 0}));

TEST_F(TopologyTest, LabelIdentityItemsAreFixed) {
    uint32_t a = 0, b = 0, c = 0, d = 0;
    EXPECT_EQ(tavo_get_elable_item_it(&a, &b, &c, &d), 0);
    const std::array<uint32_t, 4> items{a, b, c, d};
    const std::array<uint32_t, 4> expected{35, 33, 34, 36};
    EXPECT_EQ(items, expected);
}

// A card whose chips in slots 1 and 3 (logic ids 0 and 1) are wired to the MCU.
class RelayChipTest : public ApiTest {
  protected:
    void SetUp() override {
        ApiTest::SetUp();
        load_host(R"({"cards": [{"slot_id": 4, "board_id": 1, "pcb_id": 1, "bom_id": 1,
                      "chips": [{"logic_id": 10}, {"logic_id": 11}]}]})");
        ASSERT_EQ(tavo_init(), 0);
        ASSERT_EQ(tavo_get_card_info(4, &card_), 0);
        card_->device_count = 2;
        card_->devices[0].chip_slot = 1;
        card_->devices[1] = card_->devices[0];
        card_->devices[1].logic_id = 11;
        card_->devices[1].chip_slot = 3;
    }

    static void heartbeat(uint32_t logic, int status, int counter) {
        std::string value = R"({"status": )" + std::to_string(status) + R"(, "counter": )" +
                            std::to_string(counter) + "}";
        ASSERT_EQ(rumo_sim_set_value(logic, "heartbeat", value.c_str()), 0);
    }

    tavo_card_record *card_ = nullptr;
};

struct RelayCase {
    int s1, c1, s3, c3;
    int result;
    uint32_t slot;
};

class RelaySelectionTest : public RelayChipTest, public ::testing::WithParamInterface<RelayCase> {};

TEST_P(RelaySelectionTest, ChoosesTheChipWhoseLinkIsAlive) {
    const RelayCase &c = GetParam();
    heartbeat(10, c.s1, c.c1);
    heartbeat(11, c.s3, c.c3);
    uint32_t logic = 99, slot = 99;
    ASSERT_EQ(tavo_get_msg_device_logic_id(&logic, &slot, 4), c.result);
    if (c.result == 0) {
        EXPECT_EQ(slot, c.slot);
        EXPECT_EQ(logic, c.slot == 1 ? 10u : 11u);
    } else {
        EXPECT_TRUE(
            err_logged("tavo_get_msg_device_logic_id", "Card 4 can not connect with MCU.\r\n"));
    }
}

INSTANTIATE_TEST_SUITE_P(Heartbeats, RelaySelectionTest,
                         ::testing::Values(RelayCase{0, 0, 0, 0, -1, 0},
                                           RelayCase{1, 5, 0, 0, 0, 1}, RelayCase{0, 0, 1, 5, 0, 3},
                                           RelayCase{1, 5, 1, 5, 0, 3},  // a tie goes to slot 3
                                           RelayCase{1, 9, 1, 5, 0, 3},
                                           RelayCase{1, 5, 1, 9, 0, 1}));

TEST_F(RelayChipTest, FailedHeartbeatQueryCountsAsADeadLink) {
    heartbeat(10, 1, 5);
    heartbeat(11, 1, 5);
    rumo_sim_fail_next("rumo_get_mini2mcu_heartbeat_status", 1, 8);
    uint32_t logic = 0, slot = 0;
    ASSERT_EQ(tavo_get_msg_device_logic_id(&logic, &slot, 4), 0);
    EXPECT_EQ(slot, 3u);
    EXPECT_TRUE(
        err_logged("tavo_get_msg_device_logic_id",
                   "call tavo_get_mini2mcu_heartbeat_status failed -1. Chip slot is 1.\n\r\n"));
}

TEST_F(RelayChipTest, UnknownCardIsReported) {
    uint32_t logic = 0, slot = 0;
    EXPECT_EQ(tavo_get_msg_device_logic_id(&logic, &slot, 5), -1);
    EXPECT_TRUE(
        err_logged("tavo_get_msg_device_logic_id", "call tavo_get_card_info failed.-1.\n\r\n"));
}

}  // namespace
}  // namespace tavo::test
