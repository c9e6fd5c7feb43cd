// Routers of the device queries: the device type of a (card, device) pair chooses
// the chip, MCU or embedded-SoC back end, whose status is returned unchanged.

#include "api/tavo_route.h"
#include "api/tavo_table.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_kite.h"
#include "tavo/tavo_mcu.h"
#include "tavo/tavo_query.h"

extern "C" {

TAVO_API int tavo_get_temperature_api(uint32_t card_id, uint32_t device_id, int32_t *temperature) {
    return ROUTE(CHIP(tavo_get_device_temperature, temperature),
                 BY_CARD(tavo_mcu_get_temperature, temperature),
                 BY_CARD(tavo_kite_get_temperature, temperature));
}

TAVO_API int tavo_get_voltage_api(uint32_t card_id, uint32_t device_id, uint32_t *voltage) {
    return ROUTE(CHIP(tavo_get_device_voltage, voltage), BY_CARD(tavo_mcu_get_voltage, voltage),
                 BY_CARD(tavo_kite_get_voltage, voltage));
}

TAVO_API int tavo_get_power_info_api(uint32_t card_id, uint32_t device_id, uint32_t *power) {
    return ROUTE(CHIP(tavo_get_device_power_info, power), BY_CARD(tavo_mcu_get_power_info, power),
                 BY_CARD(tavo_kite_get_power_info, power));
}

TAVO_API int tavo_get_device_frequency_api(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                           uint32_t *frequency) {
    return ROUTE(CHIP(tavo_get_device_frequency, kind, frequency),
                 BY_CARD(tavo_mcu_get_device_frequency, kind, frequency),
                 BY_CARD(tavo_kite_get_device_frequency, kind, frequency));
}

TAVO_API int tavo_get_device_utilization_rate_api(uint32_t card_id, uint32_t device_id,
                                                  uint32_t kind, uint32_t *rate) {
    return ROUTE(CHIP(tavo_get_device_utilization_rate, kind, rate),
                 BY_CARD(tavo_mcu_get_device_utilization_rate, kind, rate),
                 BY_CARD(tavo_kite_get_device_utilization_rate, kind, rate));
}

TAVO_API int tavo_get_device_die_api(uint32_t card_id, uint32_t device_id, rumo_die_id *die) {
    return ROUTE(CHIP(tavo_get_device_die, die), BY_CARD(tavo_mcu_get_device_die, die),
                 BY_CARD(tavo_kite_get_device_die, die));
}

TAVO_API int tavo_get_device_ndie_api(uint32_t card_id, uint32_t device_id, rumo_die_id *die) {
    return ROUTE(CHIP(tavo_get_device_ndie, die), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_get_aicore_info_api(uint32_t card_id, uint32_t device_id,
                                      rumo_aicore_info *info) {
    if (info == nullptr) {
        return -1;
    }
    return ROUTE(CHIP(tavo_get_aicore_info, info), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_get_soc_sensor_api(uint32_t card_id, uint32_t device_id, uint32_t sensor_id,
                                     rumo_sensor_info *info) {
    return ROUTE(CHIP(tavo_get_soc_sensor_info, sensor_id, info), tavo::api::kRefused,
                 tavo::api::kRefused);
}

TAVO_API int tavo_get_system_time_api(uint32_t card_id, uint32_t device_id, uint32_t *seconds) {
    return ROUTE(CHIP(tavo_get_system_time, seconds), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_get_ecc_info_api(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                   rumo_ecc_info *info) {
    return ROUTE(CHIP(tavo_get_ecc_info, kind, info), BY_CARD(tavo_mcu_get_ecc_info, kind, info),
                 BY_CARD(tavo_kite_get_ecc_info, kind, info));
}

TAVO_API int tavo_get_user_config_api(uint32_t card_id, uint32_t device_id, const char *name,
                                      uint32_t size, unsigned char *buffer) {
    return ROUTE(CHIP(tavo_get_user_config, name, size, buffer), tavo::api::kRefused,
                 tavo::api::kRefused);
}

TAVO_API int tavo_clear_user_config_api(uint32_t card_id, uint32_t device_id, const char *name) {
    return ROUTE(CHIP(tavo_clear_user_config, name), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_get_device_flash_count_api(uint32_t card_id, uint32_t device_id,
                                             uint32_t *count) {
    return ROUTE(CHIP(tavo_get_device_flash_count, count),
                 BY_CARD(tavo_mcu_get_device_flash_count, count),
                 BY_CARD(tavo_kite_get_device_flash_count, count));
}

TAVO_API int tavo_get_device_flash_info_api(uint32_t card_id, uint32_t device_id, uint32_t index,
                                            rumo_flash_info *info) {
    return ROUTE(CHIP(tavo_get_device_flash_info, index, info),
                 BY_CARD(tavo_mcu_get_device_flash_info, index, info),
                 BY_CARD(tavo_kite_get_device_flash_info, index, info));
}

TAVO_API int tavo_get_memory_info_api(uint32_t card_id, uint32_t device_id,
                                      rumo_memory_info *info) {
    return ROUTE(CHIP(tavo_get_memory_info, info), BY_CARD(tavo_mcu_get_memory_info, info),
                 BY_CARD(tavo_kite_get_memory_info, info));
}

TAVO_API int tavo_get_hbm_info_api(uint32_t card_id, uint32_t device_id, rumo_hbm_info *info) {
    return ROUTE(CHIP(tavo_get_hbm_info, info), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_get_chip_info_api(uint32_t card_id, uint32_t device_id, rumo_chip_info *info) {
    return ROUTE(CHIP(tavo_get_chip_info, info), BY_CARD(tavo_mcu_get_chip_info, info),
                 BY_CARD(tavo_kite_get_chip_info, info));
}

TAVO_API int tavo_get_board_info_api(uint32_t card_id, uint32_t device_id, rumo_board_info *info) {
    return ROUTE(CHIP(tavo_get_board_info, info), BY_CARD(tavo_mcu_get_board_info, info),
                 BY_CARD(tavo_kite_get_board_info, info));
}

TAVO_API int tavo_get_board_id_api(uint32_t card_id, uint32_t device_id, uint32_t *board_id) {
    return ROUTE(CHIP(tavo_get_board_id, board_id), BY_CARD(tavo_mcu_get_board_id, board_id),
                 BY_CARD(tavo_kite_get_board_id, board_id));
}

TAVO_API int tavo_get_pcb_id_api(uint32_t card_id, uint32_t device_id, uint32_t *pcb_id) {
    return ROUTE(CHIP(tavo_get_pcb_id, pcb_id), BY_CARD(tavo_mcu_get_pcb_id, pcb_id),
                 BY_CARD(tavo_kite_get_pcb_id, pcb_id));
}

TAVO_API int tavo_get_pcie_info_api(uint32_t card_id, uint32_t device_id, rumo_pcie_info *info) {
    return ROUTE(CHIP(tavo_get_pcie_info, info), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_get_health_api(uint32_t card_id, uint32_t device_id, uint32_t *health) {
    return ROUTE(CHIP(tavo_get_device_health, health), BY_CARD(tavo_mcu_get_health, health),
                 BY_CARD(tavo_kite_get_health, health));
}

TAVO_API int tavo_get_firmware_version_api(uint32_t card_id, uint32_t device_id,
                                           unsigned char *text, uint32_t size, uint32_t *length) {
    char *chars = reinterpret_cast<char *>(text);
    return ROUTE(CHIP(tavo_upgrade_get_xload_static_version, text, size, length),
                 BY_CARD(tavo_mcu_get_version, chars, length),
                 BY_CARD(tavo_kite_get_version, chars, length));
}

TAVO_API int tavo_get_device_errorcode_api(uint32_t card_id, uint32_t device_id, uint32_t *count,
                                           void *codes, uint32_t *width) {
    return ROUTE(CHIP(tavo_get_device_errorcode, count, static_cast<uint32_t *>(codes), width),
                 BY_CARD(tavo_mcu_get_device_errorcode, count, codes, width),
                 BY_CARD(tavo_kite_get_device_errorcode, count, codes, width));
}

TAVO_API int tavo_get_device_errorinfo_api(uint32_t card_id, uint32_t device_id, uint32_t code,
                                           unsigned char *text, uint32_t size) {
    return ROUTE(CHIP(tavo_get_device_errorinfo, code, text, size),
                 BY_CARD(tavo_mcu_get_device_errorinfo, code, text, size),
                 BY_CARD(tavo_kite_get_device_errorinfo, code, text, size));
}

}  // extern "C"
