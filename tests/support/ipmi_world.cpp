#include "ipmi_world.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tavo::test {

namespace {

[[noreturn]] void fail_world(const std::string &problem) {
    ADD_FAILURE() << "IpmiWorld: " << problem;
    throw std::runtime_error("IpmiWorld: " + problem);
}

}  // namespace

IpmiWorld::IpmiWorld(bool with_device) {
    if (const char *dir = std::getenv("UMOCKDEV_DIR"); dir != nullptr) {
        previous_dir_ = dir;
    }
    // Keep the testbed in the simulated host's private /tmp whatever TMPDIR the user had.
    g_setenv("TMPDIR", "/tmp", TRUE);
    testbed_ = umockdev_testbed_new();
    if (testbed_ == nullptr) {
        fail_world("cannot create a umockdev testbed");
    }
    g_autofree gchar *root = umockdev_testbed_get_root_dir(testbed_);
    root_ = root;
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
    node_ = emu::ipmi::IpmiNode::create(testbed_, bmc_, error);
    if (!node_) {
        fail_world(error);
    }
}

IpmiWorld::~IpmiWorld() {
    node_.reset();
    g_object_unref(testbed_);
    if (previous_dir_) {
        setenv("UMOCKDEV_DIR", previous_dir_->c_str(), 1);
    } else {
        unsetenv("UMOCKDEV_DIR");
    }
}

void IpmiWorld::set_faults(const emu::ipmi::IpmiFaults &faults) {
    node_->set_faults(faults);
}

// A dangling symbolic link: umockdev redirects the name into the testbed, where open(2)
// fails with ENOENT. (A directory would not do: the library opens read-only.)
void IpmiWorld::make_unopenable(const std::string &device) {
    std::filesystem::path path = root_ + device;
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    if (!ec) {
        std::filesystem::create_symlink(root_ + "/nonexistent", path, ec);
    }
    if (ec) {
        fail_world("cannot create " + path.string() + ": " + ec.message());
    }
}

void IpmiWorld::place_plain_file(const std::string &device) {
    std::filesystem::path path = root_ + device;
    std::error_code ec;
    std::filesystem::remove(path, ec);
    std::ofstream file(path);
    if (!file) {
        fail_world("cannot create " + path.string());
    }
}

}  // namespace tavo::test
