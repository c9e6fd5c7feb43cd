/*
 * tavo_control.h - operations that change a device: reset, the two halves of a
 * PCIe hot reset, peer-to-peer, remote shell (SSH) and ECC switches, user
 * configuration items, the MCU's boot area, and reading the electronic label.
 *
 * Routers (..._api) take the card id and device id and hand the request to the
 * back end of the device type, returning its status; a type that is not served
 * answers -1 ("device_type is error"). Chip functions return 0 or -1 except the
 * reset, which returns the failing step's own code.
 */
#ifndef TAVO_TAVO_CONTROL_H
#define TAVO_TAVO_CONTROL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Routers ---- */
int tavo_reset_device_api(uint32_t card_id, uint32_t device_id);
int tavo_set_p2p_enable_api(uint32_t card_id, uint32_t device_id, uint32_t enable);
int tavo_get_p2p_enable_api(uint32_t card_id, uint32_t device_id, uint32_t *enable);
int tavo_set_ssh_enable_api(uint32_t card_id, uint32_t device_id, uint32_t enable);
int tavo_config_ecc_enable_api(uint32_t card_id, uint32_t device_id, uint32_t enable);
/* Writes an audit trail of the request to /var/log/quillmon_LOG_OP.log first. */
int tavo_set_user_config_api(uint32_t card_id, uint32_t device_id, const char *name,
                             uint32_t size, const unsigned char *content);
int tavo_get_elable_api(uint32_t card_id, uint32_t device_id, uint32_t item, uint8_t *buffer,
                        uint16_t *length);
int tavo_get_boot_area_api(uint32_t card_id, uint32_t device_id, uint32_t *area);
int tavo_switch_boot_area_api(uint32_t card_id, uint32_t device_id);

/* ---- Chip operations ---- */
/* Resets the chip through the BMC (PCIe slot of the card, chip index = device id);
 * resets once more when the BMC reports the chip still in reset. */
int tavo_reset_device(uint32_t card_id, uint32_t device_id);
/* First half of a PCIe hot reset: wait 1 s, then hold the chip's link in reset.
 * Device ids of 8 or more are refused. */
int tavo_pre_reset_soc(uint32_t card_id, uint32_t device_id);
/* Second half: release the link, then wait 1 s. */
int tavo_rescan_soc(uint32_t card_id, uint32_t device_id);
/* These are accepted on a chip and change or report nothing: the chip's
 * peer-to-peer, ECC, boot-status and label handling lie outside this library. */
int tavo_config_p2p_enable(uint32_t card_id, uint32_t device_id);
int tavo_get_p2p_enable(uint32_t card_id, uint32_t device_id);
int tavo_config_ecc_enable(uint32_t card_id, uint32_t device_id);
int tavo_get_device_boot_status(uint32_t card_id, uint32_t device_id);
int tavo_get_elable(uint32_t card_id, uint32_t device_id);
/* The chip's "ssh_status" user configuration item. */
int tavo_config_ssh_enable(uint32_t card_id, uint32_t device_id, uint32_t enable);
int tavo_get_ssh_enable(uint32_t card_id, uint32_t device_id, uint32_t *enable);
int tavo_set_user_config(uint32_t card_id, uint32_t device_id, const char *name, uint32_t size,
                         const unsigned char *content);

#ifdef __cplusplus
}
#endif

#endif
