/*
 * driver_i2c.h - raw access to devices on a Linux I2C bus (/dev/i2c-N):
 * combined write-then-read transfers, plain writes, a paged and read-back
 * verified 16-bit-addressed EEPROM, a PCA9555 expander register read and the
 * board-identity EEPROM on bus 0.
 *
 * Slave addresses are 7-bit addresses in 8-bit values. Failures are written to
 * /var/log/quillmon_LOG_ERR.log. One process-wide bus descriptor is used: callers
 * serialise.
 */
#ifndef TAVO_DRIVER_I2C_H
#define TAVO_DRIVER_I2C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opens `device_path` read-write and sets one retry and a 10 ms time-out.
 * 0; -1 when the open fails; the ioctl's negative result when a setting fails. */
int DriverI2cInit(const char *device_path);
/* Writes `send_length` bytes then reads `receive_length` bytes in one combined
 * transfer on the open bus (3 attempts). The receive length, the negative ioctl
 * result, or -1 for bad arguments. */
int DriverI2cRead(uint8_t slave, uint8_t *send, int32_t send_length, uint8_t *receive,
                  int32_t receive_length);
/* Writes `length` bytes on the open bus (3 attempts). The length, the negative
 * ioctl result, or -1 for bad arguments. */
int DriverI2cWrite(uint8_t slave, uint8_t *buffer, int32_t length);
/* Reads `length` bytes at `offset` of a 16-bit-addressed EEPROM on the open bus,
 * in 64-byte chunks; offset + length must not exceed 65534. The last chunk's byte
 * count, or -1. */
int DriverI2cEepRead(uint8_t slave, uint64_t offset, uint8_t *output, uint32_t length);
/* Writes `length` bytes at `offset` in 16-byte pages, each read back and compared.
 * 0 or -1. */
int DriverI2cEepWrite(uint8_t slave, uint64_t offset, uint8_t *input, uint32_t length);

/* One-shot operations: open the bus, settle 100 ms, one operation, close. */
int DriverI2cGetData(const char *device_path, uint8_t slave, uint64_t offset, uint8_t *output,
                     uint32_t length);
int DriverI2cSetData(const char *device_path, uint8_t slave, uint64_t offset, uint8_t *input,
                     uint32_t length);
int DriverI2cPlainRead(const char *device_path, uint8_t slave, uint8_t *send, int32_t send_length,
                       uint8_t *receive, int32_t receive_length);
/* Reads `length` bytes from register `reg` of a PCA9555 expander. */
int DriverI2cGetData9555(const char *device_path, uint8_t slave, uint8_t reg, uint8_t *output,
                         int32_t length);
/* Reads the board-identity EEPROM on /dev/i2c-0 from offset 0. */
int I2cReadDataBoardId(uint8_t slave, uint8_t *output, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
