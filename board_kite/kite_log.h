// Log macros of the embedded-board back end.
#pragma once

#include "api/tavo_log.h"

namespace tavo::kite {
inline constexpr const char *kUnit = "tavo_kite";
}

#define KITE_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, tavo::kite::kUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define KITE_LOG_INFO(format, ...) \
    TAVO_LOG_TO(tavo::log::kInfo, tavo::kite::kUnit, format __VA_OPT__(, ) __VA_ARGS__)
