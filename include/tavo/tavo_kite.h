/*
 * tavo_kite.h - the embedded media SoC (device type 2): the kite SoC of the
 * fennec camera board. Functions take the card id first (a card has at most one
 * such SoC) and return 0 on success, -1 on failure (logged to
 * /var/log/quillmon_LOG_ERR.log) or -8001 (TAVO_NOT_SUPPORTED) for a query that
 * has no meaning on this SoC.
 */
#ifndef TAVO_TAVO_KITE_H
#define TAVO_TAVO_KITE_H

#include <stdint.h>

#include "rumo/rumo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Physical address of the die-id register. */
#define TAVO_KITE_DIE_ID_ADDRESS 0x12020EE0u
/* Number of alarm sections a line may have, and the size of each. */
#define TAVO_ALARM_SECTION_MAX 6
#define TAVO_ALARM_SECTION_LEN 256
/* At most this many codes are reported by the camera board. */
#define TAVO_KITE_MAX_ERROR_CODES 64

int tavo_kite_get_health(uint32_t card_id, uint32_t *health);
int tavo_kite_get_device_frequency(uint32_t card_id, uint32_t kind, uint32_t *frequency);
/* Fills type "media", name "kite", version "V100" (without terminators: the
 * caller zeroes the record). */
int tavo_kite_get_chip_info(uint32_t card_id, rumo_chip_info *info);
/* Camera board: from /run/board_cfg.ini; other boards: from the card's MCU. */
int tavo_kite_get_board_info(uint32_t card_id, rumo_board_info *info);
/* Camera board: from /run/all_active_alarm, 32-bit codes (at most 64); other
 * boards: from the card's MCU. */
int tavo_kite_get_device_errorcode(uint32_t card_id, uint32_t *count, void *codes, uint32_t *width);
/* memory_size: MemTotal of /proc/meminfo in MiB, rounded up to whole GiB. */
int tavo_kite_get_memory_info(uint32_t card_id, rumo_memory_info *info);
/* soc_die[0]: the die-id register. */
int tavo_kite_get_device_die(uint32_t card_id, rumo_die_id *die);
/* First four non-zero bytes of the 17 bytes from `address` in /dev/mem, the first
 * one lowest. */
int tavo_kite_regpeek(uint32_t address, uint32_t *value);
/* Label item `item` from the electronic label into `buffer` (at least length + 1
 * bytes; 69 covers all items but 0x64 and 0x50). Returns the label store's code. */
int tavo_kite_get_elable(uint32_t card_id, uint32_t item, uint8_t *buffer, uint16_t *length);

/* Splits "a@b@...@wxyz" (the last field exactly 4 characters) into at most
 * `maximum` sections of TAVO_ALARM_SECTION_LEN bytes. */
int tavo_get_alarm_info(const char *line, int32_t length, char (*sections)[TAVO_ALARM_SECTION_LEN],
                        int32_t maximum, int32_t *count);
/* When `line` begins with `key`, parses the hexadecimal number after it. */
int tavo_get_hex_single_board_info(const char *line, const char *key, uint32_t *value);
int tavo_fennec_kite_get_board_info(rumo_board_info *info);
int tavo_fennec_kite_get_device_errorcode(uint32_t *count, uint32_t *codes, uint32_t *width);

/* Queries the SoC does not serve: TAVO_NOT_SUPPORTED. */
int tavo_kite_reset_device(uint32_t card_id);
int tavo_kite_config_p2p_enable(uint32_t card_id, uint32_t enable);
int tavo_kite_get_p2p_enable(uint32_t card_id, uint32_t *enable);
int tavo_kite_get_board_id(uint32_t card_id, uint32_t *board_id);
int tavo_kite_get_pcb_id(uint32_t card_id, uint32_t *pcb_id);
int tavo_kite_get_temperature(uint32_t card_id, int32_t *temperature);
int tavo_kite_get_voltage(uint32_t card_id, uint32_t *voltage);
int tavo_kite_get_power_info(uint32_t card_id, uint32_t *power);
int tavo_kite_get_device_errorinfo(uint32_t card_id, uint32_t code, unsigned char *text,
                                   uint32_t size);
int tavo_kite_get_device_utilization_rate(uint32_t card_id, uint32_t kind, uint32_t *rate);
int tavo_kite_config_ecc_enable(uint32_t card_id, uint32_t enable);
int tavo_kite_get_ecc_info(uint32_t card_id, uint32_t kind, rumo_ecc_info *info);
int tavo_kite_get_device_flash_count(uint32_t card_id, uint32_t *count);
int tavo_kite_get_device_flash_info(uint32_t card_id, uint32_t index, rumo_flash_info *info);
int tavo_kite_get_version(uint32_t card_id, char *text, uint32_t *length);

#ifdef __cplusplus
}
#endif

#endif
