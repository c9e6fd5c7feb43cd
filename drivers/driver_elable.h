// Internals of the electronic label store: the process-wide image, the CRC, the raw
// EEPROM access and the operations behind the exported functions. Nothing here is
// exported from libtavo.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "drivers/elabel_layout.h"
#include "tavo/driver_elable.h"

inline constexpr uint32_t kElabelFlagVerified = 0x2;

struct ElabelEnv {
    // kElabelFlagVerified once the EEPROM's label had a good magic and good items.
    uint32_t flags;
    // g_elabelDataTmp once any init has run, even a failed one; null before.
    uint8_t *image;
};

extern "C" {

extern ElabelEnv g_elabelEnv;
extern uint8_t g_elabelDataTmp[tavo::drivers::elabel::kImageSize];

// CRC-16/XMODEM; 0 for a null pointer or no bytes.
uint16_t Crc16(const uint8_t *data, uint32_t length);

// The label has one place in the EEPROM, so `offset` is accepted and ignored.
// 0, or the negative result of the bus read.
int DriverFlashReadElectronicLabel(uint8_t *buffer, uint32_t offset, uint32_t length);
// Up to 5 attempts. 0 or -1.
int DriverFlashWritElectronicLabel(uint8_t *buffer, uint32_t offset, uint32_t length);
// Zeroes the whole label area in one write. 0 or -1.
int DriverFlashEraseElectronicLabel(void);

}  // extern "C"

namespace tavo::drivers::elabel {

// Resets row `row` of `image` to its default text.
void DriverElabelItemSetDefault(std::span<uint8_t, kImageSize> image, std::size_t row);
// Resets the whole image to defaults, in memory only.
void DriverElabelSetDefault(std::span<uint8_t, kImageSize> image);
// Checks every item in table order; the first bad one is reset to default and the
// check stops there with -1. 0 when all are good.
int DriverElabelVerify(std::span<uint8_t, kImageSize> image);
// Row of item `id`, first match in table order.
std::optional<std::size_t> DriverElabelFindItem(uint8_t id);
// Reads and verifies the whole label, up to 5 attempts. 0 or -1.
int DriverElabelReadAndVerify(std::span<uint8_t, kImageSize> image);

}  // namespace tavo::drivers::elabel
