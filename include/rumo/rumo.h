/*
 * rumo.h - the device-management library of the accelerator driver.
 *
 * libtavo is linked against librumo.so.1. On a production host that is the
 * driver vendor's library; in tests and demos it is the simulator built from
 * sim/rumo. Every function takes the chip's logic id first and returns 0 on
 * success or a non-zero code of the library's own on failure. Output records
 * are written only on success unless a function says otherwise.
 *
 * The header is plain C (C99) and is compiled as C by the test suite.
 */
#ifndef RUMO_RUMO_H
#define RUMO_RUMO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Capacity of the logic-id list that callers offer to rumo_list_device. */
#define RUMO_MAX_DEVICES 128
/* Capacity of the code array that callers offer to rumo_get_device_errorcode. */
#define RUMO_MAX_ERROR_CODES 128
/* Size of the record handed to rumo_passthru_mcu. */
#define RUMO_PASSTHRU_RECORD_SIZE 2056
/* Length of each text of the chip information record. */
#define RUMO_CHIP_TEXT_LEN 32

/* Four words in this order; the slot id names the card that carries the chip. */
typedef struct rumo_board_info {
    uint32_t board_id;
    uint32_t pcb_id;
    uint32_t bom_id;
    uint32_t slot_id;
} rumo_board_info;

typedef struct rumo_chip_info {
    char chip_type[RUMO_CHIP_TEXT_LEN];
    char chip_name[RUMO_CHIP_TEXT_LEN];
    char chip_ver[RUMO_CHIP_TEXT_LEN];
} rumo_chip_info;

/* Device memory (DDR): size in MiB, frequency in MHz, utilisation in percent. */
typedef struct rumo_memory_info {
    uint64_t memory_size;
    uint32_t freq;
    uint32_t utilization;
} rumo_memory_info;

/* High-bandwidth memory: sizes in MiB, frequency in MHz, temperature in degC. */
typedef struct rumo_hbm_info {
    uint64_t memory_size;
    uint32_t freq;
    uint32_t reserved;
    uint64_t memory_usage;
    int32_t temp;
    uint32_t bandwidth_util_rate;
} rumo_hbm_info;

/* ECC state and counters of one memory kind. */
typedef struct rumo_ecc_info {
    int32_t enable_flag;
    uint32_t single_bit_error_count;
    uint32_t double_bit_error_count;
    uint32_t total_single_bit_error_count;
    uint32_t total_double_bit_error_count;
    uint32_t single_bit_isolated_pages_count;
    uint32_t double_bit_isolated_pages_count;
} rumo_ecc_info;

typedef struct rumo_flash_info {
    uint64_t flash_id;
    uint16_t device_id;
    uint16_t vendor;
    uint32_t state; /* 0x8 = normal */
    uint64_t size;  /* bytes */
    uint32_t sector_count;
    uint16_t manufacturer_id;
    uint16_t reserved;
} rumo_flash_info;

/* PCIe identity and bus/device/function of the chip. */
typedef struct rumo_pcie_info {
    uint32_t device_id;
    uint32_t vendor_id;
    uint32_t sub_vendor_id;
    uint32_t sub_device_id;
    uint32_t bdf_bus;
    uint32_t bdf_device;
    uint32_t bdf_function;
} rumo_pcie_info;

/* AI-core frequencies in MHz. */
typedef struct rumo_aicore_info {
    uint32_t freq;
    uint32_t cur_freq;
} rumo_aicore_info;

/* Die identity: five words. */
typedef struct rumo_die_id {
    uint32_t soc_die[5];
} rumo_die_id;

/* One SoC sensor reading; which member is meaningful depends on the sensor. */
typedef union rumo_sensor_info {
    uint8_t uchar;
    uint16_t ushort;
    uint32_t uint;
    int32_t iint;
    int8_t temp[2];
    int32_t ntc_tmp[4];
    uint32_t data[16];
} rumo_sensor_info;

/* Topology. */
int rumo_get_device_count(int32_t *count);
/* Fills up to `count` logic ids into `ids`. */
int rumo_list_device(uint32_t *ids, int32_t count);
int rumo_get_board_info(uint32_t logic_id, rumo_board_info *info);
int rumo_get_chip_info(uint32_t logic_id, rumo_chip_info *info);
int rumo_get_pcie_info(uint32_t logic_id, rumo_pcie_info *info);

/* Sensors and records. */
int rumo_get_device_temperature(uint32_t logic_id, int32_t *temperature); /* degC */
int rumo_get_device_voltage(uint32_t logic_id, uint32_t *voltage);        /* 0.01 V */
int rumo_get_device_power_info(uint32_t logic_id, uint32_t *power);       /* 0.1 W */
int rumo_get_device_frequency(uint32_t logic_id, uint32_t kind, uint32_t *frequency);
int rumo_get_device_utilization_rate(uint32_t logic_id, uint32_t kind, uint32_t *rate);
int rumo_get_device_die(uint32_t logic_id, rumo_die_id *die);
int rumo_get_device_ndie(uint32_t logic_id, rumo_die_id *die);
int rumo_get_aicore_info(uint32_t logic_id, rumo_aicore_info *info);
int rumo_get_soc_sensor_info(uint32_t logic_id, uint32_t sensor_id, rumo_sensor_info *info);
int rumo_get_system_time(uint32_t logic_id, uint32_t *seconds);
int rumo_get_memory_info(uint32_t logic_id, rumo_memory_info *info);
int rumo_get_hbm_info(uint32_t logic_id, rumo_hbm_info *info);
int rumo_get_ecc_info(uint32_t logic_id, uint32_t kind, rumo_ecc_info *info);
int rumo_get_device_flash_count(uint32_t logic_id, uint32_t *count);
int rumo_get_device_flash_info(uint32_t logic_id, uint32_t index, rumo_flash_info *info);

/* Health (0 good, 1 minor, 2 major, 3 critical, 4 unknown) and errors. */
int rumo_get_device_health(uint32_t logic_id, uint32_t *health);
/* `codes` must hold RUMO_MAX_ERROR_CODES entries; `count` receives how many were filled. */
int rumo_get_device_errorcode(uint32_t logic_id, int32_t *count, uint32_t *codes);
/* Writes the text of `code`, terminated, into `text` of `size` bytes. */
int rumo_query_errorstring(uint32_t logic_id, uint32_t code, unsigned char *text, int32_t size);

/* Versions: the text is terminated; `length` receives its length without the terminator. */
int rumo_get_version(uint32_t logic_id, char *text, uint32_t size, uint32_t *length);
int rumo_upgrade_get_component_static_version(uint32_t logic_id, uint8_t component,
                                              unsigned char *text, uint32_t size,
                                              uint32_t *length);

/* User configuration items: named byte strings kept by the chip. */
int rumo_set_user_config(uint32_t logic_id, const char *name, uint32_t size,
                         const unsigned char *content);
int rumo_get_user_config(uint32_t logic_id, const char *name, uint32_t size,
                         unsigned char *buffer);
int rumo_clear_user_config(uint32_t logic_id, const char *name);
int rumo_config_ssh_enable(uint32_t logic_id, uint32_t enable);
int rumo_get_ssh_enable(uint32_t logic_id, uint32_t *enable);

/* Control. */
int rumo_pre_reset_soc(uint32_t logic_id);

/* MCU. The record (RUMO_PASSTHRU_RECORD_SIZE bytes) carries the request in and the
 * MCU's response out; see mcu/ for its layout. */
int rumo_passthru_mcu(uint32_t logic_id, void *record);
/* Link between the chip and the card's MCU: status 0 dead, 1 alive, and a counter
 * that grows while the link is alive. Not every driver release provides it. */
int rumo_get_mini2mcu_heartbeat_status(uint32_t logic_id, uint8_t *status, uint32_t *counter);

#ifdef __cplusplus
}
#endif

#endif
