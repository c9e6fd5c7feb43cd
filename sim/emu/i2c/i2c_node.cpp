#include "i2c_node.h"
#include "sim/emu/ioctl_reply.h"

#include <linux/i2c-dev.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

namespace tavo::emu::i2c {

namespace {

// The kernel's limits for I2C_RDWR.
constexpr std::size_t kMaxMessageLength = 8192;

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using DataRef = std::unique_ptr<UMockdevIoctlData, GObjectUnref>;

// The argument of an ioctl that takes its value directly (I2C_SLAVE, I2C_RETRIES).
unsigned long value_argument(UMockdevIoctlClient *client) {
    UMockdevIoctlData *arg = umockdev_ioctl_client_get_arg(client);
    unsigned long value = 0;
    std::memcpy(&value, arg->data,
                std::min(sizeof value, static_cast<std::size_t>(std::max(arg->data_len, 0))));
    return value;
}

// The `length` bytes that the pointer at `offset` of `parent` points to; null if unreadable.
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

}  // namespace

struct I2cNode::Impl {
    UMockdevTestbed *testbed = nullptr;
    UMockdevIoctlBase *handler = nullptr;
    std::string path;
    std::shared_ptr<I2cBus> bus;
    std::mutex mutex;
    // Slave address of each open file (I2C_SLAVE).
    std::map<UMockdevIoctlClient *, uint16_t> slaves;

    ~Impl() {
        if (handler != nullptr) {
            // A node whose attaching failed has nothing to detach.
            g_autoptr(GError) error = nullptr;
            umockdev_testbed_detach_ioctl(testbed, path.c_str(), &error);
            g_signal_handlers_disconnect_by_data(handler, this);
            g_object_unref(handler);
        }
        if (testbed != nullptr) {
            g_object_unref(testbed);
        }
    }

    uint16_t slave(UMockdevIoctlClient *client) {
        std::lock_guard lock(mutex);
        auto it = slaves.find(client);
        return it == slaves.end() ? 0 : it->second;
    }

    // Each returns the ioctl's result: >= 0, or a negative errno.
    long set_slave(UMockdevIoctlClient *client);
    long functionality(UMockdevIoctlClient *client);
    long rdwr(UMockdevIoctlClient *client);
    long smbus(UMockdevIoctlClient *client);
    long dispatch(UMockdevIoctlClient *client, unsigned long request);

    static gboolean on_ioctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self);
    static void on_vanished(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self);
};

long I2cNode::Impl::set_slave(UMockdevIoctlClient *client) {
    unsigned long address = value_argument(client);
    if (address > 0x7F) {
        return -EINVAL;
    }
    std::lock_guard lock(mutex);
    slaves[client] = static_cast<uint16_t>(address);
    return 0;
}

long I2cNode::Impl::functionality(UMockdevIoctlClient *client) {
    DataRef out = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(unsigned long));
    if (!out) {
        return -EFAULT;
    }
    unsigned long funcs = I2cBus::kFunctionality;
    std::memcpy(out->data, &funcs, sizeof funcs);
    return 0;
}

long I2cNode::Impl::rdwr(UMockdevIoctlClient *client) {
    DataRef arg = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(i2c_rdwr_ioctl_data));
    if (!arg) {
        return -EFAULT;
    }
    auto request = read_struct<i2c_rdwr_ioctl_data>(arg.get());
    if (request.msgs == nullptr || request.nmsgs == 0 || request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return -EINVAL;
    }
    DataRef table =
        resolve(arg.get(), offsetof(i2c_rdwr_ioctl_data, msgs), request.nmsgs * sizeof(i2c_msg));
    if (!table) {
        return -EFAULT;
    }
    std::vector<DataRef> buffers;
    std::vector<I2cMessage> messages;
    for (std::size_t i = 0; i < request.nmsgs; ++i) {
        i2c_msg msg{};
        std::memcpy(&msg, table->data + i * sizeof(i2c_msg), sizeof msg);
        if (msg.len > kMaxMessageLength || msg.addr > 0x7F) {
            return -EINVAL;
        }
        if ((msg.flags & ~(I2C_M_RD | I2C_M_RECV_LEN)) != 0) {
            return -EOPNOTSUPP;
        }
        std::span<uint8_t> buffer;
        if (msg.len > 0) {
            DataRef data =
                resolve(table.get(), i * sizeof(i2c_msg) + offsetof(i2c_msg, buf), msg.len);
            if (!data) {
                return -EFAULT;
            }
            buffer = std::span<uint8_t>(data->data, msg.len);
            buffers.push_back(std::move(data));
        }
        if ((msg.flags & I2C_M_RECV_LEN) != 0 &&
            ((msg.flags & I2C_M_RD) == 0 || msg.len < 1 || buffer[0] < 1 ||
             msg.len < buffer[0] + I2C_SMBUS_BLOCK_MAX)) {
            return -EINVAL;
        }
        messages.push_back({msg.addr, msg.flags, buffer});
    }
    int result = bus->transfer(messages);
    return result < 0 ? result : static_cast<long>(request.nmsgs);
}

long I2cNode::Impl::smbus(UMockdevIoctlClient *client) {
    DataRef arg = resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(i2c_smbus_ioctl_data));
    if (!arg) {
        return -EFAULT;
    }
    auto request = read_struct<i2c_smbus_ioctl_data>(arg.get());
    uint32_t size = request.size;
    if (size > I2C_SMBUS_I2C_BLOCK_DATA ||
        (request.read_write != I2C_SMBUS_READ && request.read_write != I2C_SMBUS_WRITE)) {
        return -EINVAL;
    }
    uint16_t address = slave(client);
    i2c_smbus_data temp{};
    if (size == I2C_SMBUS_QUICK ||
        (size == I2C_SMBUS_BYTE && request.read_write == I2C_SMBUS_WRITE)) {
        return bus->smbus(address, request.read_write, request.command, size, &temp);
    }
    if (request.data == nullptr) {
        return -EINVAL;
    }
    std::size_t data_size = sizeof temp;
    if (size == I2C_SMBUS_BYTE || size == I2C_SMBUS_BYTE_DATA) {
        data_size = sizeof temp.byte;
    } else if (size == I2C_SMBUS_WORD_DATA || size == I2C_SMBUS_PROC_CALL) {
        data_size = sizeof temp.word;
    }
    DataRef data = resolve(arg.get(), offsetof(i2c_smbus_ioctl_data, data), data_size);
    if (!data) {
        return -EFAULT;
    }
    if (request.read_write == I2C_SMBUS_WRITE || size == I2C_SMBUS_PROC_CALL ||
        size == I2C_SMBUS_BLOCK_PROC_CALL || size == I2C_SMBUS_I2C_BLOCK_DATA) {
        std::memcpy(&temp, data->data, data_size);
    }
    if (size == I2C_SMBUS_I2C_BLOCK_BROKEN) {
        size = I2C_SMBUS_I2C_BLOCK_DATA;
        if (request.read_write == I2C_SMBUS_READ) {
            temp.block[0] = I2C_SMBUS_BLOCK_MAX;
        }
    }
    int result = bus->smbus(address, request.read_write, request.command, size, &temp);
    if (result == 0 && (request.read_write == I2C_SMBUS_READ || size == I2C_SMBUS_PROC_CALL ||
                        size == I2C_SMBUS_BLOCK_PROC_CALL)) {
        std::memcpy(data->data, &temp, data_size);
    }
    return result;
}

long I2cNode::Impl::dispatch(UMockdevIoctlClient *client, unsigned long request) {
    switch (request) {
        case I2C_RETRIES:
        case I2C_TIMEOUT: {
            unsigned long value = value_argument(client);
            if (value > INT_MAX) {
                return -EINVAL;
            }
            if (request == I2C_RETRIES) {
                bus->set_retries(value);
            } else {
                bus->set_timeout(value);
            }
            return 0;
        }
        case I2C_SLAVE:
        case I2C_SLAVE_FORCE:
            return set_slave(client);
        case I2C_FUNCS:
            return functionality(client);
        case I2C_RDWR:
            return rdwr(client);
        case I2C_SMBUS:
            return smbus(client);
        default:
            std::fprintf(stderr, "i2c emulator: %s: refusing unknown ioctl 0x%lx\n", path.c_str(),
                         request);
            return -ENOTTY;
    }
}

gboolean I2cNode::Impl::on_ioctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self) {
    auto *impl = static_cast<Impl *>(self);
    complete_ioctl(client, impl->dispatch(client, umockdev_ioctl_client_get_request(client)));
    return TRUE;
}

void I2cNode::Impl::on_vanished(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer self) {
    auto *impl = static_cast<Impl *>(self);
    std::lock_guard lock(impl->mutex);
    impl->slaves.erase(client);
}

I2cNode::I2cNode(std::unique_ptr<Impl> impl, std::shared_ptr<I2cBus> bus)
    : impl_(std::move(impl)), bus_(std::move(bus)) {}

I2cNode::~I2cNode() = default;

std::string I2cNode::device_path(int bus) {
    return "/dev/i2c-" + std::to_string(bus);
}

std::unique_ptr<I2cNode> I2cNode::create(UMockdevTestbed *testbed, std::shared_ptr<I2cBus> bus,
                                         std::string &error) {
    auto impl = std::make_unique<Impl>();
    impl->testbed = UMOCKDEV_TESTBED(g_object_ref(testbed));
    impl->path = device_path(bus->number());
    impl->bus = bus;
    std::string name = "i2c-" + std::to_string(bus->number());
    std::string record = "P: /devices/" + name + "\nN: " + name + "\nE: SUBSYSTEM=i2c-dev\n";
    g_autoptr(GError) gerror = nullptr;
    if (!umockdev_testbed_add_from_string(testbed, record.c_str(), &gerror)) {
        error = impl->path + ": " + gerror->message;
        return nullptr;
    }
    impl->handler = umockdev_ioctl_base_new();
    g_signal_connect(impl->handler, "handle-ioctl", G_CALLBACK(Impl::on_ioctl), impl.get());
    g_signal_connect(impl->handler, "client-vanished", G_CALLBACK(Impl::on_vanished), impl.get());
    if (!umockdev_testbed_attach_ioctl(testbed, impl->path.c_str(), impl->handler, &gerror)) {
        error = impl->path + ": " + gerror->message;
        return nullptr;
    }
    return std::unique_ptr<I2cNode>(new I2cNode(std::move(impl), std::move(bus)));
}

}  // namespace tavo::emu::i2c
