// Requests to the BMC through the Linux IPMI device, and the OEM mini reset built on them.
#include "drivers/driver_ipmi.h"

#include <fcntl.h>
#include <linux/ipmi.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "api/tavo_log.h"
#include "base/bounded.h"
#include "base/sys.h"
#include "tavo/tavo_export.h"

#define IPMI_LOG_ERR(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, "driver_ipmi", format __VA_OPT__(, ) __VA_ARGS__)

namespace {

using namespace tavo::ipmi;

constexpr std::array<const char *, 4> kDeviceStems{"/dev/ipmi/", "/dev/ipmidev/", "/dev/ipmi",
                                                   "/dev/ipmidev"};
constexpr std::size_t kPathSize = 256;
constexpr int kNoDevice = -11;
constexpr int kAddressFailed = -13;
constexpr int kSendFailed = -24;
constexpr int kReceiveFailed = -26;
constexpr int kCompletionCode = -27;
// The kernel's receive address may be of any type; this holds the largest.
constexpr std::size_t kReceiveAddressSize = 40;
constexpr std::size_t kOemRequestSize = 11;
constexpr uint32_t kOemResponseSize = 80;
constexpr std::size_t kStateByte = 4;
// Fixed wait for the BMC's answer instead of polling the descriptor.
constexpr unsigned kResponseWaitSeconds = 1;

// Process-wide and unlocked: concurrent requests may share an id, which the kernel
// tolerates because each descriptor receives only its own responses.
uint64_t g_message_id = 0;

// Closes the descriptor of one request on every path out of DriverIpmiCmd.
class CloseOnExit {
  public:
    explicit CloseOnExit(int fd) : fd_(fd) {}
    ~CloseOnExit() { (void)DriverCloseIpmi(fd_); }
    CloseOnExit(const CloseOnExit &) = delete;
    CloseOnExit &operator=(const CloseOnExit &) = delete;

  private:
    int fd_;
};

void clear(void *record, std::size_t size) {
    int cleared = memset_s(record, size, 0, size);
    if (cleared != 0) {
        TAVO_LOG_FOR(tavo::log::kErr, "driver_ipmi", "DriverIpmiCmd",
                     "call memset_s failed.%d\n\r\n", cleared);
    }
}

std::array<uint8_t, kOemRequestSize> oem_request(uint8_t sub_command, uint32_t card,
                                                 uint32_t mini) {
    return {static_cast<uint8_t>(kOemEnterpriseNumber & 0xFF),
            static_cast<uint8_t>((kOemEnterpriseNumber >> 8) & 0xFF),
            static_cast<uint8_t>((kOemEnterpriseNumber >> 16) & 0xFF),
            sub_command,
            0,
            0,
            0,
            0,
            static_cast<uint8_t>(card),
            static_cast<uint8_t>(mini + 1),  // minis are numbered from 1 on the wire
            1};
}

}  // namespace

extern "C" {

TAVO_API int DriverOpenIpmi(uint8_t number) {
    for (const char *stem : kDeviceStems) {
        char path[kPathSize] = {};
        int length = snprintf_s(path, sizeof path, sizeof path - 1, "%s%d", stem, number);
        if (!tavo::base::formatted_whole(length, sizeof path - 1)) {
            IPMI_LOG_ERR("call snprintf_s failed.%d.\n\r\n", length);
        }
        tavo::base::UniqueFd fd = tavo::base::sys_open(path, O_RDONLY);
        if (fd) {
            return fd.release();
        }
    }
    return kNoDevice;
}

TAVO_API int DriverCloseIpmi(int fd) {
    // Descriptor 0 is never the device's: standard input stays open.
    if (fd < 1) {
        return -1;
    }
    return close(fd);
}

TAVO_API int DriverIpmiCmd(uint8_t cmd, uint8_t netfn, uint8_t lun, const uint8_t *request,
                           uint32_t request_length, uint8_t *response, uint32_t response_size,
                           uint32_t *response_length) {
    ipmi_system_interface_addr address;
    ipmi_req send;
    ipmi_recv receive;
    std::array<uint8_t, kReceiveAddressSize> receive_address;
    unsigned int my_address;
    clear(&address, sizeof address);
    clear(&send, sizeof send);
    clear(&receive, sizeof receive);
    clear(receive_address.data(), receive_address.size());
    clear(&my_address, sizeof my_address);

    int fd = DriverOpenIpmi(0);
    if (fd < 0) {
        IPMI_LOG_ERR("call DriverOpenIpmi failed.%d\n\r\n", fd);
        std::fputs("Something wrong with ipmi driver. Please install ipmi driver.", stdout);
        return fd;
    }
    CloseOnExit closer(fd);
    if (tavo::base::sys_ioctl(fd, IPMICTL_GET_MY_ADDRESS_CMD, &my_address) != 0) {
        IPMI_LOG_ERR("IPMI ioctl IPMICTL_GET_MY_ADDRESS_CMD fail\n\r\n");
        return kAddressFailed;
    }

    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;
    address.lun = lun;
    send.addr = reinterpret_cast<unsigned char *>(&address);
    send.addr_len = sizeof address;
    send.msgid = static_cast<long>(g_message_id++);
    send.msg.netfn = netfn;
    send.msg.cmd = cmd;
    send.msg.data = const_cast<uint8_t *>(request);  // the kernel only reads it
    send.msg.data_len = static_cast<unsigned short>(request_length);
    int sent = tavo::base::sys_ioctl(fd, IPMICTL_SEND_COMMAND, &send);
    if (sent != 0) {
        IPMI_LOG_ERR("IPMI ioctl IPMICTL_SEND_COMMAND fail.%d\r\n", sent);
        return kSendFailed;
    }

    sleep(kResponseWaitSeconds);

    receive.addr = receive_address.data();
    receive.addr_len = receive_address.size();
    receive.msg.data = response;
    receive.msg.data_len = static_cast<unsigned short>(response_size);
    int received = tavo::base::sys_ioctl(fd, IPMICTL_RECEIVE_MSG_TRUNC, &receive);
    // A failed receive that left the length alone counts as a full answer: kept on purpose.
    if (received != -1 || receive.msg.data_len == response_size) {
        *response_length = receive.msg.data_len;
        return 0;
    }
    return kReceiveFailed;
}

TAVO_API int DriverIpmiResetMini(uint32_t pcie_card, uint32_t mini) {
    std::array<uint8_t, kOemRequestSize> request = oem_request(kSubResetMini, pcie_card, mini);
    std::array<uint8_t, kOemResponseSize> response{};
    uint32_t length = 0;
    int result = DriverIpmiCmd(kOemCmd, kOemNetFn, 0, request.data(), request.size(),
                               response.data(), response.size(), &length);
    if (result != 0) {
        IPMI_LOG_ERR("Reset pcie %d mini %d failed. %d\n\r\n", pcie_card, mini, result);
        return result;
    }
    if (response[0] != 0) {
        IPMI_LOG_ERR("Wrong complete code[%02x].\n\r\n", response[0]);
        return kCompletionCode;
    }
    return 0;
}

TAVO_API int DriverIpmiGetMini(uint32_t pcie_card, uint32_t mini, uint8_t *state) {
    std::array<uint8_t, kOemRequestSize> request = oem_request(kSubGetMini, pcie_card, mini);
    std::array<uint8_t, kOemResponseSize> response{};
    uint32_t length = 0;
    int result = DriverIpmiCmd(kOemCmd, kOemNetFn, 0, request.data(), request.size(),
                               response.data(), response.size(), &length);
    if (result != 0) {
        IPMI_LOG_ERR("Get pcie %d mini %d reset state failed. %d\n\r\n", pcie_card, mini, result);
        return result;
    }
    if (response[0] != 0) {
        IPMI_LOG_ERR("Wrong complete code[%02x]\n\r\n", response[0]);
        return kCompletionCode;
    }
    *state = response[kStateByte];
    return 0;
}

}  // extern "C"
