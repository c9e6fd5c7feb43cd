// Process-wide state of the device API core and its internal helpers.
#pragma once

#include <cstdint>

#include "api/tavo_log.h"
#include "tavo/tavo_drv_api.h"

extern "C" {
// The card table; zero at load, filled by initialisation.
extern tavo_card_table g_tavoBoardInfo;
// Board variant: TAVO_BOARD_PCIE_CARD or TAVO_BOARD_FENNEC.
extern int32_t g_tavoBoardType;
// 1 when the card MCU may be reached, 0 inside a virtual machine.
extern int32_t g_mcuExist;
}

namespace tavo::api {

inline constexpr const char *kUnit = "tavo_drv_api";
inline constexpr const char *kBoardConfigPath = "/run/board_cfg.ini";
inline constexpr const char *kNoMinidMarkerPath = "/etc/usr/minid_not_present";

// The record of `card_id`, first match in table order; nullptr when absent.
tavo_card_record *find_card(uint32_t card_id);
// True while the table is empty and no chip is known: device ids then stand for
// themselves (0 chip, 1 MCU, 2 embedded SoC).
bool uninitialised_without_devices();

}  // namespace tavo::api

#define API_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, tavo::api::kUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define API_LOG_INFO(format, ...) \
    TAVO_LOG_TO(tavo::log::kInfo, tavo::api::kUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define API_LOG_OP(format, ...) \
    TAVO_LOG_TO(tavo::log::kOp, tavo::api::kUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define API_LOG_OP_FOR(function, format, ...) \
    TAVO_LOG_FOR(tavo::log::kOp, tavo::api::kUnit, function, format __VA_OPT__(, ) __VA_ARGS__)
#define API_LOG_ERR_FOR(function, format, ...) \
    TAVO_LOG_FOR(tavo::log::kErr, tavo::api::kUnit, function, format __VA_OPT__(, ) __VA_ARGS__)
