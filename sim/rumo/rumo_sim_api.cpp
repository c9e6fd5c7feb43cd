// The control interface of the simulator (rumo_sim.h).
#include <rumo/rumo_sim.h>

#include "host_parse.h"
#include "mcu_frames.h"
#include "sim_global.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

using tavo::sim::Simulator;

namespace {

// Runs a control request; a refusal is reported as one line on stderr and -1.
template <class Body>
int control(const char *function, Body &&body) noexcept {
    try {
        tavo::sim::with_simulator([&](Simulator &sim) { body(sim); });
        return 0;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s: %s\n", function, e.what());
    } catch (...) {
        std::fprintf(stderr, "%s: unexpected failure\n", function);
    }
    return -1;
}

// Loading replaces the host without the first-use load from TAVO_SIM_HOST; a
// refused description leaves the simulator as it was.
template <class Load>
int load(Load &&load_host) noexcept {
    try {
        tavo::sim::Host host = load_host();
        tavo::sim::Global &g = tavo::sim::global();
        std::lock_guard<std::mutex> lock(g.mutex);
        g.simulator.replace(std::move(host));
        return 0;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "cannot load the host: unexpected failure\n");
    }
    return -1;
}

void require_pointer(const void *pointer, const char *what) {
    if (pointer == nullptr) {
        throw std::invalid_argument(std::string(what) + " is null");
    }
}

void require_text(const char *text, const char *what) {
    if (text == nullptr) {
        throw std::invalid_argument(std::string(what) + " is null");
    }
}

}  // namespace

extern "C" {

RUMO_EXPORT int rumo_sim_load_host(const char *path) {
    return load([path] {
        require_text(path, "the path");
        return tavo::sim::load_host_file(path);
    });
}

RUMO_EXPORT int rumo_sim_load_host_text(const char *json) {
    return load([json] {
        require_text(json, "the description");
        return tavo::sim::load_host_text(json);
    });
}

RUMO_EXPORT int rumo_sim_load_default(void) {
    return load([] { return tavo::sim::load_default_host(); });
}

RUMO_EXPORT int rumo_sim_set_value(uint32_t logic_id, const char *key, const char *json_value) {
    return control("rumo_sim_set_value", [&](Simulator &sim) {
        require_text(key, "the key");
        require_text(json_value, "the value");
        sim.set_value(logic_id, key, json_value);
    });
}

RUMO_EXPORT int rumo_sim_fail_next(const char *function, int32_t times, int32_t code) {
    return control("rumo_sim_fail_next", [&](Simulator &sim) {
        require_text(function, "the function name");
        sim.fail_next(function, times, code);
    });
}

RUMO_EXPORT int rumo_sim_set_device_count(int32_t count) {
    return control("rumo_sim_set_device_count",
                   [&](Simulator &sim) { sim.set_device_count(count); });
}

// (uint32_t)-1 for an unknown function name.
RUMO_EXPORT uint32_t rumo_sim_call_count(const char *function) {
    uint32_t count = UINT32_MAX;
    control("rumo_sim_call_count", [&](Simulator &sim) {
        require_text(function, "the function name");
        count = sim.call_count(function);
    });
    return count;
}

RUMO_EXPORT void rumo_sim_reset_counts(void) {
    control("rumo_sim_reset_counts", [](Simulator &sim) { sim.reset_counts(); });
}

RUMO_EXPORT int32_t rumo_sim_mcu_frame_count(uint32_t slot_id) {
    int32_t count = -1;
    control("rumo_sim_mcu_frame_count", [&](Simulator &sim) {
        count = static_cast<int32_t>(sim.mcu(slot_id).transcript().size());
    });
    return count;
}

RUMO_EXPORT int rumo_sim_mcu_get_frame(uint32_t slot_id, uint32_t index,
                                       rumo_sim_mcu_frame *frame) {
    return control("rumo_sim_mcu_get_frame", [&](Simulator &sim) {
        require_pointer(frame, "the frame");
        const auto &transcript = sim.mcu(slot_id).transcript();
        if (index >= transcript.size()) {
            throw std::invalid_argument("the MCU received " + std::to_string(transcript.size()) +
                                        " frames, there is no frame " + std::to_string(index));
        }
        *frame = tavo::sim::to_c_frame(transcript[index], slot_id);
    });
}

RUMO_EXPORT int rumo_sim_mcu_clear_frames(uint32_t slot_id) {
    return control("rumo_sim_mcu_clear_frames",
                   [&](Simulator &sim) { sim.mcu(slot_id).clear_transcript(); });
}

RUMO_EXPORT int rumo_sim_mcu_set_item(uint32_t slot_id, uint16_t command, uint8_t argument,
                                      const uint8_t *bytes, uint32_t length) {
    return control("rumo_sim_mcu_set_item", [&](Simulator &sim) {
        if (length > 0) {
            require_pointer(bytes, "the item bytes");
        }
        std::vector<std::uint8_t> item(bytes, bytes + length);
        sim.mcu(slot_id).set_item({command, argument}, std::move(item));
    });
}

RUMO_EXPORT int rumo_sim_mcu_fail_command(uint32_t slot_id, uint16_t command, int32_t times,
                                          uint16_t status) {
    return control("rumo_sim_mcu_fail_command", [&](Simulator &sim) {
        if (times < 0 || (times > 0 && status == 0)) {
            throw std::invalid_argument("times must not be negative and the status not 0");
        }
        sim.mcu(slot_id).fail_command(command, times, status);
    });
}

RUMO_EXPORT int rumo_sim_mcu_set_piece_length(uint32_t slot_id, uint16_t command, int32_t times,
                                              uint32_t length) {
    return control("rumo_sim_mcu_set_piece_length", [&](Simulator &sim) {
        if (times < 0 || length > RUMO_SIM_MCU_DATA_MAX) {
            throw std::invalid_argument("times must not be negative and the length at most " +
                                        std::to_string(RUMO_SIM_MCU_DATA_MAX));
        }
        sim.mcu(slot_id).override_piece(command, times, length);
    });
}

RUMO_EXPORT int rumo_sim_mcu_get_image(uint32_t slot_id, uint8_t *buffer, uint32_t size,
                                       uint32_t *length) {
    return control("rumo_sim_mcu_get_image", [&](Simulator &sim) {
        require_pointer(length, "the length");
        const std::vector<std::uint8_t> &image = sim.mcu(slot_id).image();
        if (size > 0) {
            require_pointer(buffer, "the buffer");
        }
        std::copy_n(image.begin(), std::min<std::size_t>(size, image.size()), buffer);
        *length = static_cast<uint32_t>(image.size());
    });
}

RUMO_EXPORT int rumo_sim_mcu_get_state(uint32_t slot_id, rumo_sim_mcu_state *state) {
    return control("rumo_sim_mcu_get_state", [&](Simulator &sim) {
        require_pointer(state, "the state");
        const tavo::mcu_model::McuModel &mcu = sim.mcu(slot_id);
        *state = rumo_sim_mcu_state{mcu.active_slot(),
                                    mcu.upgrade_state(),
                                    mcu.upgrade_progress(),
                                    mcu.last_upgrade_control(),
                                    static_cast<uint8_t>(mcu.peripheral_test_running() ? 1 : 0),
                                    static_cast<uint32_t>(mcu.image().size())};
    });
}

RUMO_EXPORT int rumo_sim_mcu_set_hook(rumo_sim_mcu_hook hook, void *context) {
    return control("rumo_sim_mcu_set_hook",
                   [&](Simulator &sim) { sim.set_mcu_hook(hook, context); });
}

}  // extern "C"
