#include "i2c_world.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tavo::test {

namespace {

[[noreturn]] void fail_world(const std::string &problem) {
    ADD_FAILURE() << "I2cWorld: " << problem;
    throw std::runtime_error("I2cWorld: " + problem);
}

}  // namespace

I2cWorld::I2cWorld() {
    if (const char *dir = std::getenv("UMOCKDEV_DIR"); dir != nullptr) {
        previous_dir_ = dir;
    }
    // The testbed directory goes under g_get_tmp_dir(): keep it in the simulated host's private
    // /tmp whatever TMPDIR the user had. umockdev_testbed_new points UMOCKDEV_DIR at the new
    // testbed, and the preload follows it.
    g_setenv("TMPDIR", "/tmp", TRUE);
    testbed_ = umockdev_testbed_new();
    if (testbed_ == nullptr) {
        fail_world("cannot create a umockdev testbed");
    }
    g_autofree gchar *root = umockdev_testbed_get_root_dir(testbed_);
    root_ = root;
}

I2cWorld::~I2cWorld() {
    nodes_.clear();
    g_object_unref(testbed_);
    if (previous_dir_) {
        setenv("UMOCKDEV_DIR", previous_dir_->c_str(), 1);
    } else {
        unsetenv("UMOCKDEV_DIR");
    }
}

emu::i2c::I2cBus &I2cWorld::bus(int number) {
    auto it = nodes_.find(number);
    if (it != nodes_.end()) {
        return it->second->bus();
    }
    std::string error;
    auto node =
        emu::i2c::I2cNode::create(testbed_, std::make_shared<emu::i2c::I2cBus>(number), error);
    if (!node) {
        fail_world(error);
    }
    return nodes_.emplace(number, std::move(node)).first->second->bus();
}

void I2cWorld::make_unopenable(int bus) {
    std::error_code ec;
    std::filesystem::create_directories(root_ + device_path(bus), ec);
    if (ec) {
        fail_world("cannot create " + root_ + device_path(bus) + ": " + ec.message());
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
