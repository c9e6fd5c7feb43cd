// Emulated I2C buses inside a test process.
//
// An I2cWorld owns a private umockdev testbed holding /dev/i2c-N nodes served by the I2C
// emulator (sim/emu/i2c) on umockdev's worker thread, so the library under test and child
// processes (i2c-tools) reach the emulated devices through open/ioctl. While it lives, the
// process's UMOCKDEV_DIR names its testbed, so the simulated host's own nodes are out of
// sight; the previous value is restored when it is destroyed. One I2cWorld at a time.
//
//   tavo::test::I2cWorld world;
//   auto &eeprom = world.add_eeprom(8, 0x50);
//   DriverI2cGetData("/dev/i2c-8", 0x50, 0, buffer, 16);
//   auto transfers = world.bus(8).transcript();
#pragma once

#include "sim/emu/i2c/eeprom.h"
#include "sim/emu/i2c/i2c_bus.h"
#include "sim/emu/i2c/i2c_node.h"
#include "sim/emu/i2c/pca9555.h"

#include <umockdev.h>

#include "scoped_testbed.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tavo::test {

class I2cWorld {
  public:
    // Fails the test (gtest fatal failure, then throws) when the testbed cannot be built.
    I2cWorld();
    ~I2cWorld();
    I2cWorld(const I2cWorld &) = delete;
    I2cWorld &operator=(const I2cWorld &) = delete;

    // Bus `number` (0..11), creating /dev/i2c-N with no devices on first use.
    emu::i2c::I2cBus &bus(int number);

    // A device at the 7-bit `address` of bus `bus`, replacing any device there.
    emu::i2c::Eeprom24c512 &add_eeprom(int bus, uint8_t address);
    emu::i2c::Pca9555 &add_pca9555(int bus, uint8_t address);
    emu::i2c::BoardIdEeprom &add_board_id_eeprom(int bus, uint8_t address);
    template <typename Device, typename... Args>
    Device &add(int bus_number, uint8_t address, Args &&...args) {
        auto device = std::make_unique<Device>(std::forward<Args>(args)...);
        Device &ref = *device;
        bus(bus_number).attach(address, std::move(device));
        return ref;
    }

    // Makes /dev/i2c-N a node that open(2) refuses (a directory: EISDIR). Without it a bus
    // the world lacks would be looked up on the real machine.
    void make_unopenable(int bus);

    // "/dev/i2c-N".
    static std::string device_path(int bus) { return emu::i2c::I2cNode::device_path(bus); }
    // The testbed's root directory (UMOCKDEV_DIR while this world lives).
    const std::string &root() const { return testbed_.root(); }

  private:
    // First, so that it goes last: the nodes need it while they are torn down.
    ScopedTestbed testbed_;
    std::map<int, std::unique_ptr<emu::i2c::I2cNode>> nodes_;
};

}  // namespace tavo::test
