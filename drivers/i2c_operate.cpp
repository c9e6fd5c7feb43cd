// Combined transfers, paged EEPROM access and the expander read on /dev/i2c-N.
#include "drivers/i2c_operate.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "base/bounded.h"
#include "base/sys.h"
#include "tavo/driver_i2c.h"
#include "tavo/tavo_export.h"

extern "C" {
int g_fd = 0;
}

namespace {

constexpr int kAttempts = 3;
// After every I2C_RDWR, also the EEPROM's internal write cycle after a write.
constexpr useconds_t kTransferPauseUs = 5000;
// Back-off after failed attempt n (1-based): n * 0.5 s.
constexpr useconds_t kBackOffStepUs = 500000;
constexpr useconds_t kSettleUs = 100000;

// The highest EEPROM byte address a read may end at (exclusive of the terminal 65535).
constexpr int64_t kEepromReadEnd = 65534;
constexpr uint32_t kReadChunk = 64;
constexpr std::size_t kReceiveArea = 128;
constexpr std::size_t kAddressArea = 3;
constexpr uint32_t kPage = 16;
// Staging buffer: 2 address bytes (high, low) + data.
constexpr std::size_t kStagedData = 78;

// The open bus as a descriptor owner, so that closing it goes through UniqueFd.
void close_bus() {
    tavo::base::UniqueFd owner(g_fd);
}

// I2C_RDWR with up to three attempts, 5 ms after each and 0.5 s / 1 s back-off between
// them. The ioctl's result; the final failure is logged for `function`.
int transfer_with_retries(i2c_msg *messages, uint32_t count, tavo::log::Site function) {
    i2c_rdwr_ioctl_data request{messages, count};
    int result = -1;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        result = tavo::base::sys_ioctl(g_fd, I2C_RDWR, &request);
        usleep(kTransferPauseUs);
        if (result >= 0) {
            return result;
        }
        if (attempt < kAttempts) {
            usleep(static_cast<useconds_t>(attempt) * kBackOffStepUs);
        }
    }
    I2C_LOG_ERR_FOR(function, "DriverI2cRead: ioctl error\n\r\n");
    return result;
}

// One page piece written and read back, up to three tries. `page_remainder`: more data
// follows this piece. True once the read-back matches; `written` is the last write's
// result.
bool write_verified(uint8_t slave, uint8_t *staging, uint32_t piece, bool page_remainder,
                    int &written) {
    uint8_t readback[kStagedData] = {};
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        written = DriverI2cWrite(slave, staging, static_cast<int32_t>(piece + 2));
        if (written >= 0) {
            (void)DriverI2cRead(slave, staging, 2, readback, static_cast<int32_t>(piece));
            if (std::memcmp(readback, staging + 2, piece) == 0) {
                return true;
            }
        }
        if (page_remainder) {
            I2C_LOG_ERR_FOR("DriverI2cEepWrite", "write and read not same,%d\r\n\r\n", attempt);
        } else {
            I2C_LOG_ERR_FOR("DriverI2cEepWrite", "\r\nwrite and read not same.iret = %d\r\n\r\n",
                            written);
        }
    }
    return false;
}

}  // namespace

namespace tavo::drivers {

int refuse_verified_piece(const VerifiedPiece &piece) {
    constexpr const char *kFunction = "DriverI2cEepWrite";
    if (piece.page_remainder) {
        I2C_LOG_ERR_FOR(kFunction,
                        "write i2c failed(%x). remain_size > write_size_max, slv=0x%x\r\n\r\n",
                        static_cast<unsigned>(piece.written), unsigned{piece.slave});
    } else {
        I2C_LOG_ERR_FOR(kFunction,
                        "write i2c failed remain_size(%d) <= write_size_max(%d), slv=0x%x\r\n\r\n",
                        static_cast<int>(piece.remaining), static_cast<int>(piece.size_max),
                        unsigned{piece.slave});
    }
    // The bytes as text, cut at the piece's end.
    char text[kStagedData + 1] = {};
    if (int rc = memcpy_s(text, kStagedData, piece.data, piece.size); rc != 0) {
        I2C_LOG_ERR_FOR(kFunction, "call memcpy_s failed.%d\r\n", rc);
        return -1;
    }
    I2C_LOG_ERR_FOR(kFunction, "offset=0x%lx, wlen=0x%x, ibuffer=%s\r\n",
                    static_cast<unsigned long>(piece.address), piece.size, text);
    return -1;
}

}  // namespace tavo::drivers

extern "C" {

TAVO_API int DriverI2cInit(const char *device_path) {
    g_fd = tavo::base::sys_open(device_path, O_RDWR).release();
    if (g_fd < 0) {
        I2C_LOG_ERR("Failed toopen %s.\n\r\n", device_path != nullptr ? device_path : "(null)");
        return -1;
    }
    int result = tavo::base::sys_ioctl(g_fd, I2C_RETRIES, reinterpret_cast<void *>(uintptr_t{1}));
    if (result < 0) {
        I2C_LOG_ERR("Failed to set i2c retry.\n\r\n");
        return result;
    }
    // One kernel unit: 10 ms.
    result = tavo::base::sys_ioctl(g_fd, I2C_TIMEOUT, reinterpret_cast<void *>(uintptr_t{1}));
    if (result < 0) {
        I2C_LOG_ERR("Failed to set i2c timeout.\n\r\n");
        return result;
    }
    return 0;
}

TAVO_API int DriverI2cRead(uint8_t slave, uint8_t *send, int32_t send_length, uint8_t *receive,
                           int32_t receive_length) {
    if (receive == nullptr) {
        I2C_LOG_ERR("the obuffer paramter is invalid!!!\n\r\n");
        return -1;
    }
    if (send == nullptr) {
        I2C_LOG_ERR("the ibuffer paramter is invalid!!!\n\r\n");
        return -1;
    }
    if (send_length < 0) {
        I2C_LOG_ERR("tx_len is a invalid argument \r\n\r\n");
        return -1;
    }
    if (receive_length < 0) {
        I2C_LOG_ERR("rx_len is a invalid argument \r\n\r\n");
        return -1;
    }
    i2c_msg messages[2] = {
        {slave, 0, static_cast<uint16_t>(send_length), send},
        {slave, I2C_M_RD, static_cast<uint16_t>(receive_length), receive},
    };
    int result = transfer_with_retries(messages, 2, __func__);
    return result < 0 ? result : receive_length;
}

TAVO_API int DriverI2cWrite(uint8_t slave, uint8_t *buffer, int32_t length) {
    if (buffer == nullptr) {
        I2C_LOG_ERR("ibuffer is empty!!!\n\r\n");
        return -1;
    }
    if (length < 0) {
        I2C_LOG_ERR("len is a invalid argument \r\n\r\n");
        return -1;
    }
    i2c_msg message{slave, 0, static_cast<uint16_t>(length), buffer};
    int result = transfer_with_retries(&message, 1, __func__);
    return result < 0 ? result : length;
}

TAVO_API int DriverI2cEepRead(uint8_t slave, uint64_t offset, uint8_t *output, uint32_t length) {
    if (output == nullptr) {
        I2C_LOG_ERR("the obuffer paramter is invalid!!!\n\r\n");
        return -1;
    }
    // The length is taken as signed, as it always has been.
    if (static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(length))) + offset >
        static_cast<uint64_t>(kEepromReadEnd)) {
        I2C_LOG_ERR("offset invalid.(%lx,%x)\r\n\r\n", offset, length);
        return -1;
    }
    uint8_t receive[kReceiveArea];
    uint8_t address[kAddressArea];
    uint32_t remaining = length;
    uint32_t chunk = kReadChunk;
    uint32_t done = 0;
    int result = 0;
    while (remaining != 0) {
        if (remaining < kReadChunk) {
            chunk = remaining;
        }
        uint64_t at = offset + done;
        if (int rc = memset_s(receive, sizeof receive, 0, sizeof receive); rc != 0) {
            I2C_LOG_ERR("call memset_s failed.%d\r\n", rc);
        }
        if (int rc = memset_s(address, sizeof address, 0, sizeof address); rc != 0) {
            I2C_LOG_ERR("call memset_s failed.%d\r\n", rc);
        }
        address[0] = static_cast<uint8_t>(at >> 8);
        address[1] = static_cast<uint8_t>(at);
        result = DriverI2cRead(slave, address, 2, receive, static_cast<int32_t>(chunk));
        if (result < 0) {
            I2C_LOG_ERR("read i2c failed(%x),code(%x).\r\n\r\n", slave, result);
            return -1;
        }
        if (int rc = memcpy_s(output + done, length - done, receive, chunk); rc != 0) {
            I2C_LOG_ERR("call memcpy_s failed.%d\r\n", rc);
            return -1;
        }
        done += chunk;
        remaining -= chunk;
    }
    return result;
}

TAVO_API int DriverI2cEepWrite(uint8_t slave, uint64_t offset, uint8_t *input, uint32_t length) {
    if (input == nullptr) {
        I2C_LOG_ERR("parameter ibuffer invalid.\r\n\r\n");
        return -1;
    }
    uint8_t staging[2 + kStagedData];
    uint32_t piece = kPage - static_cast<uint32_t>(offset % kPage);
    uint64_t address = offset;
    uint32_t done = 0;
    uint32_t remaining = length;
    while (remaining >= 1) {
        bool page_remainder = remaining > piece;
        uint32_t size = page_remainder ? piece : remaining;
        staging[0] = static_cast<uint8_t>(address >> 8);
        staging[1] = static_cast<uint8_t>(address);
        if (int rc = memcpy_s(staging + 2, kStagedData, input + done, size); rc != 0) {
            I2C_LOG_ERR("call memcpy_s failed.%d\r\n", rc);
            return -1;
        }
        int written = -1;
        if (!write_verified(slave, staging, size, page_remainder, written)) {
            return -1;
        }
        if (written < 0) {
            return tavo::drivers::refuse_verified_piece(
                {slave, written, address, staging + 2, size, remaining, piece, page_remainder});
        }
        address += size;
        done += size;
        remaining -= size;
        piece = kPage;
    }
    return 0;
}

TAVO_API int DriverI2cGetData(const char *device_path, uint8_t slave, uint64_t offset,
                              uint8_t *output, uint32_t length) {
    if (int rc = DriverI2cInit(device_path); rc != 0) {
        I2C_LOG_ERR("Failed to init i2c.%d\n\r\n", rc);
        close_bus();
        return rc;
    }
    usleep(kSettleUs);
    int result = DriverI2cEepRead(slave, offset, output, length);
    if (result < 0) {
        I2C_LOG_ERR("call DriverI2cEepRead failed!.%d \n\r\n", result);
    }
    close_bus();
    g_fd = 0;
    return result;
}

TAVO_API int DriverI2cSetData(const char *device_path, uint8_t slave, uint64_t offset,
                              uint8_t *input, uint32_t length) {
    if (int rc = DriverI2cInit(device_path); rc != 0) {
        I2C_LOG_ERR("Failed to init i2c.%d\n\r\n", rc);
        close_bus();
        return rc;
    }
    usleep(kSettleUs);
    int result = DriverI2cEepWrite(slave, offset, input, length);
    if (result < 0) {
        I2C_LOG_ERR("call DriverI2cEepWrite failed!. %d\n\r\n", result);
    }
    close_bus();
    g_fd = 0;
    return result;
}

TAVO_API int DriverI2cPlainRead(const char *device_path, uint8_t slave, uint8_t *send,
                                int32_t send_length, uint8_t *receive, int32_t receive_length) {
    if (int rc = DriverI2cInit(device_path); rc != 0) {
        I2C_LOG_ERR("Failed to init i2c.%d\n\r\n", rc);
        close_bus();
        return rc;
    }
    usleep(kSettleUs);
    int result = DriverI2cRead(slave, send, send_length, receive, receive_length);
    if (result < 0) {
        I2C_LOG_ERR("call DriverI2cRead failed!.%d \n\r\n", result);
    }
    close_bus();
    g_fd = 0;
    return result;
}

TAVO_API int DriverI2cGetData9555(const char *device_path, uint8_t slave, uint8_t reg,
                                  uint8_t *output, int32_t length) {
    int result = DriverI2cInit(device_path);
    if (result != 0) {
        I2C_LOG_ERR("Failed to init i2c.\n\r\n");
    } else {
        usleep(kSettleUs);
        result = DriverI2cRead(slave, &reg, 1, output, length);
        if (result < 0) {
            I2C_LOG_ERR("read error!\n\r\n");
        }
    }
    close_bus();
    g_fd = -1;
    return result;
}

TAVO_API int I2cReadDataBoardId(uint8_t slave, uint8_t *output, uint32_t length) {
    return DriverI2cGetData("/dev/i2c-0", slave, 0, output, length);
}

}  // extern "C"
