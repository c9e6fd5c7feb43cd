// Transcript records as JSON, one object per transfer:
//   {"bus":8,"kind":"rdwr","error":0,
//    "messages":[{"addr":80,"flags":0,"len":2,"data":"0080"},
//                {"addr":80,"flags":1,"len":4,"data":"ffffffff"}]}
// SMBus transfers add "read_write", "command" and "size". Data is lower-case hex.
#pragma once

#include "i2c_bus.h"

#include <nlohmann/json.hpp>

namespace tavo::emu::i2c {

nlohmann::json transcript_json(int bus, const I2cTransferRecord &record);

}  // namespace tavo::emu::i2c
