#include "simulator.h"

#include "chip_fields.h"
#include "host_parse.h"
#include "rumo_sim_codes.h"

#include <algorithm>

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

}  // namespace tavo::sim
