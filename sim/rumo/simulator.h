// State of the simulated host: the description, call counts, injected failures
// and the number of chips shown. Not locked: the C layer serialises all access.
#pragma once

#include "functions.h"
#include "host_model.h"
#include "mcu_model.h"

#include <rumo/rumo_sim.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::sim {

// A refused control request; what() is the one-line reason.
class ControlError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Simulator {
  public:
    // Loads the host at first use: the file named by `env_value` when it is set and
    // not empty, else the built-in default. Returns the reason of a failed load the
    // one time it fails; nothing otherwise.
    std::optional<std::string> load_at_first_use(const char *env_value);

    // Replaces the host; call counts, injected failures and the chip limit start afresh.
    void replace(Host host);

    // Counts a call of `fn`. Returns the code to answer at once (no host, injected
    // failure) or 0 to go on.
    int enter(Fn fn);

    struct ChipAccess {
        int code;
        Chip *chip;
    };
    // The shown chip with this logic id, unless the description makes it fail `fn`.
    ChipAccess open_chip(Fn fn, std::uint32_t logic_id);

    const Card &card_of(const Chip &chip) const { return host_.cards[chip.card]; }
    std::span<const Chip> shown_chips() const { return {host_.chips.data(), shown_}; }
    const Host &host() const { return host_; }

    void set_value(std::uint32_t logic_id, std::string_view key, std::string_view json_text);
    void fail_next(std::string_view function, std::int32_t times, std::int32_t code);
    void set_device_count(std::int32_t count);
    std::uint32_t call_count(std::string_view function) const;
    void reset_counts() { calls_ = {}; }

    // rumo_passthru_mcu on `chip`: the record's request goes to the MCU of the chip's
    // card when the chip is wired to it and carries its active link.
    int passthru_mcu(const Chip &chip, void *record);
    // The MCU of the first card with this slot id; ControlError when it has none.
    mcu_model::McuModel &mcu(std::uint32_t slot_id);
    // Called with every request that reaches an MCU, under the simulator's lock.
    void set_mcu_hook(rumo_sim_mcu_hook hook, void *context);

  private:
    enum class State { unloaded, ready, failed };
    struct Injection {
        std::int32_t remaining = 0;
        std::int32_t code = 0;
    };

    void require_host() const;

    State state_ = State::unloaded;
    Host host_;
    std::size_t shown_ = 0;
    std::array<std::uint32_t, kFunctionCount> calls_{};
    std::array<Injection, kFunctionCount> injections_{};
    // By card index; empty for a card without an MCU.
    std::vector<std::optional<mcu_model::McuModel>> mcus_;
    rumo_sim_mcu_hook mcu_hook_ = nullptr;
    void *mcu_hook_context_ = nullptr;

    // Chip slot (1, 3) of `chip` on its card's MCU; 0 when not wired.
    std::uint32_t chip_slot(const Chip &chip) const;
    // The chip carrying the active link reports a live heartbeat, the others a dead one.
    void follow_active_link(std::size_t card);
};

}  // namespace tavo::sim
