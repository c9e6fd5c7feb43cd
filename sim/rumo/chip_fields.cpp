#include "chip_fields.h"

#include "functions.h"

#include <algorithm>
#include <optional>

namespace tavo::sim {

namespace {

using U32Map = std::map<std::uint32_t, std::uint32_t>;

U32Map read_u32_map(const json &value, const std::string &path) {
    require_object(value, path);
    U32Map out;
    for (const auto &[key, item] : value.items()) {
        std::string item_path = entry_path(path, key);
        out[read_number_key<std::uint32_t>(key, item_path)] =
            read_int<std::uint32_t>(item, item_path);
    }
    return out;
}

template <class Key>
std::map<Key, std::string> read_text_map(const json &value, const std::string &path,
                                         std::size_t max_bytes) {
    require_object(value, path);
    std::map<Key, std::string> out;
    for (const auto &[key, item] : value.items()) {
        std::string item_path = entry_path(path, key);
        out[read_number_key<Key>(key, item_path)] = read_text(item, item_path, max_bytes);
    }
    return out;
}

rumo_die_id read_die(const json &value, const std::string &path) {
    auto words = read_int_array<std::uint32_t, 5>(value, path);
    rumo_die_id die{};
    std::copy(words.begin(), words.end(), die.soc_die);
    return die;
}

// ---- SoC sensors: one member of the reading union, named as in the record ----

template <class T, std::size_t N>
void copy_array(T (&to)[N], const json &value, const std::string &path, std::size_t min_count) {
    if (!value.is_array() || value.size() < min_count || value.size() > N) {
        std::string count = min_count == N ? std::to_string(N) : "1 to " + std::to_string(N);
        throw DescriptionError(path, "expected an array of " + count + " integers");
    }
    for (std::size_t i = 0; i < value.size(); ++i) {
        to[i] = read_int<T>(value[i], element_path(path, i));
    }
}

rumo_sensor_info read_sensor(const json &value, const std::string &path) {
    require_object(value, path);
    if (value.size() != 1) {
        throw DescriptionError(path,
                               "expected one of uchar, ushort, uint, iint, temp, ntc_tmp, data");
    }
    rumo_sensor_info out{};
    auto only = value.begin();
    const std::string &key = only.key();
    const json &item = only.value();
    std::string item_path = member_path(path, key);
    if (key == "uchar") {
        out.uchar = read_int<std::uint8_t>(item, item_path);
    } else if (key == "ushort") {
        out.ushort = read_int<std::uint16_t>(item, item_path);
    } else if (key == "uint") {
        out.uint = read_int<std::uint32_t>(item, item_path);
    } else if (key == "iint") {
        out.iint = read_int<std::int32_t>(item, item_path);
    } else if (key == "temp") {
        copy_array(out.temp, item, item_path, 2);
    } else if (key == "ntc_tmp") {
        copy_array(out.ntc_tmp, item, item_path, 4);
    } else if (key == "data") {
        copy_array(out.data, item, item_path, 1);
    } else {
        throw DescriptionError(item_path, "unknown key");
    }
    return out;
}

std::map<std::uint32_t, rumo_sensor_info> read_sensors(const json &value, const std::string &path) {
    require_object(value, path);
    std::map<std::uint32_t, rumo_sensor_info> out;
    for (const auto &[key, item] : value.items()) {
        std::string item_path = entry_path(path, key);
        out[read_number_key<std::uint32_t>(key, item_path)] = read_sensor(item, item_path);
    }
    return out;
}

// ---- Records ----

constexpr std::array<Field<rumo_aicore_info>, 2> kAicoreFields{{
    {"freq", &set_int<&rumo_aicore_info::freq>},
    {"cur_freq", &set_int<&rumo_aicore_info::cur_freq>},
}};

constexpr std::array<Field<rumo_memory_info>, 3> kMemoryFields{{
    {"memory_size", &set_int<&rumo_memory_info::memory_size>},
    {"freq", &set_int<&rumo_memory_info::freq>},
    {"utilization", &set_int<&rumo_memory_info::utilization>},
}};

constexpr std::array<Field<rumo_hbm_info>, 5> kHbmFields{{
    {"memory_size", &set_int<&rumo_hbm_info::memory_size>},
    {"freq", &set_int<&rumo_hbm_info::freq>},
    {"memory_usage", &set_int<&rumo_hbm_info::memory_usage>},
    {"temp", &set_int<&rumo_hbm_info::temp>},
    {"bandwidth_util_rate", &set_int<&rumo_hbm_info::bandwidth_util_rate>},
}};

constexpr std::array<Field<rumo_ecc_info>, 7> kEccFields{{
    {"enable_flag", &set_int<&rumo_ecc_info::enable_flag>},
    {"single_bit_error_count", &set_int<&rumo_ecc_info::single_bit_error_count>},
    {"double_bit_error_count", &set_int<&rumo_ecc_info::double_bit_error_count>},
    {"total_single_bit_error_count", &set_int<&rumo_ecc_info::total_single_bit_error_count>},
    {"total_double_bit_error_count", &set_int<&rumo_ecc_info::total_double_bit_error_count>},
    {"single_bit_isolated_pages_count", &set_int<&rumo_ecc_info::single_bit_isolated_pages_count>},
    {"double_bit_isolated_pages_count", &set_int<&rumo_ecc_info::double_bit_isolated_pages_count>},
}};

constexpr std::array<Field<rumo_flash_info>, 7> kFlashFields{{
    {"flash_id", &set_int<&rumo_flash_info::flash_id>},
    {"device_id", &set_int<&rumo_flash_info::device_id>},
    {"vendor", &set_int<&rumo_flash_info::vendor>},
    {"state", &set_int<&rumo_flash_info::state>},
    {"size", &set_int<&rumo_flash_info::size>},
    {"sector_count", &set_int<&rumo_flash_info::sector_count>},
    {"manufacturer_id", &set_int<&rumo_flash_info::manufacturer_id>},
}};

constexpr std::array<Field<rumo_pcie_info>, 7> kPcieFields{{
    {"device_id", &set_int<&rumo_pcie_info::device_id>},
    {"vendor_id", &set_int<&rumo_pcie_info::vendor_id>},
    {"sub_vendor_id", &set_int<&rumo_pcie_info::sub_vendor_id>},
    {"sub_device_id", &set_int<&rumo_pcie_info::sub_device_id>},
    {"bdf_bus", &set_int<&rumo_pcie_info::bdf_bus>},
    {"bdf_device", &set_int<&rumo_pcie_info::bdf_device>},
    {"bdf_function", &set_int<&rumo_pcie_info::bdf_function>},
}};

constexpr std::array<Field<ChipText>, 3> kChipTextFields{{
    {"type", [](ChipText &t, const json &v,
                const std::string &p) { t.type = read_text(v, p, kMaxChipText); }},
    {"name", [](ChipText &t, const json &v,
                const std::string &p) { t.name = read_text(v, p, kMaxChipText); }},
    {"version", [](ChipText &t, const json &v,
                   const std::string &p) { t.version = read_text(v, p, kMaxChipText); }},
}};

constexpr std::array<Field<Heartbeat>, 2> kHeartbeatFields{{
    {"status", &set_int<&Heartbeat::status>},
    {"counter", &set_int<&Heartbeat::counter>},
}};

// A fresh ECC entry is enabled and counts nothing.
std::map<std::uint32_t, rumo_ecc_info> read_ecc(const json &value, const std::string &path) {
    require_object(value, path);
    std::map<std::uint32_t, rumo_ecc_info> out;
    for (const auto &[key, item] : value.items()) {
        std::string item_path = entry_path(path, key);
        rumo_ecc_info info{};
        info.enable_flag = 1;
        read_fields(info, item, item_path, kEccFields);
        out[read_number_key<std::uint32_t>(key, item_path)] = info;
    }
    return out;
}

// A 16 MiB SPI NOR flash in normal state unless the entry says otherwise.
rumo_flash_info default_flash(std::size_t index) {
    rumo_flash_info info{};
    info.flash_id = index;
    info.device_id = 0x4018;
    info.vendor = 0xEF;
    info.state = 0x8;
    info.size = 16u << 20;
    info.sector_count = 4096;
    info.manufacturer_id = 0xEF;
    return info;
}

std::vector<rumo_flash_info> read_flash(const json &value, const std::string &path) {
    require_array(value, path);
    if (value.size() > kMaxFlash) {
        throw DescriptionError(path, "at most " + std::to_string(kMaxFlash) + " flash devices");
    }
    std::vector<rumo_flash_info> out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        rumo_flash_info info = default_flash(i);
        read_fields(info, value[i], element_path(path, i), kFlashFields);
        out.push_back(info);
    }
    return out;
}

std::vector<std::uint32_t> read_error_codes(const json &value, const std::string &path) {
    require_array(value, path);
    if (value.size() > kMaxErrorCodes) {
        throw DescriptionError(path, "at most " + std::to_string(kMaxErrorCodes) + " error codes");
    }
    std::vector<std::uint32_t> out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        out.push_back(read_int<std::uint32_t>(value[i], element_path(path, i)));
    }
    return out;
}

// ---- User configuration ----

int hex_digit(char c) {
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

std::vector<std::uint8_t> read_hex(const json &value, const std::string &path) {
    if (!value.is_string()) {
        throw DescriptionError(path, "expected a string");
    }
    const auto &text = value.get_ref<const std::string &>();
    std::vector<std::uint8_t> out;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        int high = hex_digit(text[i]);
        int low = hex_digit(text[i + 1]);
        if (high < 0 || low < 0) {
            break;
        }
        out.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
    if (out.size() * 2 != text.size()) {
        throw DescriptionError(path, "expected an even number of hexadecimal digits");
    }
    return out;
}

UserConfigItem read_config_item(const json &value, const std::string &path) {
    require_object(value, path);
    if (!value.contains("max_size")) {
        throw DescriptionError(member_path(path, "max_size"), "missing");
    }
    if (value.contains("value") && value.contains("hex")) {
        throw DescriptionError(path, "give either value or hex, not both");
    }
    UserConfigItem item;
    for (const auto &[key, member] : value.items()) {
        std::string member_at = member_path(path, key);
        if (key == "max_size") {
            item.max_size = read_int<std::uint32_t>(member, member_at);
            if (item.max_size == 0 || item.max_size > kMaxConfigSize) {
                throw DescriptionError(
                    member_at,
                    "out of range " + describe_range("1", std::to_string(kMaxConfigSize)));
            }
        } else if (key == "value") {
            std::string text = read_text(member, member_at, kMaxConfigSize);
            item.value.assign(text.begin(), text.end());
        } else if (key == "hex") {
            item.value = read_hex(member, member_at);
        } else {
            throw DescriptionError(member_at, "unknown key");
        }
    }
    if (item.value.size() > item.max_size) {
        throw DescriptionError(
            path, "value longer than max_size (" + std::to_string(item.max_size) + " bytes)");
    }
    return item;
}

// The ssh_status item exists on every chip; rumo_config_ssh_enable keeps its state there.
std::map<std::string, UserConfigItem, std::less<>> read_user_config(const json &value,
                                                                    const std::string &path) {
    require_object(value, path);
    std::map<std::string, UserConfigItem, std::less<>> out;
    for (const auto &[key, item] : value.items()) {
        std::string item_path = entry_path(path, key);
        if (key.empty() || key.size() > kMaxConfigName || key.find('\0') != std::string::npos) {
            throw DescriptionError(
                item_path,
                "name must have 1 to " + std::to_string(kMaxConfigName) + " bytes and no NUL");
        }
        out[key] = read_config_item(item, item_path);
    }
    out.try_emplace(kSshStatusItem, UserConfigItem{1, {0}});
    return out;
}

std::map<std::string, std::int32_t, std::less<>> read_fail(const json &value,
                                                           const std::string &path) {
    require_object(value, path);
    std::map<std::string, std::int32_t, std::less<>> out;
    for (const auto &[key, item] : value.items()) {
        std::string item_path = entry_path(path, key);
        std::optional<Fn> fn = function_by_name(key);
        if (!fn) {
            throw DescriptionError(item_path, "unknown function");
        }
        if (!addresses_chip(*fn)) {
            throw DescriptionError(item_path, "this function addresses no chip");
        }
        std::int32_t code = read_int<std::int32_t>(item, item_path);
        if (code == 0) {
            throw DescriptionError(item_path, "a failure code must not be 0");
        }
        out[key] = code;
    }
    return out;
}

// ---- The chip ----

template <auto Member, std::size_t MaxBytes>
void set_text(Chip &chip, const json &value, const std::string &path) {
    chip.*Member = read_text(value, path, MaxBytes);
}

constexpr std::array<Field<Chip>, 25> kChipFields{{
    {"health", &set_int<&Chip::health>},
    {"temperature", &set_int<&Chip::temperature>},
    {"voltage", &set_int<&Chip::voltage>},
    {"power", &set_int<&Chip::power>},
    {"frequency",
     [](Chip &c, const json &v, const std::string &p) { c.frequency = read_u32_map(v, p); }},
    {"utilization",
     [](Chip &c, const json &v, const std::string &p) { c.utilization = read_u32_map(v, p); }},
    {"die", [](Chip &c, const json &v, const std::string &p) { c.die = read_die(v, p); }},
    {"ndie", [](Chip &c, const json &v, const std::string &p) { c.ndie = read_die(v, p); }},
    {"aicore", [](Chip &c, const json &v,
                  const std::string &p) { read_fields(c.aicore, v, p, kAicoreFields); }},
    {"soc_sensors",
     [](Chip &c, const json &v, const std::string &p) { c.soc_sensors = read_sensors(v, p); }},
    {"system_time",
     [](Chip &c, const json &v, const std::string &p) {
         c.system_time = v.is_null() ? std::nullopt : std::optional(read_int<std::uint32_t>(v, p));
     }},
    {"memory", [](Chip &c, const json &v,
                  const std::string &p) { read_fields(c.memory, v, p, kMemoryFields); }},
    {"hbm",
     [](Chip &c, const json &v, const std::string &p) { read_fields(c.hbm, v, p, kHbmFields); }},
    {"ecc", [](Chip &c, const json &v, const std::string &p) { c.ecc = read_ecc(v, p); }},
    {"flash", [](Chip &c, const json &v, const std::string &p) { c.flash = read_flash(v, p); }},
    {"chip", [](Chip &c, const json &v,
                const std::string &p) { read_fields(c.chip, v, p, kChipTextFields); }},
    {"pcie",
     [](Chip &c, const json &v, const std::string &p) { read_fields(c.pcie, v, p, kPcieFields); }},
    {"error_codes",
     [](Chip &c, const json &v, const std::string &p) { c.error_codes = read_error_codes(v, p); }},
    {"error_strings",
     [](Chip &c, const json &v, const std::string &p) {
         c.error_strings = read_text_map<std::uint32_t>(v, p, kMaxErrorText);
     }},
    {"version", &set_text<&Chip::version, kMaxVersionText>},
    {"component_versions",
     [](Chip &c, const json &v, const std::string &p) {
         c.component_versions = read_text_map<std::uint8_t>(v, p, kMaxVersionText);
     }},
    {"user_config",
     [](Chip &c, const json &v, const std::string &p) { c.user_config = read_user_config(v, p); }},
    {"heartbeat", [](Chip &c, const json &v,
                     const std::string &p) { read_fields(c.heartbeat, v, p, kHeartbeatFields); }},
    {"fail", [](Chip &c, const json &v, const std::string &p) { c.fail = read_fail(v, p); }},
    // Read before the others by parse_chip; listed so that it is a known key.
    {"logic_id", [](Chip &, const json &, const std::string &) {}},
}};

}  // namespace

json default_chip_json(std::uint32_t logic_id, std::size_t position) {
    return {
        {"health", 0},
        {"temperature", 45},
        {"voltage", 85},
        {"power", 150},
        {"frequency", {{"1", 3200}, {"2", 1900}, {"3", 1600}, {"4", 1000}, {"5", 1000}}},
        {"utilization", {{"1", 0}, {"2", 0}, {"3", 0}, {"4", 0}, {"5", 0}, {"6", 0}}},
        {"die", {0x54563331u, 0x00010000u, 0u, 0u, logic_id}},
        {"ndie", {0x54563331u, 0x00020000u, 0u, 0u, logic_id}},
        {"aicore", {{"freq", 1000}, {"cur_freq", 1000}}},
        {"soc_sensors",
         {{"0", {{"temp", {45, 44}}}},
          {"1", {{"iint", 43}}},
          {"2", {{"ntc_tmp", {38, 39, 40, 38}}}}}},
        {"system_time", nullptr},
        {"memory", {{"memory_size", 16384}, {"freq", 3200}, {"utilization", 0}}},
        {"hbm",
         {{"memory_size", 32768},
          {"freq", 1600},
          {"memory_usage", 0},
          {"temp", 45},
          {"bandwidth_util_rate", 0}}},
        {"ecc", {{"0", json::object()}, {"1", json::object()}}},
        {"flash", json::array({json::object()})},
        {"chip", {{"type", "Tavo"}, {"name", "TV310"}, {"version", "V1"}}},
        {"pcie",
         {{"device_id", 0x0310},
          {"vendor_id", 0x1e7b},
          {"sub_vendor_id", 0x1e7b},
          {"sub_device_id", 0x0100},
          {"bdf_bus", position + 1},
          {"bdf_device", 0},
          {"bdf_function", 0}}},
        {"error_codes", json::array()},
        {"error_strings", json::object()},
        {"version", "23.0.1"},
        {"component_versions", {{"8", "1.0.12"}}},
        {"user_config", {{kSshStatusItem, {{"max_size", 1}, {"hex", "00"}}}}},
        {"heartbeat", {{"status", 0}, {"counter", 0}}},
        {"fail", json::object()},
    };
}

Chip parse_chip(const json &value, const std::string &path, std::size_t position) {
    require_object(value, path);
    Chip chip;
    chip.logic_id = static_cast<std::uint32_t>(position);
    if (auto it = value.find("logic_id"); it != value.end()) {
        chip.logic_id = read_int<std::uint32_t>(*it, member_path(path, "logic_id"));
    }
    json defaults = default_chip_json(chip.logic_id, position);
    read_fields(chip, defaults, path, kChipFields);
    read_fields(chip, value, path, kChipFields);
    return chip;
}

void set_chip_field(Chip &chip, std::size_t position, std::string_view key, const json &value) {
    std::string path = member_path({}, key);
    if (key == "logic_id") {
        throw DescriptionError(path, "cannot be changed while the host runs");
    }
    const Field<Chip> *field = find_field(kChipFields, key);
    if (field == nullptr) {
        throw DescriptionError(path, "unknown key");
    }
    if (value.is_null()) {
        field->set(chip, default_chip_json(chip.logic_id, position)[std::string(key)], path);
    } else {
        field->set(chip, value, path);
    }
}

}  // namespace tavo::sim
