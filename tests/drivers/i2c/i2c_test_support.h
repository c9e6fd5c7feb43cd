// Helpers shared by the I2C driver and emulator tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "i2c_world.h"
#include "log_reader.h"
#include "virtual_time.h"

namespace tavo::test {

std::string hex(std::span<const uint8_t> bytes);

// One transfer as text: its messages joined by blanks, a write as "w50:000a" (address, the
// bytes), a read as "r50:36" (address, decimal length), then " !N" when it failed with errno N.
std::string summary(const emu::i2c::I2cTransferRecord &transfer);
std::vector<std::string> summaries(const emu::i2c::I2cBus &bus);

// Requested pauses without the zero-length ones the umockdev preload asks for around each
// emulated call.
std::vector<uint64_t> pauses();

// Bytes first, first+1, ... (wrapping).
std::vector<uint8_t> counting(std::size_t count, uint8_t first = 0);

// Records and plays a device: reads return `answer` from its start at every transfer.
class ScriptedDevice : public emu::i2c::I2cDevice {
  public:
    bool write(std::span<const uint8_t> data) override {
        written.insert(written.end(), data.begin(), data.end());
        return true;
    }
    void read(std::span<uint8_t> data) override {
        for (uint8_t &byte : data) {
            byte = position < answer.size() ? answer[position] : 0xEE;
            ++position;
        }
    }
    void stop() override { position = 0; }

    std::vector<uint8_t> answer;
    std::vector<uint8_t> written;
    std::size_t position = 0;
};

}  // namespace tavo::test
