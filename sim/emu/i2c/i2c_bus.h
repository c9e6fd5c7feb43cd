// One emulated I2C adapter: the devices on it, its transcript and the faults it plays.
//
// Transfers arrive from the ioctl handler (i2c_node.h) on umockdev's worker thread while a
// test reads the transcript on its own thread; one lock per bus serialises both.
#pragma once

#include "i2c_device.h"

#include <linux/i2c.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace tavo::emu::i2c {

// Errors a transfer ends with, as negative errno values in the handler's reply.
//   ENXIO     a device did not acknowledge its address (or no device has it);
//   EREMOTEIO a device did not acknowledge a data byte;
//   EIO       bus error (a fault played on demand);
//   EINVAL    a request the kernel's i2c-dev refuses (lengths, sizes, flags);
//   EPROTO    an SMBus block read whose count byte is not 1..32.

struct I2cMessageRecord {
    uint16_t address = 0;
    uint16_t flags = 0;  // I2C_M_RD and the other I2C_M_* flags as requested
    uint16_t length = 0;
    // Write: the bytes sent. Read: the bytes the device returned (empty when the transfer
    // failed before this message).
    std::vector<uint8_t> data;

    bool operator==(const I2cMessageRecord &) const = default;
};

enum class TransferKind { kRdwr, kSmbus };

struct I2cTransferRecord {
    TransferKind kind = TransferKind::kRdwr;
    // I2C_SMBUS only: the request's read_write flag, command and size code.
    uint8_t read_write = 0;
    uint8_t command = 0;
    uint32_t size = 0;
    // The I2C messages of the transfer; for I2C_SMBUS the messages the kernel would emulate
    // it with. Empty for a request refused before any message.
    std::vector<I2cMessageRecord> messages;
    int error = 0;  // errno the transfer failed with, 0 on success
};

// One message of a transfer in progress. `buffer` is the caller's data: read from it for a
// write, filled for a read.
struct I2cMessage {
    uint16_t address;
    uint16_t flags;
    std::span<uint8_t> buffer;
};

class I2cBus {
  public:
    // The largest I2C-block read (I2C_SMBUS_I2C_BLOCK_DATA) an unmodified kernel accepts.
    static constexpr int kDefaultBlockReadMax = I2C_SMBUS_BLOCK_MAX;
    static constexpr int kLargestBlockReadMax = I2C_SMBUS_BLOCK_MAX + 1;
    // What I2C_FUNCS reports: plain I2C and every SMBus transaction the kernel emulates with
    // it, block reads included. No PEC, no 10-bit addresses.
    static constexpr unsigned long kFunctionality =
        I2C_FUNC_I2C | (I2C_FUNC_SMBUS_EMUL & ~I2C_FUNC_SMBUS_PEC) | I2C_FUNC_SMBUS_READ_BLOCK_DATA;

    explicit I2cBus(int number) : number_(number) {}

    int number() const { return number_; }

    // Puts `device` at the 7-bit `address`, replacing any device there.
    I2cDevice &attach(uint8_t address, std::unique_ptr<I2cDevice> device);
    // nullptr when no device has the address.
    I2cDevice *device(uint8_t address);

    std::vector<I2cTransferRecord> transcript() const;
    void clear_transcript();
    // Called, under the bus lock, with each transfer as it is recorded.
    void set_transcript_sink(std::function<void(const I2cTransferRecord &)> sink);

    // The next `count` transfers that address `address` fail with ENXIO there, whether or not
    // a device has it.
    void nak_next(uint8_t address, int count);
    // The next `count` transfers of the bus fail with EIO and reach no device.
    void fail_next(int count);
    // Largest I2C-block read length accepted (default 32, as the kernel; a board driver may
    // allow 33). Clamped to 0..33, what the kernel's data union can carry.
    void set_block_read_max(int length);
    int block_read_max() const;

    // Adapter settings from I2C_RETRIES and I2C_TIMEOUT (10 ms units); 0 until set.
    void set_retries(unsigned long retries);
    void set_timeout(unsigned long timeout);
    unsigned long retries() const;
    unsigned long timeout() const;

    // I2C_RDWR: runs the messages as one transfer. 0 or a negative errno.
    int transfer(std::span<const I2cMessage> messages);
    // I2C_SMBUS to `address`, emulated with I2C messages as the kernel does for an adapter
    // without native SMBus. 0 or a negative errno; `data` is updated for reads.
    int smbus(uint16_t address, uint8_t read_write, uint8_t command, uint32_t size,
              i2c_smbus_data *data);

  private:
    int run_locked(std::span<const I2cMessage> messages, std::vector<I2cMessageRecord> &records);
    int run_message(const I2cMessage &message, I2cMessageRecord &record);
    void record_locked(I2cTransferRecord record);

    const int number_;
    mutable std::mutex mutex_;
    std::map<uint8_t, std::unique_ptr<I2cDevice>> devices_;
    std::vector<I2cTransferRecord> transcript_;
    std::function<void(const I2cTransferRecord &)> sink_;
    std::map<uint8_t, int> nak_next_;
    int fail_next_ = 0;
    int block_read_max_ = kDefaultBlockReadMax;
    unsigned long retries_ = 0;
    unsigned long timeout_ = 0;
};

}  // namespace tavo::emu::i2c
