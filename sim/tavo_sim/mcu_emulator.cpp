#include "mcu_emulator.h"

#include "host_parse.h"
#include "mcu_smbus_device.h"
#include "sim/emu/i2c/device_types.h"
#include "sim/emu/i2c/json_check.h"

#include <memory>
#include <optional>

namespace tavo::sim {

namespace {

using emu::i2c::DeviceContext;
using emu::i2c::I2cDevice;

constexpr int64_t kMaxSlotId = 0xFFFFFFFF;

// The MCU of the card in slot `slot` (the first card with an MCU when none is named).
std::optional<mcu_model::McuConfig> card_mcu(const Host &host, std::optional<int64_t> slot) {
    for (const Card &card : host.cards) {
        if (card.mcu && (!slot || card.slot_id == *slot)) {
            return card.mcu;
        }
    }
    return std::nullopt;
}

std::unique_ptr<I2cDevice> make_mcu(const nlohmann::json &host_json, const nlohmann::json &entry,
                                    const DeviceContext &context, std::string &error) {
    std::optional<int64_t> slot;
    if (!emu::i2c::only_members(entry, {"address", "type", "card"}, context.path, error) ||
        !emu::i2c::read_int(entry, "card", 0, kMaxSlotId, false, context.path, slot, error)) {
        return nullptr;
    }
    Host host;
    try {
        host = parse_host(host_json);
    } catch (const std::exception &e) {
        error = context.path + ": the host's cards cannot be read: " + e.what();
        return nullptr;
    }
    std::optional<mcu_model::McuConfig> config = card_mcu(host, slot);
    if (!config) {
        error = slot ? emu::i2c::member_path(context.path, "card") + ": the card in slot " +
                           std::to_string(*slot) + " has no mcu"
                     : context.path + ": no card of the host has an mcu";
        return nullptr;
    }
    return std::make_unique<mcu_model::McuSmbusDevice>(std::move(*config));
}

}  // namespace

bool attach_mcu_type(World &world, std::string & /*error*/) {
    auto host = std::make_shared<const nlohmann::json>(world.host);
    emu::i2c::register_device_type(
        "mcu", [host](const nlohmann::json &entry, const DeviceContext &context,
                      std::string &error) { return make_mcu(*host, entry, context, error); });
    return true;
}

}  // namespace tavo::sim
