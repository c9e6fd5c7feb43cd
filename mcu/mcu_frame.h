// MCU frames: layouts, a bounds-checked byte reader and writer, and the shared
// helpers of the exchange functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "api/tavo_log.h"
#include "tavo/tavo_mcu.h"

namespace tavo::mcu {

// Request frame, 12-byte header then 0..20 data bytes, little-endian:
//   0  u8   control    0x80 on reads and on the last frame of a write
//   1  u8   argument   label item id of label reads, else 0
//   2  u16  command    item id
//   4  u32  offset     byte offset inside the item
//   8  u32  length     bytes wanted (read) or data bytes in this frame (write)
//   12 ...  data
namespace request {
inline constexpr std::size_t kControl = 0;
inline constexpr std::size_t kArgument = 1;
inline constexpr std::size_t kCommand = 2;
inline constexpr std::size_t kOffset = 4;
inline constexpr std::size_t kLength = 8;
inline constexpr std::size_t kData = 12;
}  // namespace request

// Response frame:
//   0  u16  status     0 success, else the MCU's error code
//   2  u16  (not examined)
//   4  u32  total      total length of the item
//   8  u32  piece      data bytes in this frame
//   12 ...  data
namespace response {
inline constexpr std::size_t kStatus = 0;
inline constexpr std::size_t kTotal = 4;
inline constexpr std::size_t kPiece = 8;
inline constexpr std::size_t kData = 12;
}  // namespace response

inline constexpr std::size_t kHeaderSize = TAVO_MCU_FRAME_HEADER_LEN;
inline constexpr std::size_t kDataMax = TAVO_MCU_FRAME_DATA_MAX;
inline constexpr std::size_t kItemMax = TAVO_MCU_ITEM_MAX;
inline constexpr std::uint8_t kControlLast = TAVO_MCU_CONTROL_LAST;
inline constexpr std::uint8_t kControlMore = 0;

static_assert(sizeof(tavo_mcu_passthru_record) == RUMO_PASSTHRU_RECORD_SIZE);

// Little-endian fields at fixed offsets of a byte span. A field that does not fit
// is not written (put) or reads as nothing (get).
class ByteWriter {
  public:
    explicit ByteWriter(std::span<std::uint8_t> bytes) : bytes_(bytes) {}
    bool put_u8(std::size_t offset, std::uint8_t value) { return put(offset, value, 1); }
    bool put_u16(std::size_t offset, std::uint16_t value) { return put(offset, value, 2); }
    bool put_u32(std::size_t offset, std::uint32_t value) { return put(offset, value, 4); }

  private:
    bool put(std::size_t offset, std::uint32_t value, std::size_t size);
    std::span<std::uint8_t> bytes_;
};

class ByteReader {
  public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    std::optional<std::uint16_t> u16(std::size_t offset) const;
    std::optional<std::uint32_t> u32(std::size_t offset) const;
    // The bytes [offset, offset + size), or an empty span when they do not fit.
    std::span<const std::uint8_t> bytes(std::size_t offset, std::size_t size) const;

  private:
    std::optional<std::uint32_t> get(std::size_t offset, std::size_t size) const;
    std::span<const std::uint8_t> bytes_;
};

struct RequestHeader {
    std::uint8_t control = 0;
    std::uint8_t argument = 0;
    std::uint16_t command = 0;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
};

// Writes the 12-byte header at the start of `frame`.
void put_request_header(std::span<std::uint8_t> frame, const RequestHeader &header);

// Copies `count` request data bytes (room 20) after the header; a failed bounded
// copy is logged on behalf of `function` and the frame goes out as it is.
void put_request_data(tavo::log::Site function, std::span<std::uint8_t> frame,
                      const std::uint8_t *data, std::uint32_t count);

// The parameter bytes a read request carries: at most 20.
std::uint32_t clamp_parameter(const std::uint8_t *parameter, std::uint32_t length);

enum class Transport { passthru, smbus };

struct ReadOutputs {
    std::uint8_t *output;
    std::uint32_t *piece_length;
    std::uint32_t *total_length;
};

// Status check and output of a read response, on behalf of `function`: a non-zero
// status is logged ("errorcode=" through the pass-through, "error_code=" over
// SMBus) and fails; else the piece goes to the output (room 20; a failed copy is
// logged and the call still succeeds) with its length and the item's total.
int take_read_response(tavo::log::Site function, Transport transport,
                       std::span<const std::uint8_t> frame, const ReadOutputs &out);

// Status check of a write response.
int take_write_response(tavo::log::Site function, std::span<const std::uint8_t> frame);

}  // namespace tavo::mcu
