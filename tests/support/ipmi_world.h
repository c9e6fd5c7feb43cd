// An emulated BMC inside a test process.
//
// An IpmiWorld owns a private umockdev testbed holding /dev/ipmi0 served by the IPMI emulator
// (sim/emu/ipmi), so the library reaches the emulated BMC through open/ioctl. While it lives,
// UMOCKDEV_DIR names its testbed; the previous value is restored when it is destroyed. One
// world (of any kind) at a time.
//
//   tavo::test::IpmiWorld world;
//   world.bmc().set_mini(1, 1, {.state = 2});
//   DriverIpmiGetMini(1, 0, &state);
//   auto requests = world.bmc().transcript();
#pragma once

#include "sim/emu/ipmi/bmc.h"
#include "sim/emu/ipmi/ipmi_node.h"

#include <umockdev.h>

#include "scoped_testbed.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace tavo::test {

class IpmiWorld {
  public:
    // The device names the library tries, in its order.
    static constexpr std::array<const char *, 4> kCandidates{"/dev/ipmi/0", "/dev/ipmidev/0",
                                                             "/dev/ipmi0", "/dev/ipmidev0"};

    // With `with_device` false there is no IPMI device at all: every candidate is made
    // unopenable, so that the real machine's nodes are not reached either. Fails the test
    // (gtest fatal failure, then throws) when the testbed cannot be built.
    explicit IpmiWorld(bool with_device = true);
    ~IpmiWorld();
    IpmiWorld(const IpmiWorld &) = delete;
    IpmiWorld &operator=(const IpmiWorld &) = delete;

    // Only with a device.
    emu::ipmi::Bmc &bmc() { return *bmc_; }
    void set_faults(const emu::ipmi::IpmiFaults &faults);
    const std::string &root() const { return testbed_.root(); }
    // Puts an empty regular file at candidate `device` (one that opens read-only).
    void place_plain_file(const std::string &device);

  private:
    void make_unopenable(const std::string &device);

    // First, so that it goes last: the nodes need it while they are torn down.
    ScopedTestbed testbed_;
    std::shared_ptr<emu::ipmi::Bmc> bmc_;
    std::unique_ptr<emu::ipmi::IpmiNode> node_;
};

}  // namespace tavo::test
