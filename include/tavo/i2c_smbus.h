/*
 * i2c_smbus.h - single SMBus transactions on /dev/i2c-0 .. /dev/i2c-11. Each
 * call opens the bus, sets the slave, runs one transaction and closes.
 * All return 0 on success and -1 on failure (logged to
 * /var/log/quillmon_LOG_ERR.log) unless said otherwise.
 */
#ifndef TAVO_I2C_SMBUS_H
#define TAVO_I2C_SMBUS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TAVO_SMBUS_BUS_COUNT 12

/* Opens the bus read-write; the descriptor, negative on failure. */
int I2cSmbusInit(uint32_t bus_id);
/* One I2C_SMBUS ioctl; `data` points at the kernel's 34-byte data union
 * (union i2c_smbus_data). 0, or -1 when it fails. */
int I2cSmbusAccess(int fd, uint8_t read_write, uint8_t command, uint32_t size, void *data);
int I2cSmbusWriteByte(uint32_t bus_id, uint8_t slave, uint8_t command, uint8_t value);
int I2cSmbusReadByte(uint32_t bus_id, uint8_t slave, uint8_t command, uint8_t *value);
int I2cSmbusWriteWord(uint32_t bus_id, uint8_t slave, uint8_t command, uint16_t value);
int I2cSmbusReadWord(uint32_t bus_id, uint8_t slave, uint8_t command, uint16_t *value);
/* SMBus block write of at most 32 bytes (a longer length is clamped to 32). */
int I2cSmbusWriteBlock(uint32_t bus_id, uint8_t slave, uint8_t command, uint32_t length,
                       const uint8_t *data);
/* I2C block read of `length` bytes (33 kept, above 33 becomes 32); the first
 * byte received (the device's count byte) is dropped, so `output` receives
 * length - 1 bytes. */
int I2cSmbusReadBlock(uint32_t bus_id, uint8_t slave, uint8_t command, uint32_t length,
                      uint8_t *output);

#ifdef __cplusplus
}
#endif

#endif
