#pragma once

#include <glib.h>
#include <umockdev.h>
#include <nlohmann/json.hpp>

#include <span>
#include <string>
#include <string_view>

namespace tavo::sim {

// tavo-sim's own directory on the simulated host. bin/ comes first in the command's PATH, for
// stand-in programs; an emulator keeps its transcripts in a subdirectory named after it.
inline constexpr std::string_view kRunDir = "/run/tavo-sim";
inline constexpr std::string_view kBinDir = "/run/tavo-sim/bin";

// What a device emulator sees of the simulated host while it attaches.
struct World {
    UMockdevTestbed *testbed;    // add devices and attach ioctl handlers here
    const nlohmann::json &host;  // the whole host description
    std::string host_name;       // the host file's name, for messages
};

// Adds one emulator's devices to the world. Returning false (with `error` set) stops tavo-sim
// before the command starts. Handlers are served by tavo-sim's main loop while it runs.
using AttachFunction = bool (*)(World &world, std::string &error);

// The emulators attached to every simulated host, in order.
std::span<const AttachFunction> attach_functions();

// Runs every attach function; the first failure is reported as "NAME: error".
bool attach_emulators(World &world, std::string &error);

// A fresh umockdev testbed whose directory lies in the private /tmp.
UMockdevTestbed *create_testbed();

// Creates kRunDir and an empty kBinDir.
bool prepare_run_dir(std::string &error);

}  // namespace tavo::sim
