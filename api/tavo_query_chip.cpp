// Queries of an accelerator chip: the device-management library, addressed by the
// chip's logic id.
#include <cstring>

#include "api/tavo_route.h"
#include "api/tavo_table.h"
#include "base/bounded.h"
#include "rumo/rumo.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_query.h"

namespace {

// Runs one device-management call for a chip: logic id first, then `call`. A
// failure is logged with the name of the call and collapsed to -1.
template <typename Call>
int chip_query(tavo::log::Site function, const char *rumo_name, uint32_t card_id,
               uint32_t device_id, Call call) {
    uint32_t logic_id = 0;
    if (!tavo::api::resolve_chip(function, card_id, device_id, logic_id)) {
        return -1;
    }
    int ret = call(logic_id);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call %s failed.%d.\n\r\n", rumo_name, ret);
        return -1;
    }
    return 0;
}

#define CHIP_QUERY(rumo_function, ...)                       \
    chip_query(__func__, #rumo_function, card_id, device_id, \
               [&](uint32_t id) { return rumo_function(id __VA_OPT__(, ) __VA_ARGS__); })

}  // namespace

extern "C" {

TAVO_API int tavo_get_device_temperature(uint32_t card_id, uint32_t device_id,
                                         int32_t *temperature) {
    return CHIP_QUERY(rumo_get_device_temperature, temperature);
}

TAVO_API int tavo_get_device_voltage(uint32_t card_id, uint32_t device_id, uint32_t *voltage) {
    return CHIP_QUERY(rumo_get_device_voltage, voltage);
}

TAVO_API int tavo_get_device_power_info(uint32_t card_id, uint32_t device_id, uint32_t *power) {
    uint32_t value = 0;
    int ret = CHIP_QUERY(rumo_get_device_power_info, &value);
    if (ret == 0 && power != nullptr) {
        *power = value;
    }
    return ret;
}

TAVO_API int tavo_get_device_frequency(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                       uint32_t *frequency) {
    return CHIP_QUERY(rumo_get_device_frequency, kind, frequency);
}

TAVO_API int tavo_get_device_utilization_rate(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                              uint32_t *rate) {
    return CHIP_QUERY(rumo_get_device_utilization_rate, kind, rate);
}

TAVO_API int tavo_get_device_die(uint32_t card_id, uint32_t device_id, rumo_die_id *die) {
    return CHIP_QUERY(rumo_get_device_die, die);
}

TAVO_API int tavo_get_device_ndie(uint32_t card_id, uint32_t device_id, rumo_die_id *die) {
    return CHIP_QUERY(rumo_get_device_ndie, die);
}

TAVO_API int tavo_get_aicore_info(uint32_t card_id, uint32_t device_id, rumo_aicore_info *info) {
    return CHIP_QUERY(rumo_get_aicore_info, info);
}

TAVO_API int tavo_get_soc_sensor_info(uint32_t card_id, uint32_t device_id, uint32_t sensor_id,
                                      rumo_sensor_info *info) {
    return CHIP_QUERY(rumo_get_soc_sensor_info, sensor_id, info);
}

TAVO_API int tavo_get_system_time(uint32_t card_id, uint32_t device_id, uint32_t *seconds) {
    return CHIP_QUERY(rumo_get_system_time, seconds);
}

TAVO_API int tavo_get_ecc_info(uint32_t card_id, uint32_t device_id, uint32_t kind,
                               rumo_ecc_info *info) {
    return CHIP_QUERY(rumo_get_ecc_info, kind, info);
}

TAVO_API int tavo_get_user_config(uint32_t card_id, uint32_t device_id, const char *name,
                                  uint32_t size, unsigned char *buffer) {
    return CHIP_QUERY(rumo_get_user_config, name, size, buffer);
}

TAVO_API int tavo_clear_user_config(uint32_t card_id, uint32_t device_id, const char *name) {
    return CHIP_QUERY(rumo_clear_user_config, name);
}

TAVO_API int tavo_get_device_flash_count(uint32_t card_id, uint32_t device_id, uint32_t *count) {
    return CHIP_QUERY(rumo_get_device_flash_count, count);
}

TAVO_API int tavo_get_device_flash_info(uint32_t card_id, uint32_t device_id, uint32_t index,
                                        rumo_flash_info *info) {
    return CHIP_QUERY(rumo_get_device_flash_info, index, info);
}

TAVO_API int tavo_get_memory_info(uint32_t card_id, uint32_t device_id, rumo_memory_info *info) {
    return CHIP_QUERY(rumo_get_memory_info, info);
}

TAVO_API int tavo_get_hbm_info(uint32_t card_id, uint32_t device_id, rumo_hbm_info *info) {
    return CHIP_QUERY(rumo_get_hbm_info, info);
}

TAVO_API int tavo_get_chip_info(uint32_t card_id, uint32_t device_id, rumo_chip_info *info) {
    return CHIP_QUERY(rumo_get_chip_info, info);
}

TAVO_API int tavo_get_board_info(uint32_t card_id, uint32_t device_id, rumo_board_info *info) {
    return CHIP_QUERY(rumo_get_board_info, info);
}

TAVO_API int tavo_get_board_id(uint32_t card_id, uint32_t device_id, uint32_t *board_id) {
    rumo_board_info info{};
    int ret = CHIP_QUERY(rumo_get_board_info, &info);
    if (ret == 0 && board_id != nullptr) {
        *board_id = info.board_id;
    }
    return ret;
}

TAVO_API int tavo_get_pcb_id(uint32_t card_id, uint32_t device_id, uint32_t *pcb_id) {
    rumo_board_info info{};
    int ret = CHIP_QUERY(rumo_get_board_info, &info);
    if (ret == 0 && pcb_id != nullptr) {
        *pcb_id = info.pcb_id;
    }
    return ret;
}

TAVO_API int tavo_get_pcie_info(uint32_t card_id, uint32_t device_id, rumo_pcie_info *info) {
    if (tavo_is_card() == 0 && tavo_is_server() == 0) {
        API_LOG_ERR("The device is not card or server.\n\r\n");
        return -1;
    }
    return CHIP_QUERY(rumo_get_pcie_info, info);
}

TAVO_API int tavo_get_device_health(uint32_t card_id, uint32_t device_id, uint32_t *health) {
    if (health != nullptr) {
        *health = TAVO_HEALTH_UNKNOWN;
    }
    return CHIP_QUERY(rumo_get_device_health, health);
}

TAVO_API int tavo_get_device_errorcode(uint32_t card_id, uint32_t device_id, uint32_t *count,
                                       uint32_t *codes, uint32_t *width) {
    int32_t found = 0;
    int ret = CHIP_QUERY(rumo_get_device_errorcode, count != nullptr ? &found : nullptr, codes);
    if (ret == 0) {
        *count = static_cast<uint32_t>(found);
        if (width != nullptr) {
            *width = sizeof(uint32_t);
        }
    }
    return ret;
}

TAVO_API int tavo_get_device_errorinfo(uint32_t card_id, uint32_t device_id, uint32_t code,
                                       unsigned char *text, uint32_t size) {
    return CHIP_QUERY(rumo_query_errorstring, code, text, static_cast<int32_t>(size));
}

TAVO_API int tavo_get_version(uint32_t card_id, uint32_t device_id, char *text, uint32_t size,
                              uint32_t *length) {
    return CHIP_QUERY(rumo_get_version, text, size, length);
}

TAVO_API int tavo_upgrade_get_xload_static_version(uint32_t card_id, uint32_t device_id,
                                                   unsigned char *text, uint32_t size,
                                                   uint32_t *length) {
    return CHIP_QUERY(rumo_upgrade_get_component_static_version, TAVO_XLOAD_COMPONENT, text, size,
                      length);
}

}  // extern "C"
