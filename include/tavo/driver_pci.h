/*
 * driver_pci.h - writes to a PCI function's configuration space through
 * /proc/bus/pci.
 *
 * Results: 0 success; -904 null argument; -908 the function's configuration file
 * does not open; -909 the write failed; -910 the write was short.
 */
#ifndef TAVO_DRIVER_PCI_H
#define TAVO_DRIVER_PCI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the configuration file of bus/devfn below `base` ("/proc/bus/pci"), first
 * in the short form ("03/00.0"), then with domain 0 ("0000:03/00.0"). On success
 * returns the character count of the last path formatted; -904, -908. */
int PcidrDevOpen(const char *base, uint8_t bus, uint8_t devfn, int32_t flags);
void PcidrDevClose(int fd);
/* Writes `count` bytes at configuration offset `offset`. */
int PcidrDevWrite(uint8_t bus, uint8_t devfn, const uint8_t *bytes, uint32_t count,
                  uint32_t offset);
/* Parses "0000:3b:00.0" or "3b:00.0" into bus and devfn; leaves them untouched when
 * the text does not parse. */
void PciTransParam(const char *bus_id, uint8_t *bus, uint8_t *devfn);
/* Writes one byte at `offset` of the function named by `bus_id`. */
int PcidrWriteConfByte(const char *bus_id, uint32_t offset, uint8_t value);

#ifdef __cplusplus
}
#endif

#endif
