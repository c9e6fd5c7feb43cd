#include "i2c_world.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tavo::test {

I2cWorld::I2cWorld() : testbed_("I2cWorld") {}

I2cWorld::~I2cWorld() {
    nodes_.clear();
}

emu::i2c::I2cBus &I2cWorld::bus(int number) {
    auto it = nodes_.find(number);
    if (it != nodes_.end()) {
        return it->second->bus();
    }
    std::string error;
    auto node = emu::i2c::I2cNode::create(testbed_.get(),
                                          std::make_shared<emu::i2c::I2cBus>(number), error);
    if (!node) {
        testbed_.fail(error);
    }
    return nodes_.emplace(number, std::move(node)).first->second->bus();
}

void I2cWorld::make_unopenable(int bus) {
    std::error_code ec;
    std::filesystem::create_directories(testbed_.root() + device_path(bus), ec);
    if (ec) {
        testbed_.fail("cannot create " + testbed_.root() + device_path(bus) + ": " + ec.message());
    }
}

emu::i2c::Eeprom24c512 &I2cWorld::add_eeprom(int bus, uint8_t address) {
    return add<emu::i2c::Eeprom24c512>(bus, address);
}

emu::i2c::Pca9555 &I2cWorld::add_pca9555(int bus, uint8_t address) {
    return add<emu::i2c::Pca9555>(bus, address);
}

emu::i2c::BoardIdEeprom &I2cWorld::add_board_id_eeprom(int bus, uint8_t address) {
    return add<emu::i2c::BoardIdEeprom>(bus, address);
}

}  // namespace tavo::test
