// Device types a host description can place on a bus, by name.
//
// Built in: "eeprom24c512", "board_id_eeprom", "pca9555", "mcu_slot". A model that takes
// over a slot (the card MCU on bus 9) registers its factory under its own name, or under
// "mcu_slot" to replace the placeholder for every host.
#pragma once

#include "i2c_device.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tavo::emu::i2c {

struct DeviceContext {
    std::filesystem::path base_dir;  // where relative file names of the description point
    std::string path;                // JSON path of the device entry, for messages
};

// Builds a device from its description entry (members besides "address" and "type"). On a
// bad entry: nullptr and a one-line `error` that starts with the JSON path of the bad member.
using DeviceFactory = std::function<std::unique_ptr<I2cDevice>(
    const nlohmann::json &entry, const DeviceContext &context, std::string &error)>;

// Adds or replaces the type `name`.
void register_device_type(const std::string &name, DeviceFactory factory);
// nullptr for an unknown name.
const DeviceFactory *find_device_type(const std::string &name);
std::vector<std::string> device_type_names();

}  // namespace tavo::emu::i2c
