// Internal state of the I2C device access unit (tavo/driver_i2c.h).
#pragma once

#include <cstdint>

#include "api/tavo_log.h"

extern "C" {
// Descriptor of the open bus device, shared by every transfer of the process. Set by
// DriverI2cInit; after a one-shot function closes it, 0 (DriverI2cGetData, DriverI2cSetData,
// DriverI2cPlainRead, when the bus had opened) or -1 (DriverI2cGetData9555).
extern int g_fd;
}

namespace tavo::drivers {

inline constexpr const char *kI2cOperateUnit = "i2c_operate";

// One piece of a paged EEPROM write whose read-back matched what was staged.
struct VerifiedPiece {
    uint8_t slave;
    int written;          // result of the piece's last write
    uint64_t address;     // EEPROM address of the piece
    const uint8_t *data;  // the piece's bytes
    uint32_t size;        // bytes in the piece
    uint32_t remaining;   // bytes of the write from this piece on
    uint32_t size_max;    // the piece limit (the page remainder, then 16)
    bool page_remainder;  // more data follows this piece
};

// A piece whose write still reports a failure after the verification passed: logs
// the failure on behalf of DriverI2cEepWrite and returns -1. A read-back is only
// compared after a write that did not fail, so this guards a state the
// verification never leaves.
int refuse_verified_piece(const VerifiedPiece &piece);

}  // namespace tavo::drivers

#define I2C_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, tavo::drivers::kI2cOperateUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define I2C_LOG_ERR_FOR(function, format, ...)                              \
    TAVO_LOG_FOR(tavo::log::kErr, tavo::drivers::kI2cOperateUnit, function, \
                 format __VA_OPT__(, ) __VA_ARGS__)
