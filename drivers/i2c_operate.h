// Internal state of the I2C device access unit (tavo/driver_i2c.h).
#pragma once

#include "api/tavo_log.h"

extern "C" {
// Descriptor of the open bus device, shared by every transfer of the process. Set by
// DriverI2cInit; after a one-shot function closes it, 0 (DriverI2cGetData, DriverI2cSetData,
// DriverI2cPlainRead, when the bus had opened) or -1 (DriverI2cGetData9555).
extern int g_fd;
}

namespace tavo::drivers {

inline constexpr const char *kI2cOperateUnit = "i2c_operate";

}  // namespace tavo::drivers

#define I2C_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, tavo::drivers::kI2cOperateUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define I2C_LOG_ERR_FOR(function, format, ...)                              \
    TAVO_LOG_FOR(tavo::log::kErr, tavo::drivers::kI2cOperateUnit, function, \
                 format __VA_OPT__(, ) __VA_ARGS__)
