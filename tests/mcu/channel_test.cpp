// The MCU frame protocol: what reaches the MCU, long reads and writes, retries,
// short items and the switch of the MCU's link.
#include <algorithm>
#include <array>
#include <cstring>

#include "mcu_fixture.h"

namespace tavo::test {
namespace {

constexpr uint16_t kSn = TAVO_MCU_CMD_SN;

class ChannelTest : public McuTest {};

TEST_F(ChannelTest, ReadRecordLayoutAndParameterClamp) {
    tavo_mcu_passthru_record record{};
    std::vector<uint8_t> parameter = counting_bytes(25);
    ASSERT_EQ(
        tavo_mcu_fill_data_for_reading(&record, 0x23, 0x0503, 0x11223344, 20, parameter.data(), 25),
        0);
    EXPECT_EQ(record.request_size, 32u);
    EXPECT_EQ(record.direction, 0u);
    const std::array<uint8_t, 12> header{0x80, 0x23, 0x03, 0x05, 0x44, 0x33,
                                         0x22, 0x11, 20,   0,    0,    0};
    EXPECT_EQ(0, std::memcmp(record.request, header.data(), header.size()));
    EXPECT_EQ(0, std::memcmp(record.request + 12, parameter.data(), 20));
    EXPECT_EQ(record.request[32], 0) << "the 21st parameter byte stays behind";

    uint8_t out[TAVO_MCU_FRAME_DATA_MAX] = {};
    uint32_t piece = 0, total = 0;
    ASSERT_EQ(tavo_mcu_get_info_by_mini(kMcuCard, 7, kSn, 0, 20, parameter.data(), 25, out, &piece,
                                        &total),
              0);
    std::vector<rumo_sim_mcu_frame> frames = mcu_frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].request_size, 32u);
    EXPECT_EQ(frames[0].relay, kRelayChip);
    EXPECT_EQ(frames[0].direction, 0u);
    EXPECT_EQ(mcu_requests()[0], (Request{kSn, 0, 20, 0x80, 7, counting_bytes(20)}));
    EXPECT_EQ(piece, 7u);
    EXPECT_EQ(total, 7u);
    EXPECT_EQ(0, std::memcmp(out, "SN-0001", 7));
}

TEST_F(ChannelTest, WriteRecordCarriesTheDataAndDirection) {
    tavo_mcu_passthru_record record{};
    std::vector<uint8_t> data = counting_bytes(7, 0x40);
    ASSERT_EQ(tavo_mcu_fill_data_for_writing(&record, 0, 24, 40, 7, data.data()), 0);
    EXPECT_EQ(record.request_size, 19u);
    EXPECT_EQ(record.direction, 1u);
    EXPECT_EQ(record.request[0], 0);
    EXPECT_EQ(record.request[1], 0);
    EXPECT_EQ(record.request[4], 40);
    EXPECT_EQ(record.request[8], 7);
    EXPECT_EQ(0, std::memcmp(record.request + 12, data.data(), 7));
    EXPECT_EQ(tavo_mcu_fill_data_for_writing(nullptr, 0, 24, 0, 7, data.data()), -1);
}

struct LongReadCase {
    const char *name;
    std::size_t total;
    int32_t first_piece;  // forced piece of the first reply; -1: what the MCU has
    int result;
    uint32_t out_length;
    std::vector<uint32_t> follow_up_offsets;
    const char *error;  // the one error record, nullptr: none
};

class LongReadTest : public McuTest, public ::testing::WithParamInterface<LongReadCase> {};

TEST_P(LongReadTest, FollowUpFramesAndOutLength) {
    const LongReadCase &c = GetParam();
    std::vector<uint8_t> item = counting_bytes(c.total);
    set_item(kSn, item);
    if (c.first_piece >= 0) {
        ASSERT_EQ(
            rumo_sim_mcu_set_piece_length(kMcuCard, kSn, 1, static_cast<uint32_t>(c.first_piece)),
            0);
    }
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> out{};
    uint32_t length = 12345;
    EXPECT_EQ(tavo_mcu_get_info_dynamic(kMcuCard, 0, kSn, 20, nullptr, 0, out.data(), &length),
              c.result);
    std::vector<Request> requests = mcu_requests();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests[0], (Request{kSn, 0, 20, 0x80, 0, {}}));
    std::vector<uint32_t> follow_ups = offsets_of(requests, kSn);
    follow_ups.erase(follow_ups.begin());
    EXPECT_EQ(follow_ups, c.follow_up_offsets);
    for (std::size_t i = 1; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i].length, 20u);
    }
    if (c.result == 0) {
        EXPECT_EQ(length, c.out_length);
        EXPECT_TRUE(std::equal(item.begin(), item.end(), out.begin())) << "the whole item arrives";
    }
    EXPECT_EQ(err_count(), c.error != nullptr ? 1u : 0u) << read_file(kErrLog);
    if (c.error != nullptr) {
        EXPECT_TRUE(err_logged("tavo_mcu_get_info_dynamic", c.error));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Totals, LongReadTest,
    ::testing::Values(LongReadCase{"Empty", 0, -1, 0, 0, {}, nullptr},
                      LongReadCase{"EmptyWithAFullFirstPiece", 0, 20, 0, 0, {}, nullptr},
                      LongReadCase{"OneFrame", 20, -1, 0, 20, {}, nullptr},
                      LongReadCase{"Thirty", 30, -1, 0, 0, {20}, nullptr},
                      LongReadCase{"Fifty", 50, -1, 0, 30, {20, 30}, nullptr},
                      LongReadCase{"Sixty", 60, -1, 0, 40, {20, 40}, nullptr},
                      LongReadCase{"Exactly256",
                                   256,
                                   -1,
                                   -1,
                                   0,
                                   {20, 40, 60, 80, 100, 120, 140, 160, 180, 200, 220, 236},
                                   nullptr},
                      LongReadCase{
                          "Above256", 300, -1, -1, 0, {}, "total=300 bigger tran 256.\n\r\n"}),
    [](const auto &param_info) { return std::string(param_info.param.name); });

TEST_F(ChannelTest, LongWritesGoInFramesOfTwenty) {
    std::vector<uint8_t> forty = counting_bytes(40);
    ASSERT_EQ(tavo_mcu_set_info_dnamic(kMcuCard, kSn, 40, forty.data()), 0);
    std::vector<uint8_t> seven = counting_bytes(7, 0x61);
    ASSERT_EQ(tavo_mcu_set_info_dnamic(kMcuCard, kSn, 7, seven.data()), 0);
    EXPECT_EQ(mcu_requests(), (std::vector<Request>{{kSn, 0, 20, 0, 0, counting_bytes(20)},
                                                    {kSn, 20, 20, 0x80, 0, counting_bytes(20, 21)},
                                                    {kSn, 0, 7, 0x80, 0, seven}}));
    for (const rumo_sim_mcu_frame &f : mcu_frames()) {
        EXPECT_EQ(f.direction, 1u);
        EXPECT_EQ(f.request_size, 12 + f.length);
    }
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> sn{};
    uint32_t length = 0;
    ASSERT_EQ(tavo_mcu_get_sn(kMcuCard, sn.data(), &length), 0);
    EXPECT_EQ(std::vector<uint8_t>(sn.begin(), sn.begin() + length), seven);
}

TEST_F(ChannelTest, ThreeAttemptsOneMicrosecondApart) {
    ASSERT_EQ(rumo_sim_fail_next("rumo_passthru_mcu", 2, 9), 0);
    uint32_t health = 99;
    ASSERT_EQ(tavo_mcu_get_health(kMcuCard, &health), 0);
    EXPECT_EQ(health, 0u);
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{1, 1}));
    EXPECT_EQ(count_logged("call rumo_passthru_mcu failed.9.\n\r\n"), 2u);
    EXPECT_EQ(mcu_requests().size(), 1u) << "failed calls never reach the MCU";

    remove_logs();
    clear_requested_sleeps();
    ASSERT_EQ(rumo_sim_fail_next("rumo_passthru_mcu", 3, 9), 0);
    EXPECT_EQ(tavo_mcu_get_health(kMcuCard, &health), -1);
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{1, 1, 1}));
    EXPECT_TRUE(err_logged("tavo_mcu_get_fix_word", "call tavo_mcu_get_info_inn fail.(-1).\n\r\n"));

    const uint8_t byte = 1;
    ASSERT_EQ(rumo_sim_fail_next("rumo_passthru_mcu", 3, 9), 0);
    EXPECT_EQ(tavo_mcu_set_info(kMcuCard, 0x80, TAVO_MCU_CMD_UPGRADE_CONTROL, 0, 1, &byte), -1);
    EXPECT_EQ(count_logged("call rumo_passthru_mcu failed.9.\n\r\n"), 6u);
}

TEST_F(ChannelTest, McuStatusIsLoggedNotReturned) {
    ASSERT_EQ(rumo_sim_mcu_fail_command(kMcuCard, TAVO_MCU_CMD_TEMPERATURE, 3, 0x55), 0);
    int32_t temperature = 0;
    EXPECT_EQ(tavo_mcu_get_temperature(kMcuCard, &temperature), -1);
    EXPECT_EQ(count_logged("errorcode=85.\n\r\n"), 3u);
    EXPECT_EQ(mcu_requests().size(), 3u);
}

struct WordCase {
    const char *name;
    uint16_t command;
    std::vector<uint8_t> bytes;
    int result;
    uint32_t value;
};

class WordTest : public McuTest, public ::testing::WithParamInterface<WordCase> {};

TEST_P(WordTest, ShortItemsAreLittleEndianNumbers) {
    const WordCase &c = GetParam();
    set_item(c.command, c.bytes);
    uint32_t value = 0xDEAD;
    EXPECT_EQ(tavo_mcu_get_fix_word(kMcuCard, 0, c.command, 2, &value), c.result);
    if (c.result == 0) {
        EXPECT_EQ(value, c.value);
        EXPECT_EQ(err_count(), 0u);
    } else {
        EXPECT_EQ(value, 0xDEADu);
        EXPECT_TRUE(err_logged("tavo_mcu_get_fix_word",
                               "len(" + std::to_string(c.bytes.size()) + ") error.\n\r\n"));
    }
    EXPECT_EQ(mcu_requests(), (std::vector<Request>{{c.command, 0, 2, 0x80, 0, {}}}));
}

INSTANTIATE_TEST_SUITE_P(
    Items, WordTest,
    ::testing::Values(WordCase{"OneByte", TAVO_MCU_CMD_HEALTH, {0xC8}, 0, 200},
                      WordCase{"TwoBytes", TAVO_MCU_CMD_TEMPERATURE, {0x2C, 0x01}, 0, 300},
                      WordCase{"FourBytes", TAVO_MCU_CMD_POWER, {1, 2, 3, 4}, 0, 0x04030201},
                      WordCase{"Empty", TAVO_MCU_CMD_POWER, {}, 0, 0},
                      WordCase{"FiveBytes", TAVO_MCU_CMD_HEALTH, {1, 2, 3, 4, 5}, -1, 0}),
    [](const auto &param_info) { return std::string(param_info.param.name); });

TEST_F(ChannelTest, OverlongPieceFailsTheCopyButNotTheExchange) {
    ASSERT_EQ(rumo_sim_mcu_set_piece_length(kMcuCard, kSn, 1, 21), 0);
    std::array<uint8_t, TAVO_MCU_FRAME_DATA_MAX> out{};
    out.fill(0xEE);
    uint32_t piece = 0, total = 0;
    ASSERT_EQ(
        tavo_mcu_get_info_by_mini(kMcuCard, 0, kSn, 0, 20, nullptr, 0, out.data(), &piece, &total),
        0);
    EXPECT_EQ(piece, 21u);
    EXPECT_EQ(total, 7u);
    EXPECT_EQ(out, (std::array<uint8_t, TAVO_MCU_FRAME_DATA_MAX>{})) << "nothing past the room";
    EXPECT_TRUE(err_logged("tavo_mcu_get_info_by_mini", "call memcpy_s failed.34.\n\r\n"));
}

TEST_F(ChannelTest, CardWithoutReachableMcuFailsBeforeAnyFrame) {
    uint32_t health = 0;
    EXPECT_EQ(tavo_mcu_get_health(1, &health), -1);
    EXPECT_EQ(count_logged("Card 1 can not connect with MCU.\r\n"), 3u);
    EXPECT_EQ(count_logged("call tavo_get_device_logic_id failed.-1.\n\r\n"), 3u);
    EXPECT_TRUE(mcu_requests().empty());
}

TEST_F(ChannelTest, SwitchAskedToMoveToAnUnwiredSlotStays) {
    uint32_t before = 0, after = 0;
    ASSERT_EQ(tavo_switch_mini2mcu_channel(kMcuCard, &before, &after), 0);
    EXPECT_EQ(before, 1u);
    EXPECT_EQ(after, 1u);
    EXPECT_EQ(mcu_requests(), (std::vector<Request>{{1558, 0, 1, 0, 0, {3}}}));
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{3000000}));
}

TEST_F(ChannelTest, FailedSwitchReportsOnStandardOutput) {
    ASSERT_EQ(rumo_sim_mcu_fail_command(kMcuCard, 1558, 3, 2), 0);
    uint32_t before = 0, after = 0;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(tavo_switch_mini2mcu_channel(kMcuCard, &before, &after), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\tSwitch iic channel failed.");
    EXPECT_TRUE(
        err_logged("tavo_switch_mini2mcu_channel", "call tavo_mcu_set_info failed.-1.\n\r\n"));
    EXPECT_TRUE(requested_sleeps() == (std::vector<uint64_t>{1, 1, 1})) << "no 3 s wait";

    EXPECT_EQ(tavo_switch_mini2mcu_channel(1, &before, &after), -1);
    EXPECT_TRUE(err_logged("tavo_switch_mini2mcu_channel",
                           "call tavo_get_device_logic_id failed.-1.\n\r\n"));
}

class TwoChipChannelTest : public TwoChipMcuTest {};

TEST_F(TwoChipChannelTest, SwitchMovesTheLinkAndTheHeartbeatWithIt) {
    uint32_t before = 0, after = 0;
    ASSERT_EQ(tavo_switch_mini2mcu_channel(kMcuCard, &before, &after), 0);
    EXPECT_EQ(before, 1u);
    EXPECT_EQ(after, 3u);
    uint32_t health = 9;
    ASSERT_EQ(tavo_mcu_get_health(kMcuCard, &health), 0);
    ASSERT_EQ(tavo_switch_mini2mcu_channel(kMcuCard, &before, &after), 0);
    EXPECT_EQ(before, 3u);
    EXPECT_EQ(after, 1u);
    std::vector<rumo_sim_mcu_frame> frames = mcu_frames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0].relay, kRelayChip);
    EXPECT_EQ(frames[0].data[0], 3);
    EXPECT_EQ(frames[1].relay, kSecondChip) << "the health read went through slot 3";
    EXPECT_EQ(frames[2].relay, kSecondChip);
    EXPECT_EQ(frames[2].data[0], 1);
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{3000000, 3000000}));
}

}  // namespace
}  // namespace tavo::test
