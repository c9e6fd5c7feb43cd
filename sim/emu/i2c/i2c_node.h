// Serves /dev/i2c-N of a umockdev testbed from an I2cBus, as the kernel's i2c-dev serves an
// adapter: I2C_RETRIES, I2C_TIMEOUT, I2C_SLAVE, I2C_SLAVE_FORCE, I2C_FUNCS, I2C_RDWR and
// I2C_SMBUS. Any other request is refused with ENOTTY and a line on standard error.
//
// The slave address set by I2C_SLAVE belongs to the open file, as in the kernel: each
// descriptor starts at address 0.
#pragma once

#include "i2c_bus.h"

#include <umockdev.h>

#include <memory>
#include <string>

namespace tavo::emu::i2c {

class I2cNode {
  public:
    // Adds the i2c-dev device N and its node /dev/i2c-N to `testbed` and attaches the
    // handler. nullptr, with `error` set, when umockdev refuses either.
    static std::unique_ptr<I2cNode> create(UMockdevTestbed *testbed, std::shared_ptr<I2cBus> bus,
                                           std::string &error);
    ~I2cNode();
    I2cNode(const I2cNode &) = delete;
    I2cNode &operator=(const I2cNode &) = delete;

    I2cBus &bus() { return *bus_; }
    // "/dev/i2c-N".
    static std::string device_path(int bus);

  private:
    struct Impl;
    explicit I2cNode(std::unique_ptr<Impl> impl, std::shared_ptr<I2cBus> bus);

    std::unique_ptr<Impl> impl_;
    std::shared_ptr<I2cBus> bus_;
};

}  // namespace tavo::emu::i2c
