#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "api_fixture.h"
#include "descriptor_fill.h"
#include "ipmi_world.h"
#include "rumo/rumo.h"
#include "tavo/tavo_control.h"
#include "tavo/tavo_query.h"
#include "testbed_files.h"

namespace tavo::test {
namespace {

constexpr uint32_t kCard = 1;  // chip logic id 0
constexpr uint32_t kMcuCard = 2;

class ControlTest : public ApiTest {
  protected:
    void SetUp() override {
        ApiTest::SetUp();
        ASSERT_EQ(tavo_init(), 0);
    }
};

TEST_F(ControlTest, ChipAcceptsSwitchesItDoesNotHandle) {
    rumo_sim_reset_counts();
    EXPECT_EQ(tavo_set_p2p_enable_api(kCard, 0, 1), 0);
    EXPECT_EQ(tavo_config_ecc_enable_api(kCard, 0, 0), 0);
    uint32_t state = 77;
    EXPECT_EQ(tavo_get_p2p_enable_api(kCard, 0, &state), 0);
    EXPECT_EQ(state, 77u);  // not filled on a chip
    EXPECT_EQ(tavo_get_device_boot_status(kCard, 0), 0);
    uint8_t buffer[8] = {9};
    uint16_t length = 5;
    EXPECT_EQ(tavo_get_elable_api(kCard, 0, 0x11, buffer, &length), 0);
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(buffer[0], 9u);
    EXPECT_EQ(rumo_sim_call_count("rumo_set_user_config"), 0u);
    EXPECT_EQ(err_count(), 0u);

    EXPECT_EQ(tavo_config_p2p_enable(kCard, 4), -1);
    EXPECT_TRUE(
        err_logged("tavo_config_p2p_enable", "call tavo_get_device_logic_id failed.-1.\n\r\n"));
}

TEST_F(ControlTest, BootAreaBelongsToTheMcu) {
    EXPECT_EQ(tavo_switch_boot_area_api(kCard, 0), -1);
    EXPECT_TRUE(err_logged("tavo_switch_boot_area_api", "device_type is error.0.\n\r\n"));
    uint32_t area = 0;
    EXPECT_EQ(tavo_get_boot_area_api(kCard, 0, &area), -1);
    EXPECT_TRUE(err_logged("tavo_get_boot_area_api", "device_type is error.0.\n\r\n"));
    EXPECT_EQ(tavo_get_boot_area_api(kMcuCard, 1, &area), 0);
}

TEST_F(ControlTest, SshSwitchIsTheChipsSshStatusItem) {
    ASSERT_EQ(tavo_set_ssh_enable_api(kCard, 0, 0x101), 0);  // cut to one byte
    std::array<unsigned char, 1> item{};
    ASSERT_EQ(rumo_get_user_config(0, "ssh_status", 1, item.data()), 0);
    EXPECT_EQ(item[0], 1u);
    uint32_t enabled = 0;
    ASSERT_EQ(tavo_get_ssh_enable(kCard, 0, &enabled), 0);
    EXPECT_EQ(enabled, 1u);

    rumo_sim_fail_next("rumo_set_user_config", 1, 4);
    EXPECT_EQ(tavo_set_ssh_enable_api(kCard, 0, 0), -1);
    EXPECT_TRUE(
        err_logged("tavo_config_ssh_enable", "call rumo_config_ssh_enable failed.4.\n\r\n"));
    rumo_sim_fail_next("rumo_get_user_config", 1, 4);
    EXPECT_EQ(tavo_get_ssh_enable(kCard, 0, &enabled), -1);
    EXPECT_TRUE(err_logged("tavo_get_ssh_enable", "call rumo_get_ssh_enable failed.4.\n\r\n"));
    EXPECT_EQ(tavo_set_ssh_enable_api(kMcuCard, 1, 1), -1);
    EXPECT_TRUE(err_logged("tavo_set_ssh_enable_api", "device_type is error.1.\n\r\n"));
}

TEST_F(ControlTest, UserConfigIsAuditedBeforeAnyCheck) {
    const std::array<unsigned char, 3> content{7, 200, 0};
    ::setenv("SSH_CLIENT", "192.0.2.9 40000 22", 1);
    EXPECT_EQ(tavo_set_user_config_api(kMcuCard, 1, "user_label", 3, content.data()), -1);
    ::unsetenv("SSH_CLIENT");
    auto records = read_log(kOpLog, true);
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(message_text(records[0]),
              "User Config Info:card_id=2, device_id=1\n,config_name=user_label\r\n");
    EXPECT_EQ(message_text(records[1]), "Config Content:buf[0]=7.\n\r\n");
    EXPECT_EQ(message_text(records[2]), "Config Content:buf[1]=200.\n\r\n");
    EXPECT_EQ(message_text(records[3]), "Config Content:buf[2]=0.\n\r\n");
    for (const auto &r : records) {
        EXPECT_EQ(message_origin(r), "tavo_drv_api,tavo_set_user_config_api");
        EXPECT_EQ(r.address, "192.0.2.9");
        EXPECT_FALSE(r.user.empty());
    }
    EXPECT_TRUE(err_logged("tavo_set_user_config_api", "device_type is error.1.\n\r\n"));
}

TEST_F(ControlTest, UserConfigOnAChip) {
    const std::array<unsigned char, 2> content{'o', 'k'};
    ASSERT_EQ(tavo_set_user_config_api(kCard, 0, "user_label", 2, content.data()), 0);
    std::array<unsigned char, 2> back{};
    ASSERT_EQ(tavo_get_user_config_api(kCard, 0, "user_label", 2, back.data()), 0);
    EXPECT_EQ(back, content);
    EXPECT_EQ(tavo_set_user_config_api(kCard, 0, "no_such_item", 2, content.data()), -1);
    EXPECT_TRUE(err_logged("tavo_set_user_config", "call rumo_set_user_config failed.3.\n\r\n"));
}

// The chip's PCI function as the host sees it under /proc/bus/pci.
class HotResetTest : public ControlTest {
  protected:
    void SetUp() override {
        ControlTest::SetUp();
        tavo_card_record *card = nullptr;
        ASSERT_EQ(tavo_get_card_info(kCard, &card), 0);
        std::strcpy(card->devices[0].pci_address, "0000:3b:00.0");
        write_testbed_file("/proc/bus/pci/3b/00.0", std::string(256, '\0'));
    }
    static uint8_t config_byte(std::size_t offset) {
        return static_cast<uint8_t>(read_file(testbed_path("/proc/bus/pci/3b/00.0")).at(offset));
    }
};

// "/proc/bus/pci/3b/00.0": the write goes to the descriptor numbered like its length.
constexpr int kConfigPathLength = 21;

TEST_F(HotResetTest, PreResetWaitsThenHoldsTheLinkAndRescanReleasesThenWaits) {
    clear_requested_sleeps();
    {
        DescriptorFill fill(kConfigPathLength);
        ASSERT_EQ(tavo_pre_reset_soc(kCard, 0), 0) << read_file(kErrLog);
    }
    EXPECT_EQ(config_byte(0x50), 0x10);
    EXPECT_EQ(requested_sleeps(), std::vector<uint64_t>{1000000});
    {
        DescriptorFill fill(kConfigPathLength);
        ASSERT_EQ(tavo_rescan_soc(kCard, 0), 0);
    }
    EXPECT_EQ(config_byte(0x50), 0x00);
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{1000000, 1000000}));
}

TEST_F(HotResetTest, RefusesUnknownCardsAndDeviceIdsBeyondTheCard) {
    EXPECT_EQ(tavo_pre_reset_soc(kCard, 8), -1);
    EXPECT_EQ(tavo_rescan_soc(kCard, 8), -1);
    EXPECT_EQ(tavo_pre_reset_soc(42, 0), -1);
    EXPECT_TRUE(err_logged("tavo_pre_reset_soc", "call tavo_get_card_info failed.-1.\n\r\n"));
    EXPECT_EQ(config_byte(0x50), 0x00);
}

TEST_F(HotResetTest, FailedWriteIsReportedUnderEachHalfsOwnName) {
    remove_testbed_file("/proc/bus/pci/3b/00.0");
    std::filesystem::create_directories(testbed_path("/proc/bus/pci/3b/00.0"));
    std::filesystem::create_directories(testbed_path("/proc/bus/pci/0000:3b/00.0"));
    EXPECT_EQ(tavo_pre_reset_soc(kCard, 0), -1);
    EXPECT_TRUE(err_logged("tavo_pre_reset_soc", "call rumo_pre_reset_soc failed.-908.\n\r\n"))
        << read_file(kErrLog);
    EXPECT_EQ(tavo_rescan_soc(kCard, 0), -1);
    EXPECT_TRUE(err_logged("tavo_rescan_soc", "call PcidrWriteConfByte failed.-908.\n\r\n"));
    remove_testbed_file("/proc/bus/pci");
}

}  // namespace
}  // namespace tavo::test

namespace tavo::test {
namespace {

// Card 1's chip sits in physical slot 5; the BMC knows chip 1 (wire numbering) there.
class ResetTest : public ControlTest {
  protected:
    void SetUp() override {
        ControlTest::SetUp();
        tavo_card_record *card = nullptr;
        ASSERT_EQ(tavo_get_card_info(kCard, &card), 0);
        card->pcie_slot = 5;
    }
    std::size_t resets() {
        std::size_t count = 0;
        for (const auto &request : world_.bmc().transcript()) {
            count += request.data.size() > 3 && request.data[3] == 0x53;
        }
        return count;
    }
    IpmiWorld world_;
};

TEST_F(ResetTest, OneResetWhenTheChipLeftReset) {
    world_.bmc().set_mini(5, 1, {});
    EXPECT_EQ(tavo_reset_device_api(kCard, 0), 0) << read_file(kErrLog);
    EXPECT_EQ(resets(), 1u);
    EXPECT_EQ(world_.bmc().transcript().size(), 2u);  // reset, then its state
}

TEST_F(ResetTest, SecondResetWhenTheChipIsStillInReset) {
    emu::ipmi::Mini mini;
    mini.state = 1;
    world_.bmc().set_mini(5, 1, mini);
    EXPECT_EQ(tavo_reset_device_api(kCard, 0), 0);
    EXPECT_EQ(resets(), 2u);
}

TEST_F(ResetTest, FailuresReturnTheFailingStepsCode) {
    emu::ipmi::Mini mini;
    mini.reset_completion = 0xC1;
    world_.bmc().set_mini(5, 1, mini);
    EXPECT_EQ(tavo_reset_device(kCard, 0), -27);
    EXPECT_TRUE(err_logged("tavo_reset_device", "Call DriverIpmiResetMini failed.-27.\n\r\n"));

    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(kCard, &card), 0);
    g_tavoBoardInfo.initialised = 0;
    EXPECT_EQ(tavo_reset_device(kCard, 0), -1);
    EXPECT_TRUE(err_logged("tavo_reset_device", "Call tavo_get_pcie_slot failed.-1.\n\r\n"));
}

}  // namespace
}  // namespace tavo::test
