// MCU frame layout and the two request fillers of the pass-through record.
#include "mcu/mcu_frame.h"

#include <algorithm>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "tavo/tavo_export.h"

namespace tavo::mcu {

bool ByteWriter::put(std::size_t offset, std::uint32_t value, std::size_t size) {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
        return false;
    }
    for (std::size_t i = 0; i < size; ++i) {
        bytes_[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
    return true;
}

std::optional<std::uint32_t> ByteReader::get(std::size_t offset, std::size_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value |= static_cast<std::uint32_t>(bytes_[offset + i]) << (8 * i);
    }
    return value;
}

std::optional<std::uint16_t> ByteReader::u16(std::size_t offset) const {
    std::optional<std::uint32_t> value = get(offset, 2);
    if (!value) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(*value);
}

std::optional<std::uint32_t> ByteReader::u32(std::size_t offset) const {
    return get(offset, 4);
}

std::span<const std::uint8_t> ByteReader::bytes(std::size_t offset, std::size_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
        return {};
    }
    return bytes_.subspan(offset, size);
}

void put_request_header(std::span<std::uint8_t> frame, const RequestHeader &header) {
    ByteWriter writer(frame);
    // The frame always has room for the header: every caller's frame is larger.
    (void)writer.put_u8(request::kControl, header.control);
    (void)writer.put_u8(request::kArgument, header.argument);
    (void)writer.put_u16(request::kCommand, header.command);
    (void)writer.put_u32(request::kOffset, header.offset);
    (void)writer.put_u32(request::kLength, header.length);
}

void put_request_data(tavo::log::Site function, std::span<std::uint8_t> frame,
                      const std::uint8_t *data, std::uint32_t count) {
    if (count == 0 || frame.size() < kHeaderSize + kDataMax) {
        return;
    }
    int ret = memcpy_s(frame.data() + kHeaderSize, kDataMax, data, count);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call memcpy_s failed.%d.\n\r\n", ret);
    }
}

std::uint32_t clamp_parameter(const std::uint8_t *parameter, std::uint32_t length) {
    return parameter == nullptr ? 0 : std::min<std::uint32_t>(length, kDataMax);
}

int take_read_response(tavo::log::Site function, Transport transport,
                       std::span<const std::uint8_t> frame, const ReadOutputs &out) {
    ByteReader reader(frame);
    std::uint16_t status = reader.u16(response::kStatus).value_or(0);
    if (status != 0) {
        if (transport == Transport::passthru) {
            API_LOG_ERR_FOR(function, "errorcode=%d.\n\r\n", status);
        } else {
            API_LOG_ERR_FOR(function, "error_code=%d.\n\r\n", status);
        }
        return -1;
    }
    std::uint32_t piece = reader.u32(response::kPiece).value_or(0);
    std::uint32_t total = reader.u32(response::kTotal).value_or(0);
    // A piece longer than a frame carries fails the copy before anything is read.
    std::span<const std::uint8_t> data =
        reader.bytes(response::kData, std::min<std::size_t>(piece, kDataMax));
    int ret = piece == 0 ? 0 : memcpy_s(out.output, kDataMax, data.data(), piece);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call memcpy_s failed.%d.\n\r\n", ret);
    }
    *out.piece_length = piece;
    *out.total_length = total;
    return 0;
}

int take_write_response(tavo::log::Site function, std::span<const std::uint8_t> frame) {
    std::uint16_t status = ByteReader(frame).u16(response::kStatus).value_or(0);
    if (status != 0) {
        API_LOG_ERR_FOR(function, "errorcode=%d.\n\r\n", status);
        return -1;
    }
    return 0;
}

}  // namespace tavo::mcu

using tavo::mcu::kControlLast;
using tavo::mcu::RequestHeader;

extern "C" {

TAVO_API int tavo_mcu_fill_data_for_reading(tavo_mcu_passthru_record *record, uint8_t argument,
                                            uint16_t command, uint32_t offset, uint32_t length,
                                            const uint8_t *parameter, uint32_t parameter_length) {
    if (record == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    std::span<std::uint8_t> frame(record->request);
    tavo::mcu::put_request_header(frame,
                                  RequestHeader{kControlLast, argument, command, offset, length});
    uint32_t copied = tavo::mcu::clamp_parameter(parameter, parameter_length);
    tavo::mcu::put_request_data(__func__, frame, parameter, copied);
    record->request_size = static_cast<uint32_t>(tavo::mcu::kHeaderSize) + copied;
    record->direction = TAVO_MCU_DIRECTION_READ;
    return 0;
}

TAVO_API int tavo_mcu_fill_data_for_writing(tavo_mcu_passthru_record *record, uint8_t control,
                                            uint16_t command, uint32_t offset, uint32_t length,
                                            const uint8_t *data) {
    if (record == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    std::span<std::uint8_t> frame(record->request);
    tavo::mcu::put_request_header(frame, RequestHeader{control, 0, command, offset, length});
    tavo::mcu::put_request_data(__func__, frame, data, length);
    record->request_size = static_cast<uint32_t>(tavo::mcu::kHeaderSize) + length;
    record->direction = TAVO_MCU_DIRECTION_WRITE;
    return 0;
}

}  // extern "C"
