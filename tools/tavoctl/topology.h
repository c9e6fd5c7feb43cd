// The cards and devices of the host as the library sees them.
#pragma once

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

namespace tavoctl {

struct Device {
    uint32_t id = 0;
    int32_t type = -1;
    bool has_logic_id = false;
    uint32_t logic_id = 0;
};

struct Card {
    uint32_t id = 0;
    bool slot_known = false;
    uint32_t slot = 0;
    int32_t chip_count = 0;
    std::vector<Device> devices;
};

const char *type_name(int32_t type);
// True once the board description has named the fennec camera board.
bool is_camera_board();
// Recognises the board variant where the host has a board description, then
// initialises the library. Returns the library's status.
int initialise();
// Every card of the initialised library with its devices (chips, then MCU and
// embedded SoC where the card has them).
bool read_cards(std::vector<Card> &cards, int &status);
// initialise() then read_cards(); 0, or the exit status after reporting the failure.
int load_cards(std::vector<Card> &cards);

}  // namespace tavoctl
