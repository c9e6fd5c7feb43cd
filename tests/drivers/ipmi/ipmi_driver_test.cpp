// DriverIpmi*: what reaches the emulated BMC, the results, the wait and the log records.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <vector>

#include "drivers/driver_ipmi.h"
#include "ipmi_world.h"
#include "log_reader.h"
#include "virtual_time.h"

namespace tavo::test {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint64_t kOneSecondUs = 1000000;
constexpr const char *kHint = "Something wrong with ipmi driver. Please install ipmi driver.";

bool err_logged(const std::string &function, std::string_view text) {
    return logged(kErrLog, "driver_ipmi," + function, text);
}

// Descriptors open on the emulated device node.
std::size_t open_devices(const IpmiWorld &world) {
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ec;
        auto target = std::filesystem::read_symlink(entry.path(), ec);
        count += target.string() == world.root() + "/dev/ipmi0" ? 1 : 0;
    }
    return count;
}

// Pauses the library asked for. umockdev's preload adds zero-length ones of its own.
std::vector<uint64_t> pauses() {
    std::vector<uint64_t> all = requested_sleeps();
    std::erase(all, 0);
    return all;
}

class IpmiTest : public testing::Test {
  protected:
    void SetUp() override {
        remove_logs();
        clear_requested_sleeps();
        world_.bmc().set_mini(1, 1, {});
        world_.bmc().set_mini(3, 2, {.state = 7});
        world_.bmc().set_mini(0xFF, 1, {});
    }

    IpmiWorld world_;
};

TEST(IpmiNoDeviceTest, EveryCandidateFailsWithInstallHint) {
    remove_logs();
    clear_requested_sleeps();
    IpmiWorld world(false);
    EXPECT_EQ(DriverOpenIpmi(0), -11);
    testing::internal::CaptureStdout();
    int result = DriverIpmiResetMini(1, 0);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), kHint);
    EXPECT_EQ(result, -11);
    EXPECT_TRUE(err_logged("DriverIpmiCmd", "call DriverOpenIpmi failed.-11\n\r\n"));
    EXPECT_TRUE(err_logged("DriverIpmiResetMini", "Reset pcie 1 mini 0 failed. -11\n\r\n"));
    EXPECT_TRUE(pauses().empty());
}

struct OrderCase {
    std::vector<int> openable;  // indexes into IpmiWorld::kCandidates
    int expected;
};

TEST(IpmiNoDeviceTest, FirstOpenableCandidateInOrderWins) {
    const std::vector<OrderCase> cases{
        {{0, 1, 2, 3}, 0}, {{1, 2, 3}, 1}, {{2, 3}, 2}, {{3}, 3}, {{1, 3}, 1}};
    for (const OrderCase &c : cases) {
        IpmiWorld world(false);
        for (int index : c.openable) {
            world.place_plain_file(IpmiWorld::kCandidates[index]);
        }
        int fd = DriverOpenIpmi(0);
        ASSERT_GT(fd, 0);
        std::string opened = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd));
        EXPECT_EQ(opened, world.root() + IpmiWorld::kCandidates[c.expected]) << c.expected;
        EXPECT_EQ(DriverCloseIpmi(fd), 0);
    }
}

TEST(IpmiCloseTest, DescriptorsBelowOneAreNotClosed) {
    EXPECT_EQ(DriverCloseIpmi(0), -1);
    EXPECT_NE(fcntl(0, F_GETFD), -1);  // standard input still open
    EXPECT_EQ(DriverCloseIpmi(-3), -1);
}

struct RequestCase {
    bool reset;
    uint32_t card;
    uint32_t mini;
    Bytes wire;  // expected request bytes
};

TEST_F(IpmiTest, OemRequestsCarryManufacturerLsbFirstMiniFromOneAndWaitOneSecond) {
    const std::vector<RequestCase> cases{
        {true, 1, 0, {0xDB, 0x07, 0x00, 0x53, 0, 0, 0, 0, 0x01, 0x01, 0x01}},
        {false, 3, 1, {0xDB, 0x07, 0x00, 0x54, 0, 0, 0, 0, 0x03, 0x02, 0x01}},
        // Only the low 8 bits of card and mini + 1 reach the wire.
        {true, 0x1FF, 0x100, {0xDB, 0x07, 0x00, 0x53, 0, 0, 0, 0, 0xFF, 0x01, 0x01}},
    };
    std::vector<long> ids;
    for (const RequestCase &c : cases) {
        world_.bmc().clear_transcript();
        clear_requested_sleeps();
        uint8_t state = 0;
        int result = c.reset ? DriverIpmiResetMini(c.card, c.mini)
                             : DriverIpmiGetMini(c.card, c.mini, &state);
        EXPECT_EQ(result, 0) << c.card;
        auto requests = world_.bmc().transcript();
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].netfn, 0x30);
        EXPECT_EQ(requests[0].cmd, 0x93);
        EXPECT_EQ(requests[0].data, c.wire) << c.card;
        EXPECT_EQ(state, c.reset ? 0 : 7);
        EXPECT_EQ(pauses(), std::vector<uint64_t>{kOneSecondUs});
        ids.push_back(requests[0].msgid);
    }
    // One message id per request, counting up.
    EXPECT_EQ(ids[1], ids[0] + 1);
    EXPECT_EQ(ids[2], ids[1] + 1);
    EXPECT_TRUE(read_log(kErrLog).empty());
    EXPECT_EQ(world_.bmc().mini(1, 1)->resets, 1u);
    EXPECT_EQ(world_.bmc().mini(0xFF, 1)->resets, 1u);
}

struct CompletionCase {
    bool reset;
    uint8_t code;
    uint32_t card;  // 9: a card the BMC does not know
    const char *function;
    const char *text;
};

TEST_F(IpmiTest, NonZeroCompletionCodeIsMinus27) {
    world_.bmc().set_mini(1, 1, {.reset_completion = 0xC1, .get_completion = 0xC1});
    const std::vector<CompletionCase> cases{
        {true, 0xC1, 1, "DriverIpmiResetMini", "Wrong complete code[c1].\n\r\n"},
        {false, 0xC1, 1, "DriverIpmiGetMini", "Wrong complete code[c1]\n\r\n"},
        {true, 0xC9, 9, "DriverIpmiResetMini", "Wrong complete code[c9].\n\r\n"},
    };
    for (const CompletionCase &c : cases) {
        remove_logs();
        uint8_t state = 0x55;
        int result =
            c.reset ? DriverIpmiResetMini(c.card, 0) : DriverIpmiGetMini(c.card, 0, &state);
        EXPECT_EQ(result, -27) << c.text;
        EXPECT_TRUE(err_logged(c.function, c.text)) << c.text;
        EXPECT_EQ(state, 0x55);
    }
    EXPECT_EQ(world_.bmc().mini(1, 1)->resets, 0u);
}

struct FaultCase {
    emu::ipmi::IpmiFaults faults;
    int expected;
    const char *cmd_log;  // DriverIpmiCmd's record, or nullptr
    std::vector<uint64_t> sleeps;
};

TEST_F(IpmiTest, FailedStepsCloseTheDeviceAndReturnTheirCode) {
    const std::vector<FaultCase> cases{
        {{.address_errno = EIO}, -13, "IPMI ioctl IPMICTL_GET_MY_ADDRESS_CMD fail\n\r\n", {}},
        {{.send_errno = EBUSY}, -24, "IPMI ioctl IPMICTL_SEND_COMMAND fail.-1\r\n", {}},
        {{.receive_errno = EFAULT}, -26, nullptr, {kOneSecondUs}},
    };
    for (const FaultCase &c : cases) {
        remove_logs();
        clear_requested_sleeps();
        world_.set_faults(c.faults);
        EXPECT_EQ(DriverIpmiResetMini(1, 0), c.expected);
        EXPECT_EQ(open_devices(world_), 0u) << c.expected;
        if (c.cmd_log != nullptr) {
            EXPECT_TRUE(err_logged("DriverIpmiCmd", c.cmd_log)) << c.expected;
        }
        std::string reset_text =
            "Reset pcie 1 mini 0 failed. " + std::to_string(c.expected) + "\n\r\n";
        EXPECT_TRUE(err_logged("DriverIpmiResetMini", reset_text));
        EXPECT_EQ(pauses(), c.sleeps) << c.expected;
    }
}

struct LenientCase {
    emu::ipmi::IpmiFaults faults;
    uint32_t buffer;
    uint32_t length;  // reported response length
    Bytes head;       // first bytes of the buffer afterwards
};

// A receive that fails without touching the length is success with the whole buffer: both a
// silent BMC (EAGAIN) and an answer cut to the buffer (EMSGSIZE).
TEST_F(IpmiTest, FailedReceiveWithUntouchedLengthIsSuccess) {
    const Bytes get{0xDB, 0x07, 0x00, 0x54, 0, 0, 0, 0, 3, 2, 1};
    const std::vector<LenientCase> cases{
        {{.silent = true}, 8, 8, {0xEE, 0xEE}},
        {{}, 2, 2, {0x00, 0xDB, 0xEE}},
        {{}, 8, 5, {0x00, 0xDB, 0x07, 0x00, 0x07, 0xEE}},
    };
    for (const LenientCase &c : cases) {
        world_.set_faults(c.faults);
        Bytes response(c.buffer + 1, 0xEE);
        uint32_t length = 0;
        EXPECT_EQ(DriverIpmiCmd(0x93, 0x30, 0, get.data(), get.size(), response.data(), c.buffer,
                                &length),
                  0);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(Bytes(response.begin(), response.begin() + c.head.size()), c.head);
    }
}

TEST_F(IpmiTest, UnknownCommandIsAnsweredWithC1) {
    const Bytes none;
    Bytes response(16);
    uint32_t length = 0;
    EXPECT_EQ(DriverIpmiCmd(0x01, 0x06, 0, none.data(), 0, response.data(), 16, &length), 0);
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(response[0], 0xC1);
    auto requests = world_.bmc().transcript();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].netfn, 0x06);
    EXPECT_EQ(requests[0].cmd, 0x01);
}

}  // namespace
}  // namespace tavo::test
