#include "pca9555.h"

namespace tavo::emu::i2c {

namespace {

enum Register { kInput0 = 0, kOutput0 = 2, kPolarity0 = 4, kConfig0 = 6 };

}  // namespace

Pca9555::Pca9555() {
    // Power-on state: outputs high, no inversion, every pin an input.
    registers_[kOutput0] = registers_[kOutput0 + 1] = 0xFF;
    registers_[kConfig0] = registers_[kConfig0 + 1] = 0xFF;
}

bool Pca9555::write(std::span<const uint8_t> data) {
    std::lock_guard lock(mutex_);
    for (uint8_t byte : data) {
        if (expect_command_) {
            expect_command_ = false;
            if (byte >= kRegisterCount) {
                return false;
            }
            pointer_ = byte;
            continue;
        }
        if (pointer_ >= kOutput0) {
            registers_[pointer_] = byte;
        }
        pointer_ = paired(pointer_);
    }
    return true;
}

void Pca9555::read(std::span<uint8_t> data) {
    std::lock_guard lock(mutex_);
    for (uint8_t &byte : data) {
        byte = read_register(pointer_);
        pointer_ = paired(pointer_);
    }
}

bool Pca9555::select(bool read) {
    std::lock_guard lock(mutex_);
    // Every write message starts with the command byte.
    expect_command_ = !read;
    return true;
}

void Pca9555::set_inputs(uint16_t levels) {
    std::lock_guard lock(mutex_);
    input_levels_ = levels;
}

uint8_t Pca9555::reg(int index) {
    std::lock_guard lock(mutex_);
    return read_register(index);
}

uint8_t Pca9555::read_register(int index) const {
    if (index >= kOutput0) {
        return registers_[index];
    }
    auto port = static_cast<uint8_t>(input_levels_ >> (8 * index));
    uint8_t config = registers_[kConfig0 + index];
    uint8_t level = (port & config) | (registers_[kOutput0 + index] & ~config);
    return level ^ registers_[kPolarity0 + index];
}

}  // namespace tavo::emu::i2c
