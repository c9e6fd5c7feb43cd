#include <array>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "api_fixture.h"
#include "tavo/tavo_query.h"

namespace tavo::test {
namespace {

class QueryTest : public ApiTest {
  protected:
    void SetUp() override {
        ApiTest::SetUp();
        ASSERT_EQ(tavo_init(), 0);
    }
};

// Card 3 of the default host carries chip 2, the one with error codes.
constexpr uint32_t kCard = 3;

TEST_F(QueryTest, ChipValuesComeFromTheDeviceLibrary) {
    ASSERT_EQ(rumo_sim_set_value(2, "temperature", "61"), 0);
    ASSERT_EQ(rumo_sim_set_value(2, "power", "755"), 0);
    int32_t temperature = 0;
    EXPECT_EQ(tavo_get_temperature_api(kCard, 0, &temperature), 0);
    EXPECT_EQ(temperature, 61);
    uint32_t power = 0;
    EXPECT_EQ(tavo_get_power_info_api(kCard, 0, &power), 0);
    EXPECT_EQ(power, 755u);

    rumo_board_info board{};
    EXPECT_EQ(tavo_get_board_info_api(kCard, 0, &board), 0);
    EXPECT_EQ(board.slot_id, kCard);
    uint32_t board_id = 0, pcb_id = 0;
    EXPECT_EQ(tavo_get_board_id_api(kCard, 0, &board_id), 0);
    EXPECT_EQ(tavo_get_pcb_id_api(kCard, 0, &pcb_id), 0);
    EXPECT_EQ(board_id, board.board_id);
    EXPECT_EQ(pcb_id, board.pcb_id);
}

TEST_F(QueryTest, ErrorCodesAreFourBytesWide) {
    uint32_t count = 0, width = 0;
    std::array<uint32_t, RUMO_MAX_ERROR_CODES> codes{};
    ASSERT_EQ(tavo_get_device_errorcode_api(kCard, 0, &count, codes.data(), &width), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(width, 4u);
    std::array<unsigned char, 128> text{};
    ASSERT_EQ(tavo_get_device_errorinfo_api(kCard, 0, codes[0], text.data(), text.size()), 0);
    EXPECT_GT(std::string(reinterpret_cast<char *>(text.data())).size(), 0u);
}

TEST_F(QueryTest, FailedHealthQueryLeavesUnknown) {
    rumo_sim_fail_next("rumo_get_device_health", 1, 12);
    uint32_t health = 0;
    EXPECT_EQ(tavo_get_health_api(kCard, 0, &health), -1);
    EXPECT_EQ(health, uint32_t{TAVO_HEALTH_UNKNOWN});
    EXPECT_TRUE(
        err_logged("tavo_get_device_health", "call rumo_get_device_health failed.12.\n\r\n"));
}

TEST_F(QueryTest, PcieQueryNeedsACardOrServerBoard) {
    load_host(host_with_cards(1, 2));
    reset_library_state();
    ASSERT_EQ(tavo_init(), 0);
    rumo_sim_reset_counts();
    rumo_pcie_info pcie{};
    EXPECT_EQ(tavo_get_pcie_info(1, 0, &pcie), -1);
    EXPECT_TRUE(err_logged("tavo_get_pcie_info", "The device is not card or server.\n\r\n"));
    EXPECT_EQ(rumo_sim_call_count("rumo_get_pcie_info"), 0u);
    EXPECT_EQ(err_count(), 1u);  // refused before the logic id is looked up
}

TEST_F(QueryTest, RoutersRefuseWhatTheDeviceTypeDoesNotServe) {
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(kCard, &card), 0);
    card->mcu_device_id = 1;
    rumo_hbm_info hbm{};
    EXPECT_EQ(tavo_get_hbm_info_api(kCard, 1, &hbm), -1);
    EXPECT_TRUE(err_logged("tavo_get_hbm_info_api", "device_type is error.1.\n\r\n"));

    EXPECT_EQ(tavo_get_aicore_info_api(kCard, 0, nullptr), -1);
    EXPECT_EQ(err_count(), 1u);  // a null record is refused silently

    int32_t temperature = 0;
    EXPECT_EQ(tavo_get_temperature_api(kCard, 5, &temperature), -1);
    EXPECT_TRUE(
        err_logged("tavo_get_temperature_api", "call tavo_get_device_info failed.-1.\n\r\n"));
}

// Every chip function names its device-management call when that call fails.
struct ChipCall {
    const char *rumo_name;
    const char *function;
    std::function<int()> call;
};

class ChipFailureTest : public QueryTest, public ::testing::WithParamInterface<ChipCall> {};

TEST_P(ChipFailureTest, FailureIsLoggedWithTheCallAndCollapsedToMinusOne) {
    ASSERT_EQ(rumo_sim_fail_next(GetParam().rumo_name, 1, 33), 0);
    EXPECT_EQ(GetParam().call(), -1);
    EXPECT_TRUE(err_logged(GetParam().function,
                           std::string("call ") + GetParam().rumo_name + " failed.33.\n\r\n"))
        << read_file(kErrLog);
}

ChipCall chip(const char *rumo_name, const char *function, std::function<int()> call) {
    return {rumo_name, function, std::move(call)};
}

uint32_t u32;
int32_t i32;
rumo_die_id die;
rumo_aicore_info aicore;
rumo_sensor_info sensor;
rumo_ecc_info ecc;
rumo_flash_info flash;
rumo_memory_info memory;
rumo_hbm_info hbm;
rumo_chip_info chip_info;
rumo_board_info board;
rumo_pcie_info pcie;
std::array<uint32_t, RUMO_MAX_ERROR_CODES> codes;
std::array<unsigned char, 64> text;

const std::vector<ChipCall> kChipCalls{
    chip("rumo_get_device_temperature", "tavo_get_device_temperature",
         [] { return tavo_get_device_temperature(kCard, 0, &i32); }),
    chip("rumo_get_device_voltage", "tavo_get_device_voltage",
         [] { return tavo_get_device_voltage(kCard, 0, &u32); }),
    chip("rumo_get_device_power_info", "tavo_get_device_power_info",
         [] { return tavo_get_device_power_info(kCard, 0, &u32); }),
    chip("rumo_get_device_frequency", "tavo_get_device_frequency",
         [] { return tavo_get_device_frequency(kCard, 0, 1, &u32); }),
    chip("rumo_get_device_utilization_rate", "tavo_get_device_utilization_rate",
         [] { return tavo_get_device_utilization_rate(kCard, 0, 1, &u32); }),
    chip("rumo_get_device_die", "tavo_get_device_die",
         [] { return tavo_get_device_die(kCard, 0, &die); }),
    chip("rumo_get_device_ndie", "tavo_get_device_ndie",
         [] { return tavo_get_device_ndie(kCard, 0, &die); }),
    chip("rumo_get_aicore_info", "tavo_get_aicore_info",
         [] { return tavo_get_aicore_info(kCard, 0, &aicore); }),
    chip("rumo_get_soc_sensor_info", "tavo_get_soc_sensor_info",
         [] { return tavo_get_soc_sensor_info(kCard, 0, 1, &sensor); }),
    chip("rumo_get_system_time", "tavo_get_system_time",
         [] { return tavo_get_system_time(kCard, 0, &u32); }),
    chip("rumo_get_ecc_info", "tavo_get_ecc_info",
         [] { return tavo_get_ecc_info(kCard, 0, 0, &ecc); }),
    chip("rumo_get_user_config", "tavo_get_user_config",
         [] { return tavo_get_user_config(kCard, 0, "ssh_status", 1, text.data()); }),
    chip("rumo_clear_user_config", "tavo_clear_user_config",
         [] { return tavo_clear_user_config(kCard, 0, "ssh_status"); }),
    chip("rumo_get_device_flash_count", "tavo_get_device_flash_count",
         [] { return tavo_get_device_flash_count(kCard, 0, &u32); }),
    chip("rumo_get_device_flash_info", "tavo_get_device_flash_info",
         [] { return tavo_get_device_flash_info(kCard, 0, 0, &flash); }),
    chip("rumo_get_memory_info", "tavo_get_memory_info",
         [] { return tavo_get_memory_info(kCard, 0, &memory); }),
    chip("rumo_get_hbm_info", "tavo_get_hbm_info",
         [] { return tavo_get_hbm_info(kCard, 0, &hbm); }),
    chip("rumo_get_chip_info", "tavo_get_chip_info",
         [] { return tavo_get_chip_info(kCard, 0, &chip_info); }),
    chip("rumo_get_board_info", "tavo_get_board_info",
         [] { return tavo_get_board_info(kCard, 0, &board); }),
    chip("rumo_get_board_info", "tavo_get_board_id",
         [] { return tavo_get_board_id(kCard, 0, &u32); }),
    chip("rumo_get_board_info", "tavo_get_pcb_id", [] { return tavo_get_pcb_id(kCard, 0, &u32); }),
    chip("rumo_get_pcie_info", "tavo_get_pcie_info",
         [] { return tavo_get_pcie_info(kCard, 0, &pcie); }),
    chip("rumo_get_device_health", "tavo_get_device_health",
         [] { return tavo_get_device_health(kCard, 0, &u32); }),
    chip("rumo_get_device_errorcode", "tavo_get_device_errorcode",
         [] { return tavo_get_device_errorcode(kCard, 0, &u32, codes.data(), &u32); }),
    chip("rumo_query_errorstring", "tavo_get_device_errorinfo",
         [] { return tavo_get_device_errorinfo(kCard, 0, 1, text.data(), text.size()); }),
    chip("rumo_get_version", "tavo_get_version",
         [] {
             return tavo_get_version(kCard, 0, reinterpret_cast<char *>(text.data()), text.size(),
                                     &u32);
         }),
    chip("rumo_upgrade_get_component_static_version", "tavo_upgrade_get_xload_static_version", [] {
        return tavo_upgrade_get_xload_static_version(kCard, 0, text.data(), text.size(), &u32);
    })};

INSTANTIATE_TEST_SUITE_P(EveryChipFunction, ChipFailureTest, ::testing::ValuesIn(kChipCalls));

// A record names the line of the chip function that reports it, so no two chip
// functions share one.
TEST_F(QueryTest, EachChipFunctionReportsItsOwnLine) {
    std::set<int> lines;
    for (const ChipCall &c : kChipCalls) {
        remove_logs();
        ASSERT_EQ(rumo_sim_fail_next(c.rumo_name, 1, 33), 0);
        ASSERT_EQ(c.call(), -1);
        std::vector<LogRecord> records = read_log(kErrLog);
        ASSERT_EQ(records.size(), 1u) << c.function;
        EXPECT_TRUE(lines.insert(message_line(records[0])).second)
            << c.function << " shares its line: " << records[0].message;
    }
}

TEST_F(QueryTest, UnknownChipIsReportedByTheLogicIdLookup) {
    uint32_t voltage = 0;
    EXPECT_EQ(tavo_get_device_voltage(kCard, 3, &voltage), -1);
    EXPECT_TRUE(
        err_logged("tavo_get_device_voltage", "call tavo_get_device_logic_id failed.-1.\n\r\n"));
}

}  // namespace
}  // namespace tavo::test
