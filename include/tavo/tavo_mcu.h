/*
 * tavo_mcu.h - the card's board microcontroller (the MCU, device type 1).
 *
 * The library talks to the MCU with request/response frames: a request names a
 * command (the item), a byte offset inside the item and a length, and carries at
 * most 20 data bytes; the response carries a status, the item's total length,
 * the length of this piece and at most 20 data bytes. Longer items go as a series
 * of frames at increasing offsets. Frames reach the MCU through the chip wired to
 * it (rumo_passthru_mcu, the transport in use) or over SMBus on /dev/i2c-9, slave
 * 0x64 (the *_by_i2c functions).
 *
 * Every function takes the card id first (a card has at most one MCU) and returns
 * 0 on success and -1 on failure, logged to /var/log/quillmon_LOG_ERR.log, unless
 * its comment says otherwise. The MCU's own status codes are logged, never
 * returned. Operations the MCU does not serve return TAVO_NOT_SUPPORTED (-8001)
 * at once, without logging. Outputs are caller-provided; nothing is allocated.
 * Calls that talk to the same MCU must be serialised by the caller.
 */
#ifndef TAVO_TAVO_MCU_H
#define TAVO_TAVO_MCU_H

#include <stdint.h>

#include "rumo/rumo.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef TAVO_NOT_SUPPORTED
#define TAVO_NOT_SUPPORTED (-8001)
#endif

/* Frame sizes. */
#define TAVO_MCU_FRAME_HEADER_LEN 12
#define TAVO_MCU_FRAME_DATA_MAX 20
/* Largest item a long read returns; long-read buffers hold this many bytes. */
#define TAVO_MCU_ITEM_MAX 256
/* Control byte of the last (or only) frame of a write, and of every read. */
#define TAVO_MCU_CONTROL_LAST 0x80

/* Directions of the pass-through record. */
#define TAVO_MCU_DIRECTION_READ 0
#define TAVO_MCU_DIRECTION_WRITE 1

/* Size of each frame area of the pass-through record. */
#define TAVO_MCU_RECORD_FRAME_LEN 1024

/* The record handed to rumo_passthru_mcu (RUMO_PASSTHRU_RECORD_SIZE bytes). The
 * request frame goes in, the response frame comes back. Multi-byte fields of the
 * frames are little-endian. */
typedef struct tavo_mcu_passthru_record {
    uint32_t request_size; /* 12 + data bytes of the request */
    uint32_t direction;    /* TAVO_MCU_DIRECTION_* */
    uint8_t request[TAVO_MCU_RECORD_FRAME_LEN];
    uint8_t response[TAVO_MCU_RECORD_FRAME_LEN];
} tavo_mcu_passthru_record;

/* MCU commands (item ids). */
#define TAVO_MCU_CMD_HEALTH 1
#define TAVO_MCU_CMD_ERROR_CODE 2
#define TAVO_MCU_CMD_TEMPERATURE 3
#define TAVO_MCU_CMD_POWER 4
#define TAVO_MCU_CMD_VERSION 5
#define TAVO_MCU_CMD_SN 8
#define TAVO_MCU_CMD_VOLTAGE 11
#define TAVO_MCU_CMD_ERROR_LOG 12
#define TAVO_MCU_CMD_BOARD_ID 15
#define TAVO_MCU_CMD_PCB_ID 16
#define TAVO_MCU_CMD_ELABEL 21
#define TAVO_MCU_CMD_PERIPHERAL_TEST 22
#define TAVO_MCU_CMD_PERIPHERAL_RESULT 23
#define TAVO_MCU_CMD_UPGRADE_DATA 24
#define TAVO_MCU_CMD_UPGRADE_CONTROL 25
#define TAVO_MCU_CMD_UPGRADE_STATUS 26
#define TAVO_MCU_CMD_OPERATE_LOG 38
#define TAVO_MCU_CMD_MAINTENANCE_LOG 39
#define TAVO_MCU_CMD_BOM_ID 40
#define TAVO_MCU_CMD_SET_BOOT_AREA 1281
#define TAVO_MCU_CMD_GET_BOOT_AREA 1283
#define TAVO_MCU_CMD_SWITCH_CHANNEL 1558

/* Log types of tavo_mcu_collect_log. */
#define TAVO_MCU_LOG_ERROR 0
#define TAVO_MCU_LOG_OPERATE 1
#define TAVO_MCU_LOG_MAINTENANCE 2
#define TAVO_MCU_LOG_TYPE_COUNT 3
/* Directory that receives the collected logs. */
#define TAVO_MCU_LOG_DIR "/tmp/mcu_log/"

/* Flags of tavo_mcu_check_i2c, in this order. */
#define TAVO_MCU_CHECK_SLOT1_FAILED 0
#define TAVO_MCU_CHECK_SLOT3_FAILED 1
#define TAVO_MCU_CHECK_MINI0 2 /* MINI1..MINI3 follow */
#define TAVO_MCU_CHECK_FLAG_COUNT 6

/* ---- Frames ---- */

/* Fills a read request: control 0x80, the argument, command, offset and wanted
 * length; the parameter (at most 20 bytes, a longer one is cut) is the request's
 * data. -1 only for a null record. */
int tavo_mcu_fill_data_for_reading(tavo_mcu_passthru_record *record, uint8_t argument,
                                   uint16_t command, uint32_t offset, uint32_t length,
                                   const uint8_t *parameter, uint32_t parameter_length);
/* Fills a write request of `length` data bytes (at most 20 fit a frame). -1 only
 * for a null record. */
int tavo_mcu_fill_data_for_writing(tavo_mcu_passthru_record *record, uint8_t control,
                                   uint16_t command, uint32_t offset, uint32_t length,
                                   const uint8_t *data);

/* ---- Exchanges ----
 * A read exchange stores the frame's data in `output` (at least 20 bytes), its
 * length in `piece_length` and the item's total length in `total_length`. */

/* One exchange through the chip wired to the MCU. */
int tavo_mcu_get_info_by_mini(uint32_t card_id, uint8_t argument, uint16_t command, uint32_t offset,
                              uint32_t length, const uint8_t *parameter, uint32_t parameter_length,
                              uint8_t *output, uint32_t *piece_length, uint32_t *total_length);
int tavo_mcu_set_info_by_mini(uint32_t card_id, uint8_t control, uint16_t command, uint32_t offset,
                              uint32_t length, const uint8_t *data);
/* One exchange over SMBus (bus 9, slave 0x64); the card id is not used. */
int tavo_mcu_get_info_by_i2c(uint32_t card_id, uint8_t argument, uint16_t command, uint32_t offset,
                             uint32_t length, const uint8_t *parameter, uint32_t parameter_length,
                             uint8_t *output, uint32_t *piece_length, uint32_t *total_length);
int tavo_mcu_set_info_by_i2c(uint32_t card_id, uint8_t control, uint16_t command, uint32_t offset,
                             uint32_t length, const uint8_t *data);
/* The transport in use: the pass-through functions. */
int tavo_mcu_get_info_inn(uint32_t card_id, uint8_t argument, uint16_t command, uint32_t offset,
                          uint32_t length, const uint8_t *parameter, uint32_t parameter_length,
                          uint8_t *output, uint32_t *piece_length, uint32_t *total_length);
int tavo_mcu_set_info_inn(uint32_t card_id, uint8_t control, uint16_t command, uint32_t offset,
                          uint32_t length, const uint8_t *data);
/* Up to 3 attempts of the _inn functions, 1 microsecond apart. */
int tavo_mcu_get_info(uint32_t card_id, uint8_t argument, uint16_t command, uint32_t offset,
                      uint32_t length, const uint8_t *parameter, uint32_t parameter_length,
                      uint8_t *output, uint32_t *piece_length, uint32_t *total_length);
int tavo_mcu_set_info(uint32_t card_id, uint8_t control, uint16_t command, uint32_t offset,
                      uint32_t length, const uint8_t *data);

/* ---- Items ---- */

/* One read at offset 0 without parameter; `out_length` is the piece length. */
int tavo_mcu_get_info_fix(uint32_t card_id, uint8_t argument, uint16_t command, uint32_t length,
                          uint8_t *output, uint32_t *out_length);
/* A short item (at most 4 bytes) as a little-endian number. */
int tavo_mcu_get_fix_word(uint32_t card_id, uint8_t argument, uint16_t command, uint32_t length,
                          uint32_t *value);
/* An item of up to 255 bytes, read in frames into `output` (TAVO_MCU_ITEM_MAX
 * bytes). An item of 256 bytes or more fails. */
int tavo_mcu_get_info_dynamic(uint32_t card_id, uint8_t argument, uint16_t command,
                              uint32_t first_length, const uint8_t *parameter,
                              uint32_t parameter_length, uint8_t *output, uint32_t *out_length);
/* Writes an item in frames of 20 bytes; the last frame carries control 0x80. */
int tavo_mcu_set_info_dnamic(uint32_t card_id, uint16_t command, uint32_t length,
                             const uint8_t *data);
/* One write frame with control 0x80 at offset 0. */
int tavo_mcu_set_info_simple(uint32_t card_id, uint16_t command, uint32_t length,
                             const uint8_t *data);

/* Access lock hooks around SMBus exchanges and long transfers. They guard nothing
 * and always return 0. */
int tavo_mcu_set_lock(int32_t *lock, uint32_t timeout);
int tavo_mcu_set_unlock(int32_t lock);
int tavo_mcu_set_lock_up(int32_t *lock, uint32_t timeout);
int tavo_mcu_set_unlock_up(int32_t lock);

/* Moves the MCU's link to the other chip (slot 1 <-> 3) and waits 3 s. The chip
 * slot used before and after. Returns the failing call's code. */
int tavo_switch_mini2mcu_channel(uint32_t card_id, uint32_t *slot_before, uint32_t *slot_after);

int tavo_mcu_get_health(uint32_t card_id, uint32_t *health);
/* Raw error-code item: `codes` receives the bytes (TAVO_MCU_ITEM_MAX), `count` the
 * number of 2-byte codes (0 for the single code 0), `code_width` 2. Returns the
 * long read's result. */
int tavo_mcu_get_device_errorcode(uint32_t card_id, uint32_t *count, void *codes,
                                  uint32_t *code_width);
/* Raw 16-bit values as the MCU reports them; no unit conversion. */
int tavo_mcu_get_temperature(uint32_t card_id, int32_t *temperature);
int tavo_mcu_get_power_info(uint32_t card_id, uint32_t *power);
int tavo_mcu_get_voltage(uint32_t card_id, uint32_t *voltage);
/* Dotted decimal text of the version bytes ("1.20.3") into `text`
 * (TAVO_MCU_ITEM_MAX bytes); `length` excludes the terminator. */
int tavo_mcu_get_version(uint32_t card_id, char *text, uint32_t *length);
/* Serial number bytes into `buffer` (TAVO_MCU_ITEM_MAX bytes). */
int tavo_mcu_get_sn(uint32_t card_id, uint8_t *buffer, uint32_t *length);
int tavo_mcu_get_board_id(uint32_t card_id, uint32_t *board_id);
int tavo_mcu_get_pcb_id(uint32_t card_id, uint32_t *pcb_id);
int tavo_mcu_get_bom_id(uint32_t card_id, uint32_t *bom_id);
/* Label item `item` (its low byte selects it) into `buffer` (TAVO_MCU_ITEM_MAX bytes). */
int tavo_mcu_get_elable_info(uint32_t card_id, uint32_t item, uint8_t *buffer, uint16_t *length);
/* Text of the MCU's I2C link test (TAVO_MCU_ITEM_MAX bytes). */
int tavo_mcu_get_iic_to_miniD_status(uint32_t card_id, uint8_t *text, uint32_t *length);
/* Board id, PCB id and BOM id; the slot id is set to 0. Returns the result of the
 * last read attempted: a failure leaves the fields after it 0. */
int tavo_mcu_get_board_info(uint32_t card_id, rumo_board_info *info);
/* Chip name "MCU"; type and version are left as given. Always 0. */
int tavo_mcu_get_chip_info(uint32_t card_id, rumo_chip_info *info);
int tavo_mcu_get_boot_area(uint32_t card_id, uint32_t *area);
/* Asks the MCU to switch its boot area. */
int tavo_mcu_set_boot_area(uint32_t card_id);

/* Not served by the MCU: TAVO_NOT_SUPPORTED. */
int tavo_mcu_reset_device(uint32_t card_id);
int tavo_mcu_config_p2p_enable(uint32_t card_id, uint32_t enable);
int tavo_mcu_get_p2p_enable(uint32_t card_id, uint32_t *enable);
int tavo_mcu_get_device_frequency(uint32_t card_id, uint32_t kind, uint32_t *frequency);
int tavo_mcu_get_device_utilization_rate(uint32_t card_id, uint32_t kind, uint32_t *rate);
int tavo_mcu_config_ecc_enable(uint32_t card_id, uint32_t enable);
int tavo_mcu_get_ecc_info(uint32_t card_id, uint32_t kind, rumo_ecc_info *info);
int tavo_mcu_get_device_flash_count(uint32_t card_id, uint32_t *count);
int tavo_mcu_get_device_flash_info(uint32_t card_id, uint32_t index, rumo_flash_info *info);
int tavo_mcu_get_memory_info(uint32_t card_id, rumo_memory_info *info);
int tavo_mcu_get_device_errorinfo(uint32_t card_id, uint32_t code, unsigned char *text,
                                  uint32_t size);
int tavo_mcu_get_monitor_enable(uint32_t card_id, uint32_t *enable);
int tavo_mcu_set_monitor_enable(uint32_t card_id, uint32_t enable);
int tavo_mcu_get_device_die(uint32_t card_id, rumo_die_id *die);

/* ---- Firmware upload, logs, link check ----
 * These print their progress on standard output. */

/* Sends the image file to the MCU in 20-byte frames (command 24). The image is not
 * verified here. */
int tavo_mcu_upgrade_transfile(uint32_t card_id, const char *path);
/* Sends the low byte of `value` as upgrade control (command 25). */
int tavo_mcu_upgrade_control(uint32_t card_id, uint32_t value);
/* The two upgrade status bytes (command 26). */
int tavo_mcu_get_upgrade_statues(uint32_t card_id, uint8_t *first, uint8_t *second);
/* Downloads log `log_type` (TAVO_MCU_LOG_*) into
 * TAVO_MCU_LOG_DIR "<name>_<card>_<YYYYmmddHHMMSS>.log" (local time). An empty log
 * makes no file. */
int tavo_mcu_collect_log(uint32_t card_id, uint32_t log_type);
/* Self-test of the MCU's I2C links; fills TAVO_MCU_CHECK_FLAG_COUNT flags. Problems
 * show in the flags and the log only: always 0. */
int tavo_mcu_check_i2c(uint32_t card_id, uint32_t *result);

#ifdef __cplusplus
}
#endif

#endif
