// Serial EEPROMs of the 24Cxx family.
//
// Write message: address bytes (high byte first), then data. Data goes into a page buffer at
// the address, wrapping within the page as the real parts do, and is committed to the memory
// at the stop that ends the transfer; a repeated start discards it. Every data byte advances
// the address pointer, which is what a following read in the same transfer starts from.
// Reads continue from the pointer and wrap at the end of the memory.
#pragma once

#include "i2c_device.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace tavo::emu::i2c {

class Eeprom : public I2cDevice {
  public:
    // `size` a power of two, `page_size` a power of two dividing it, 1 or 2 address bytes.
    Eeprom(std::size_t size, std::size_t page_size, int address_bytes);

    bool select(bool read) override;
    bool write(std::span<const uint8_t> data) override;
    void read(std::span<uint8_t> data) override;
    void stop() override;

    // The memory. Read or change it only while no transfer is running.
    std::span<uint8_t> contents() { return memory_; }
    // Copies `bytes` into the memory at `offset`, wrapping at its end.
    void load(std::size_t offset, std::span<const uint8_t> bytes);
    // Fills the memory with the blank value 0xFF.
    void erase();

    // While set, writes are acknowledged and dropped, like a part whose WP pin is high.
    void set_write_protected(bool on);
    // After each committed write the part ignores its address for the next `transfers`
    // transfers addressed to it, as during its internal write cycle. 0 (default): the write
    // cycle is over before the next transfer.
    void set_write_cycle_transfers(int transfers);

    std::size_t page_size() const { return page_size_; }

  private:
    std::size_t mask() const { return memory_.size() - 1; }

    std::mutex mutex_;
    std::vector<uint8_t> memory_;
    std::size_t page_size_;
    int address_bytes_;
    std::size_t pointer_ = 0;
    // Address bytes still expected in the current write message.
    int address_pending_ = 0;
    std::size_t address_latch_ = 0;
    // Page-buffer bytes of the current write: (address, value), in order.
    std::vector<std::pair<std::size_t, uint8_t>> pending_;
    bool write_protected_ = false;
    int write_cycle_transfers_ = 0;
    int busy_transfers_ = 0;
    bool nacked_ = false;
};

// 24C512: 64 KiB, 16-bit addresses. Its pages are 16 bytes here, the page size of the parts
// fitted to the boards.
class Eeprom24c512 : public Eeprom {
  public:
    static constexpr std::size_t kSize = 64 * 1024;
    static constexpr std::size_t kPageSize = 16;
    Eeprom24c512() : Eeprom(kSize, kPageSize, 2) {}
};

// Board-identity EEPROM of bus 0: 4 KiB, 16-bit addresses like the label EEPROM (the
// library reads it with the same two-byte address prefix), 32-byte pages (a 24C32).
class BoardIdEeprom : public Eeprom {
  public:
    static constexpr std::size_t kSize = 4 * 1024;
    static constexpr std::size_t kPageSize = 32;
    BoardIdEeprom() : Eeprom(kSize, kPageSize, 2) {}
};

}  // namespace tavo::emu::i2c
