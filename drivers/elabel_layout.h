// Layout of the electronic label in the EEPROM and in its in-memory image.
//
// Image (little-endian):
//   0     4      magic "BALE" (0x454C4142 as a 32-bit word)
//   4     2356   26 item slots, back to back in table order
// Slot:
//   0     2      CRC-16/XMODEM of the first `length` data bytes
//   2     2      length, 0..max length
//   4     max    data
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tavo::drivers::elabel {

inline constexpr const char *kBusPath = "/dev/i2c-8";
inline constexpr uint8_t kSlave = 0x50;
inline constexpr uint64_t kEepromOffset = 128;
inline constexpr const char *kLockPath = "/run/elabel_lock_flag";

inline constexpr std::size_t kImageSize = 2360;
inline constexpr std::size_t kMagicSize = 4;
inline constexpr std::array<uint8_t, kMagicSize> kMagic{'B', 'A', 'L', 'E'};
inline constexpr std::size_t kSlotHeaderSize = 4;
inline constexpr std::size_t kCrcOffset = 0;
inline constexpr std::size_t kLengthOffset = 2;

struct Item {
    uint8_t id;
    // Max length + 4 kept in a byte, as the label has always stored it; nothing reads it.
    uint8_t slot_size_byte;
    uint16_t max_length;
    uint16_t slot_offset;
    const char *default_text;
};

namespace detail {

struct Row {
    uint8_t id;
    uint16_t max_length;
};

inline constexpr std::array<Row, 26> kRows{{
    {0x10, 4},  {0x11, 68}, {0x12, 68}, {0x20, 68}, {0x21, 68},  {0x22, 68}, {0x23, 68},
    {0x24, 68}, {0x25, 68}, {0x30, 68}, {0x31, 68}, {0x32, 68},  {0x33, 68}, {0x34, 68},
    {0x35, 68}, {0x36, 68}, {0x60, 68}, {0x61, 68}, {0x62, 68},  {0x63, 68}, {0x64, 496},
    {0x65, 48}, {0x66, 48}, {0x67, 48}, {0x68, 48}, {0x50, 268},
}};

// Slots are packed in table order right after the magic.
constexpr std::array<Item, kRows.size()> build_items() {
    std::array<Item, kRows.size()> items{};
    std::size_t offset = kMagicSize;
    for (std::size_t i = 0; i < kRows.size(); ++i) {
        const std::size_t slot = kRows[i].max_length + kSlotHeaderSize;
        items[i] = Item{kRows[i].id, static_cast<uint8_t>(slot), kRows[i].max_length,
                        static_cast<uint16_t>(offset), ""};
        offset += slot;
    }
    return items;
}

}  // namespace detail

inline constexpr std::array<Item, detail::kRows.size()> kItems = detail::build_items();
inline constexpr std::size_t kItemCount = kItems.size();

constexpr std::size_t slot_end(const Item &item) {
    return std::size_t{item.slot_offset} + kSlotHeaderSize + item.max_length;
}

static_assert(kItemCount == 26);
static_assert(slot_end(kItems.back()) == kImageSize, "the last slot ends the image");
static_assert(kItems[20].slot_offset == 1380 && kItems[25].slot_offset == 2088);
static_assert(kItems[20].slot_size_byte == 244 && kItems[25].slot_size_byte == 16);

}  // namespace tavo::drivers::elabel
