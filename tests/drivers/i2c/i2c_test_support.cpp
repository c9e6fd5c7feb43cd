#include "i2c_test_support.h"

#include <algorithm>

namespace tavo::test {

std::string hex(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::string summary(const emu::i2c::I2cTransferRecord &transfer) {
    std::string text;
    for (const auto &m : transfer.messages) {
        uint8_t address[] = {static_cast<uint8_t>(m.address)};
        text += text.empty() ? "" : " ";
        text += (m.flags & I2C_M_RD) != 0 ? "r" : "w";
        text += hex(address) + ":";
        text += (m.flags & I2C_M_RD) != 0 ? std::to_string(m.length) : hex(m.data);
    }
    if (transfer.error != 0) {
        text += " !" + std::to_string(transfer.error);
    }
    return text;
}

std::vector<std::string> summaries(const emu::i2c::I2cBus &bus) {
    std::vector<std::string> all;
    for (const auto &transfer : bus.transcript()) {
        all.push_back(summary(transfer));
    }
    return all;
}

std::vector<uint64_t> pauses() {
    std::vector<uint64_t> all = requested_sleeps();
    std::erase(all, 0);
    return all;
}

std::vector<uint8_t> counting(std::size_t count, uint8_t first) {
    std::vector<uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    return bytes;
}

}  // namespace tavo::test
