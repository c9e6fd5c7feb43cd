#include "mcu_model.h"

#include <algorithm>

namespace tavo::mcu_model {

namespace {

constexpr std::size_t kControlAt = 0;
constexpr std::size_t kArgumentAt = 1;
constexpr std::size_t kCommandAt = 2;
constexpr std::size_t kOffsetAt = 4;
constexpr std::size_t kLengthAt = 8;
constexpr std::size_t kStatusAt = 0;
constexpr std::size_t kTotalAt = 4;
constexpr std::size_t kPieceAt = 8;

constexpr std::uint8_t kPeripheralStart = 1;
constexpr std::uint8_t kPeripheralStop = 0;
constexpr std::uint8_t kPeripheralKind = 2;
constexpr std::uint8_t kHundredPercent = 100;

std::uint32_t get_le(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value |= static_cast<std::uint32_t>(bytes[at + i]) << (8 * i);
    }
    return value;
}

void put_le(std::vector<std::uint8_t> &bytes, std::size_t at, std::uint32_t value,
            std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

Frame decode(std::span<const std::uint8_t> request, Direction direction, Transport transport,
             std::uint32_t relay) {
    Frame frame;
    frame.transport = transport;
    frame.relay = relay;
    frame.direction = direction;
    frame.request_size = static_cast<std::uint32_t>(request.size());
    frame.control = request[kControlAt];
    frame.argument = request[kArgumentAt];
    frame.command = static_cast<std::uint16_t>(get_le(request, kCommandAt, 2));
    frame.offset = get_le(request, kOffsetAt, 4);
    frame.length = get_le(request, kLengthAt, 4);
    frame.data.assign(request.begin() + kHeaderSize, request.end());
    return frame;
}

std::vector<std::uint8_t> encode(std::uint16_t status, std::uint32_t total,
                                 const std::vector<std::uint8_t> &data) {
    std::vector<std::uint8_t> response(kHeaderSize + data.size());
    put_le(response, kStatusAt, status, 2);
    put_le(response, kTotalAt, total, 4);
    put_le(response, kPieceAt, static_cast<std::uint32_t>(data.size()), 4);
    std::copy(data.begin(), data.end(), response.begin() + kHeaderSize);
    return response;
}

// Commands that only take writes; every other command is an item that is read.
bool write_command(std::uint16_t c) {
    return c == command::kPeripheralTest || c == command::kUpgradeData ||
           c == command::kUpgradeControl || c == command::kSetBootArea ||
           c == command::kSwitchChannel;
}

// The data bytes a write frame carries: `length` of them, which must all be there.
std::optional<std::span<const std::uint8_t>> write_data(const Frame &frame) {
    if (frame.length > frame.data.size()) {
        return std::nullopt;
    }
    return std::span<const std::uint8_t>(frame.data).first(frame.length);
}

}  // namespace

std::vector<std::uint8_t> le_bytes(std::uint32_t value, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    put_le(bytes, 0, value, size);
    return bytes;
}

std::vector<std::uint8_t> text_bytes(const std::string &text) {
    return {text.begin(), text.end()};
}

McuModel::McuModel(McuConfig config)
    : config_(std::move(config)), active_slot_(config_.active_slot) {}

std::optional<std::vector<std::uint8_t>> McuModel::handle(std::span<const std::uint8_t> request,
                                                          Direction direction, Transport transport,
                                                          std::uint32_t relay) {
    if (request.size() < kHeaderSize || request.size() > kRequestMax) {
        return std::nullopt;
    }
    transcript_.push_back(decode(request, direction, transport, relay));
    Answer a = answer(transcript_.back());
    return encode(a.status, a.total, a.data);
}

Direction McuModel::smbus_direction(std::uint16_t command) {
    return write_command(command) ? Direction::write : Direction::read;
}

bool McuModel::wired(std::uint32_t chip_slot) const {
    return chip_slot != 0 && std::find(config_.chip_slots.begin(), config_.chip_slots.end(),
                                       chip_slot) != config_.chip_slots.end();
}

void McuModel::fail_command(std::uint16_t command, std::int32_t times, std::uint16_t code) {
    failures_[command] = {times, code};
}

void McuModel::override_piece(std::uint16_t command, std::int32_t times, std::uint32_t length) {
    pieces_[command] = {times, length};
}

void McuModel::set_item(ItemKey key, std::vector<std::uint8_t> bytes) {
    config_.items[key] = std::move(bytes);
}

const std::vector<std::uint8_t> *McuModel::item(ItemKey key) const {
    auto it = config_.items.find(key);
    return it == config_.items.end() ? nullptr : &it->second;
}

std::optional<std::uint32_t> McuModel::take(std::map<std::uint16_t, Countdown> &faults,
                                            std::uint16_t command) {
    auto it = faults.find(command);
    if (it == faults.end() || it->second.remaining <= 0) {
        return std::nullopt;
    }
    --it->second.remaining;
    return it->second.value;
}

McuModel::Answer McuModel::answer(const Frame &frame) {
    if (std::optional<std::uint32_t> code = take(failures_, frame.command)) {
        return {static_cast<std::uint16_t>(*code), 0, {}};
    }
    return frame.direction == Direction::write ? write(frame) : read(frame);
}

// Only label items are selected by the argument byte. Follow-up frames of a label
// carry argument 0 and continue the label selected at offset 0.
std::uint8_t McuModel::selected_argument(const Frame &frame) {
    if (frame.command != command::kLabel) {
        return 0;
    }
    if (frame.offset == 0) {
        latched_label_ = frame.argument;
    }
    return frame.offset == 0 || frame.argument != 0 ? frame.argument : latched_label_;
}

McuModel::Answer McuModel::read(const Frame &frame) {
    if (write_command(frame.command)) {
        return {status::kWrongDirection, 0, {}};
    }
    if (frame.command == command::kUpgradeStatus) {
        return read_item(frame, upgrade_status());
    }
    if (frame.command == command::kPeripheralResult && !peripheral_test_) {
        return {status::kNotReady, 0, {}};
    }
    const std::vector<std::uint8_t> *bytes = item({frame.command, selected_argument(frame)});
    if (bytes == nullptr) {
        return {status::kUnknownCommand, 0, {}};
    }
    return read_item(frame, *bytes);
}

// What the MCU has at the offset, at most one frame; the wanted length does not
// limit it.
McuModel::Answer McuModel::read_item(const Frame &frame, const std::vector<std::uint8_t> &bytes) {
    Answer a{status::kOk, static_cast<std::uint32_t>(bytes.size()), {}};
    std::size_t start = std::min<std::size_t>(frame.offset, bytes.size());
    std::size_t piece = std::min(kFrameDataMax, bytes.size() - start);
    if (std::optional<std::uint32_t> forced = take(pieces_, frame.command)) {
        piece = std::min<std::size_t>(*forced, kRequestMax - kHeaderSize);
    }
    a.data.assign(piece, 0);
    std::size_t available = std::min(piece, bytes.size() - start);
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(start), available, a.data.begin());
    return a;
}

McuModel::Answer McuModel::write(const Frame &frame) {
    switch (frame.command) {
        case command::kUpgradeData:
            return write_upgrade_data(frame);
        case command::kUpgradeControl:
            return write_upgrade_control(frame);
        case command::kPeripheralTest:
            return write_peripheral_test(frame);
        case command::kSwitchChannel:
            return write_channel_switch(frame);
        case command::kSetBootArea: {
            std::vector<std::uint8_t> &area = config_.items[{command::kGetBootArea, 0}];
            std::uint8_t current = area.empty() ? 0 : area.front();
            area = {static_cast<std::uint8_t>(current == 0 ? 1 : 0)};
            return {};
        }
        default:
            return write_item(frame);
    }
}

// Data frames land at their offset in the image; the last one completes it.
McuModel::Answer McuModel::write_upgrade_data(const Frame &frame) {
    std::optional<std::span<const std::uint8_t>> data = write_data(frame);
    if (!data || frame.offset > kMaxImage || data->size() > kMaxImage - frame.offset) {
        return {status::kBadRequest, 0, {}};
    }
    if (frame.offset == 0 || upgrade_state_ != upgrade::kReceiving) {
        image_.clear();
    }
    std::size_t end = frame.offset + data->size();
    if (image_.size() < end) {
        image_.resize(end);
    }
    std::copy(data->begin(), data->end(), image_.begin() + frame.offset);
    upgrade_state_ = frame.control == kControlLast ? upgrade::kReceived : upgrade::kReceiving;
    upgrade_progress_ = 0;
    return {};
}

McuModel::Answer McuModel::write_upgrade_control(const Frame &frame) {
    std::optional<std::span<const std::uint8_t>> data = write_data(frame);
    if (!data || data->size() != 1) {
        return {status::kBadRequest, 0, {}};
    }
    last_control_ = data->front();
    if (last_control_ == upgrade::kControlCancel) {
        image_.clear();
        upgrade_state_ = upgrade::kIdle;
        upgrade_progress_ = 0;
        return {};
    }
    if (last_control_ != upgrade::kControlApply) {
        return {status::kBadRequest, 0, {}};
    }
    if (upgrade_state_ != upgrade::kReceived) {
        return {status::kNotReady, 0, {}};
    }
    upgrade_state_ = upgrade::kUpgrading;
    upgrade_progress_ = 0;
    return {};
}

// Each status read while upgrading moves the progress on; at 100 % the upgrade is done.
std::vector<std::uint8_t> McuModel::upgrade_status() {
    std::vector<std::uint8_t> bytes{upgrade_state_, upgrade_progress_};
    if (upgrade_state_ == upgrade::kUpgrading) {
        upgrade_progress_ = static_cast<std::uint8_t>(
            std::min<int>(upgrade_progress_ + upgrade::kProgressStep, kHundredPercent));
        if (upgrade_progress_ == kHundredPercent) {
            upgrade_state_ = upgrade::kDone;
        }
    }
    return bytes;
}

McuModel::Answer McuModel::write_peripheral_test(const Frame &frame) {
    std::optional<std::span<const std::uint8_t>> data = write_data(frame);
    if (!data || data->size() != 2 || (*data)[1] != kPeripheralKind ||
        ((*data)[0] != kPeripheralStart && (*data)[0] != kPeripheralStop)) {
        return {status::kBadRequest, 0, {}};
    }
    peripheral_test_ = (*data)[0] == kPeripheralStart;
    return {};
}

// The link moves to the requested slot when a chip is wired there; otherwise it
// stays where it is and the MCU still acknowledges.
McuModel::Answer McuModel::write_channel_switch(const Frame &frame) {
    std::optional<std::span<const std::uint8_t>> data = write_data(frame);
    if (!data || data->size() != 1) {
        return {status::kBadRequest, 0, {}};
    }
    std::uint32_t target = data->front();
    if ((target == kChipSlotA || target == kChipSlotB) && wired(target)) {
        active_slot_ = target;
    }
    return {};
}

// An information item written in frames replaces the item once the last frame
// (control 0x80) arrives.
McuModel::Answer McuModel::write_item(const Frame &frame) {
    std::optional<std::span<const std::uint8_t>> data = write_data(frame);
    if (!data || frame.offset > kMaxItemWrite || data->size() > kMaxItemWrite - frame.offset) {
        return {status::kBadRequest, 0, {}};
    }
    if (item({frame.command, 0}) == nullptr) {
        return {status::kUnknownCommand, 0, {}};
    }
    std::vector<std::uint8_t> &pending = pending_writes_[frame.command];
    if (frame.offset == 0) {
        pending.clear();
    }
    std::size_t end = frame.offset + data->size();
    if (pending.size() < end) {
        pending.resize(end);
    }
    std::copy(data->begin(), data->end(), pending.begin() + frame.offset);
    if (frame.control == kControlLast) {
        config_.items[{frame.command, 0}] = std::move(pending);
        pending_writes_.erase(frame.command);
    }
    return {};
}

}  // namespace tavo::mcu_model
