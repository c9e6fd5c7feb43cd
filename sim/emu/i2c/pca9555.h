// PCA9555 16-bit I/O expander.
//
// Registers: 0/1 input port 0/1, 2/3 output, 4/5 polarity inversion, 6/7 configuration
// (1 = input). A write message is the command byte (register number) then data; each data
// byte or read byte moves the pointer to the other register of its pair (0<->1, 2<->3, ...),
// as on the real part. Inputs read the level of each pin: the host-set input level for pins
// configured as inputs, the output register for outputs, inverted where polarity says so.
#pragma once

#include "i2c_device.h"

#include <array>
#include <cstdint>
#include <mutex>

namespace tavo::emu::i2c {

class Pca9555 : public I2cDevice {
  public:
    static constexpr int kRegisterCount = 8;

    Pca9555();

    bool select(bool read) override;
    bool write(std::span<const uint8_t> data) override;
    void read(std::span<uint8_t> data) override;

    // Levels applied to the pins by the board; port 0 in the low byte.
    void set_inputs(uint16_t levels);
    // Register `index` as it stands (the input registers as they would read).
    uint8_t reg(int index);

  private:
    uint8_t read_register(int index) const;
    static int paired(int index) { return index ^ 1; }

    std::mutex mutex_;
    std::array<uint8_t, kRegisterCount> registers_{};
    uint16_t input_levels_ = 0xFFFF;
    int pointer_ = 0;
    bool expect_command_ = true;
};

}  // namespace tavo::emu::i2c
