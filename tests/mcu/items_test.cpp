// The MCU's information items and the operations it does not serve.
#include <array>
#include <cstring>
#include <functional>

#include "mcu_fixture.h"

namespace tavo::test {
namespace {

class ItemsTest : public McuTest {};

TEST_F(ItemsTest, VersionIsTheDottedDecimalOfEveryByte) {
    char text[TAVO_MCU_ITEM_MAX];
    std::memset(text, 'x', sizeof text);
    uint32_t length = 0;
    ASSERT_EQ(tavo_mcu_get_version(kMcuCard, text, &length), 0);
    EXPECT_STREQ(text, "1.20.3");
    EXPECT_EQ(length, 6u);
    EXPECT_EQ(mcu_requests(), (std::vector<Request>{{TAVO_MCU_CMD_VERSION, 0, 3, 0x80, 0, {}}}));

    set_item(TAVO_MCU_CMD_VERSION, {2, 0, 255, 7});
    ASSERT_EQ(tavo_mcu_get_version(kMcuCard, text, &length), 0);
    EXPECT_STREQ(text, "2.0.255.7");
    EXPECT_EQ(length, 9u);
}

struct ErrorCodeCase {
    const char *name;
    std::vector<uint8_t> bytes;
    uint32_t count;
};

class ErrorCodeTest : public McuTest, public ::testing::WithParamInterface<ErrorCodeCase> {};

TEST_P(ErrorCodeTest, CountsTwoByteCodes) {
    set_item(TAVO_MCU_CMD_ERROR_CODE, GetParam().bytes);
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> codes{};
    uint32_t count = 99, width = 0;
    ASSERT_EQ(tavo_mcu_get_device_errorcode(kMcuCard, &count, codes.data(), &width), 0);
    EXPECT_EQ(count, GetParam().count);
    EXPECT_EQ(width, 2u);
    EXPECT_EQ(0, std::memcmp(codes.data(), GetParam().bytes.data(), GetParam().bytes.size()));
}

INSTANTIATE_TEST_SUITE_P(Items, ErrorCodeTest,
                         ::testing::Values(ErrorCodeCase{"NoError", {0x00, 0x00}, 0},
                                           ErrorCodeCase{"NoErrorHighByteSet", {0x00, 0x01}, 0},
                                           ErrorCodeCase{"OneCode", {0x05, 0x00}, 1},
                                           ErrorCodeCase{"ThreeCodes", {1, 0, 2, 0, 3, 0}, 3},
                                           ErrorCodeCase{"OddByte", {1, 0, 2}, 1},
                                           // A long read of 40 bytes reports 20 of them.
                                           ErrorCodeCase{"TwentyCodesCountAsTen",
                                                         counting_bytes(40), 10}),
                         [](const auto &param_info) { return std::string(param_info.param.name); });

TEST_F(ItemsTest, ErrorCodeFailureReturnsTheLongReadResult) {
    ASSERT_EQ(rumo_sim_mcu_fail_command(kMcuCard, TAVO_MCU_CMD_ERROR_CODE, 3, 1), 0);
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> codes{};
    uint32_t count = 0, width = 0;
    EXPECT_EQ(tavo_mcu_get_device_errorcode(kMcuCard, &count, codes.data(), &width), -1);
    EXPECT_TRUE(
        err_logged("tavo_mcu_get_device_errorcode", "call tavo_mcu_get_info_dynamic fail -1.\r\n"));
}

TEST_F(ItemsTest, BoardInfoReadsThreeWords) {
    rumo_board_info info{11, 22, 33, 44};
    ASSERT_EQ(tavo_mcu_get_board_info(kMcuCard, &info), 0);
    EXPECT_EQ(info.board_id, 513u);
    EXPECT_EQ(info.pcb_id, 7u);
    EXPECT_EQ(info.bom_id, 9u);
    EXPECT_EQ(info.slot_id, 0u);
    EXPECT_EQ(mcu_requests(),
              (std::vector<Request>{
                  {15, 0, 2, 0x80, 0, {}}, {16, 0, 1, 0x80, 0, {}}, {40, 0, 1, 0x80, 0, {}}}));
}

TEST_F(ItemsTest, FailedPcbIdLeavesTheBoardIdAndNoBomId) {
    ASSERT_EQ(rumo_sim_mcu_fail_command(kMcuCard, TAVO_MCU_CMD_PCB_ID, 3, 1), 0);
    rumo_board_info info{11, 22, 33, 44};
    EXPECT_EQ(tavo_mcu_get_board_info(kMcuCard, &info), -1);
    EXPECT_EQ(info.board_id, 513u);
    EXPECT_EQ(info.pcb_id, 22u);
    EXPECT_EQ(info.bom_id, 0u);
    EXPECT_EQ(info.slot_id, 0u);
    EXPECT_TRUE(err_logged("tavo_mcu_get_board_info", "get mcu pcb id fail.ret(-1)\n\r\n"));
    EXPECT_EQ(offsets_of(mcu_requests(), TAVO_MCU_CMD_BOM_ID).size(), 0u);
}

TEST_F(ItemsTest, WordItemsUseTheirCommandAndLength) {
    struct Word {
        std::function<int(uint32_t *)> read;
        uint16_t command;
        uint32_t length;
        uint32_t expected;
    };
    int32_t temperature = 0;
    const Word words[] = {
        {[](uint32_t *v) { return tavo_mcu_get_health(kMcuCard, v); }, 1, 1, 0},
        {[&](uint32_t *v) {
             int ret = tavo_mcu_get_temperature(kMcuCard, &temperature);
             *v = static_cast<uint32_t>(temperature);
             return ret;
         },
         3, 2, 300},
        {[](uint32_t *v) { return tavo_mcu_get_power_info(kMcuCard, v); }, 4, 2, 150},
        {[](uint32_t *v) { return tavo_mcu_get_voltage(kMcuCard, v); }, 11, 2, 1200},
        {[](uint32_t *v) { return tavo_mcu_get_board_id(kMcuCard, v); }, 15, 2, 513},
        {[](uint32_t *v) { return tavo_mcu_get_pcb_id(kMcuCard, v); }, 16, 1, 7},
        {[](uint32_t *v) { return tavo_mcu_get_bom_id(kMcuCard, v); }, 40, 1, 9},
        {[](uint32_t *v) { return tavo_mcu_get_boot_area(kMcuCard, v); }, 1283, 1, 0},
    };
    for (const Word &w : words) {
        ASSERT_EQ(rumo_sim_mcu_clear_frames(kMcuCard), 0);
        uint32_t value = 0xFFFF;
        EXPECT_EQ(w.read(&value), 0) << w.command;
        EXPECT_EQ(value, w.expected) << w.command;
        EXPECT_EQ(mcu_requests(), (std::vector<Request>{{w.command, 0, w.length, 0x80, 0, {}}}));
    }
}

TEST_F(ItemsTest, BootAreaSwitchAlwaysSendsZero) {
    ASSERT_EQ(tavo_mcu_set_boot_area(kMcuCard), 0);
    uint32_t area = 0;
    ASSERT_EQ(tavo_mcu_get_boot_area(kMcuCard, &area), 0);
    EXPECT_EQ(area, 1u);
    ASSERT_EQ(tavo_mcu_set_boot_area(kMcuCard), 0);
    EXPECT_EQ(mcu_requests()[0], (Request{1281, 0, 1, 0x80, 0, {0}}));
    EXPECT_EQ(mcu_requests()[2], (Request{1281, 0, 1, 0x80, 0, {0}}));
}

TEST_F(ItemsTest, LabelItemIsSelectedByTheArgumentOfTheFirstFrame) {
    std::string text = "a label item longer than one frame";
    set_item(TAVO_MCU_CMD_ELABEL, std::vector<uint8_t>(text.begin(), text.end()), 36);
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> buffer{};
    uint16_t length = 0;
    ASSERT_EQ(tavo_mcu_get_elable_info(kMcuCard, 0x124, buffer.data(), &length), 0);
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + text.size()), text);
    std::vector<Request> requests = mcu_requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].argument, 0x24) << "the low byte of the item id";
    EXPECT_EQ(requests[1].argument, 0) << "follow-up frames carry no argument";
    // 34 bytes: remainder 14 and a last piece of 14 - 20, as every long read counts.
    EXPECT_EQ(length, 8u);

    ASSERT_EQ(tavo_mcu_get_elable_info(kMcuCard, 35, buffer.data(), &length), 0);
    EXPECT_EQ(length, 17u);
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 17), "label thirty-five");
}

TEST_F(ItemsTest, LinkReportIsReadWithParameterTwo) {
    const uint8_t start[] = {1, 2};
    ASSERT_EQ(tavo_mcu_set_info_simple(kMcuCard, 22, 2, start), 0);
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> text{};
    uint32_t length = 0;
    ASSERT_EQ(tavo_mcu_get_iic_to_miniD_status(kMcuCard, text.data(), &length), 0);
    EXPECT_EQ(length, 11u);
    EXPECT_EQ(mcu_requests()[1], (Request{23, 0, 20, 0x80, 0, {2}}));
}

TEST_F(ItemsTest, ChipInfoNamesTheMcuAndLeavesTheRest) {
    rumo_chip_info info{};
    std::strcpy(info.chip_type, "keep");
    std::strcpy(info.chip_ver, "me");
    ASSERT_EQ(tavo_mcu_get_chip_info(kMcuCard, &info), 0);
    EXPECT_STREQ(info.chip_name, "MCU");
    EXPECT_STREQ(info.chip_type, "keep");
    EXPECT_STREQ(info.chip_ver, "me");
    EXPECT_TRUE(mcu_requests().empty());
}

TEST_F(ItemsTest, OperationsTheMcuDoesNotServe) {
    uint32_t word = 0;
    rumo_ecc_info ecc{};
    rumo_flash_info flash{};
    rumo_memory_info memory{};
    rumo_die_id die{};
    unsigned char text[16] = {};
    const std::vector<std::function<int()>> calls = {
        [] { return tavo_mcu_reset_device(kMcuCard); },
        [] { return tavo_mcu_config_p2p_enable(kMcuCard, 1); },
        [&] { return tavo_mcu_get_p2p_enable(kMcuCard, &word); },
        [&] { return tavo_mcu_get_device_frequency(kMcuCard, 1, &word); },
        [&] { return tavo_mcu_get_device_utilization_rate(kMcuCard, 1, &word); },
        [] { return tavo_mcu_config_ecc_enable(kMcuCard, 1); },
        [&] { return tavo_mcu_get_ecc_info(kMcuCard, 0, &ecc); },
        [&] { return tavo_mcu_get_device_flash_count(kMcuCard, &word); },
        [&] { return tavo_mcu_get_device_flash_info(kMcuCard, 0, &flash); },
        [&] { return tavo_mcu_get_memory_info(kMcuCard, &memory); },
        [&] { return tavo_mcu_get_device_errorinfo(kMcuCard, 1, text, sizeof text); },
        [&] { return tavo_mcu_get_monitor_enable(kMcuCard, &word); },
        [] { return tavo_mcu_set_monitor_enable(kMcuCard, 1); },
        [&] { return tavo_mcu_get_device_die(kMcuCard, &die); },
    };
    ASSERT_EQ(calls.size(), 14u);
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i](), -8001) << "operation " << i;
    }
    EXPECT_TRUE(mcu_requests().empty());
    EXPECT_EQ(err_count(), 0u);
}

}  // namespace
}  // namespace tavo::test
