// The simulated host: cards, their chips and every value a chip reports.
#pragma once

#include <rumo/rumo.h>

#include "mcu_model.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavo::sim {

// A named byte string kept by the chip, at most max_size bytes long.
struct UserConfigItem {
    std::uint32_t max_size = 0;
    std::vector<std::uint8_t> value;
};

// Link between the chip and its card's MCU. Only status 1 (alive) makes the
// counter grow.
struct Heartbeat {
    std::uint8_t status = 0;
    std::uint32_t counter = 0;
};

struct ChipText {
    std::string type;
    std::string name;
    std::string version;
};

struct Chip {
    std::uint32_t logic_id = 0;
    std::size_t card = 0;  // index into Host::cards
    std::uint32_t health = 0;
    std::int32_t temperature = 0;
    std::uint32_t voltage = 0;
    std::uint32_t power = 0;
    std::map<std::uint32_t, std::uint32_t> frequency;
    std::map<std::uint32_t, std::uint32_t> utilization;
    rumo_die_id die{};
    rumo_die_id ndie{};
    rumo_aicore_info aicore{};
    std::map<std::uint32_t, rumo_sensor_info> soc_sensors;
    std::optional<std::uint32_t> system_time;  // empty: follows the host's clock
    rumo_memory_info memory{};
    rumo_hbm_info hbm{};
    std::map<std::uint32_t, rumo_ecc_info> ecc;
    std::vector<rumo_flash_info> flash;
    ChipText chip;
    rumo_pcie_info pcie{};
    std::vector<std::uint32_t> error_codes;
    std::map<std::uint32_t, std::string> error_strings;
    std::string version;
    std::map<std::uint8_t, std::string> component_versions;
    std::map<std::string, UserConfigItem, std::less<>> user_config;
    Heartbeat heartbeat;
    std::map<std::string, std::int32_t, std::less<>> fail;  // rumo_ function -> code
};

struct Card {
    std::uint32_t slot_id = 0;
    std::uint32_t board_id = 0;
    std::uint32_t pcb_id = 0;
    std::uint32_t bom_id = 0;
    // The card's MCU, reached through its wired chips; none when not described.
    std::optional<mcu_model::McuConfig> mcu;
};

struct Host {
    std::string name;
    std::map<std::string, std::string> files;  // absolute path -> content
    std::vector<Card> cards;
    std::vector<Chip> chips;  // description order: the order rumo_list_device reports
};

// Limits of the description.
inline constexpr std::size_t kMaxChips = RUMO_MAX_DEVICES;
inline constexpr std::size_t kMaxErrorCodes = RUMO_MAX_ERROR_CODES;
inline constexpr std::size_t kMaxChipText = RUMO_CHIP_TEXT_LEN - 1;
inline constexpr std::size_t kMaxVersionText = 63;
inline constexpr std::size_t kMaxErrorText = 255;
inline constexpr std::size_t kMaxHostName = 64;
inline constexpr std::size_t kMaxConfigName = 64;
inline constexpr std::uint32_t kMaxConfigSize = 65536;
inline constexpr std::size_t kMaxFlash = 16;
inline constexpr std::size_t kMaxFilePath = 255;
inline constexpr std::size_t kMaxFileSize = 1 << 20;
inline constexpr const char *kSshStatusItem = "ssh_status";

}  // namespace tavo::sim
