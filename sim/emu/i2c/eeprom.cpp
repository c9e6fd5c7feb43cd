#include "eeprom.h"

#include <algorithm>

namespace tavo::emu::i2c {

namespace {

constexpr uint8_t kBlank = 0xFF;

}  // namespace

Eeprom::Eeprom(std::size_t size, std::size_t page_size, int address_bytes)
    : memory_(size, kBlank), page_size_(page_size), address_bytes_(address_bytes) {}

bool Eeprom::select(bool read) {
    std::lock_guard lock(mutex_);
    if (busy_transfers_ > 0) {
        nacked_ = true;
        return false;
    }
    // A new message: a write starts with the address, and a repeated start drops the data
    // latched by an earlier write message.
    pending_.clear();
    address_pending_ = read ? 0 : address_bytes_;
    address_latch_ = 0;
    return true;
}

bool Eeprom::write(std::span<const uint8_t> data) {
    std::lock_guard lock(mutex_);
    for (uint8_t byte : data) {
        if (address_pending_ > 0) {
            address_latch_ = (address_latch_ << 8) | byte;
            if (--address_pending_ == 0) {
                pointer_ = address_latch_ & mask();
            }
            continue;
        }
        pending_.emplace_back(pointer_, byte);
        std::size_t page = pointer_ & ~(page_size_ - 1);
        pointer_ = page | ((pointer_ + 1) & (page_size_ - 1));
    }
    return true;
}

void Eeprom::read(std::span<uint8_t> data) {
    std::lock_guard lock(mutex_);
    for (uint8_t &byte : data) {
        byte = memory_[pointer_];
        pointer_ = (pointer_ + 1) & mask();
    }
}

void Eeprom::stop() {
    std::lock_guard lock(mutex_);
    if (nacked_) {
        nacked_ = false;
        --busy_transfers_;
        return;
    }
    if (pending_.empty()) {
        return;
    }
    if (!write_protected_) {
        for (auto [address, value] : pending_) {
            memory_[address] = value;
        }
    }
    pending_.clear();
    busy_transfers_ = write_cycle_transfers_;
}

void Eeprom::load(std::size_t offset, std::span<const uint8_t> bytes) {
    std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        memory_[(offset + i) & mask()] = bytes[i];
    }
}

void Eeprom::erase() {
    std::lock_guard lock(mutex_);
    std::fill(memory_.begin(), memory_.end(), kBlank);
}

void Eeprom::set_write_protected(bool on) {
    std::lock_guard lock(mutex_);
    write_protected_ = on;
}

void Eeprom::set_write_cycle_transfers(int transfers) {
    std::lock_guard lock(mutex_);
    write_cycle_transfers_ = std::max(transfers, 0);
}

}  // namespace tavo::emu::i2c
