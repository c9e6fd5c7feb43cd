#include "mcu_fields.h"

#include <algorithm>
#include <array>
#include <set>

namespace tavo::sim {

namespace {

namespace cmd = mcu_model::command;
using mcu_model::ItemKey;
using mcu_model::le_bytes;
using mcu_model::text_bytes;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMaxItemText = 255;
constexpr std::size_t kMaxVersionParts = mcu_model::kFrameDataMax;
constexpr std::size_t kMaxErrorCodes = 127;
constexpr std::size_t kMaxLogSize = kMaxFileSize;

struct McuParse {
    mcu_model::McuConfig config;
    std::size_t chip_count = 0;
    bool active_given = false;
};

void set_item(McuParse &m, std::uint16_t command, Bytes bytes) {
    m.config.items[ItemKey{command, 0}] = std::move(bytes);
}

template <class T, std::uint16_t Command>
void set_word(McuParse &m, const json &value, const std::string &path) {
    set_item(m, Command, le_bytes(read_int<T>(value, path), sizeof(T)));
}

template <std::uint16_t Command>
void set_text(McuParse &m, const json &value, const std::string &path) {
    set_item(m, Command, text_bytes(read_text(value, path, kMaxItemText)));
}

void set_chip_slots(McuParse &m, const json &value, const std::string &path) {
    require_array(value, path);
    if (value.size() > m.chip_count) {
        throw DescriptionError(
            path, "more entries than the card has chips (" + std::to_string(m.chip_count) + ")");
    }
    std::vector<std::uint32_t> slots;
    for (std::size_t i = 0; i < value.size(); ++i) {
        std::string at = element_path(path, i);
        auto slot = read_int<std::uint32_t>(value[i], at);
        if (slot != 0 && slot != mcu_model::kChipSlotA && slot != mcu_model::kChipSlotB) {
            throw DescriptionError(at, "expected 0 (not wired), 1 or 3");
        }
        if (slot != 0 && std::find(slots.begin(), slots.end(), slot) != slots.end()) {
            throw DescriptionError(at, "chip slot " + std::to_string(slot) + " is taken");
        }
        slots.push_back(slot);
    }
    if (std::none_of(slots.begin(), slots.end(), [](std::uint32_t s) { return s != 0; })) {
        throw DescriptionError(path, "at least one chip must be wired (slot 1 or 3)");
    }
    m.config.chip_slots = std::move(slots);
}

void set_active_slot(McuParse &m, const json &value, const std::string &path) {
    m.config.active_slot = read_int<std::uint32_t>(value, path);
    m.active_given = true;
}

void set_error_codes(McuParse &m, const json &value, const std::string &path) {
    require_array(value, path);
    if (value.size() > kMaxErrorCodes) {
        throw DescriptionError(path, "at most " + std::to_string(kMaxErrorCodes) + " codes");
    }
    Bytes bytes;
    for (std::size_t i = 0; i < value.size(); ++i) {
        Bytes code = le_bytes(read_int<std::uint16_t>(value[i], element_path(path, i)), 2);
        bytes.insert(bytes.end(), code.begin(), code.end());
    }
    // The firmware reports "no error" as the single code 0.
    set_item(m, cmd::kErrorCode, bytes.empty() ? Bytes{0, 0} : bytes);
}

void set_version(McuParse &m, const json &value, const std::string &path) {
    require_array(value, path);
    if (value.empty() || value.size() > kMaxVersionParts) {
        throw DescriptionError(
            path, "expected an array of 1 to " + std::to_string(kMaxVersionParts) + " integers");
    }
    Bytes bytes;
    for (std::size_t i = 0; i < value.size(); ++i) {
        bytes.push_back(read_int<std::uint8_t>(value[i], element_path(path, i)));
    }
    set_item(m, cmd::kVersion, bytes);
}

void set_labels(McuParse &m, const json &value, const std::string &path) {
    require_object(value, path);
    for (auto it = m.config.items.begin(); it != m.config.items.end();) {
        it = it->first.command == cmd::kLabel ? m.config.items.erase(it) : std::next(it);
    }
    for (const auto &[key, item] : value.items()) {
        std::string at = entry_path(path, key);
        auto id = read_number_key<std::uint8_t>(key, at);
        m.config.items[ItemKey{cmd::kLabel, id}] = text_bytes(read_text(item, at, kMaxItemText));
    }
}

// A log is its text repeated up to its size (the text's own length by default).
Bytes read_log(const json &value, const std::string &path) {
    require_object(value, path);
    std::string text;
    std::optional<std::uint32_t> size;
    for (const auto &[key, item] : value.items()) {
        std::string at = member_path(path, key);
        if (key == "text") {
            text = read_text(item, at, kMaxLogSize);
        } else if (key == "size") {
            size = read_int<std::uint32_t>(item, at);
            if (*size > kMaxLogSize) {
                throw DescriptionError(
                    at, "out of range " + describe_range("0", std::to_string(kMaxLogSize)));
            }
        } else {
            throw DescriptionError(at, "unknown key");
        }
    }
    std::size_t length = size.value_or(text.size());
    if (length > 0 && text.empty()) {
        throw DescriptionError(path, "a log with a size needs a text to repeat");
    }
    Bytes bytes;
    bytes.reserve(length);
    while (bytes.size() < length) {
        std::size_t n = std::min(text.size(), length - bytes.size());
        bytes.insert(bytes.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(n));
    }
    return bytes;
}

struct LogName {
    std::string_view name;
    std::uint16_t command;
};
constexpr std::array<LogName, 3> kLogs{{{"error_log", cmd::kErrorLog},
                                        {"operate_log", cmd::kOperateLog},
                                        {"maintaince_log", cmd::kMaintenanceLog}}};

void set_logs(McuParse &m, const json &value, const std::string &path) {
    require_object(value, path);
    for (const auto &[key, item] : value.items()) {
        std::string at = entry_path(path, key);
        auto log = std::find_if(kLogs.begin(), kLogs.end(),
                                [&key](const LogName &l) { return l.name == key; });
        if (log == kLogs.end()) {
            throw DescriptionError(at, "expected error_log, operate_log or maintaince_log");
        }
        set_item(m, log->command, read_log(item, at));
    }
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

Bytes read_hex_bytes(const json &value, const std::string &path) {
    std::string text = read_text(value, path, 2 * mcu_model::kMaxItemWrite);
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        int high = hex_value(text[i]);
        int low = hex_value(text[i + 1]);
        if (high < 0 || low < 0) {
            break;
        }
        bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
    if (bytes.size() * 2 != text.size()) {
        throw DescriptionError(path, "expected an even number of hexadecimal digits");
    }
    return bytes;
}

// Raw item contents by command, for items the other keys do not name.
void set_items(McuParse &m, const json &value, const std::string &path) {
    require_object(value, path);
    for (const auto &[key, item] : value.items()) {
        std::string at = entry_path(path, key);
        set_item(m, read_number_key<std::uint16_t>(key, at), read_hex_bytes(item, at));
    }
}

constexpr std::array<Field<McuParse>, 17> kMcuFields{{
    // Read first by parse_mcu: the other fields do not depend on them.
    {"chip_slots", [](McuParse &, const json &, const std::string &) {}},
    {"active_slot", [](McuParse &, const json &, const std::string &) {}},
    {"items", [](McuParse &, const json &, const std::string &) {}},
    {"health", &set_word<std::uint8_t, cmd::kHealth>},
    {"error_codes", &set_error_codes},
    {"temperature", &set_word<std::uint16_t, cmd::kTemperature>},
    {"power", &set_word<std::uint16_t, cmd::kPower>},
    {"version", &set_version},
    {"serial_number", &set_text<cmd::kSerialNumber>},
    {"voltage", &set_word<std::uint16_t, cmd::kVoltage>},
    {"board_id", &set_word<std::uint16_t, cmd::kBoardId>},
    {"pcb_id", &set_word<std::uint8_t, cmd::kPcbId>},
    {"bom_id", &set_word<std::uint8_t, cmd::kBomId>},
    {"boot_area", &set_word<std::uint8_t, cmd::kGetBootArea>},
    {"labels", &set_labels},
    {"link_test_report", &set_text<cmd::kPeripheralResult>},
    {"logs", &set_logs},
}};

// A fresh MCU: healthy, no error, version 1.0.0, empty logs; the first chip in
// slot 1 and the second in slot 3.
McuParse default_mcu(const Card &card, std::size_t chip_count) {
    McuParse m;
    m.chip_count = chip_count;
    m.config.chip_slots = {mcu_model::kChipSlotA};
    if (chip_count > 1) {
        m.config.chip_slots.push_back(mcu_model::kChipSlotB);
    }
    set_item(m, cmd::kHealth, {0});
    set_item(m, cmd::kErrorCode, {0, 0});
    set_item(m, cmd::kTemperature, le_bytes(45, 2));
    set_item(m, cmd::kPower, le_bytes(150, 2));
    set_item(m, cmd::kVersion, {1, 0, 0});
    set_item(m, cmd::kSerialNumber, text_bytes("MCU" + std::to_string(card.slot_id)));
    set_item(m, cmd::kVoltage, le_bytes(1200, 2));
    set_item(m, cmd::kBoardId, le_bytes(card.board_id, 2));
    set_item(m, cmd::kPcbId, le_bytes(card.pcb_id, 1));
    set_item(m, cmd::kBomId, le_bytes(card.bom_id, 1));
    set_item(m, cmd::kGetBootArea, {0});
    set_item(m, cmd::kPeripheralResult, {});
    for (const LogName &log : kLogs) {
        set_item(m, log.command, {});
    }
    return m;
}

void check_active_slot(McuParse &m, const std::string &path) {
    const std::vector<std::uint32_t> &slots = m.config.chip_slots;
    if (!m.active_given) {
        m.config.active_slot = *std::min_element(slots.begin(), slots.end(), [](auto a, auto b) {
            return (a == 0 ? 4u : a) < (b == 0 ? 4u : b);
        });
        return;
    }
    std::uint32_t active = m.config.active_slot;
    if (active == 0 || std::find(slots.begin(), slots.end(), active) == slots.end()) {
        throw DescriptionError(member_path(path, "active_slot"),
                               "no chip is wired to slot " + std::to_string(active));
    }
}

}  // namespace

mcu_model::McuConfig parse_mcu(const json &value, const std::string &path, const Card &card,
                               std::size_t chip_count) {
    require_object(value, path);
    McuParse m = default_mcu(card, chip_count);
    if (auto it = value.find("chip_slots"); it != value.end()) {
        set_chip_slots(m, *it, member_path(path, "chip_slots"));
    }
    if (auto it = value.find("active_slot"); it != value.end()) {
        set_active_slot(m, *it, member_path(path, "active_slot"));
    }
    if (auto it = value.find("items"); it != value.end()) {
        set_items(m, *it, member_path(path, "items"));
    }
    read_fields(m, value, path, kMcuFields);
    check_active_slot(m, path);
    return std::move(m.config);
}

}  // namespace tavo::sim
