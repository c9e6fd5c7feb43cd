// Devices that the device-management library does not report, from the board
// description:
//
//   mcu_card=<card id>:<chip slot of device 0>[,<chip slot of device 1>...]
//
// names a card whose MCU is reached through its chips, each in chip slot 1 or 3.
// Such a card gets an MCU device id right after its chips, and its chips their
// chip slots, so that tavo_get_msg_device_logic_id can pick the relay chip.
//
//   kite_card=<card id>
//
// names a card that carries the embedded media SoC; it is addressed as device 2,
// the id it has before initialisation.
#include "api/tavo_board_description.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <system_error>

#include "api/tavo_table.h"
#include "base/unique_file.h"

namespace {

using tavo::api::kBoardConfigPath;

constexpr std::string_view kMcuCardKey = "mcu_card=";
constexpr std::string_view kKiteCardKey = "kite_card=";
constexpr uint32_t kEmbeddedDeviceId = TAVO_DEVICE_EMBEDDED;
constexpr std::size_t kLineMax = 1024;
constexpr uint32_t kChipSlotA = 1;
constexpr uint32_t kChipSlotB = 3;
constexpr const char *kFunction = "apply_board_description";

struct McuCard {
    uint32_t card_id = 0;
    std::array<uint32_t, TAVO_MAX_DEVICES_PER_CARD> slots{};
    std::size_t slot_count = 0;
};

bool parse_number(std::string_view &text, uint32_t &value) {
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{} || end == text.data()) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool slot_taken(const McuCard &card, uint32_t slot) {
    for (std::size_t i = 0; i < card.slot_count; ++i) {
        if (card.slots[i] == slot) {
            return true;
        }
    }
    return false;
}

// "<card id>:<slot>[,<slot>...]" with slots 1 or 3, each at most once.
bool parse_mcu_card(std::string_view value, McuCard &card) {
    if (!parse_number(value, card.card_id) || value.empty() || value.front() != ':') {
        return false;
    }
    do {
        value.remove_prefix(1);
        uint32_t slot = 0;
        if (!parse_number(value, slot) || (slot != kChipSlotA && slot != kChipSlotB) ||
            slot_taken(card, slot) || card.slot_count == card.slots.size()) {
            return false;
        }
        card.slots[card.slot_count++] = slot;
    } while (!value.empty() && value.front() == ',');
    return value.empty();
}

std::string_view trim_line_end(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == ' ' ||
                             line.back() == '\t')) {
        line.remove_suffix(1);
    }
    return line;
}

void apply_mcu_card(const McuCard &entry, int line_number) {
    tavo_card_record *card = tavo::api::find_card(entry.card_id);
    if (card == nullptr) {
        // A description may name cards that this host does not show now.
        return;
    }
    if (card->mcu_device_id != TAVO_ABSENT) {
        API_LOG_ERR_FOR(kFunction, "line %d of %s names card %u again, ignored.\n\r\n", line_number,
                        kBoardConfigPath, entry.card_id);
        return;
    }
    if (card->device_count <= 0) {
        API_LOG_ERR_FOR(kFunction,
                        "card %u has no chip to reach its MCU, line %d of %s ignored.\n\r\n",
                        entry.card_id, line_number, kBoardConfigPath);
        return;
    }
    auto chips = static_cast<std::size_t>(card->device_count);
    if (entry.slot_count > chips) {
        API_LOG_ERR_FOR(
            kFunction,
            "card %u has %d chip(s); chip slots after them on line %d of %s ignored.\n\r\n",
            entry.card_id, card->device_count, line_number, kBoardConfigPath);
    }
    for (std::size_t d = 0; d < entry.slot_count && d < chips; ++d) {
        card->devices[d].chip_slot = entry.slots[d];
    }
    card->mcu_device_id = static_cast<uint32_t>(card->device_count);
}

// Device 2 must not already be a chip or the MCU of the card.
void apply_kite_card(uint32_t card_id, int line_number) {
    tavo_card_record *card = tavo::api::find_card(card_id);
    if (card == nullptr) {
        return;
    }
    if (static_cast<int64_t>(kEmbeddedDeviceId) < card->device_count ||
        card->mcu_device_id == kEmbeddedDeviceId) {
        API_LOG_ERR_FOR(kFunction, "device %u of card %u is taken, line %d of %s ignored.\n\r\n",
                        kEmbeddedDeviceId, card_id, line_number, kBoardConfigPath);
        return;
    }
    card->embedded_device_id = kEmbeddedDeviceId;
}

void malformed(std::string_view line, int line_number) {
    API_LOG_ERR_FOR(kFunction, "line %d of %s is malformed, ignored: %.*s\n\r\n", line_number,
                    kBoardConfigPath, static_cast<int>(trim_line_end(line).size()), line.data());
}

void apply_line(std::string_view line, bool complete, int line_number) {
    if (line.starts_with(kKiteCardKey)) {
        std::string_view value = trim_line_end(line.substr(kKiteCardKey.size()));
        uint32_t card_id = 0;
        if (!complete || !parse_number(value, card_id) || !value.empty()) {
            malformed(line, line_number);
            return;
        }
        apply_kite_card(card_id, line_number);
        return;
    }
    if (!line.starts_with(kMcuCardKey)) {
        return;
    }
    McuCard entry;
    std::string_view value = trim_line_end(line.substr(kMcuCardKey.size()));
    if (!complete || !parse_mcu_card(value, entry)) {
        malformed(line, line_number);
        return;
    }
    apply_mcu_card(entry, line_number);
}

// Skips the rest of a line longer than the line buffer.
void skip_rest_of_line(std::FILE *file) {
    int c = 0;
    while ((c = std::fgetc(file)) != EOF && c != '\n') {
    }
}

}  // namespace

namespace tavo::api {

void apply_board_description() {
    tavo::base::UniqueFile file{std::fopen(kBoardConfigPath, "r")};
    if (!file) {
        return;
    }
    std::array<char, kLineMax> buffer{};
    int line_number = 0;
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file.get()) != nullptr) {
        ++line_number;
        std::string_view line(buffer.data(), std::strlen(buffer.data()));
        bool complete = line.ends_with('\n') || std::feof(file.get()) != 0;
        if (!complete) {
            skip_rest_of_line(file.get());
        }
        apply_line(line, complete, line_number);
    }
}

}  // namespace tavo::api
