#include "ipmi_node.h"
#include "sim/emu/ioctl_reply.h"

#include <linux/ipmi.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

namespace tavo::emu::ipmi {

namespace {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using DataRef = std::unique_ptr<UMockdevIoctlData, GObjectUnref>;

DataRef resolve(UMockdevIoctlData *parent, std::size_t offset, std::size_t length) {
    g_autoptr(GError) error = nullptr;
    DataRef child(umockdev_ioctl_data_resolve(parent, offset, length, &error));
    return error == nullptr ? std::move(child) : nullptr;
}

template <typename T>
T read_struct(const UMockdevIoctlData *data) {
    T value{};
    std::memcpy(&value, data->data, sizeof value);
    return value;
}

// One answer waiting for IPMICTL_RECEIVE_MSG.
struct Pending {
    long msgid = 0;
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    uint8_t lun = 0;
    std::vector<uint8_t> data;
};

}  // namespace

struct IpmiNode::Impl {
    UMockdevTestbed *testbed = nullptr;
    UMockdevIoctlBase *handler = nullptr;
    std::shared_ptr<Bmc> bmc;
    std::mutex mutex;
    IpmiFaults faults;
    unsigned int own_address = kMyAddress;
    std::map<UMockdevIoctlClient *, std::deque<Pending>> pending;

    ~Impl() {
        if (handler != nullptr) {
            g_autoptr(GError) error = nullptr;
            umockdev_testbed_detach_ioctl(testbed, kDevicePath, &error);
            g_signal_handlers_disconnect_by_data(handler, this);
            g_object_unref(handler);
        }
        if (testbed != nullptr) {
            g_object_unref(testbed);
        }
    }

    IpmiFaults current_faults() {
        std::lock_guard lock(mutex);
        return faults;
    }

    // Each returns the ioctl's result: >= 0, or a negative errno.
    long my_address(UMockdevIoctlClient *client);
    long set_my_address(UMockdevIoctlClient *client);
    long send(UMockdevIoctlClient *client);
    long receive(UMockdevIoctlClient *client, bool truncate);
    long dispatch(UMockdevIoctlClient *client, unsigned long request);

    static gboolean on_ioctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self);
    static void on_vanished(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self);
};

long IpmiNode::Impl::my_address(UMockdevIoctlClient *client) {
    if (int fault = current_faults().address_errno; fault != 0) {
        return -fault;
    }
    DataRef out = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(unsigned int));
    if (!out) {
        return -EFAULT;
    }
    std::lock_guard lock(mutex);
    std::memcpy(out->data, &own_address, sizeof own_address);
    return 0;
}

long IpmiNode::Impl::set_my_address(UMockdevIoctlClient *client) {
    DataRef in = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(unsigned int));
    if (!in) {
        return -EFAULT;
    }
    unsigned int value = read_struct<unsigned int>(in.get());
    if (value > 0xFF) {
        return -EINVAL;
    }
    std::lock_guard lock(mutex);
    own_address = value;
    return 0;
}

long IpmiNode::Impl::send(UMockdevIoctlClient *client) {
    if (int fault = current_faults().send_errno; fault != 0) {
        return -fault;
    }
    DataRef arg = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(ipmi_req));
    if (!arg) {
        return -EFAULT;
    }
    auto request = read_struct<ipmi_req>(arg.get());
    // Only the system interface to the BMC is emulated; IPMB and LAN addresses are refused.
    if (request.addr == nullptr || request.addr_len != sizeof(ipmi_system_interface_addr)) {
        return -EINVAL;
    }
    DataRef addr = resolve(arg.get(), offsetof(ipmi_req, addr), request.addr_len);
    if (!addr) {
        return -EFAULT;
    }
    auto address = read_struct<ipmi_system_interface_addr>(addr.get());
    if (address.addr_type != IPMI_SYSTEM_INTERFACE_ADDR_TYPE ||
        address.channel != IPMI_BMC_CHANNEL || address.lun > 3) {
        return -EINVAL;
    }
    if (request.msg.data_len > IPMI_MAX_MSG_LENGTH) {
        return -EMSGSIZE;
    }
    std::vector<uint8_t> data;
    if (request.msg.data_len > 0) {
        DataRef bytes = resolve(arg.get(), offsetof(ipmi_req, msg) + offsetof(ipmi_msg, data),
                                request.msg.data_len);
        if (!bytes) {
            return -EFAULT;
        }
        data.assign(bytes->data, bytes->data + request.msg.data_len);
    }
    Pending answer{request.msgid, request.msg.netfn, request.msg.cmd, address.lun,
                   bmc->handle(request.msg.netfn, request.msg.cmd, data, request.msgid)};
    std::lock_guard lock(mutex);
    if (!faults.silent) {
        pending[client].push_back(std::move(answer));
    }
    return 0;
}

long IpmiNode::Impl::receive(UMockdevIoctlClient *client, bool truncate) {
    UMockdevIoctlData *raw = umockdev_ioctl_client_get_arg(client);
    DataRef arg = resolve(raw, 0, sizeof(ipmi_recv));
    if (!arg) {
        return -EFAULT;
    }
    auto record = read_struct<ipmi_recv>(arg.get());
    if (int fault = current_faults().receive_errno; fault != 0) {
        record.msg.data_len = 0;
        std::memcpy(arg->data, &record, sizeof record);
        return -fault;
    }
    if (record.addr == nullptr || record.addr_len < sizeof(ipmi_system_interface_addr)) {
        return -EINVAL;
    }
    Pending answer;
    {
        std::lock_guard lock(mutex);
        auto &queue = pending[client];
        if (queue.empty()) {
            return -EAGAIN;
        }
        if (!truncate && queue.front().data.size() > record.msg.data_len) {
            return -EMSGSIZE;  // the kernel keeps the answer for a larger buffer
        }
        answer = std::move(queue.front());
        queue.pop_front();
    }
    DataRef addr = resolve(arg.get(), offsetof(ipmi_recv, addr), record.addr_len);
    std::size_t length = std::min<std::size_t>(answer.data.size(), record.msg.data_len);
    DataRef data;
    if (length > 0) {
        data = resolve(arg.get(), offsetof(ipmi_recv, msg) + offsetof(ipmi_msg, data), length);
    }
    if (!addr || (length > 0 && !data)) {
        return -EFAULT;
    }
    ipmi_system_interface_addr from{IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, answer.lun};
    std::memcpy(addr->data, &from, sizeof from);
    if (length > 0) {
        std::memcpy(data->data, answer.data.data(), length);
    }
    record.recv_type = IPMI_RESPONSE_RECV_TYPE;
    record.addr_len = sizeof from;
    record.msgid = answer.msgid;
    record.msg.netfn = static_cast<unsigned char>(answer.netfn | 1);  // the response netfn
    record.msg.cmd = answer.cmd;
    record.msg.data_len = static_cast<unsigned short>(length);
    std::memcpy(arg->data, &record, sizeof record);
    // As the kernel: a cut answer is still delivered, and reported with EMSGSIZE.
    return length < answer.data.size() ? -EMSGSIZE : 0;
}

long IpmiNode::Impl::dispatch(UMockdevIoctlClient *client, unsigned long request) {
    switch (request) {
        case IPMICTL_GET_MY_ADDRESS_CMD:
            return my_address(client);
        case IPMICTL_SET_MY_ADDRESS_CMD:
            return set_my_address(client);
        case IPMICTL_SET_GETS_EVENTS_CMD:
            return 0;  // accepted; the BMC sends no events
        case IPMICTL_SEND_COMMAND:
            return send(client);
        case IPMICTL_RECEIVE_MSG_TRUNC:
            return receive(client, true);
        case IPMICTL_RECEIVE_MSG:
            return receive(client, false);
        default:
            std::fprintf(stderr, "ipmi emulator: refusing unknown ioctl 0x%lx\n", request);
            return -ENOTTY;
    }
}

gboolean IpmiNode::Impl::on_ioctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self) {
    auto *impl = static_cast<Impl *>(self);
    complete_ioctl(client, impl->dispatch(client, umockdev_ioctl_client_get_request(client)));
    return TRUE;
}

void IpmiNode::Impl::on_vanished(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self) {
    auto *impl = static_cast<Impl *>(self);
    std::lock_guard lock(impl->mutex);
    impl->pending.erase(client);
}

IpmiNode::IpmiNode(std::unique_ptr<Impl> impl, std::shared_ptr<Bmc> bmc)
    : impl_(std::move(impl)), bmc_(std::move(bmc)) {}

IpmiNode::~IpmiNode() = default;

void IpmiNode::set_faults(const IpmiFaults &faults) {
    std::lock_guard lock(impl_->mutex);
    impl_->faults = faults;
}

std::unique_ptr<IpmiNode> IpmiNode::create(UMockdevTestbed *testbed, std::shared_ptr<Bmc> bmc,
                                           std::string &error) {
    auto impl = std::make_unique<Impl>();
    impl->testbed = UMOCKDEV_TESTBED(g_object_ref(testbed));
    impl->bmc = bmc;
    g_autoptr(GError) gerror = nullptr;
    if (!umockdev_testbed_add_from_string(
            testbed, "P: /devices/virtual/ipmi/ipmi0\nN: ipmi0\nE: SUBSYSTEM=ipmi\n", &gerror)) {
        error = std::string(kDevicePath) + ": " + gerror->message;
        return nullptr;
    }
    impl->handler = umockdev_ioctl_base_new();
    g_signal_connect(impl->handler, "handle-ioctl", G_CALLBACK(Impl::on_ioctl), impl.get());
    g_signal_connect(impl->handler, "client-vanished", G_CALLBACK(Impl::on_vanished), impl.get());
    if (!umockdev_testbed_attach_ioctl(testbed, kDevicePath, impl->handler, &gerror)) {
        error = std::string(kDevicePath) + ": " + gerror->message;
        return nullptr;
    }
    return std::unique_ptr<IpmiNode>(new IpmiNode(std::move(impl), std::move(bmc)));
}

}  // namespace tavo::emu::ipmi
