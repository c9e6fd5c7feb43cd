#include "ipmi_world.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tavo::test {

IpmiWorld::IpmiWorld(bool with_device) : testbed_("IpmiWorld") {
    if (!with_device) {
        for (const char *device : kCandidates) {
            make_unopenable(device);
        }
        return;
    }
    // The names tried before /dev/ipmi0 must not reach the real machine either. Only those
    // that exist there are covered: umockdev's preload keeps a slot of its descriptor table
    // for every failed open of a testbed node and gives up after a few dozen.
    for (const char *device : {kCandidates[0], kCandidates[1]}) {
        if (std::error_code ec; std::filesystem::exists(device, ec)) {
            make_unopenable(device);
        }
    }
    bmc_ = std::make_shared<emu::ipmi::Bmc>();
    std::string error;
    node_ = emu::ipmi::IpmiNode::create(testbed_.get(), bmc_, error);
    if (!node_) {
        testbed_.fail(error);
    }
}

IpmiWorld::~IpmiWorld() {
    node_.reset();
}

void IpmiWorld::set_faults(const emu::ipmi::IpmiFaults &faults) {
    node_->set_faults(faults);
}

// A dangling symbolic link: umockdev redirects the name into the testbed, where open(2)
// fails with ENOENT. (A directory would not do: the library opens read-only.)
void IpmiWorld::make_unopenable(const std::string &device) {
    std::filesystem::path path = testbed_.root() + device;
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    if (!ec) {
        std::filesystem::create_symlink(testbed_.root() + "/nonexistent", path, ec);
    }
    if (ec) {
        testbed_.fail("cannot create " + path.string() + ": " + ec.message());
    }
}

void IpmiWorld::place_plain_file(const std::string &device) {
    std::filesystem::path path = testbed_.root() + device;
    std::error_code ec;
    std::filesystem::remove(path, ec);
    std::ofstream file(path);
    if (!file) {
        testbed_.fail("cannot create " + path.string());
    }
}

}  // namespace tavo::test
