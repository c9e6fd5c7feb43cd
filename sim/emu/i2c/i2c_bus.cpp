#include "i2c_bus.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace tavo::emu::i2c {

I2cDevice &I2cBus::attach(uint8_t address, std::unique_ptr<I2cDevice> device) {
    std::lock_guard lock(mutex_);
    I2cDevice &ref = *device;
    devices_[address] = std::move(device);
    return ref;
}

I2cDevice *I2cBus::device(uint8_t address) {
    std::lock_guard lock(mutex_);
    auto it = devices_.find(address);
    return it == devices_.end() ? nullptr : it->second.get();
}

std::vector<I2cTransferRecord> I2cBus::transcript() const {
    std::lock_guard lock(mutex_);
    return transcript_;
}

void I2cBus::clear_transcript() {
    std::lock_guard lock(mutex_);
    transcript_.clear();
}

void I2cBus::set_transcript_sink(std::function<void(const I2cTransferRecord &)> sink) {
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
}

void I2cBus::nak_next(uint8_t address, int count) {
    std::lock_guard lock(mutex_);
    nak_next_[address] = std::max(count, 0);
}

void I2cBus::fail_next(int count) {
    std::lock_guard lock(mutex_);
    fail_next_ = std::max(count, 0);
}

void I2cBus::set_block_read_max(int length) {
    std::lock_guard lock(mutex_);
    block_read_max_ = std::clamp(length, 0, kLargestBlockReadMax);
}

int I2cBus::block_read_max() const {
    std::lock_guard lock(mutex_);
    return block_read_max_;
}

void I2cBus::set_retries(unsigned long retries) {
    std::lock_guard lock(mutex_);
    retries_ = retries;
}

void I2cBus::set_timeout(unsigned long timeout) {
    std::lock_guard lock(mutex_);
    timeout_ = timeout;
}

unsigned long I2cBus::retries() const {
    std::lock_guard lock(mutex_);
    return retries_;
}

unsigned long I2cBus::timeout() const {
    std::lock_guard lock(mutex_);
    return timeout_;
}

int I2cBus::transfer(std::span<const I2cMessage> messages) {
    std::lock_guard lock(mutex_);
    I2cTransferRecord record;
    record.kind = TransferKind::kRdwr;
    record.error = run_locked(messages, record.messages);
    int error = record.error;
    record_locked(std::move(record));
    return -error;
}

// Runs one message against `device`'s side of the bus. 0 or a positive errno.
int I2cBus::run_message(const I2cMessage &message, I2cMessageRecord &record) {
    bool read = (message.flags & I2C_M_RD) != 0;
    auto nak = nak_next_.find(static_cast<uint8_t>(message.address));
    if (nak != nak_next_.end() && nak->second > 0) {
        --nak->second;
        return ENXIO;
    }
    auto it = devices_.find(static_cast<uint8_t>(message.address));
    if (it == devices_.end() || !it->second->select(read)) {
        return ENXIO;
    }
    I2cDevice &device = *it->second;
    if (!read) {
        return device.write(message.buffer) ? 0 : EREMOTEIO;
    }
    std::span<uint8_t> buffer = message.buffer;
    if ((message.flags & I2C_M_RECV_LEN) != 0) {
        // The first byte read is the count of the bytes that follow.
        device.read(buffer.first(1));
        if (buffer[0] == 0 || buffer[0] > I2C_SMBUS_BLOCK_MAX || buffer[0] >= buffer.size()) {
            record.data.assign(buffer.begin(), buffer.begin() + 1);
            return EPROTO;
        }
        buffer = buffer.first(std::size_t{buffer[0]} + 1);
        device.read(buffer.subspan(1));
        record.length = static_cast<uint16_t>(buffer.size());
    } else {
        device.read(buffer);
    }
    record.data.assign(buffer.begin(), buffer.end());
    return 0;
}

int I2cBus::run_locked(std::span<const I2cMessage> messages,
                       std::vector<I2cMessageRecord> &records) {
    for (const I2cMessage &message : messages) {
        I2cMessageRecord record{
            message.address, message.flags, static_cast<uint16_t>(message.buffer.size()), {}};
        if ((message.flags & I2C_M_RD) == 0) {
            record.data.assign(message.buffer.begin(), message.buffer.end());
        }
        records.push_back(std::move(record));
    }
    if (fail_next_ > 0) {
        --fail_next_;
        return EIO;
    }
    std::vector<I2cDevice *> addressed;
    int error = 0;
    for (std::size_t i = 0; i < messages.size() && error == 0; ++i) {
        auto it = devices_.find(static_cast<uint8_t>(messages[i].address));
        if (it != devices_.end() &&
            std::find(addressed.begin(), addressed.end(), it->second.get()) == addressed.end()) {
            addressed.push_back(it->second.get());
        }
        error = run_message(messages[i], records[i]);
    }
    for (I2cDevice *device : addressed) {
        device->stop();
    }
    return error;
}

void I2cBus::record_locked(I2cTransferRecord record) {
    if (sink_) {
        sink_(record);
    }
    transcript_.push_back(std::move(record));
}

namespace {

// The I2C messages the kernel emulates an SMBus transaction with (i2c_smbus_xfer_emulated).
struct SmbusMessages {
    std::array<uint8_t, I2C_SMBUS_BLOCK_MAX + 3> out{};
    std::array<uint8_t, I2C_SMBUS_BLOCK_MAX + 3> in{};
    std::vector<I2cMessage> messages;
};

// 0, or the errno the kernel refuses the request with.
int build_smbus(uint16_t address, uint8_t read_write, uint8_t command, uint32_t size,
                const i2c_smbus_data *data, int block_read_max, SmbusMessages &m) {
    const bool read = read_write == I2C_SMBUS_READ;
    auto write_message = [&](std::size_t length) {
        m.messages.push_back({address, 0, std::span(m.out).first(length)});
    };
    auto read_message = [&](std::size_t length, uint16_t flags = 0) {
        m.messages.push_back(
            {address, static_cast<uint16_t>(I2C_M_RD | flags), std::span(m.in).first(length)});
    };
    m.out[0] = command;
    switch (size) {
        case I2C_SMBUS_QUICK:
            m.messages.push_back(
                {address, static_cast<uint16_t>(read ? I2C_M_RD : 0), std::span<uint8_t>()});
            return 0;
        case I2C_SMBUS_BYTE:
            if (read) {
                read_message(1);
            } else {
                write_message(1);
            }
            return 0;
        case I2C_SMBUS_BYTE_DATA:
            if (read) {
                write_message(1);
                read_message(1);
            } else {
                m.out[1] = data->byte;
                write_message(2);
            }
            return 0;
        case I2C_SMBUS_WORD_DATA:
        case I2C_SMBUS_PROC_CALL:
            if (read && size == I2C_SMBUS_WORD_DATA) {
                write_message(1);
                read_message(2);
                return 0;
            }
            m.out[1] = static_cast<uint8_t>(data->word & 0xFF);
            m.out[2] = static_cast<uint8_t>(data->word >> 8);
            write_message(3);
            if (size == I2C_SMBUS_PROC_CALL) {
                read_message(2);
            }
            return 0;
        case I2C_SMBUS_BLOCK_DATA:
            if (read) {
                write_message(1);
                read_message(I2C_SMBUS_BLOCK_MAX + 1, I2C_M_RECV_LEN);
                return 0;
            }
            if (data->block[0] > I2C_SMBUS_BLOCK_MAX) {
                return EINVAL;
            }
            std::copy_n(data->block, data->block[0] + 1, m.out.begin() + 1);
            write_message(std::size_t{data->block[0]} + 2);
            return 0;
        case I2C_SMBUS_I2C_BLOCK_DATA:
            if (read) {
                if (data->block[0] > block_read_max) {
                    return EINVAL;
                }
                write_message(1);
                read_message(data->block[0]);
                return 0;
            }
            if (data->block[0] > I2C_SMBUS_BLOCK_MAX) {
                return EINVAL;
            }
            std::copy_n(data->block + 1, data->block[0], m.out.begin() + 1);
            write_message(std::size_t{data->block[0]} + 1);
            return 0;
        default:
            return EOPNOTSUPP;
    }
}

void store_smbus_result(uint32_t size, const SmbusMessages &m, i2c_smbus_data *data) {
    switch (size) {
        case I2C_SMBUS_BYTE:
            data->byte = m.in[0];
            break;
        case I2C_SMBUS_BYTE_DATA:
            data->byte = m.in[0];
            break;
        case I2C_SMBUS_WORD_DATA:
        case I2C_SMBUS_PROC_CALL:
            data->word = static_cast<uint16_t>(m.in[0] | (m.in[1] << 8));
            break;
        case I2C_SMBUS_BLOCK_DATA:
            std::copy_n(m.in.begin(), m.in[0] + 1, data->block);
            break;
        case I2C_SMBUS_I2C_BLOCK_DATA:
            std::copy_n(m.in.begin(), data->block[0], data->block + 1);
            break;
        default:
            break;
    }
}

}  // namespace

int I2cBus::smbus(uint16_t address, uint8_t read_write, uint8_t command, uint32_t size,
                  i2c_smbus_data *data) {
    std::lock_guard lock(mutex_);
    I2cTransferRecord record;
    record.kind = TransferKind::kSmbus;
    record.read_write = read_write;
    record.command = command;
    record.size = size;
    SmbusMessages m;
    record.error = build_smbus(address, read_write, command, size, data, block_read_max_, m);
    if (record.error == 0) {
        record.error = run_locked(m.messages, record.messages);
    }
    if (record.error == 0 && (read_write == I2C_SMBUS_READ || size == I2C_SMBUS_PROC_CALL)) {
        store_smbus_result(size, m, data);
    }
    int error = record.error;
    record_locked(std::move(record));
    return -error;
}

}  // namespace tavo::emu::i2c
