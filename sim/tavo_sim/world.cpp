#include "world.h"

#include "i2c_emulators.h"
#include "ipmi_emulator.h"
#include "mcu_emulator.h"
#include "memory_map.h"

#include <array>
#include <filesystem>

namespace tavo::sim {

namespace {

// To add an emulator, declare its attach function in its own header and list it here.
constexpr std::array<AttachFunction, 4> kAttachFunctions{attach_mcu_type, attach_i2c, attach_ipmi,
                                                         attach_memory_map};

}  // namespace

std::span<const AttachFunction> attach_functions() {
    return kAttachFunctions;
}

bool attach_emulators(World &world, std::string &error) {
    for (AttachFunction attach : attach_functions()) {
        if (!attach(world, error)) {
            error = world.host_name + ": " + error;
            return false;
        }
    }
    return true;
}

UMockdevTestbed *create_testbed() {
    // The testbed directory goes under g_get_tmp_dir(); a TMPDIR pointing outside the private
    // /tmp would leave it on the real machine. The command still gets the user's TMPDIR.
    g_setenv("TMPDIR", "/tmp", TRUE);
    return umockdev_testbed_new();
}

bool prepare_run_dir(std::string &error) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(kBinDir), ec);
    if (ec) {
        error = "cannot create " + std::string(kBinDir) + ": " + ec.message();
        return false;
    }
    return true;
}

}  // namespace tavo::sim
