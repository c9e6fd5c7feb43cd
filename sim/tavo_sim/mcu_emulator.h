#pragma once

#include "world.h"

#include <string>

namespace tavo::sim {

// Makes the I2C device type "mcu" available to the host description's "i2c" section:
// the MCU of a card (its "mcu" object) on the SMBus, answered by the same MCU model
// as the pass-through. Listed before the I2C emulator's attach function.
//
//   {"address": 100, "type": "mcu", "card": 2}
//
// "card" is the card's slot id; without it, the first card that has an MCU.
bool attach_mcu_type(World &world, std::string &error);

}  // namespace tavo::sim
