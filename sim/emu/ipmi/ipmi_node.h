// Serves /dev/ipmi0 of a umockdev testbed from a Bmc, as the kernel's ipmi_devintf serves the
// system interface: IPMICTL_GET_MY_ADDRESS_CMD, IPMICTL_SEND_COMMAND and
// IPMICTL_RECEIVE_MSG(_TRUNC), IPMICTL_SET_MY_ADDRESS_CMD and IPMICTL_SET_GETS_EVENTS_CMD
// (accepted; no events are sent).
// Answers wait per open file until received, as in the kernel. Any other request is refused with
// ENOTTY.
#pragma once

#include "bmc.h"

#include <umockdev.h>

#include <memory>
#include <string>

namespace tavo::emu::ipmi {

// Failures on demand, for the library's error paths. 0: no fault.
struct IpmiFaults {
    int address_errno = 0;  // IPMICTL_GET_MY_ADDRESS_CMD fails with this errno
    int send_errno = 0;     // IPMICTL_SEND_COMMAND fails with this errno
    // The receive fails with this errno after writing a zero data length, as a kernel whose
    // copy to the caller broke half-way would.
    int receive_errno = 0;
    // The BMC never answers: receive fails with EAGAIN and leaves the record alone.
    bool silent = false;
};

class IpmiNode {
  public:
    // Adds the ipmi device 0 and its node /dev/ipmi0 to `testbed` and attaches the handler.
    // nullptr, with `error` set, when umockdev refuses either.
    static std::unique_ptr<IpmiNode> create(UMockdevTestbed *testbed, std::shared_ptr<Bmc> bmc,
                                            std::string &error);
    ~IpmiNode();
    IpmiNode(const IpmiNode &) = delete;
    IpmiNode &operator=(const IpmiNode &) = delete;

    Bmc &bmc() { return *bmc_; }
    void set_faults(const IpmiFaults &faults);

    static constexpr const char *kDevicePath = "/dev/ipmi0";
    // The kernel's own slave address of the system interface.
    static constexpr unsigned kMyAddress = 0x20;

  private:
    struct Impl;
    IpmiNode(std::unique_ptr<Impl> impl, std::shared_ptr<Bmc> bmc);

    std::unique_ptr<Impl> impl_;
    std::shared_ptr<Bmc> bmc_;
};

}  // namespace tavo::emu::ipmi
