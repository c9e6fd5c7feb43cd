// The "i2c" section of a host description: the buses and the devices on them.
//
//   "i2c": {"buses": [{"bus": 8, "block_read_max": 32,
//                      "devices": [{"address": 80, "type": "eeprom24c512",
//                                   "contents_file": "label.bin"}]}]}
//
// See docs/emulated-i2c.md for every member.
#pragma once

#include "i2c_bus.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tavo::emu::i2c {

// Bus numbers 0..kMaxBus, as the library's SMBus table.
inline constexpr int kMaxBus = 11;

// Builds the buses described by `host`'s "i2c" member (none when it is absent). Relative file
// names resolve against `base_dir`. False with a one-line `error` naming the JSON path of the
// offending value ("i2c.buses[0].devices[1].address: ...").
bool build_buses(const nlohmann::json &host, const std::filesystem::path &base_dir,
                 std::vector<std::shared_ptr<I2cBus>> &buses, std::string &error);

}  // namespace tavo::emu::i2c
