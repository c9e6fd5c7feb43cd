// The one simulator instance of librumo.so.1 and its lock.
#pragma once

#include "simulator.h"

#include <rumo/rumo_sim.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

// The library exports the rumo_ and rumo_sim_ functions and nothing else.
#define RUMO_EXPORT __attribute__((visibility("default")))

namespace tavo::sim {

struct Global {
    std::mutex mutex;
    Simulator simulator;
};

Global &global();

// Runs `f` on the simulator under its lock, after loading the host at first use.
template <class F>
auto with_simulator(F &&f) {
    Global &g = global();
    std::lock_guard<std::mutex> lock(g.mutex);
    if (auto failure = g.simulator.load_at_first_use(std::getenv(RUMO_SIM_HOST_ENV))) {
        std::fprintf(stderr, "%s\n", failure->c_str());
    }
    return f(g.simulator);
}

}  // namespace tavo::sim
