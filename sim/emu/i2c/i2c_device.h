// A device on an emulated I2C bus, seen message by message.
//
// A transfer is a sequence of messages joined by repeated starts and ended by one stop. A
// device keeps its address pointer across the messages of a transfer, so a write of a
// register or memory address followed by a read returns data from that address.
#pragma once

#include <cstdint>
#include <span>

namespace tavo::emu::i2c {

class I2cDevice {
  public:
    virtual ~I2cDevice() = default;

    // Address phase of a message. False: the device does not acknowledge its address.
    virtual bool select(bool read) {
        (void)read;
        return true;
    }
    // The bytes of a write message, in order. False: the device did not acknowledge one
    // of them (the bytes before it were taken).
    virtual bool write(std::span<const uint8_t> data) = 0;
    // Fills a read message.
    virtual void read(std::span<uint8_t> data) = 0;
    // The stop condition of a transfer that addressed this device, whether or not it
    // acknowledged.
    virtual void stop() {}
};

}  // namespace tavo::emu::i2c
