// Internal state of the SMBus unit (tavo/i2c_smbus.h).
#pragma once

#include "api/tavo_log.h"
#include "tavo/i2c_smbus.h"

inline constexpr int kSmbusDevNameSize = 30;

extern "C" {
// Device path of each bus id: "/dev/i2c-0" .. "/dev/i2c-11".
extern char g_csumbusDevName[TAVO_SMBUS_BUS_COUNT][kSmbusDevNameSize];
}

namespace tavo::drivers {

inline constexpr const char *kI2cSmbusUnit = "i2c_smbus";

}  // namespace tavo::drivers

#define SMBUS_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, tavo::drivers::kI2cSmbusUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define SMBUS_LOG_ERR_FOR(function, format, ...)                          \
    TAVO_LOG_FOR(tavo::log::kErr, tavo::drivers::kI2cSmbusUnit, function, \
                 format __VA_OPT__(, ) __VA_ARGS__)
