// The card MCU's SMBus slave (bus 9, address 0x64) until an MCU model takes the slot: it
// acknowledges nothing, like a board whose MCU does not answer.
#pragma once

#include "i2c_device.h"

namespace tavo::emu::i2c {

class McuSlot : public I2cDevice {
  public:
    bool select(bool) override { return false; }
    bool write(std::span<const uint8_t>) override { return false; }
    void read(std::span<uint8_t>) override {}
};

}  // namespace tavo::emu::i2c
