// The card MCU on its SMBus (bus 9, slave 0x64), backed by the MCU model.
//
//   SMBus block write to register 0x20: count byte, then the request frame.
//   I2C block read from register 0x21:  count byte (response length), then the
//                                        response frame; bytes past it read 0.
//
// Over SMBus the firmware tells a write request from a read by its command.
#pragma once

#include "mcu_model.h"
#include "sim/emu/i2c/i2c_device.h"

#include <cstdint>
#include <span>
#include <vector>

namespace tavo::mcu_model {

inline constexpr std::uint8_t kSmbusAddress = 0x64;
inline constexpr int kSmbusBus = 9;
inline constexpr std::uint8_t kRequestRegister = 0x20;
inline constexpr std::uint8_t kResponseRegister = 0x21;

class McuSmbusDevice : public emu::i2c::I2cDevice {
  public:
    explicit McuSmbusDevice(McuConfig config) : model_(std::move(config)) {}

    bool write(std::span<const std::uint8_t> data) override;
    void read(std::span<std::uint8_t> data) override;

    McuModel &model() { return model_; }

  private:
    McuModel model_;
    std::uint8_t register_ = 0;
    // The answer to the last request, served from register 0x21.
    std::vector<std::uint8_t> response_;
};

}  // namespace tavo::mcu_model
