// MCU exchanges: the two transports, retries, short and long items, writes in
// frames, the lock hooks and the switch of the MCU's link between its two chips.
#include <unistd.h>

#include <array>
#include <cstdio>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "mcu/mcu_frame.h"
#include "mcu/mcu_lock.h"
#include "rumo/rumo.h"
#include "tavo/i2c_smbus.h"
#include "tavo/tavo_export.h"

namespace {

using tavo::mcu::kControlLast;
using tavo::mcu::kControlMore;
using tavo::mcu::kDataMax;
using tavo::mcu::kHeaderSize;
using tavo::mcu::kItemMax;
using tavo::mcu::ReadOutputs;
using tavo::mcu::RequestHeader;
using tavo::mcu::Transport;

constexpr uint32_t kSmbusBus = 9;
constexpr uint8_t kSmbusSlave = 0x64;
constexpr uint8_t kSmbusRequestRegister = 0x20;
constexpr uint8_t kSmbusResponseRegister = 0x21;
// The block read fetches the MCU's count byte, the header and the data.
constexpr uint32_t kSmbusReadExtra = kHeaderSize + 1;

constexpr int kAttempts = 3;
constexpr useconds_t kRetryPauseUs = 1;

constexpr uint16_t kCommandSwitchChannel = TAVO_MCU_CMD_SWITCH_CHANNEL;
constexpr unsigned kSwitchSettleSeconds = 3;
constexpr uint32_t kChipSlotA = 1;
constexpr uint32_t kChipSlotB = 3;

bool read_outputs_missing(tavo::log::Site function, const ReadOutputs &out) {
    if (out.output == nullptr || out.piece_length == nullptr || out.total_length == nullptr) {
        API_LOG_ERR_FOR(function, "input parameter is null.\n\r\n");
        return true;
    }
    return false;
}

// The relay chip of the card's MCU, for the pass-through.
int relay_chip(tavo::log::Site function, uint32_t card_id, uint32_t &logic_id) {
    uint32_t chip_slot = 0;
    int ret = tavo_get_msg_device_logic_id(&logic_id, &chip_slot, card_id);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call tavo_get_device_logic_id failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

// A zeroed pass-through record; a failed clearing is logged and the record used.
void clear_record(tavo::log::Site function, tavo_mcu_passthru_record &record) {
    int ret = memset_s(&record, sizeof record, 0, sizeof record);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call memset_s failed.%d.\n\r\n", ret);
    }
}

int passthru(tavo::log::Site function, uint32_t logic_id, tavo_mcu_passthru_record &record) {
    int ret = rumo_passthru_mcu(logic_id, &record);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call rumo_passthru_mcu failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

int smbus_send(tavo::log::Site function, std::span<const uint8_t> frame, uint32_t size) {
    int ret = I2cSmbusWriteBlock(kSmbusBus, kSmbusSlave, kSmbusRequestRegister, size, frame.data());
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call I2cSmbusWriteBlock failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

template <typename Exchange>
int with_retries(Exchange &&exchange) {
    int ret = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        ret = exchange();
        if (ret == 0) {
            break;
        }
        usleep(kRetryPauseUs);
    }
    return ret;
}

uint32_t little_endian_word(std::span<const uint8_t, 4> bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Follow-up frames of a long read land at staging + position, where the position
// may pass the item's end by up to one frame.
using Staging = std::array<uint8_t, kItemMax + kDataMax>;

struct LongRead {
    uint32_t card_id;
    uint16_t command;
    const uint8_t *parameter;
    uint32_t parameter_length;
};

// The follow-up frames after a first piece of `first` bytes of an item of `total`
// bytes. The bookkeeping (frame count and piece from the remainder R = total -
// first, measured against the position) is the MCU channel's established one and
// is kept as it is; `last_piece` receives the last frame's piece, `first` when no
// frame ran.
int read_follow_up_frames(const LongRead &read, int64_t first, int64_t total, Staging &staging,
                          int64_t &last_piece) {
    int64_t remainder = total - first;
    int64_t position = first;
    int64_t frames = remainder / static_cast<int64_t>(kDataMax) +
                     (remainder % static_cast<int64_t>(kDataMax) != 0 ? 1 : 0);
    last_piece = first;
    for (int64_t i = 0; i < frames; ++i) {
        int64_t piece = position + static_cast<int64_t>(kDataMax) > remainder
                            ? remainder - position
                            : static_cast<int64_t>(kDataMax);
        if (position < 0 ||
            position + static_cast<int64_t>(kDataMax) > static_cast<int64_t>(staging.size())) {
            return -1;
        }
        uint32_t scratch_piece = 0;
        uint32_t scratch_total = 0;
        int ret = tavo_mcu_get_info(
            read.card_id, 0, read.command, static_cast<uint32_t>(position),
            static_cast<uint32_t>(kDataMax), read.parameter, read.parameter_length,
            staging.data() + static_cast<std::size_t>(position), &scratch_piece, &scratch_total);
        if (ret != 0) {
            API_LOG_ERR_FOR("tavo_mcu_get_info_dynamic",
                            "call tavo_mcu_get_info fail.ret(%d)\n\r\n", ret);
            return -1;
        }
        position += piece;
        last_piece = piece;
    }
    return 0;
}

int copy_item(tavo::log::Site function, uint8_t *output, const Staging &staging, int64_t count) {
    int ret = memcpy_s(output, kItemMax, staging.data(), static_cast<std::size_t>(count));
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call memcpy_s failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

int lookup_switch_slot(uint32_t card_id, uint32_t *slot) {
    uint32_t logic_id = 0;
    int ret = tavo_get_msg_device_logic_id(&logic_id, slot, card_id);
    if (ret != 0) {
        API_LOG_ERR_FOR("tavo_switch_mini2mcu_channel",
                        "call tavo_get_device_logic_id failed.%d.\n\r\n", ret);
    }
    return ret;
}

void report_switch_failure() {
    std::printf("\tSwitch iic channel failed.");
    std::fflush(stdout);
}

}  // namespace

extern "C" {

TAVO_API int tavo_mcu_get_info_by_mini(uint32_t card_id, uint8_t argument, uint16_t command,
                                       uint32_t offset, uint32_t length, const uint8_t *parameter,
                                       uint32_t parameter_length, uint8_t *output,
                                       uint32_t *piece_length, uint32_t *total_length) {
    ReadOutputs out{output, piece_length, total_length};
    if (read_outputs_missing(__func__, out)) {
        return -1;
    }
    tavo_mcu_passthru_record record;
    clear_record(__func__, record);
    uint32_t logic_id = 0;
    if (relay_chip(__func__, card_id, logic_id) != 0) {
        return -1;
    }
    (void)tavo_mcu_fill_data_for_reading(&record, argument, command, offset, length, parameter,
                                         parameter_length);
    if (passthru(__func__, logic_id, record) != 0) {
        return -1;
    }
    return tavo::mcu::take_read_response(__func__, Transport::passthru, record.response, out);
}

TAVO_API int tavo_mcu_set_info_by_mini(uint32_t card_id, uint8_t control, uint16_t command,
                                       uint32_t offset, uint32_t length, const uint8_t *data) {
    tavo_mcu_passthru_record record;
    clear_record(__func__, record);
    uint32_t logic_id = 0;
    if (relay_chip(__func__, card_id, logic_id) != 0) {
        return -1;
    }
    (void)tavo_mcu_fill_data_for_writing(&record, control, command, offset, length, data);
    if (passthru(__func__, logic_id, record) != 0) {
        return -1;
    }
    return tavo::mcu::take_write_response(__func__, record.response);
}

TAVO_API int tavo_mcu_get_info_by_i2c(uint32_t /*card_id*/, uint8_t argument, uint16_t command,
                                      uint32_t offset, uint32_t length, const uint8_t *parameter,
                                      uint32_t parameter_length, uint8_t *output,
                                      uint32_t *piece_length, uint32_t *total_length) {
    ReadOutputs out{output, piece_length, total_length};
    if (read_outputs_missing(__func__, out)) {
        return -1;
    }
    std::array<uint8_t, TAVO_MCU_RECORD_FRAME_LEN> frame{};
    tavo::mcu::put_request_header(frame,
                                  RequestHeader{kControlLast, argument, command, offset, length});
    uint32_t copied = tavo::mcu::clamp_parameter(parameter, parameter_length);
    tavo::mcu::put_request_data(__func__, frame, parameter, copied);

    std::array<uint8_t, TAVO_MCU_RECORD_FRAME_LEN> reply{};
    {
        tavo::mcu::McuLock lock(tavo::mcu::kLockTimeoutSmbus);
        if (lock.status() != 0) {
            API_LOG_ERR("call mcu_get_lock failed.%d.\n\r\n", lock.status());
            return -1;
        }
        if (smbus_send(__func__, frame, static_cast<uint32_t>(kHeaderSize) + copied) != 0) {
            return -1;
        }
        int ret = I2cSmbusReadBlock(kSmbusBus, kSmbusSlave, kSmbusResponseRegister,
                                    length + kSmbusReadExtra, reply.data());
        if (ret != 0) {
            API_LOG_ERR("call I2cSmbusReadBlock failed.%d.\n\r\n", ret);
            return -1;
        }
    }
    return tavo::mcu::take_read_response(__func__, Transport::smbus, reply, out);
}

TAVO_API int tavo_mcu_set_info_by_i2c(uint32_t /*card_id*/, uint8_t control, uint16_t command,
                                      uint32_t offset, uint32_t length, const uint8_t *data) {
    std::array<uint8_t, TAVO_MCU_RECORD_FRAME_LEN> frame{};
    tavo::mcu::put_request_header(frame, RequestHeader{control, 0, command, offset, length});
    tavo::mcu::put_request_data(__func__, frame, data, length);
    tavo::mcu::McuLock lock(tavo::mcu::kLockTimeoutSmbus);
    if (lock.status() != 0) {
        API_LOG_ERR("call mcu_get_lock failed.%d.\n\r\n", lock.status());
        return -1;
    }
    return smbus_send(__func__, frame, length + static_cast<uint32_t>(kHeaderSize));
}

TAVO_API int tavo_mcu_get_info_inn(uint32_t card_id, uint8_t argument, uint16_t command,
                                   uint32_t offset, uint32_t length, const uint8_t *parameter,
                                   uint32_t parameter_length, uint8_t *output,
                                   uint32_t *piece_length, uint32_t *total_length) {
    return tavo_mcu_get_info_by_mini(card_id, argument, command, offset, length, parameter,
                                     parameter_length, output, piece_length, total_length);
}

TAVO_API int tavo_mcu_set_info_inn(uint32_t card_id, uint8_t control, uint16_t command,
                                   uint32_t offset, uint32_t length, const uint8_t *data) {
    return tavo_mcu_set_info_by_mini(card_id, control, command, offset, length, data);
}

TAVO_API int tavo_mcu_get_info(uint32_t card_id, uint8_t argument, uint16_t command,
                               uint32_t offset, uint32_t length, const uint8_t *parameter,
                               uint32_t parameter_length, uint8_t *output, uint32_t *piece_length,
                               uint32_t *total_length) {
    return with_retries([&] {
        return tavo_mcu_get_info_inn(card_id, argument, command, offset, length, parameter,
                                     parameter_length, output, piece_length, total_length);
    });
}

TAVO_API int tavo_mcu_set_info(uint32_t card_id, uint8_t control, uint16_t command, uint32_t offset,
                               uint32_t length, const uint8_t *data) {
    return with_retries(
        [&] { return tavo_mcu_set_info_inn(card_id, control, command, offset, length, data); });
}

TAVO_API int tavo_mcu_get_info_fix(uint32_t card_id, uint8_t argument, uint16_t command,
                                   uint32_t length, uint8_t *output, uint32_t *out_length) {
    uint32_t total = 0;
    int ret = tavo_mcu_get_info(card_id, argument, command, 0, length, nullptr, 0, output,
                                out_length, &total);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info fail.ret(%d)\n\r\n", ret);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_mcu_get_fix_word(uint32_t card_id, uint8_t argument, uint16_t command,
                                   uint32_t length, uint32_t *value) {
    if (value == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    std::array<uint8_t, kItemMax> buffer{};
    uint32_t piece = 0;
    int ret = tavo_mcu_get_info_fix(card_id, argument, command, length, buffer.data(), &piece);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info_inn fail.(%d).\n\r\n", ret);
        return -1;
    }
    if (piece >= 5) {
        API_LOG_ERR("len(%d) error.\n\r\n", static_cast<int>(piece));
        return -1;
    }
    *value = little_endian_word(std::span<const uint8_t>(buffer).first<4>());
    return 0;
}

TAVO_API int tavo_mcu_get_info_dynamic(uint32_t card_id, uint8_t argument, uint16_t command,
                                       uint32_t first_length, const uint8_t *parameter,
                                       uint32_t parameter_length, uint8_t *output,
                                       uint32_t *out_length) {
    if (output == nullptr || out_length == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    Staging staging{};
    uint32_t piece = 0;
    uint32_t total = 0;
    int ret = tavo_mcu_get_info(card_id, argument, command, 0, first_length, parameter,
                                parameter_length, staging.data(), &piece, &total);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info fail.ret(%d)\n\r\n", ret);
        return -1;
    }
    // Lengths are the MCU's signed 32-bit numbers.
    int64_t first = static_cast<int32_t>(piece);
    int64_t item = static_cast<int32_t>(total);
    if (item <= first && item > 0 && item < static_cast<int64_t>(kItemMax)) {
        if (copy_item(__func__, output, staging, item) != 0) {
            return -1;
        }
        *out_length = static_cast<uint32_t>(item);
        return 0;
    }
    if (item > static_cast<int64_t>(kItemMax)) {
        API_LOG_ERR("total=%d bigger tran 256.\n\r\n", static_cast<int>(item));
        return -1;
    }
    LongRead read{card_id, command, parameter, parameter_length};
    int64_t last_piece = first;
    if (read_follow_up_frames(read, first, item, staging, last_piece) != 0) {
        return -1;
    }
    if (item >= static_cast<int64_t>(kItemMax)) {
        return -1;
    }
    if (copy_item(__func__, output, staging, item) != 0) {
        return -1;
    }
    *out_length = static_cast<uint32_t>(item - first + last_piece);
    return 0;
}

TAVO_API int tavo_mcu_set_info_dnamic(uint32_t card_id, uint16_t command, uint32_t length,
                                      const uint8_t *data) {
    if (data == nullptr && length != 0) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    uint64_t frames = (uint64_t{length} + kDataMax - 1) / kDataMax;
    uint32_t position = 0;
    for (uint64_t i = 0; i < frames; ++i) {
        bool last = uint64_t{length} <= uint64_t{position} + kDataMax;
        uint32_t size = last ? length - position : static_cast<uint32_t>(kDataMax);
        int ret = tavo_mcu_set_info(card_id, last ? kControlLast : kControlMore, command, position,
                                    size, data + position);
        if (ret != 0) {
            API_LOG_ERR("call tavo_mcu_set_info fail.ret(%d)\r\n", ret);
            return -1;
        }
        position += size;
    }
    return 0;
}

TAVO_API int tavo_mcu_set_info_simple(uint32_t card_id, uint16_t command, uint32_t length,
                                      const uint8_t *data) {
    int ret = tavo_mcu_set_info(card_id, kControlLast, command, 0, length, data);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_set_info fail.ret(%d)\n\r\n", ret);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_mcu_set_lock(int32_t * /*lock*/, uint32_t /*timeout*/) {
    return 0;
}

TAVO_API int tavo_mcu_set_unlock(int32_t /*lock*/) {
    return 0;
}

TAVO_API int tavo_mcu_set_lock_up(int32_t * /*lock*/, uint32_t /*timeout*/) {
    return 0;
}

TAVO_API int tavo_mcu_set_unlock_up(int32_t /*lock*/) {
    return 0;
}

TAVO_API int tavo_switch_mini2mcu_channel(uint32_t card_id, uint32_t *slot_before,
                                          uint32_t *slot_after) {
    if (slot_before == nullptr || slot_after == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    int ret = lookup_switch_slot(card_id, slot_before);
    if (ret != 0) {
        return ret;
    }
    const uint8_t payload =
        static_cast<uint8_t>(*slot_before != kChipSlotA ? kChipSlotA : kChipSlotB);
    // The switch frame goes with control 0: the MCU acts on it without a last-frame mark.
    ret = tavo_mcu_set_info(card_id, kControlMore, kCommandSwitchChannel, 0, 1, &payload);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_set_info failed.%d.\n\r\n", ret);
        report_switch_failure();
        return ret;
    }
    sleep(kSwitchSettleSeconds);
    ret = lookup_switch_slot(card_id, slot_after);
    if (ret != 0) {
        report_switch_failure();
        return ret;
    }
    return 0;
}

}  // extern "C"
