// The control interface of the simulator (rumo_sim.h).
#include <rumo/rumo_sim.h>

#include "host_parse.h"
#include "sim_global.h"

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

}  // extern "C"
