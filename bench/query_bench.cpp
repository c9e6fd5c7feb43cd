// Run inside the simulated host:  tavo-sim run -- build/bench/query_bench
#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "api/tavo_table.h"
#include "rumo/rumo.h"
#include "rumo/rumo_sim.h"
#include "tavo/tavo_query.h"

namespace {

constexpr int kCards = 16;

std::string sixteen_card_host() {
    std::string cards;
    for (int i = 1; i <= kCards; ++i) {
        cards += (i > 1 ? "," : "") + std::string(R"({"slot_id": )") + std::to_string(i) +
                 R"(, "board_id": 1, "pcb_id": 2, "bom_id": 3, "chips": [{}]})";
    }
    return R"({"name": "bench", "cards": [)" + cards + "]}";
}

void load_host() {
    g_tavoBoardInfo = tavo_card_table{};
    if (rumo_sim_load_host_text(sixteen_card_host().c_str()) != 0 || tavo_init() != 0) {
        std::fprintf(stderr, "cannot build the 16-card host\n");
        std::exit(1);
    }
}

void BM_SimulatorTemperature(benchmark::State &state) {
    load_host();
    int32_t value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(rumo_get_device_temperature(7, &value));
    }
}
BENCHMARK(BM_SimulatorTemperature);

void BM_LibraryTemperature(benchmark::State &state) {
    load_host();
    int32_t value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo_get_temperature_api(8, 0, &value));
    }
}
BENCHMARK(BM_LibraryTemperature);

void BM_SimulatorHbm(benchmark::State &state) {
    load_host();
    rumo_hbm_info value{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(rumo_get_hbm_info(15, &value));
    }
}
BENCHMARK(BM_SimulatorHbm);

void BM_LibraryHbm(benchmark::State &state) {
    load_host();
    rumo_hbm_info value{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavo_get_hbm_info_api(16, 0, &value));
    }
}
BENCHMARK(BM_LibraryHbm);

// Every query a monitoring agent makes of every chip, once.
int poll_card(uint32_t card) {
    int failures = 0;
    int32_t temperature = 0;
    uint32_t word = 0;
    rumo_die_id die{};
    rumo_aicore_info aicore{};
    rumo_ecc_info ecc{};
    rumo_memory_info memory{};
    rumo_hbm_info hbm{};
    rumo_chip_info chip{};
    rumo_board_info board{};
    rumo_pcie_info pcie{};
    rumo_flash_info flash{};
    std::array<uint32_t, RUMO_MAX_ERROR_CODES> codes{};
    std::array<unsigned char, 256> text{};
    failures += tavo_get_temperature_api(card, 0, &temperature) != 0;
    failures += tavo_get_voltage_api(card, 0, &word) != 0;
    failures += tavo_get_power_info_api(card, 0, &word) != 0;
    failures += tavo_get_device_frequency_api(card, 0, 1, &word) != 0;
    failures += tavo_get_device_utilization_rate_api(card, 0, 1, &word) != 0;
    failures += tavo_get_device_die_api(card, 0, &die) != 0;
    failures += tavo_get_aicore_info_api(card, 0, &aicore) != 0;
    failures += tavo_get_ecc_info_api(card, 0, 0, &ecc) != 0;
    failures += tavo_get_memory_info_api(card, 0, &memory) != 0;
    failures += tavo_get_hbm_info_api(card, 0, &hbm) != 0;
    failures += tavo_get_chip_info_api(card, 0, &chip) != 0;
    failures += tavo_get_board_info_api(card, 0, &board) != 0;
    failures += tavo_get_pcie_info_api(card, 0, &pcie) != 0;
    failures += tavo_get_health_api(card, 0, &word) != 0;
    failures += tavo_get_device_flash_count_api(card, 0, &word) != 0;
    failures += tavo_get_device_flash_info_api(card, 0, 0, &flash) != 0;
    failures += tavo_get_firmware_version_api(card, 0, text.data(), text.size(), &word) != 0;
    failures += tavo_get_device_errorcode_api(card, 0, &word, codes.data(), &word) != 0;
    return failures;
}

// The same readings asked of the simulator directly: the device-management cost
// that the library's own time is measured against.
int poll_chip_directly(uint32_t logic_id) {
    int failures = 0;
    int32_t temperature = 0;
    int32_t count = 0;
    uint32_t word = 0;
    rumo_die_id die{};
    rumo_aicore_info aicore{};
    rumo_ecc_info ecc{};
    rumo_memory_info memory{};
    rumo_hbm_info hbm{};
    rumo_chip_info chip{};
    rumo_board_info board{};
    rumo_pcie_info pcie{};
    rumo_flash_info flash{};
    std::array<uint32_t, RUMO_MAX_ERROR_CODES> codes{};
    std::array<unsigned char, 256> text{};
    failures += rumo_get_device_temperature(logic_id, &temperature) != 0;
    failures += rumo_get_device_voltage(logic_id, &word) != 0;
    failures += rumo_get_device_power_info(logic_id, &word) != 0;
    failures += rumo_get_device_frequency(logic_id, 1, &word) != 0;
    failures += rumo_get_device_utilization_rate(logic_id, 1, &word) != 0;
    failures += rumo_get_device_die(logic_id, &die) != 0;
    failures += rumo_get_aicore_info(logic_id, &aicore) != 0;
    failures += rumo_get_ecc_info(logic_id, 0, &ecc) != 0;
    failures += rumo_get_memory_info(logic_id, &memory) != 0;
    failures += rumo_get_hbm_info(logic_id, &hbm) != 0;
    failures += rumo_get_chip_info(logic_id, &chip) != 0;
    failures += rumo_get_board_info(logic_id, &board) != 0;
    failures += rumo_get_pcie_info(logic_id, &pcie) != 0;
    failures += rumo_get_device_health(logic_id, &word) != 0;
    failures += rumo_get_device_flash_count(logic_id, &word) != 0;
    failures += rumo_get_device_flash_info(logic_id, 0, &flash) != 0;
    failures += rumo_upgrade_get_component_static_version(logic_id, 8, text.data(), text.size(),
                                                          &word) != 0;
    failures += rumo_get_device_errorcode(logic_id, &count, codes.data()) != 0;
    return failures;
}

void BM_PollSixteenChipsDirectly(benchmark::State &state) {
    load_host();
    int failures = 0;
    for (auto _ : state) {
        for (uint32_t logic_id = 0; logic_id < kCards; ++logic_id) {
            failures += poll_chip_directly(logic_id);
        }
    }
    if (failures != 0) {
        state.SkipWithError("a query failed during the poll");
    }
}
BENCHMARK(BM_PollSixteenChipsDirectly)->Unit(benchmark::kMicrosecond);

void BM_PollSixteenCards(benchmark::State &state) {
    load_host();
    int failures = 0;
    for (auto _ : state) {
        for (uint32_t card = 1; card <= kCards; ++card) {
            failures += poll_card(card);
        }
    }
    if (failures != 0) {
        state.SkipWithError("a query failed during the poll");
    }
}
BENCHMARK(BM_PollSixteenCards)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
