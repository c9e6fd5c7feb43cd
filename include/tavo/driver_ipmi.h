/*
 * driver_ipmi.h - requests to the baseboard management controller (BMC) through
 * the Linux IPMI device (/dev/ipmi0 and its alternative names), and the OEM reset
 * of one accelerator chip ("mini") on a card.
 *
 * Results: 0 success; -11 no IPMI device opens; -13 the IPMI driver does not
 * answer the query of its own address (IPMICTL_GET_MY_ADDRESS_CMD); -24 the request
 * cannot be sent (IPMICTL_SEND_COMMAND); -26 the receive fails after the driver
 * changed the response length (a failed receive that leaves the length as given
 * counts as success with a response of the whole buffer); -27 the BMC answered
 * with a non-zero completion code. A request waits one second for its response.
 * Failures are logged to /var/log/quillmon_LOG_ERR.log.
 */
#ifndef TAVO_DRIVER_IPMI_H
#define TAVO_DRIVER_IPMI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the first IPMI device node that opens read-only; the descriptor, or -11. */
int DriverOpenIpmi(uint8_t number);
/* Closes `fd`; -1 for a descriptor below 1. */
int DriverCloseIpmi(int fd);
/* One request to the BMC: note that the command comes before the network function. */
int DriverIpmiCmd(uint8_t cmd, uint8_t netfn, uint8_t lun, const uint8_t *request,
                  uint32_t request_length, uint8_t *response, uint32_t response_size,
                  uint32_t *response_length);
/* Resets chip `mini` (counted from 0) of the card in PCIe slot `pcie_card`. */
int DriverIpmiResetMini(uint32_t pcie_card, uint32_t mini);
/* Reads the reset state of chip `mini` of the card in PCIe slot `pcie_card`. */
int DriverIpmiGetMini(uint32_t pcie_card, uint32_t mini, uint8_t *state);

#ifdef __cplusplus
}
#endif

#endif
