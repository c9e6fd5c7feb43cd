// Every router sends each device type to its own back end. Before initialisation
// device ids stand for their types (0 chip, 1 MCU, 2 embedded SoC), which reaches all
// three back ends on one card.
#include <array>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "api_fixture.h"
#include "tavo/tavo_kite.h"
#include "tavo/tavo_query.h"
#include "testbed_files.h"

namespace tavo::test {
namespace {

// What a back end answers. The MCU of an uninitialised library cannot be reached,
// so a query it serves fails there with its own -1 rather than being refused.
enum class Outcome { kOk, kNotSupported, kRefused, kBackendFailure };

struct Route {
    const char *wrapper;
    std::function<int(uint32_t device)> call;
    std::array<Outcome, 3> by_type;
};

class RoutingTest : public ApiTest, public ::testing::WithParamInterface<Route> {
  protected:
    void SetUp() override {
        ApiTest::SetUp();
        // The SoC's memory comes from the testbed; its register cannot be mapped.
        write_testbed_file("/proc/meminfo", "MemTotal: 1000 kB\n");
        remove_testbed_file("/dev/mem");
        std::filesystem::create_directories(testbed_path("/dev/mem"));
    }
    void TearDown() override { remove_testbed_file("/dev/mem"); }
};

TEST_P(RoutingTest, EachTypeReachesItsBackEnd) {
    const Route &route = GetParam();
    for (uint32_t type = 0; type < 3; ++type) {
        SCOPED_TRACE(type);
        remove_logs();
        int status = route.call(type);
        std::string refusal = "device_type is error." + std::to_string(type) + ".\n\r\n";
        switch (route.by_type[type]) {
            case Outcome::kOk:
                EXPECT_EQ(status, 0) << read_file(kErrLog);
                break;
            case Outcome::kNotSupported:
                EXPECT_EQ(status, TAVO_NOT_SUPPORTED);
                EXPECT_EQ(err_count(), 0u);
                break;
            case Outcome::kRefused:
                EXPECT_EQ(status, -1);
                EXPECT_TRUE(err_logged(route.wrapper, refusal)) << read_file(kErrLog);
                break;
            case Outcome::kBackendFailure:
                EXPECT_EQ(status, -1);
                EXPECT_FALSE(err_logged(route.wrapper, refusal));
                EXPECT_GT(err_count(), 0u);
                break;
        }
    }
}

using O = Outcome;
uint32_t u32;
int32_t i32;
rumo_die_id die;
rumo_aicore_info aicore;
rumo_sensor_info sensor;
rumo_ecc_info ecc;
rumo_flash_info flash;
rumo_memory_info memory;
rumo_hbm_info hbm;
rumo_chip_info chip;
rumo_board_info board;
rumo_pcie_info pcie;
std::array<unsigned char, TAVO_ERROR_CODE_BUFFER_SIZE> codes;
std::array<unsigned char, 256> text;

Route route(const char *wrapper, std::function<int(uint32_t)> call, O chip_outcome, O mcu, O kite) {
    return {wrapper, std::move(call), {chip_outcome, mcu, kite}};
}

const std::vector<Route> kRoutes{
    route(
        "tavo_get_temperature_api", [](uint32_t d) { return tavo_get_temperature_api(0, d, &i32); },
        O::kOk, O::kBackendFailure, O::kNotSupported),
    route(
        "tavo_get_voltage_api", [](uint32_t d) { return tavo_get_voltage_api(0, d, &u32); }, O::kOk,
        O::kBackendFailure, O::kNotSupported),
    route(
        "tavo_get_power_info_api", [](uint32_t d) { return tavo_get_power_info_api(0, d, &u32); },
        O::kOk, O::kBackendFailure, O::kNotSupported),
    route(
        "tavo_get_device_frequency_api",
        [](uint32_t d) { return tavo_get_device_frequency_api(0, d, 1, &u32); }, O::kOk,
        O::kNotSupported, O::kOk),
    route(
        "tavo_get_device_utilization_rate_api",
        [](uint32_t d) { return tavo_get_device_utilization_rate_api(0, d, 1, &u32); }, O::kOk,
        O::kNotSupported, O::kNotSupported),
    route(
        "tavo_get_device_die_api", [](uint32_t d) { return tavo_get_device_die_api(0, d, &die); },
        O::kOk, O::kNotSupported, O::kBackendFailure),
    route(
        "tavo_get_device_ndie_api", [](uint32_t d) { return tavo_get_device_ndie_api(0, d, &die); },
        O::kOk, O::kRefused, O::kRefused),
    route(
        "tavo_get_aicore_info_api",
        [](uint32_t d) { return tavo_get_aicore_info_api(0, d, &aicore); }, O::kOk, O::kRefused,
        O::kRefused),
    route(
        "tavo_get_soc_sensor_api",
        [](uint32_t d) { return tavo_get_soc_sensor_api(0, d, 0, &sensor); }, O::kOk, O::kRefused,
        O::kRefused),
    route(
        "tavo_get_system_time_api", [](uint32_t d) { return tavo_get_system_time_api(0, d, &u32); },
        O::kOk, O::kRefused, O::kRefused),
    route(
        "tavo_get_ecc_info_api", [](uint32_t d) { return tavo_get_ecc_info_api(0, d, 0, &ecc); },
        O::kOk, O::kNotSupported, O::kNotSupported),
    route(
        "tavo_get_user_config_api",
        [](uint32_t d) { return tavo_get_user_config_api(0, d, "ssh_status", 1, text.data()); },
        O::kOk, O::kRefused, O::kRefused),
    route(
        "tavo_clear_user_config_api",
        [](uint32_t d) { return tavo_clear_user_config_api(0, d, "ssh_status"); }, O::kOk,
        O::kRefused, O::kRefused),
    route(
        "tavo_get_device_flash_count_api",
        [](uint32_t d) { return tavo_get_device_flash_count_api(0, d, &u32); }, O::kOk,
        O::kNotSupported, O::kNotSupported),
    route(
        "tavo_get_device_flash_info_api",
        [](uint32_t d) { return tavo_get_device_flash_info_api(0, d, 0, &flash); }, O::kOk,
        O::kNotSupported, O::kNotSupported),
    route(
        "tavo_get_memory_info_api",
        [](uint32_t d) { return tavo_get_memory_info_api(0, d, &memory); }, O::kOk,
        O::kNotSupported, O::kOk),
    route(
        "tavo_get_hbm_info_api", [](uint32_t d) { return tavo_get_hbm_info_api(0, d, &hbm); },
        O::kOk, O::kRefused, O::kRefused),
    route(
        "tavo_get_chip_info_api", [](uint32_t d) { return tavo_get_chip_info_api(0, d, &chip); },
        O::kOk, O::kOk, O::kOk),
    route(
        "tavo_get_board_info_api", [](uint32_t d) { return tavo_get_board_info_api(0, d, &board); },
        O::kOk, O::kBackendFailure, O::kBackendFailure),
    route(
        "tavo_get_board_id_api", [](uint32_t d) { return tavo_get_board_id_api(0, d, &u32); },
        O::kOk, O::kBackendFailure, O::kNotSupported),
    route(
        "tavo_get_pcb_id_api", [](uint32_t d) { return tavo_get_pcb_id_api(0, d, &u32); }, O::kOk,
        O::kBackendFailure, O::kNotSupported),
    route(
        "tavo_get_pcie_info_api", [](uint32_t d) { return tavo_get_pcie_info_api(0, d, &pcie); },
        O::kBackendFailure, O::kRefused, O::kRefused),
    route(
        "tavo_get_health_api", [](uint32_t d) { return tavo_get_health_api(0, d, &u32); }, O::kOk,
        O::kBackendFailure, O::kOk),
    route(
        "tavo_get_firmware_version_api",
        [](uint32_t d) {
            return tavo_get_firmware_version_api(0, d, text.data(), text.size(), &u32);
        },
        O::kOk, O::kBackendFailure, O::kNotSupported),
    route(
        "tavo_get_device_errorcode_api",
        [](uint32_t d) { return tavo_get_device_errorcode_api(0, d, &u32, codes.data(), &u32); },
        O::kOk, O::kBackendFailure, O::kBackendFailure),
    route(
        "tavo_get_device_errorinfo_api",
        [](uint32_t d) { return tavo_get_device_errorinfo_api(0, d, 1, text.data(), text.size()); },
        O::kBackendFailure, O::kNotSupported, O::kNotSupported)};

INSTANTIATE_TEST_SUITE_P(EveryRouter, RoutingTest, ::testing::ValuesIn(kRoutes),
                         [](const auto &param_info) {
                             return std::string(param_info.param.wrapper);
                         });

// A refusal names the line of the router that refuses, so no two routers share one.
TEST_F(ApiTest, EachRouterReportsItsOwnLine) {
    constexpr uint32_t kUnknownType = 7;
    std::set<int> lines;
    for (const Route &r : kRoutes) {
        remove_logs();
        ASSERT_EQ(r.call(kUnknownType), -1) << r.wrapper;
        std::vector<LogRecord> records = read_log(kErrLog);
        ASSERT_EQ(records.size(), 1u) << r.wrapper;
        EXPECT_EQ(message_origin(records[0]), std::string("tavo_drv_api,") + r.wrapper);
        EXPECT_TRUE(lines.insert(message_line(records[0])).second)
            << r.wrapper << " shares its line: " << records[0].message;
    }
}

}  // namespace
}  // namespace tavo::test
