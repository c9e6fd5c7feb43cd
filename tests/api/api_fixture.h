// Common fixture of the device API tests: a fresh card table, the default
// simulated host and empty logs before every test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "api/tavo_table.h"
#include "log_reader.h"
#include "rumo/rumo_sim.h"
#include "virtual_time.h"

namespace tavo::test {

inline void reset_library_state() {
    g_tavoBoardInfo = tavo_card_table{};
    g_tavoBoardType = TAVO_BOARD_PCIE_CARD;
    g_mcuExist = 1;
}

// A host of `chips` single-chip cards in slots 1..chips with the given board id.
std::string host_with_cards(int chips, int board_id = 1);

class ApiTest : public ::testing::Test {
  protected:
    void SetUp() override {
        reset_library_state();
        ASSERT_EQ(rumo_sim_load_default(), 0);
        remove_logs();
        clear_requested_sleeps();
    }

    static void load_host(const std::string &json) {
        ASSERT_EQ(rumo_sim_load_host_text(json.c_str()), 0) << json;
    }

    static bool err_logged(std::string_view function, std::string_view text) {
        return logged(kErrLog, std::string("tavo_drv_api,") + std::string(function), text);
    }
    static std::size_t err_count() { return read_log(kErrLog).size(); }
};

}  // namespace tavo::test
