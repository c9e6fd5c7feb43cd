#include "device_types.h"

#include "eeprom.h"
#include "json_check.h"
#include "mcu_slot.h"
#include "pca9555.h"

#include <map>
#include <mutex>

namespace tavo::emu::i2c {

using nlohmann::json;

namespace {

// Members every EEPROM type takes besides "address" and "type":
//   contents             hex bytes loaded from address 0
//   contents_file        binary file loaded from address 0 (not with "contents")
//   write_protected      true: writes are acknowledged and dropped
//   write_cycle_transfers transfers the part ignores after each write (0..1000)
template <typename Part>
std::unique_ptr<I2cDevice> make_eeprom(const json &entry, const DeviceContext &context,
                                       std::string &error) {
    if (!only_members(entry,
                      {"address", "type", "contents", "contents_file", "write_protected",
                       "write_cycle_transfers"},
                      context.path, error)) {
        return nullptr;
    }
    std::optional<std::string> hex, file;
    std::optional<bool> write_protected;
    std::optional<int64_t> cycle;
    if (!read_string(entry, "contents", context.path, hex, error) ||
        !read_string(entry, "contents_file", context.path, file, error) ||
        !read_bool(entry, "write_protected", context.path, write_protected, error) ||
        !read_int(entry, "write_cycle_transfers", 0, 1000, false, context.path, cycle, error)) {
        return nullptr;
    }
    if (hex && file) {
        error = member_path(context.path, "contents_file") +
                ": give contents or contents_file, "
                "not both";
        return nullptr;
    }
    std::vector<uint8_t> bytes;
    if (hex && !read_hex(*hex, member_path(context.path, "contents"), bytes, error)) {
        return nullptr;
    }
    if (file && !read_binary_file(*file, context.base_dir, Part::kSize,
                                  member_path(context.path, "contents_file"), bytes, error)) {
        return nullptr;
    }
    if (bytes.size() > Part::kSize) {
        error = member_path(context.path, "contents") + ": " + std::to_string(bytes.size()) +
                " bytes, more than the device's " + std::to_string(Part::kSize);
        return nullptr;
    }
    auto part = std::make_unique<Part>();
    part->load(0, bytes);
    part->set_write_protected(write_protected.value_or(false));
    part->set_write_cycle_transfers(static_cast<int>(cycle.value_or(0)));
    return part;
}

// "inputs": the levels the board applies to the 16 pins, port 0 in the low byte.
std::unique_ptr<I2cDevice> make_pca9555(const json &entry, const DeviceContext &context,
                                        std::string &error) {
    std::optional<int64_t> inputs;
    if (!only_members(entry, {"address", "type", "inputs"}, context.path, error) ||
        !read_int(entry, "inputs", 0, 0xFFFF, false, context.path, inputs, error)) {
        return nullptr;
    }
    auto part = std::make_unique<Pca9555>();
    part->set_inputs(static_cast<uint16_t>(inputs.value_or(0xFFFF)));
    return part;
}

std::unique_ptr<I2cDevice> make_mcu_slot(const json &entry, const DeviceContext &context,
                                         std::string &error) {
    if (!only_members(entry, {"address", "type"}, context.path, error)) {
        return nullptr;
    }
    return std::make_unique<McuSlot>();
}

struct Registry {
    std::mutex mutex;
    std::map<std::string, DeviceFactory> factories{
        {"eeprom24c512", make_eeprom<Eeprom24c512>},
        {"board_id_eeprom", make_eeprom<BoardIdEeprom>},
        {"pca9555", make_pca9555},
        {"mcu_slot", make_mcu_slot},
    };
};

Registry &registry() {
    static Registry instance;
    return instance;
}

}  // namespace

void register_device_type(const std::string &name, DeviceFactory factory) {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    r.factories[name] = std::move(factory);
}

const DeviceFactory *find_device_type(const std::string &name) {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    auto it = r.factories.find(name);
    return it == r.factories.end() ? nullptr : &it->second;
}

std::vector<std::string> device_type_names() {
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    std::vector<std::string> names;
    for (const auto &entry : r.factories) {
        names.push_back(entry.first);
    }
    return names;
}

}  // namespace tavo::emu::i2c
