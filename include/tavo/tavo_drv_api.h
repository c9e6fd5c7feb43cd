/*
 * tavo_drv_api.h - device API of libtavo: initialisation, board detection and
 * the card/device topology.
 *
 * A host has up to 16 cards, each addressed by its card id (the slot id that the
 * device-management library reports for the card's chip); a card has up to 8
 * devices numbered from 0: first the accelerator chips (type 0), then possibly the
 * card's MCU (type 1) and an embedded media SoC (type 2).
 *
 * Every function returns 0 on success and -1 on failure unless its comment says
 * otherwise; failures are written to /var/log/quillmon_LOG_ERR.log. Call
 * tavo_get_board_type (where the camera board must be recognised), then tavo_init,
 * from one thread, before any query.
 */
#ifndef TAVO_TAVO_DRV_API_H
#define TAVO_TAVO_DRV_API_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TAVO_MAX_CARDS 16
#define TAVO_MAX_DEVICES_PER_CARD 8
#define TAVO_PCIE_TEXT_LEN 256
/* Size of the buffer that tavo_get_board_pcie_info fills. */
#define TAVO_BOARD_PCIE_INFO_LEN 512

/* Device types. */
#define TAVO_DEVICE_CHIP 0
#define TAVO_DEVICE_MCU 1
#define TAVO_DEVICE_EMBEDDED 2

/* Board variants (tavo_get_board_type). */
#define TAVO_BOARD_PCIE_CARD 0
#define TAVO_BOARD_FENNEC 1

/* Value of a device id or slot that is absent. */
#define TAVO_ABSENT 0xFFFFFFFFu

typedef struct tavo_device_record {
    uint32_t logic_id;
    char pcie_path[TAVO_PCIE_TEXT_LEN];
    /* PCI address ("0000:3b:00.0") used for configuration-space writes. */
    char pci_address[TAVO_PCIE_TEXT_LEN];
    /* Position of the chip on the card; 1 and 3 are wired to the card's MCU. */
    uint32_t chip_slot;
} tavo_device_record;

typedef struct tavo_card_record {
    uint32_t card_id;
    uint32_t pcie_slot; /* physical slot; TAVO_ABSENT when not mapped */
    int32_t device_count;
    uint32_t mcu_device_id;      /* TAVO_ABSENT: no MCU */
    uint32_t embedded_device_id; /* TAVO_ABSENT: no embedded SoC */
    uint32_t elabel_pos;
    uint32_t board_id_pos;
    uint32_t fault_device_count; /* devices on the card the host cannot see */
    uint32_t reserved[7];
    char pcie_bus[TAVO_PCIE_TEXT_LEN];
    tavo_device_record devices[TAVO_MAX_DEVICES_PER_CARD];
} tavo_card_record;

typedef struct tavo_card_table {
    uint32_t initialised;
    uint32_t board_id; /* board id of the first chip read: the board family */
    int32_t card_count;
    uint32_t no_minid;
    uint32_t total_device_count;
    tavo_card_record cards[TAVO_MAX_CARDS];
    uint32_t in_virtual_machine;
} tavo_card_table;

/* ---- Initialisation and board detection ---- */

/* Fills the card table from the device-management library (once per process).
 * -1 when the host reports no chip or the chip list cannot be read. */
int tavo_init(void);
/* tavo_init without the virtual-machine check. */
int tavo_pallas_init(void);
/* Fills a fixed one-card table for a board without the device-management
 * library. Always 0. */
int tavo_init_inn(void);
/* Rebuilds the card table when the number of chips has changed. Must not run
 * while other threads query. */
void tavo_retry_init(void);
/* Reads /run/board_cfg.ini and recognises the fennec camera board. */
int tavo_get_board_type(void);
/* Nonzero when the table says the process runs in a virtual machine on a card. */
int tavo_check_run_in_vm(void);
/* Nonzero when the process runs in a virtual machine. This build answers 0: it is
 * made for hosts that own their cards. */
int isVirtualMechine(void);

/* ---- Topology ---- */

/* Device type (TAVO_DEVICE_*) of a (card, device) pair. */
int tavo_get_device_info(int32_t *device_type, uint32_t card_id, uint32_t device_id);
/* Logic id of a chip. */
int tavo_get_device_logic_id(uint32_t *logic_id, uint32_t card_id, uint32_t device_id);
/* Pointer to the live card record (not a copy); valid for the life of the process. */
int tavo_get_card_info(uint32_t card_id, tavo_card_record **card);
/* Copies up to `capacity` card ids into `list`; `count` receives the true number
 * of cards, which may exceed the capacity. */
int tavo_get_card_num_list(int32_t *count, uint32_t *list, int32_t capacity);
/* Returns the number of chips in the host (not a status). */
int tavo_get_total_device_count(void);
int tavo_get_device_num_in_card(uint32_t card_id, int32_t *count);
/* Chip count, MCU device id and embedded-SoC device id of a card (-1 = none). */
int tavo_get_device_num_in_card_api(uint32_t card_id, int32_t *chip_count, int32_t *mcu_device_id,
                                    int32_t *embedded_device_id);
int tavo_get_pcie_slot(uint32_t card_id, uint32_t *slot);
int tavo_get_elable_pos_in_card_api(uint32_t card_id, uint32_t *position);
int tavo_get_board_id_pos_in_card_api(uint32_t card_id, uint32_t *position);
/* Before initialisation returns 0 without touching `count`. */
int tavo_get_fault_device_num_in_card(uint32_t card_id, uint32_t *count);
/* Copies the card's PCIe bus text into `text` (TAVO_BOARD_PCIE_INFO_LEN bytes). */
int tavo_get_board_pcie_info(uint32_t card_id, char *text);
/* Fixed label item numbers of the four identity items. Always 0. */
int tavo_get_elable_item_it(uint32_t *item_a, uint32_t *item_b, uint32_t *item_c, uint32_t *item_d);
/* 1 when the board family is a PCIe card (board id 1, 3, 5 or 200), else 0. */
int tavo_is_card(void);
/* 1 when the board family is a server (board id 47), else 0. */
int tavo_is_server(void);
/* Always 1. */
int tavo_has_minid(void);
/* Marks every card as having no MCU and no embedded SoC. Always 0. */
int tavo_flush_device_id(void);
/* Link state between a chip and its card's MCU: status 0 dead, 1 alive. */
int tavo_get_mini2mcu_heartbeat_status(uint32_t card_id, uint32_t device_id, uint8_t *status,
                                       uint32_t *counter);
/* The chip (logic id and chip slot 1 or 3) through which the card's MCU is reached. */
int tavo_get_msg_device_logic_id(uint32_t *logic_id, uint32_t *chip_slot, uint32_t card_id);
/* Kept for compatibility; computes nothing and returns 0. */
int tavo_get_pcie_info_from_host(uint32_t unused_a, uint32_t unused_b);

#ifdef __cplusplus
}
#endif

#endif
