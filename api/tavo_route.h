// Routing of a (card, device) request to the back end of its device type.
#pragma once

#include <cstdint>
#include <type_traits>

#include "api/tavo_table.h"

namespace tavo::api {

// Resolves a chip's logic id on behalf of the exported function `function`.
inline bool resolve_chip(tavo::log::Site function, uint32_t card_id, uint32_t device_id,
                         uint32_t &logic_id) {
    int ret = tavo_get_device_logic_id(&logic_id, card_id, device_id);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call tavo_get_device_logic_id failed.%d.\n\r\n", ret);
        return false;
    }
    return true;
}

// Marks a device type that a request is not served for.
struct Refused {};
inline constexpr Refused kRefused;

template <typename Backend>
int run_backend(tavo::log::Site function, int32_t type, Backend backend) {
    if constexpr (std::is_same_v<Backend, Refused>) {
        API_LOG_ERR_FOR(function, "device_type is error.%d.\n\r\n", type);
        return -1;
    } else {
        return backend();
    }
}

// Finds the device type and hands the request to `chip`, `mcu` or `kite`; their
// status is returned unchanged.
template <typename Chip, typename Mcu, typename Kite>
int route(tavo::log::Site function, uint32_t card_id, uint32_t device_id, Chip chip, Mcu mcu,
          Kite kite) {
    int32_t type = -1;
    int ret = tavo_get_device_info(&type, card_id, device_id);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call tavo_get_device_info failed.%d.\n\r\n", ret);
        return ret;
    }
    switch (type) {
        case TAVO_DEVICE_CHIP:
            return run_backend(function, type, chip);
        case TAVO_DEVICE_MCU:
            return run_backend(function, type, mcu);
        case TAVO_DEVICE_EMBEDDED:
            return run_backend(function, type, kite);
        default:
            return run_backend(function, type, kRefused);
    }
}

}  // namespace tavo::api

// Each back end is named once; chip functions take (card, device, ...), the MCU and
// embedded-SoC functions (card, ...).
#define CHIP(function, ...) [&] { return function(card_id, device_id __VA_OPT__(, ) __VA_ARGS__); }
#define BY_CARD(function, ...) [&] { return function(card_id __VA_OPT__(, ) __VA_ARGS__); }
#define ROUTE(chip, mcu, kite) tavo::api::route(__func__, card_id, device_id, chip, mcu, kite)
