#pragma once

#include "world.h"

#include <string>

namespace tavo::sim {

// Emulated I2C buses of the host description's "i2c" section: one /dev/i2c-N node per bus,
// each transfer appended as a JSON line to kRunDir/i2c/bus-N.jsonl. See docs/emulated-i2c.md.
bool attach_i2c(World &world, std::string &error);

}  // namespace tavo::sim
