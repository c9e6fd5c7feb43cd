/*
 * driver_elable.h - the electronic label: 26 text items with a CRC each, kept in
 * the EEPROM at /dev/i2c-8 slave 0x50 from byte 128, cached in one process-wide
 * image and guarded between processes by a lock on /run/elabel_lock_flag.
 *
 * Results: 0 success; -1 failure; -4 no image; -6 bad argument, unknown item or
 * data too long; -8 lock not obtained (bus busy); 1 a bounded copy failed;
 * -8098 out of memory.
 */
#ifndef TAVO_DRIVER_ELABLE_H
#define TAVO_DRIVER_ELABLE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes the inter-process lock; `fd` receives the lock file's descriptor.
 * `passes` of 1000 give up after about one second. 0 locked, -1 not. */
int ElabelSetLock(int *fd, uint32_t passes);
/* Releases the lock and closes `fd`. 0, or -1 for a negative descriptor. */
int ElabelSetUnlock(int fd);

/* Reads the label from the EEPROM (done once, on first use). 0, -1 or -8. */
int DriverElabelInit(void);
/* Copies item `item`'s bytes (not terminated) to *dest, which must hold at least
 * length + 1 bytes (69 for all items but 0x64 and 0x50), and its length to
 * *length. */
int DriverElabelGetData(uint8_t item, uint8_t **dest, uint16_t *length);
/* Writes `count` bytes at `offset` within item `item` and writes the label back.
 * A write at offset 0 replaces the item. */
int DriverElabelSetData(uint8_t item, const uint8_t *source, uint16_t offset, uint8_t count);
/* Writes the in-memory label back to the EEPROM. */
int DriverElabelUpdate(void);
/* Empties every item and erases the EEPROM label area. */
int DriverElabelClear(void);

#ifdef __cplusplus
}
#endif

#endif
