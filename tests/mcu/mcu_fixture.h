// Common fixture of the MCU tests: a host whose card in slot 2 carries an MCU wired
// to its chip (logic id 1) in chip slot 1, the board description that declares it,
// an initialised card table, empty logs and no recorded pauses.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "api/tavo_table.h"
#include "log_reader.h"
#include "rumo/rumo_sim.h"
#include "tavo/tavo_mcu.h"
#include "virtual_time.h"

namespace tavo::test {

inline constexpr uint32_t kMcuCard = 2;
inline constexpr uint32_t kRelayChip = 1;
inline constexpr uint32_t kSecondChip = 2;

// The host: card 1 without MCU, card 2 with its MCU. `mcu` is the card's "mcu"
// object; `second_chip` adds a second chip (logic id 2) to card 2.
std::string mcu_host(const std::string &mcu, bool second_chip = false);
inline constexpr const char *kDefaultMcu =
    R"({"health": 0, "temperature": 300, "version": [1, 20, 3], "serial_number": "SN-0001",
        "board_id": 513, "pcb_id": 7, "bom_id": 9,
        "labels": {"35": "label thirty-five"}, "link_test_report": "MINI0 MINI2"})";

// A request as the MCU received it, without the transport details.
struct Request {
    uint16_t command = 0;
    uint32_t offset = 0;
    uint32_t length = 0;
    uint8_t control = 0;
    uint8_t argument = 0;
    std::vector<uint8_t> data;
    bool operator==(const Request &) const = default;
};
void PrintTo(const Request &r, std::ostream *os);

// Every request the MCU of `card` received since the last clear.
std::vector<Request> mcu_requests(uint32_t card = kMcuCard);
std::vector<rumo_sim_mcu_frame> mcu_frames(uint32_t card = kMcuCard);
// Offsets of the requests for `command`.
std::vector<uint32_t> offsets_of(const std::vector<Request> &requests, uint16_t command);

std::vector<uint8_t> counting_bytes(std::size_t count, uint8_t first = 1);
void set_item(uint16_t command, const std::vector<uint8_t> &bytes, uint8_t argument = 0);
void write_board_description(std::string_view text);

class McuTest : public ::testing::Test {
  protected:
    void SetUp() override { start(mcu_host(kDefaultMcu), "mcu_card=2:1\n"); }

    // Loads `host`, writes the board description and initialises the library.
    void start(const std::string &host, std::string_view board_description);

    static bool err_logged(std::string_view function, std::string_view text) {
        return logged(kErrLog, std::string("tavo_drv_api,") + std::string(function), text);
    }
    static std::size_t err_count() { return read_log(kErrLog).size(); }
    // Records of the error log with this text, whatever their origin.
    static std::size_t count_logged(std::string_view text);
};

// Card 2 carries two chips wired to the MCU in chip slots 1 (logic id 1) and 3
// (logic id 2). The card table knows one chip per card, so the test adds the
// second chip to the card record as a two-chip card would have it.
class TwoChipMcuTest : public McuTest {
  protected:
    void SetUp() override;
};

}  // namespace tavo::test
