/*
 * tavo_query.h - device queries of libtavo.
 *
 * Each query has a router whose name ends in _api: it finds the device type of
 * the (card, device) pair and asks the back end of that type (an accelerator
 * chip through the device-management library, the card's MCU, or the embedded
 * media SoC), returning the back end's status unchanged. A device type that does
 * not serve a query answers -1 ("device_type is error" in the error log); a back
 * end that knows the query but has no such value answers -8001.
 *
 * The chip functions (tavo_get_device_*, ...) take the card id, the device id
 * and the query's own arguments; they return 0 or -1. Result records are those
 * of the device-management library (rumo/rumo.h) and are passed through as the
 * library fills them.
 */
#ifndef TAVO_TAVO_QUERY_H
#define TAVO_TAVO_QUERY_H

#include <stdint.h>

#include "rumo/rumo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A back end does not serve this query. */
#define TAVO_NOT_SUPPORTED (-8001)

/* Size in bytes of the code buffer that tavo_get_device_errorcode_api fills: a chip
 * reports up to RUMO_MAX_ERROR_CODES codes of 4 bytes each. */
#define TAVO_ERROR_CODE_BUFFER_SIZE (RUMO_MAX_ERROR_CODES * 4)

/* Firmware component whose version tavo_upgrade_get_xload_static_version reports. */
#define TAVO_XLOAD_COMPONENT 8

/* Health value of a chip whose health could not be read. */
#define TAVO_HEALTH_UNKNOWN 4

/* ---- Chip functions ---- */
int tavo_get_device_temperature(uint32_t card_id, uint32_t device_id, int32_t *temperature);
int tavo_get_device_voltage(uint32_t card_id, uint32_t device_id, uint32_t *voltage);
int tavo_get_device_power_info(uint32_t card_id, uint32_t device_id, uint32_t *power);
int tavo_get_device_frequency(uint32_t card_id, uint32_t device_id, uint32_t kind,
                              uint32_t *frequency);
int tavo_get_device_utilization_rate(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                     uint32_t *rate);
int tavo_get_device_die(uint32_t card_id, uint32_t device_id, rumo_die_id *die);
int tavo_get_device_ndie(uint32_t card_id, uint32_t device_id, rumo_die_id *die);
int tavo_get_aicore_info(uint32_t card_id, uint32_t device_id, rumo_aicore_info *info);
int tavo_get_soc_sensor_info(uint32_t card_id, uint32_t device_id, uint32_t sensor_id,
                             rumo_sensor_info *info);
int tavo_get_system_time(uint32_t card_id, uint32_t device_id, uint32_t *seconds);
int tavo_get_ecc_info(uint32_t card_id, uint32_t device_id, uint32_t kind, rumo_ecc_info *info);
int tavo_get_user_config(uint32_t card_id, uint32_t device_id, const char *name, uint32_t size,
                         unsigned char *buffer);
int tavo_clear_user_config(uint32_t card_id, uint32_t device_id, const char *name);
int tavo_get_device_flash_count(uint32_t card_id, uint32_t device_id, uint32_t *count);
int tavo_get_device_flash_info(uint32_t card_id, uint32_t device_id, uint32_t index,
                               rumo_flash_info *info);
int tavo_get_memory_info(uint32_t card_id, uint32_t device_id, rumo_memory_info *info);
int tavo_get_hbm_info(uint32_t card_id, uint32_t device_id, rumo_hbm_info *info);
int tavo_get_chip_info(uint32_t card_id, uint32_t device_id, rumo_chip_info *info);
int tavo_get_board_info(uint32_t card_id, uint32_t device_id, rumo_board_info *info);
int tavo_get_board_id(uint32_t card_id, uint32_t device_id, uint32_t *board_id);
int tavo_get_pcb_id(uint32_t card_id, uint32_t device_id, uint32_t *pcb_id);
/* Only on a board family that is a card or a server. */
int tavo_get_pcie_info(uint32_t card_id, uint32_t device_id, rumo_pcie_info *info);
/* Sets *health to TAVO_HEALTH_UNKNOWN before asking, so a failure leaves it there. */
int tavo_get_device_health(uint32_t card_id, uint32_t device_id, uint32_t *health);
/* `codes` holds RUMO_MAX_ERROR_CODES 32-bit codes; *width becomes 4 on success. */
int tavo_get_device_errorcode(uint32_t card_id, uint32_t device_id, uint32_t *count,
                              uint32_t *codes, uint32_t *width);
int tavo_get_device_errorinfo(uint32_t card_id, uint32_t device_id, uint32_t code,
                              unsigned char *text, uint32_t size);
int tavo_get_version(uint32_t card_id, uint32_t device_id, char *text, uint32_t size,
                     uint32_t *length);
int tavo_upgrade_get_xload_static_version(uint32_t card_id, uint32_t device_id, unsigned char *text,
                                          uint32_t size, uint32_t *length);

/* ---- Routers: (card id, device id, the query's own arguments) ---- */
int tavo_get_temperature_api(uint32_t card_id, uint32_t device_id, int32_t *temperature);
int tavo_get_voltage_api(uint32_t card_id, uint32_t device_id, uint32_t *voltage);
int tavo_get_power_info_api(uint32_t card_id, uint32_t device_id, uint32_t *power);
int tavo_get_device_frequency_api(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                  uint32_t *frequency);
int tavo_get_device_utilization_rate_api(uint32_t card_id, uint32_t device_id, uint32_t kind,
                                         uint32_t *rate);
int tavo_get_device_die_api(uint32_t card_id, uint32_t device_id, rumo_die_id *die);
int tavo_get_device_ndie_api(uint32_t card_id, uint32_t device_id, rumo_die_id *die);
/* A null `info` is refused with -1 before anything else. */
int tavo_get_aicore_info_api(uint32_t card_id, uint32_t device_id, rumo_aicore_info *info);
int tavo_get_soc_sensor_api(uint32_t card_id, uint32_t device_id, uint32_t sensor_id,
                            rumo_sensor_info *info);
int tavo_get_system_time_api(uint32_t card_id, uint32_t device_id, uint32_t *seconds);
int tavo_get_ecc_info_api(uint32_t card_id, uint32_t device_id, uint32_t kind, rumo_ecc_info *info);
int tavo_get_user_config_api(uint32_t card_id, uint32_t device_id, const char *name, uint32_t size,
                             unsigned char *buffer);
int tavo_clear_user_config_api(uint32_t card_id, uint32_t device_id, const char *name);
int tavo_get_device_flash_count_api(uint32_t card_id, uint32_t device_id, uint32_t *count);
int tavo_get_device_flash_info_api(uint32_t card_id, uint32_t device_id, uint32_t index,
                                   rumo_flash_info *info);
int tavo_get_memory_info_api(uint32_t card_id, uint32_t device_id, rumo_memory_info *info);
int tavo_get_hbm_info_api(uint32_t card_id, uint32_t device_id, rumo_hbm_info *info);
int tavo_get_chip_info_api(uint32_t card_id, uint32_t device_id, rumo_chip_info *info);
int tavo_get_board_info_api(uint32_t card_id, uint32_t device_id, rumo_board_info *info);
int tavo_get_board_id_api(uint32_t card_id, uint32_t device_id, uint32_t *board_id);
int tavo_get_pcb_id_api(uint32_t card_id, uint32_t device_id, uint32_t *pcb_id);
int tavo_get_pcie_info_api(uint32_t card_id, uint32_t device_id, rumo_pcie_info *info);
int tavo_get_health_api(uint32_t card_id, uint32_t device_id, uint32_t *health);
/* Chip: the version of firmware component TAVO_XLOAD_COMPONENT; MCU: dotted
 * decimal text (at least 256 bytes of `text`). */
int tavo_get_firmware_version_api(uint32_t card_id, uint32_t device_id, unsigned char *text,
                                  uint32_t size, uint32_t *length);
/* `codes`: TAVO_ERROR_CODE_BUFFER_SIZE (512) bytes, as many as a chip's 128 codes
 * take; *width tells the size of each code (4 for chips and the camera board, 2 for
 * the MCU). */
int tavo_get_device_errorcode_api(uint32_t card_id, uint32_t device_id, uint32_t *count,
                                  void *codes, uint32_t *width);
int tavo_get_device_errorinfo_api(uint32_t card_id, uint32_t device_id, uint32_t code,
                                  unsigned char *text, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
