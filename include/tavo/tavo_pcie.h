/*
 * tavo_pcie.h - the PCIe slot map (physical slot of each card, from the SMBIOS slot
 * records of `dmidecode -t9`), the PCI device tree (from /sys/devices), PCIe
 * address texts and card lookups by PCIe address.
 *
 * An address text is "DDDD:BB:dd.f" (hexadecimal domain, bus, device, function);
 * at least 12 characters, bus at characters 5-6, device at 8-9.
 */
#ifndef TAVO_PCIE_H
#define TAVO_PCIE_H

#include <stdint.h>

#include "tavo/tavo_drv_api.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TAVO_PCIE_MAP_ENTRIES 64
#define TAVO_PCIE_LINE_LEN 512

typedef struct tavo_pcie_map_entry {
    uint32_t slot_id;
    /* "Bus Address: 0000:3b:00.0" and the rest of the line, with a line feed */
    char bus_address[TAVO_PCIE_LINE_LEN];
} tavo_pcie_map_entry;

typedef struct tavo_pcie_map {
    uint32_t count;
    tavo_pcie_map_entry entries[TAVO_PCIE_MAP_ENTRIES];
} tavo_pcie_map;

/* Appends the host's slot records to the slot map (which is never emptied; lookups
 * take the first match). 0 when the board is not a card, 1 without /dev/mem, -1 on
 * failure, else 0. */
int tavo_get_pcie_slot_info(void);
/* Where the card's PCIe text (each device's on board family 200) occurs in `entry`. */
const char *tavo_pcie_slot_map_cmp(const char *entry, const tavo_card_record *card);
/* Sets every card's PCIe slot from the slot map (TAVO_ABSENT when not found). Returns
 * -1 after doing so on a card, 0 when the board is not a card. */
int tavo_pcie_slot_map_init(void);
/* Writes the PCI device tree to `file`; 0, or -1 when the command fails or the path
 * does not fit the 511-character command line (then nothing runs). */
int tavo_save_pcie_info(const char *file);
/* From the first tree line containing `text`: the path part `up1` (and `up2`) levels
 * above the last one, into `out1` and `out2` (512 bytes each, zeroed by the caller:
 * the zero byte is written one position past the text, not right after it). */
int tavo_get_pcie_before_info(const char *file, const char *text, char *out1, char *out2,
                              uint32_t up1, uint32_t up2);
/* Number of tree lines with exactly two path separators after `text`. */
int tavo_find_board_pcie_num(const char *file, const char *text, uint32_t *count);
/* Sets every card's fault device count from the tree; always 0. */
int tavo_flush_pcie_device(const char *file);

/* The bus number of `text`. -1 for 11 characters or fewer; 0 otherwise (out stays 0
 * when the bus is not hexadecimal). */
int tavo_trans_pcie_bus_id(const char *text, uint32_t *out);
/* bus * 16 + device / 4 of `text`; -1 for 11 characters or fewer, else 0. */
int tavo_trans_pcie_bus_id_without_switch(const char *text, uint32_t *out);
/* Non-overlapping occurrences of `separator` in `text`; always 0. */
int tavo_get_same_split_num_from_str(const char *text, const char *separator, uint32_t *count);
/* Index of the card whose PCIe bus text equals `pcie`, else -1; always 0. */
int tavo_find_card_id_with_pcie(int32_t *index, const char *pcie);
/* Index of the card whose card id equals `card_id`, else -1; always 0. */
int tavo_find_card_id_with_bus_id(int32_t *index, uint32_t card_id);

#ifdef __cplusplus
}
#endif

#endif
