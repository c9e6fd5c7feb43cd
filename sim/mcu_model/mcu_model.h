// A model of the card's board MCU: it answers request frames with response frames
// as the MCU firmware does, keeps a transcript of what reached it and plays faults
// on demand. The device-management simulator runs one per card that has an MCU
// (pass-through); the SMBus emulator runs the same class on bus 9, slave 0x64.
//
// Request frame: u8 control, u8 argument, u16 command, u32 offset, u32 length, data.
// Response frame: u16 status, u16 0, u32 total, u32 piece, data. Little-endian.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavo::mcu_model {

inline constexpr std::size_t kHeaderSize = 12;
inline constexpr std::size_t kFrameDataMax = 20;
// The largest request a pass-through record carries.
inline constexpr std::size_t kRequestMax = 1024;
inline constexpr std::uint8_t kControlLast = 0x80;
// Largest firmware image and largest information item the MCU takes in writes.
inline constexpr std::size_t kMaxImage = 16u << 20;
inline constexpr std::size_t kMaxItemWrite = 4096;

// Commands the firmware knows besides its information items.
namespace command {
inline constexpr std::uint16_t kHealth = 1;
inline constexpr std::uint16_t kErrorCode = 2;
inline constexpr std::uint16_t kTemperature = 3;
inline constexpr std::uint16_t kPower = 4;
inline constexpr std::uint16_t kVersion = 5;
inline constexpr std::uint16_t kSerialNumber = 8;
inline constexpr std::uint16_t kVoltage = 11;
inline constexpr std::uint16_t kErrorLog = 12;
inline constexpr std::uint16_t kBoardId = 15;
inline constexpr std::uint16_t kPcbId = 16;
inline constexpr std::uint16_t kLabel = 21;
inline constexpr std::uint16_t kPeripheralTest = 22;
inline constexpr std::uint16_t kPeripheralResult = 23;
inline constexpr std::uint16_t kUpgradeData = 24;
inline constexpr std::uint16_t kUpgradeControl = 25;
inline constexpr std::uint16_t kUpgradeStatus = 26;
inline constexpr std::uint16_t kOperateLog = 38;
inline constexpr std::uint16_t kMaintenanceLog = 39;
inline constexpr std::uint16_t kBomId = 40;
inline constexpr std::uint16_t kSetBootArea = 1281;
inline constexpr std::uint16_t kGetBootArea = 1283;
inline constexpr std::uint16_t kSwitchChannel = 1558;
}  // namespace command

// Status codes of the firmware.
namespace status {
inline constexpr std::uint16_t kOk = 0;
inline constexpr std::uint16_t kUnknownCommand = 1;
inline constexpr std::uint16_t kWrongDirection = 2;
inline constexpr std::uint16_t kNotReady = 3;
inline constexpr std::uint16_t kBadRequest = 4;
}  // namespace status

// Upgrade states (first status byte); the second byte is the progress in percent.
namespace upgrade {
inline constexpr std::uint8_t kIdle = 0;
inline constexpr std::uint8_t kReceiving = 1;
inline constexpr std::uint8_t kReceived = 2;
inline constexpr std::uint8_t kUpgrading = 3;
inline constexpr std::uint8_t kDone = 4;
// Upgrade control values.
inline constexpr std::uint8_t kControlApply = 1;
inline constexpr std::uint8_t kControlCancel = 2;
// Progress made by each status read while upgrading.
inline constexpr std::uint8_t kProgressStep = 50;
}  // namespace upgrade

inline constexpr std::uint32_t kChipSlotA = 1;
inline constexpr std::uint32_t kChipSlotB = 3;

// An information item: the command and, for label items, the argument byte (0 for
// every other item).
struct ItemKey {
    std::uint16_t command = 0;
    std::uint8_t argument = 0;
    auto operator<=>(const ItemKey &) const = default;
};

struct McuConfig {
    // Chip slot (1 or 3) of each chip of the card, in the card's chip order; 0 = the
    // chip is not wired to the MCU.
    std::vector<std::uint32_t> chip_slots;
    // The slot whose chip carries the MCU's link at power-on.
    std::uint32_t active_slot = kChipSlotA;
    std::map<ItemKey, std::vector<std::uint8_t>> items;
};

enum class Direction : std::uint32_t { read = 0, write = 1 };
enum class Transport : std::uint32_t { passthru = 0, smbus = 1 };

// A request as it reached the MCU.
struct Frame {
    Transport transport = Transport::passthru;
    std::uint32_t relay = 0;  // logic id of the relaying chip (pass-through)
    Direction direction = Direction::read;
    std::uint32_t request_size = 0;
    std::uint8_t control = 0;
    std::uint8_t argument = 0;
    std::uint16_t command = 0;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::vector<std::uint8_t> data;  // the request_size - 12 bytes after the header
};

class McuModel {
  public:
    explicit McuModel(McuConfig config);

    // Answers one request (its request_size bytes) and records it. nullopt when the
    // request is shorter than a header or longer than kRequestMax: nothing answers.
    std::optional<std::vector<std::uint8_t>> handle(std::span<const std::uint8_t> request,
                                                    Direction direction, Transport transport,
                                                    std::uint32_t relay = 0);
    // Over SMBus the firmware tells a write from a read by its command.
    static Direction smbus_direction(std::uint16_t command);

    const std::vector<Frame> &transcript() const { return transcript_; }
    void clear_transcript() { transcript_.clear(); }

    // Faults: the next `times` requests for `command` answer `status` (any
    // direction); the next `times` read answers for `command` carry `length` data
    // bytes (the item's bytes at the offset, zero past its end) whatever it holds.
    void fail_command(std::uint16_t command, std::int32_t times, std::uint16_t status);
    void override_piece(std::uint16_t command, std::int32_t times, std::uint32_t length);

    void set_item(ItemKey key, std::vector<std::uint8_t> bytes);
    const std::vector<std::uint8_t> *item(ItemKey key) const;

    const McuConfig &config() const { return config_; }
    std::uint32_t active_slot() const { return active_slot_; }
    bool wired(std::uint32_t chip_slot) const;
    // The image assembled from upgrade data frames, its state and progress.
    const std::vector<std::uint8_t> &image() const { return image_; }
    std::uint8_t upgrade_state() const { return upgrade_state_; }
    std::uint8_t upgrade_progress() const { return upgrade_progress_; }
    std::uint8_t last_upgrade_control() const { return last_control_; }
    bool peripheral_test_running() const { return peripheral_test_; }

  private:
    struct Answer {
        std::uint16_t status = status::kOk;
        std::uint32_t total = 0;
        std::vector<std::uint8_t> data;
    };
    struct Countdown {
        std::int32_t remaining = 0;
        std::uint32_t value = 0;
    };

    Answer answer(const Frame &frame);
    std::uint8_t selected_argument(const Frame &frame);
    Answer read(const Frame &frame);
    Answer write(const Frame &frame);
    Answer read_item(const Frame &frame, const std::vector<std::uint8_t> &bytes);
    Answer write_upgrade_data(const Frame &frame);
    Answer write_upgrade_control(const Frame &frame);
    Answer write_peripheral_test(const Frame &frame);
    Answer write_channel_switch(const Frame &frame);
    Answer write_item(const Frame &frame);
    std::vector<std::uint8_t> upgrade_status();
    std::optional<std::uint32_t> take(std::map<std::uint16_t, Countdown> &faults,
                                      std::uint16_t command);

    McuConfig config_;
    std::uint32_t active_slot_;
    std::vector<Frame> transcript_;
    std::map<std::uint16_t, Countdown> failures_;
    std::map<std::uint16_t, Countdown> pieces_;
    // Label item selected by the last offset-0 label read.
    std::uint8_t latched_label_ = 0;
    // Multi-frame writes of information items, assembled until the last frame.
    std::map<std::uint16_t, std::vector<std::uint8_t>> pending_writes_;
    std::vector<std::uint8_t> image_;
    std::uint8_t upgrade_state_ = upgrade::kIdle;
    std::uint8_t upgrade_progress_ = 0;
    std::uint8_t last_control_ = 0;
    bool peripheral_test_ = false;
};

// Item bytes of common shapes.
std::vector<std::uint8_t> le_bytes(std::uint32_t value, std::size_t size);
std::vector<std::uint8_t> text_bytes(const std::string &text);

}  // namespace tavo::mcu_model
