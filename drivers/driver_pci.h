// Internal state of the PCI configuration access unit (tavo/driver_pci.h).
#pragma once

#include "api/tavo_log.h"

namespace tavo::drivers {

inline constexpr const char *kPciUnit = "driver_pci";
inline constexpr const char *kProcBusPci = "/proc/bus/pci";

}  // namespace tavo::drivers

#define PCI_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, tavo::drivers::kPciUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define PCI_LOG_ERR_FOR(function, format, ...)                       \
    TAVO_LOG_FOR(tavo::log::kErr, tavo::drivers::kPciUnit, function, \
                 format __VA_OPT__(, ) __VA_ARGS__)
