#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "api_fixture.h"
#include "tavo/tavo_kite.h"
#include "tavo/tavo_query.h"
#include "testbed_files.h"

namespace tavo::test {
namespace {

constexpr const char *kAlarmFile = "/run/all_active_alarm";
constexpr const char *kBoardConfig = "/run/board_cfg.ini";
constexpr uint64_t kMemSize = 0x12022000;

bool kite_logged(std::string_view function, std::string_view text) {
    return logged(kErrLog, std::string("tavo_kite,") + std::string(function), text);
}

void write_file(const char *path, const std::string &content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

class KiteTest : public ApiTest {
  protected:
    void TearDown() override {
        ::unlink(kAlarmFile);
        ::unlink(kBoardConfig);
    }
};

TEST_F(KiteTest, FixedAnswers) {
    uint32_t value = 99;
    EXPECT_EQ(tavo_kite_get_health(0, &value), 0);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(tavo_kite_get_device_frequency(0, 1, &value), 0);
    EXPECT_EQ(value, 1600u);
    rumo_chip_info chip{};
    EXPECT_EQ(tavo_kite_get_chip_info(0, &chip), 0);
    EXPECT_STREQ(chip.chip_type, "media");
    EXPECT_STREQ(chip.chip_name, "kite");
    EXPECT_STREQ(chip.chip_ver, "V100");
}

TEST_F(KiteTest, UnservedQueriesAnswerNotSupportedWithoutLogging) {
    uint32_t u = 0;
    int32_t i = 0;
    char text[8];
    unsigned char bytes[8];
    rumo_ecc_info ecc{};
    rumo_flash_info flash{};
    const std::vector<int> answers = {
        tavo_kite_reset_device(0),
        tavo_kite_config_p2p_enable(0, 1),
        tavo_kite_get_p2p_enable(0, &u),
        tavo_kite_get_board_id(0, &u),
        tavo_kite_get_pcb_id(0, &u),
        tavo_kite_get_temperature(0, &i),
        tavo_kite_get_voltage(0, &u),
        tavo_kite_get_power_info(0, &u),
        tavo_kite_get_device_errorinfo(0, 1, bytes, sizeof bytes),
        tavo_kite_get_device_utilization_rate(0, 1, &u),
        tavo_kite_config_ecc_enable(0, 1),
        tavo_kite_get_ecc_info(0, 0, &ecc),
        tavo_kite_get_device_flash_count(0, &u),
        tavo_kite_get_device_flash_info(0, 0, &flash),
        tavo_kite_get_version(0, text, &u),
    };
    for (int answer : answers) {
        EXPECT_EQ(answer, TAVO_NOT_SUPPORTED);
    }
    EXPECT_EQ(err_count(), 0u);
}

struct PeekCase {
    std::vector<uint8_t> bytes;  // from the register address on
    uint32_t expected;
};

class RegisterPeekTest : public KiteTest, public ::testing::WithParamInterface<PeekCase> {};

TEST_P(RegisterPeekTest, TakesTheFirstFourNonZeroBytesOfSeventeen) {
    write_physical_memory(kMemSize, TAVO_KITE_DIE_ID_ADDRESS, GetParam().bytes);
    rumo_die_id die{};
    ASSERT_EQ(tavo_kite_get_device_die(0, &die), 0);
    EXPECT_EQ(die.soc_die[0], GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Registers, RegisterPeekTest,
    ::testing::Values(PeekCase{{0x00, 0x11, 0x00, 0x22, 0x33, 0x44, 0x55, 0x66}, 0x44332211},
                      PeekCase{{}, 0}, PeekCase{{0x01, 0x02}, 0x0201},
                      // byte 16 is the last one looked at, byte 17 is not
                      PeekCase{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD},
                               0xAB}));

TEST_F(KiteTest, RegisterReadThatCannotOpenTheDeviceFails) {
    remove_testbed_file("/dev/mem");
    std::filesystem::create_directories(testbed_path("/dev/mem"));  // open() fails on a directory
    uint32_t value = 0;
    EXPECT_EQ(tavo_kite_regpeek(TAVO_KITE_DIE_ID_ADDRESS, &value), -1);
    EXPECT_TRUE(kite_logged("tavo_kite_regpeek", "memmap():open /dev/mem error!\n\r\n"));
    rumo_die_id die{};
    EXPECT_EQ(tavo_kite_get_device_die(0, &die), -1);
    EXPECT_TRUE(kite_logged("tavo_kite_get_device_die", "call tavo_kite_regpeek failed.-1.\n\r\n"));
    remove_testbed_file("/dev/mem");
}

struct MeminfoCase {
    const char *content;
    int result;
    uint64_t megabytes;
};

class MeminfoTest : public KiteTest, public ::testing::WithParamInterface<MeminfoCase> {};

TEST_P(MeminfoTest, TotalIsRoundedUpToWholeGibibytes) {
    write_testbed_file("/proc/meminfo", GetParam().content);
    rumo_memory_info info{};
    info.memory_size = 7;
    EXPECT_EQ(tavo_kite_get_memory_info(0, &info), GetParam().result);
    if (GetParam().result == 0) {
        EXPECT_EQ(info.memory_size, GetParam().megabytes);
    } else {
        EXPECT_TRUE(kite_logged("tavo_kite_get_memory_info", "call sscanf_s failed.0.\n\r\n"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, MeminfoTest,
    ::testing::Values(MeminfoCase{"MemTotal:        3900000 kB\nMemFree: 1 kB\n", 0, 4096},
                      MeminfoCase{"MemTotal: 16000000 kB\n", 0, 16384},
                      MeminfoCase{"MemTotal: 1048576 kB\n", 0, 1024},
                      MeminfoCase{"MemTotal: 1 kB\nMemTotal: 2097153 kB\n", 0, 3072},
                      MeminfoCase{"MemFree: 5 kB\n", 0, 0},
                      MeminfoCase{"MemTotal: lots\n", -1, 0}));

TEST_F(KiteTest, BoardIdentityNeedsAllThreeKeys) {
    write_file(kBoardConfig, "board_type=fennec\nboard_id=0x1f\npcb_id=2\nbom_id=a\nbom_id=b\n");
    rumo_board_info info{};
    info.slot_id = 77;
    ASSERT_EQ(tavo_fennec_kite_get_board_info(&info), 0);
    EXPECT_EQ(info.board_id, 0x1Fu);
    EXPECT_EQ(info.pcb_id, 2u);
    EXPECT_EQ(info.bom_id, 0xBu);  // the later line wins
    EXPECT_EQ(info.slot_id, 77u);  // not touched

    write_file(kBoardConfig, "board_id=1\npcb_id=2\n");
    EXPECT_EQ(tavo_fennec_kite_get_board_info(&info), -1);
    EXPECT_TRUE(kite_logged("tavo_fennec_kite_get_board_info",
                            "read board info failed!read_flag=(3).\n\r\n"));

    ::unlink(kBoardConfig);
    EXPECT_EQ(tavo_fennec_kite_get_board_info(&info), -1);
    EXPECT_TRUE(kite_logged("tavo_fennec_kite_get_board_info",
                            "open config file(/run/board_cfg.ini) failed.\n\r\n"));
}

TEST_F(KiteTest, BoardInfoAndAlarmsFollowTheBoardType) {
    g_tavoBoardType = TAVO_BOARD_FENNEC;
    write_file(kBoardConfig, "board_id=5\npcb_id=6\nbom_id=7\n");
    rumo_board_info info{};
    ASSERT_EQ(tavo_kite_get_board_info(0, &info), 0);
    EXPECT_EQ(info.board_id, 5u);
    write_file(kAlarmFile, "x@2@abcd\n9@1@2@3@4@abcd\n");
    uint32_t count = 0, width = 0;
    std::vector<uint32_t> codes(64);
    ASSERT_EQ(tavo_kite_get_device_errorcode(0, &count, codes.data(), &width), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(codes[0], 9u);
    EXPECT_EQ(width, 4u);
}

TEST_F(KiteTest, AlarmLineSplit) {
    char sections[TAVO_ALARM_SECTION_MAX][TAVO_ALARM_SECTION_LEN] = {};
    int32_t count = 0;
    const std::string six = "7@1@2@3@4@abcd";
    ASSERT_EQ(
        tavo_get_alarm_info(six.c_str(), static_cast<int32_t>(six.size()), sections, 6, &count), 0);
    EXPECT_EQ(count, 6);
    EXPECT_STREQ(sections[0], "7");
    EXPECT_STREQ(sections[4], "4");
    EXPECT_STREQ(sections[5], "abcd");

    const std::string short_tail = "7@1@2@abc";
    EXPECT_EQ(tavo_get_alarm_info(short_tail.c_str(), static_cast<int32_t>(short_tail.size()),
                                  sections, 6, &count),
              -1);
    EXPECT_TRUE(kite_logged("tavo_get_alarm_info", "alarm_line(7@1@2@abc) format invalid!\n\r\n"));
    EXPECT_TRUE(kite_logged("tavo_get_alarm_info", "last_pos(5, 9) section_count(3, 6)!\n\r\n"));

    // More fields than sections: the array is never overrun and the line is refused.
    const std::string many = "1@2@3@4@5@6@7@8@abcd";
    EXPECT_EQ(
        tavo_get_alarm_info(many.c_str(), static_cast<int32_t>(many.size()), sections, 6, &count),
        -1);

    // A length beyond the text: the search stops at the terminator.
    std::vector<char> exact(six.c_str(), six.c_str() + six.size() + 1);
    EXPECT_EQ(tavo_get_alarm_info(exact.data(), 64, sections, 6, &count), -1);
}

struct AlarmFileCase {
    const char *name;
    std::string content;
    int result;
    uint32_t count;
    std::vector<uint32_t> codes;
};

class AlarmFileTest : public KiteTest, public ::testing::WithParamInterface<AlarmFileCase> {};

TEST_P(AlarmFileTest, ReadsSummaryAndAlarms) {
    const AlarmFileCase &c = GetParam();
    write_file(kAlarmFile, c.content);
    uint32_t count = 1234, width = 0;
    std::vector<uint32_t> codes(64, 0);
    EXPECT_EQ(tavo_fennec_kite_get_device_errorcode(&count, codes.data(), &width), c.result);
    EXPECT_EQ(width, 4u);
    if (c.result == 0) {
        EXPECT_EQ(count, c.count);
    }
    for (std::size_t i = 0; i < c.codes.size(); ++i) {
        EXPECT_EQ(codes[i], c.codes[i]) << i;
    }
}

std::string many_alarms(int lines) {
    std::string text = "all@70@abcd\n";
    for (int i = 1; i <= lines; ++i) {
        text += std::to_string(i) + "@1@2@3@4@abcd\n";
    }
    return text;
}

INSTANTIATE_TEST_SUITE_P(
    Files, AlarmFileTest,
    ::testing::Values(
        AlarmFileCase{"summary_and_alarm", "0@3@abcd\n7@1@2@3@4@abcd\n", 0, 3, {7}},
        AlarmFileCase{"last_line_without_feed_keeps_four", "0@1@abcd\n8@1@2@3@4@abcde", 0, 1, {8}},
        AlarmFileCase{"last_line_without_feed_too_short", "0@1@abcd\n8@1@2@3@4@abcd", -1, 0, {0}},
        AlarmFileCase{"last_line_without_feed_ending_in_at", "0@3@abcd@", -1, 0, {}},
        AlarmFileCase{"four_sections_rejected", "0@1@2@abcd\n", -1, 0, {}},
        AlarmFileCase{"short_tail_rejected", "7@1@2@abc\n", -1, 0, {}},
        AlarmFileCase{"empty_lines_skipped", "\n0@2@abcd\n\n", 0, 2, {}},
        AlarmFileCase{"stops_at_64", many_alarms(70), 0, 64, {1, 2, 3}}),
    [](const auto &param_info) { return std::string(param_info.param.name); });

TEST_F(KiteTest, MissingAlarmFileMeansNoAlarms) {
    uint32_t count = 5, width = 0;
    std::vector<uint32_t> codes(64);
    EXPECT_EQ(tavo_fennec_kite_get_device_errorcode(&count, codes.data(), &width), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(width, 4u);
    EXPECT_TRUE(logged(kInfoLog, "tavo_kite,tavo_fennec_kite_get_device_errorcode",
                       "can't open alarm file, maybe not exist.\n\r\n"));
    EXPECT_EQ(err_count(), 0u);
}

TEST_F(KiteTest, HexValues) {
    uint32_t value = 0;
    EXPECT_EQ(tavo_get_hex_single_board_info("pcb_id=0x1A\n", "pcb_id=", &value), 0);
    EXPECT_EQ(value, 0x1Au);
    EXPECT_EQ(tavo_get_hex_single_board_info("pcb_id=ff zz", "pcb_id=", &value), 0);
    EXPECT_EQ(value, 0xFFu);
    EXPECT_EQ(tavo_get_hex_single_board_info(" pcb_id=1", "pcb_id=", &value), -1);
}

}  // namespace
}  // namespace tavo::test
