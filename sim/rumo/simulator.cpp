#include "simulator.h"

#include "chip_fields.h"
#include "host_parse.h"
#include "mcu_frames.h"
#include "rumo_sim_codes.h"

#include <algorithm>
#include <cstring>

namespace tavo::sim {

namespace {

Fn known_function(std::string_view name) {
    std::optional<Fn> fn = function_by_name(name);
    if (!fn) {
        throw ControlError("unknown function \"" + std::string(name) + "\"");
    }
    return *fn;
}

std::size_t index_of(Fn fn) {
    return static_cast<std::size_t>(fn);
}

}  // namespace

std::optional<std::string> Simulator::load_at_first_use(const char *env_value) {
    if (state_ != State::unloaded) {
        return std::nullopt;
    }
    try {
        replace(env_value != nullptr && *env_value != '\0' ? load_host_file(env_value)
                                                           : load_default_host());
        return std::nullopt;
    } catch (const std::exception &e) {
        state_ = State::failed;
        return e.what();
    }
}

void Simulator::replace(Host host) {
    host_ = std::move(host);
    shown_ = host_.chips.size();
    calls_ = {};
    injections_ = {};
    mcus_.clear();
    mcu_hook_ = nullptr;
    mcu_hook_context_ = nullptr;
    for (std::size_t card = 0; card < host_.cards.size(); ++card) {
        const std::optional<mcu_model::McuConfig> &config = host_.cards[card].mcu;
        mcus_.push_back(config ? std::optional<mcu_model::McuModel>(*config) : std::nullopt);
        follow_active_link(card);
    }
    state_ = State::ready;
}

int Simulator::enter(Fn fn) {
    ++calls_[index_of(fn)];
    if (state_ != State::ready) {
        return RUMO_SIM_ERR_NO_HOST;
    }
    Injection &injection = injections_[index_of(fn)];
    if (injection.remaining > 0) {
        --injection.remaining;
        return injection.code;
    }
    return RUMO_SIM_OK;
}

Simulator::ChipAccess Simulator::open_chip(Fn fn, std::uint32_t logic_id) {
    auto shown = host_.chips.begin() + static_cast<std::ptrdiff_t>(shown_);
    auto it = std::find_if(host_.chips.begin(), shown,
                           [logic_id](const Chip &c) { return c.logic_id == logic_id; });
    if (it == shown) {
        return {RUMO_SIM_ERR_NO_DEVICE, nullptr};
    }
    if (auto failure = it->fail.find(kFunctionNames[index_of(fn)]); failure != it->fail.end()) {
        return {failure->second, nullptr};
    }
    return {RUMO_SIM_OK, &*it};
}

void Simulator::require_host() const {
    if (state_ != State::ready) {
        throw ControlError("no host is loaded");
    }
}

void Simulator::set_value(std::uint32_t logic_id, std::string_view key,
                          std::string_view json_text) {
    require_host();
    auto it = std::find_if(host_.chips.begin(), host_.chips.end(),
                           [logic_id](const Chip &c) { return c.logic_id == logic_id; });
    if (it == host_.chips.end()) {
        throw ControlError("no chip with logic id " + std::to_string(logic_id));
    }
    std::string chip_name = "chip " + std::to_string(logic_id) + ": ";
    json value;
    try {
        value = parse_json_text(json_text);
    } catch (const DescriptionError &e) {
        throw ControlError(chip_name + std::string(key) + ": " + e.what());
    }
    // Work on a copy so that a refused value changes nothing.
    Chip changed = *it;
    try {
        set_chip_field(changed, static_cast<std::size_t>(it - host_.chips.begin()), key, value);
    } catch (const DescriptionError &e) {
        throw ControlError(chip_name + e.what());
    }
    *it = std::move(changed);
}

void Simulator::fail_next(std::string_view function, std::int32_t times, std::int32_t code) {
    Fn fn = known_function(function);
    if (times < 0) {
        throw ControlError("times must not be negative");
    }
    if (times > 0 && code == 0) {
        throw ControlError("a failure code must not be 0");
    }
    injections_[index_of(fn)] = {times, code};
}

void Simulator::set_device_count(std::int32_t count) {
    require_host();
    std::size_t all = host_.chips.size();
    if (count < -1 || (count >= 0 && static_cast<std::size_t>(count) > all)) {
        throw ControlError("count must be -1 or 0.." + std::to_string(all));
    }
    shown_ = count == -1 ? all : static_cast<std::size_t>(count);
}

std::uint32_t Simulator::call_count(std::string_view function) const {
    return calls_[index_of(known_function(function))];
}

std::uint32_t Simulator::chip_slot(const Chip &chip) const {
    const std::optional<mcu_model::McuConfig> &config = host_.cards[chip.card].mcu;
    if (!config) {
        return 0;
    }
    std::size_t index = 0;
    for (const Chip &other : host_.chips) {
        if (&other == &chip) {
            break;
        }
        index += other.card == chip.card ? 1 : 0;
    }
    return index < config->chip_slots.size() ? config->chip_slots[index] : 0;
}

void Simulator::follow_active_link(std::size_t card) {
    const std::optional<mcu_model::McuModel> &mcu = mcus_[card];
    if (!mcu) {
        return;
    }
    for (Chip &chip : host_.chips) {
        std::uint32_t slot = chip.card == card ? chip_slot(chip) : 0;
        if (slot != 0) {
            chip.heartbeat.status = slot == mcu->active_slot() ? 1 : 0;
        }
    }
}

// Pass-through record: u32 request size, u32 direction, request frame (1024 bytes),
// response frame (1024 bytes).
int Simulator::passthru_mcu(const Chip &chip, void *record) {
    constexpr std::size_t kRequestAt = 8;
    constexpr std::size_t kResponseAt = kRequestAt + mcu_model::kRequestMax;
    if (record == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    std::optional<mcu_model::McuModel> &mcu = mcus_[chip.card];
    std::uint32_t slot = chip_slot(chip);
    if (!mcu || slot == 0) {
        return RUMO_SIM_ERR_NO_MCU;
    }
    if (slot != mcu->active_slot()) {
        return RUMO_SIM_ERR_LINK_DOWN;
    }
    auto *bytes = static_cast<std::uint8_t *>(record);
    std::uint32_t size = 0;
    std::uint32_t direction = 0;
    std::memcpy(&size, bytes, sizeof size);
    std::memcpy(&direction, bytes + sizeof size, sizeof direction);
    if (direction > 1 || size < mcu_model::kHeaderSize || size > mcu_model::kRequestMax) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    std::uint32_t active_before = mcu->active_slot();
    std::optional<std::vector<std::uint8_t>> response =
        mcu->handle({bytes + kRequestAt, size}, static_cast<mcu_model::Direction>(direction),
                    mcu_model::Transport::passthru, chip.logic_id);
    if (!response) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    std::memcpy(bytes + kResponseAt, response->data(), response->size());
    if (mcu->active_slot() != active_before) {
        follow_active_link(chip.card);
    }
    if (mcu_hook_ != nullptr) {
        rumo_sim_mcu_frame frame =
            to_c_frame(mcu->transcript().back(), host_.cards[chip.card].slot_id);
        mcu_hook_(&frame, mcu_hook_context_);
    }
    return RUMO_SIM_OK;
}

mcu_model::McuModel &Simulator::mcu(std::uint32_t slot_id) {
    require_host();
    for (std::size_t card = 0; card < host_.cards.size(); ++card) {
        if (host_.cards[card].slot_id == slot_id) {
            if (!mcus_[card]) {
                throw ControlError("the card in slot " + std::to_string(slot_id) + " has no MCU");
            }
            return *mcus_[card];
        }
    }
    throw ControlError("no card in slot " + std::to_string(slot_id));
}

void Simulator::set_mcu_hook(rumo_sim_mcu_hook hook, void *context) {
    mcu_hook_ = hook;
    mcu_hook_context_ = context;
}

}  // namespace tavo::sim
