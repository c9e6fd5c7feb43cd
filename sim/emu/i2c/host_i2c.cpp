#include "host_i2c.h"

#include "device_types.h"
#include "json_check.h"

#include <set>

namespace tavo::emu::i2c {

using nlohmann::json;

namespace {

std::string type_list() {
    std::string list;
    for (const std::string &name : device_type_names()) {
        list += (list.empty() ? "" : ", ") + name;
    }
    return list;
}

// {"address": 80, "type": "eeprom24c512", ...type's own members}
bool add_device(I2cBus &bus, const json &entry, const std::filesystem::path &base_dir,
                const std::string &path, std::set<int64_t> &addresses, std::string &error) {
    std::optional<int64_t> address;
    std::optional<std::string> type;
    if (!require_object(entry, path, error) ||
        !read_int(entry, "address", 0, 0x7F, true, path, address, error) ||
        !read_string(entry, "type", path, type, error)) {
        return false;
    }
    if (!type) {
        error = member_path(path, "type") + ": missing";
        return false;
    }
    if (!addresses.insert(*address).second) {
        error = member_path(path, "address") + ": address " + std::to_string(*address) +
                " already used on bus " + std::to_string(bus.number());
        return false;
    }
    const DeviceFactory *factory = find_device_type(*type);
    if (factory == nullptr) {
        error = member_path(path, "type") + ": unknown device type \"" + *type +
                "\" (known: " + type_list() + ")";
        return false;
    }
    std::unique_ptr<I2cDevice> device = (*factory)(entry, {base_dir, path}, error);
    if (!device) {
        return false;
    }
    bus.attach(static_cast<uint8_t>(*address), std::move(device));
    return true;
}

// {"bus": 8, "block_read_max": 32, "devices": [...]}
bool add_bus(const json &entry, const std::filesystem::path &base_dir, const std::string &path,
             std::set<int64_t> &numbers, std::vector<std::shared_ptr<I2cBus>> &buses,
             std::string &error) {
    std::optional<int64_t> number, block_read_max;
    if (!require_object(entry, path, error) ||
        !only_members(entry, {"bus", "block_read_max", "devices"}, path, error) ||
        !read_int(entry, "bus", 0, kMaxBus, true, path, number, error) ||
        !read_int(entry, "block_read_max", 1, I2cBus::kLargestBlockReadMax, false, path,
                  block_read_max, error)) {
        return false;
    }
    if (!numbers.insert(*number).second) {
        error = member_path(path, "bus") + ": bus " + std::to_string(*number) + " described twice";
        return false;
    }
    auto bus = std::make_shared<I2cBus>(static_cast<int>(*number));
    bus->set_block_read_max(
        static_cast<int>(block_read_max.value_or(I2cBus::kDefaultBlockReadMax)));
    std::string devices_path = member_path(path, "devices");
    auto devices = entry.find("devices");
    if (devices != entry.end()) {
        if (!require_array(*devices, devices_path, error)) {
            return false;
        }
        std::set<int64_t> addresses;
        for (std::size_t i = 0; i < devices->size(); ++i) {
            if (!add_device(*bus, (*devices)[i], base_dir, element_path(devices_path, i), addresses,
                            error)) {
                return false;
            }
        }
    }
    buses.push_back(std::move(bus));
    return true;
}

}  // namespace

bool build_buses(const json &host, const std::filesystem::path &base_dir,
                 std::vector<std::shared_ptr<I2cBus>> &buses, std::string &error) {
    buses.clear();
    auto section = host.find("i2c");
    if (section == host.end()) {
        return true;
    }
    const std::string path = "i2c";
    if (!require_object(*section, path, error) || !only_members(*section, {"buses"}, path, error)) {
        return false;
    }
    auto list = section->find("buses");
    if (list == section->end()) {
        return true;
    }
    std::string list_path = member_path(path, "buses");
    if (!require_array(*list, list_path, error)) {
        return false;
    }
    std::set<int64_t> numbers;
    for (std::size_t i = 0; i < list->size(); ++i) {
        if (!add_bus((*list)[i], base_dir, element_path(list_path, i), numbers, buses, error)) {
            buses.clear();
            return false;
        }
    }
    return true;
}

}  // namespace tavo::emu::i2c
