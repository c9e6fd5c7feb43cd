// Single SMBus transactions: open the bus, set the slave, one I2C_SMBUS ioctl, close.
#include "drivers/i2c_smbus.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <cstdint>

#include "base/bounded.h"
#include "base/sys.h"
#include "tavo/tavo_export.h"

extern "C" {
char g_csumbusDevName[TAVO_SMBUS_BUS_COUNT][kSmbusDevNameSize] = {
    "/dev/i2c-0", "/dev/i2c-1", "/dev/i2c-2", "/dev/i2c-3", "/dev/i2c-4",  "/dev/i2c-5",
    "/dev/i2c-6", "/dev/i2c-7", "/dev/i2c-8", "/dev/i2c-9", "/dev/i2c-10", "/dev/i2c-11",
};
}

namespace {

// 33 = the MCU's count byte plus 32 payload bytes; a board driver may allow that much.
constexpr uint32_t kBlockReadKept = I2C_SMBUS_BLOCK_MAX + 1;

enum class AccessText { kCarriageReturn, kNewline };

// The steps shared by the six transactions. 0 or -1; failures logged for `function`.
int transaction(tavo::log::Site function, uint32_t bus_id, uint8_t slave, uint8_t read_write,
                uint8_t command, uint32_t size, i2c_smbus_data &data,
                AccessText text = AccessText::kCarriageReturn) {
    tavo::base::UniqueFd fd(I2cSmbusInit(bus_id));
    if (!fd) {
        return -1;
    }
    if (tavo::base::sys_ioctl(fd.get(), I2C_SLAVE,
                              reinterpret_cast<void *>(static_cast<uintptr_t>(slave))) < 0) {
        SMBUS_LOG_ERR_FOR(function, "set slave address failed:%x\r\n", slave);
        return -1;
    }
    if (I2cSmbusAccess(fd.get(), read_write, command, size, &data) != 0) {
        if (text == AccessText::kNewline) {
            SMBUS_LOG_ERR_FOR(function, "i2c smbus access failed:%x\n\r\n", slave);
        } else {
            SMBUS_LOG_ERR_FOR(function, "i2c smbus access failed:%x\r\n", slave);
        }
        return -1;
    }
    return 0;
}

}  // namespace

extern "C" {

TAVO_API int I2cSmbusInit(uint32_t bus_id) {
    if (bus_id >= TAVO_SMBUS_BUS_COUNT) {
        SMBUS_LOG_ERR("invalid id %d\r\n", bus_id);
        return -1;
    }
    int fd = tavo::base::sys_open(g_csumbusDevName[bus_id], O_RDWR).release();
    if (fd < 0) {
        SMBUS_LOG_ERR("Open %s dev error!\r\n", g_csumbusDevName[bus_id]);
    }
    return fd;
}

TAVO_API int I2cSmbusAccess(int fd, uint8_t read_write, uint8_t command, uint32_t size,
                            void *data) {
    i2c_smbus_ioctl_data request{read_write, command, size, static_cast<i2c_smbus_data *>(data)};
    return tavo::base::sys_ioctl(fd, I2C_SMBUS, &request) < 0 ? -1 : 0;
}

TAVO_API int I2cSmbusWriteByte(uint32_t bus_id, uint8_t slave, uint8_t command, uint8_t value) {
    i2c_smbus_data data{};
    data.byte = value;
    return transaction(__func__, bus_id, slave, I2C_SMBUS_WRITE, command, I2C_SMBUS_BYTE_DATA,
                       data);
}

TAVO_API int I2cSmbusReadByte(uint32_t bus_id, uint8_t slave, uint8_t command, uint8_t *value) {
    i2c_smbus_data data{};
    if (transaction(__func__, bus_id, slave, I2C_SMBUS_READ, command, I2C_SMBUS_BYTE_DATA, data) !=
        0) {
        return -1;
    }
    *value = data.byte;
    return 0;
}

TAVO_API int I2cSmbusWriteWord(uint32_t bus_id, uint8_t slave, uint8_t command, uint16_t value) {
    i2c_smbus_data data{};
    data.word = value;
    return transaction(__func__, bus_id, slave, I2C_SMBUS_WRITE, command, I2C_SMBUS_WORD_DATA, data,
                       AccessText::kNewline);
}

TAVO_API int I2cSmbusReadWord(uint32_t bus_id, uint8_t slave, uint8_t command, uint16_t *value) {
    i2c_smbus_data data{};
    if (transaction(__func__, bus_id, slave, I2C_SMBUS_READ, command, I2C_SMBUS_WORD_DATA, data) !=
        0) {
        return -1;
    }
    *value = data.word;
    return 0;
}

TAVO_API int I2cSmbusWriteBlock(uint32_t bus_id, uint8_t slave, uint8_t command, uint32_t length,
                                const uint8_t *data) {
    i2c_smbus_data block{};
    uint32_t count = std::min<uint32_t>(length, I2C_SMBUS_BLOCK_MAX);
    block.block[0] = static_cast<uint8_t>(count);
    if (count != 0 && memcpy_s(&block.block[1], sizeof block.block - 1, data, count) != 0) {
        return -1;
    }
    return transaction(__func__, bus_id, slave, I2C_SMBUS_WRITE, command, I2C_SMBUS_BLOCK_DATA,
                       block);
}

TAVO_API int I2cSmbusReadBlock(uint32_t bus_id, uint8_t slave, uint8_t command, uint32_t length,
                               uint8_t *output) {
    i2c_smbus_data block{};
    block.block[0] = static_cast<uint8_t>(length > kBlockReadKept ? I2C_SMBUS_BLOCK_MAX : length);
    if (transaction(__func__, bus_id, slave, I2C_SMBUS_READ, command, I2C_SMBUS_I2C_BLOCK_DATA,
                    block) != 0) {
        return -1;
    }
    // The union holds the count byte and at most 33 data bytes, whatever count comes back.
    uint32_t count = std::min<uint32_t>(block.block[0], kBlockReadKept);
    // The device's own first byte (block[1]) is not passed on.
    for (uint32_t i = 1; i < count; ++i) {
        output[i - 1] = block.block[i + 1];
    }
    return 0;
}

}  // extern "C"
