#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "api_fixture.h"
#include "tavo/tavo_pcie.h"
#include "testbed_files.h"

extern "C" tavo_pcie_map g_pcie_map_info;

namespace tavo::test {
namespace {

constexpr const char *kDmidecode = "/run/tavo-sim/bin/dmidecode";
constexpr const char *kTree = "/tmp/pcie_tree.txt";

std::string slot_record(int id, const std::string &bus) {
    return "Handle 0x00" + std::to_string(10 + id) +
           ", DMI type 9, 17 bytes\nSystem Slot Information\n\tDesignation: PCIe Slot " +
           std::to_string(id) +
           "\n\tType: x16 PCI Express 4\n\tCurrent Usage: In Use\n\tID: " + std::to_string(id) +
           "\n\tBus Address: " + bus + "\n\n";
}

// A dmidecode on PATH that prints `output` and exits with `status`.
void install_dmidecode(const std::string &output, int status = 0) {
    std::filesystem::create_directories("/run/tavo-sim/bin");
    std::ofstream("/run/tavo-sim/dmidecode.out") << output;
    std::ofstream(kDmidecode) << "#!/bin/sh\ncat /run/tavo-sim/dmidecode.out\nexit " << status
                              << "\n";
    ::chmod(kDmidecode, 0755);
}

class PcieMapTest : public ApiTest {
  protected:
    void SetUp() override {
        ApiTest::SetUp();
        g_pcie_map_info = tavo_pcie_map{};
        // The default host's chips sit on buses 3b, 5e, 86 and af (cards 1 to 4).
        ASSERT_EQ(tavo_init(), 0);
        write_testbed_file("/dev/mem", "");
    }
    void TearDown() override {
        ::unlink(kDmidecode);
        remove_testbed_file("/dev/mem");
        remove_testbed_file("/sys/devices");
    }
    static uint32_t slot_of(uint32_t card_id) {
        uint32_t slot = 0;
        EXPECT_EQ(tavo_get_pcie_slot(card_id, &slot), 0);
        return slot;
    }
};

TEST_F(PcieMapTest, InitialisationGivesCardsAndChipsTheirPcieAddresses) {
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(2, &card), 0);
    EXPECT_STREQ(card->pcie_bus, "0000:5e:00.0");
    EXPECT_STREQ(card->devices[0].pcie_path, "0000:5e:00.0");
    EXPECT_STREQ(card->devices[0].pci_address, "0000:5e:00.0");
}

TEST_F(PcieMapTest, CardsGetTheSlotWhoseBusAddressNamesThem) {
    install_dmidecode("# dmidecode 3.4\n" + slot_record(3, "0000:3b:00.0") +
                      slot_record(7, "0000:5e:00.0") + slot_record(9, "0000:3b:00.0"));
    EXPECT_EQ(tavo_pcie_slot_map_init(), -1);  // the slots it filled are the result
    EXPECT_EQ(slot_of(1), 3u);                 // not 9: the earlier record wins
    EXPECT_EQ(slot_of(2), 7u);
    EXPECT_EQ(slot_of(3), TAVO_ABSENT);
    ASSERT_EQ(g_pcie_map_info.count, 3u);
    EXPECT_STREQ(g_pcie_map_info.entries[0].bus_address, "Bus Address: 0000:3b:00.0\n");
    for (const auto &entry : std::filesystem::directory_iterator("/tmp")) {
        EXPECT_FALSE(entry.path().filename().string().starts_with("dmidecode_")) << entry.path();
    }
}

TEST_F(PcieMapTest, MapStopsAtSixtyFourEntries) {
    std::string output;
    for (int id = 1; id <= 70; ++id) {
        output += slot_record(id, "0000:01:00.0");
    }
    install_dmidecode(output);
    EXPECT_EQ(tavo_get_pcie_slot_info(), 0);
    EXPECT_EQ(g_pcie_map_info.count, uint32_t{TAVO_PCIE_MAP_ENTRIES});
    EXPECT_EQ(g_pcie_map_info.entries[63].slot_id, 64u);
}

// An address line of 511 characters leaves no room for the entry's newline and
// terminator: it is skipped with a record, and the next slot is still mapped.
TEST_F(PcieMapTest, AddressThatCannotBeStoredWholeIsSkipped) {
    install_dmidecode("\tID: 5\nBus Address: " + std::string(TAVO_PCIE_LINE_LEN - 14, '3') + "\n" +
                      slot_record(6, "0000:3b:00.0"));
    EXPECT_EQ(tavo_get_pcie_slot_info(), 0);
    ASSERT_EQ(g_pcie_map_info.count, 1u);
    EXPECT_EQ(g_pcie_map_info.entries[0].slot_id, 6u);
    EXPECT_TRUE(err_logged("add_map_entry", "call snprintf_s failed.512\n\r\n"))
        << read_file(kErrLog);
}

TEST_F(PcieMapTest, WithoutPhysicalMemoryOrDmidecodeNothingIsMapped) {
    install_dmidecode(slot_record(3, "0000:3b:00.0"));
    remove_testbed_file("/dev/mem");
    std::filesystem::create_directories(testbed_path("/dev"));
    // The testbed has no /dev/mem; make sure the host's is not consulted either.
    if (std::filesystem::exists("/dev/mem")) {
        GTEST_SKIP() << "this machine's /dev/mem shows through the testbed";
    }
    EXPECT_EQ(tavo_get_pcie_slot_info(), 1);
    EXPECT_EQ(g_pcie_map_info.count, 0u);
}

TEST_F(PcieMapTest, FailingDmidecodeIsAFailure) {
    install_dmidecode(slot_record(3, "0000:3b:00.0"), 1);
    EXPECT_EQ(tavo_get_pcie_slot_info(), -1);
    EXPECT_EQ(g_pcie_map_info.count, 0u);
}

TEST_F(PcieMapTest, OnlyCardsHaveSlots) {
    g_tavoBoardInfo.board_id = 47;
    install_dmidecode(slot_record(3, "0000:3b:00.0"));
    EXPECT_EQ(tavo_pcie_slot_map_init(), 0);
    EXPECT_EQ(g_pcie_map_info.count, 0u);
}

// Root port 3a:00.0 -> switch 3b:00.0 -> two downstream ports -> a function each,
// plus an unrelated function elsewhere.
void build_tree() {
    const std::string root = "/sys/devices/pci0000:3a/0000:3a:00.0/0000:3b:00.0";
    for (const char *path : {"/0000:3c:00.0/0000:3d:00.0", "/0000:3c:01.0/0000:3e:00.0"}) {
        std::filesystem::create_directories(testbed_path(root + path));
    }
    std::filesystem::create_directories(testbed_path("/sys/devices/pci0000:00/0000:00:1f.0"));
}

TEST_F(PcieMapTest, DeviceTreeCountsFunctionsTheHostCannotSee) {
    build_tree();
    ASSERT_EQ(tavo_save_pcie_info(kTree), 0) << read_file(kErrLog);
    std::string tree = read_file(kTree);
    EXPECT_NE(tree.find("0000:3a:00.0/0000:3b:00.0/0000:3c:00.0/0000:3d:00.0\n"), std::string::npos)
        << tree;
    EXPECT_EQ(tree.find("0000:00:1f.0"), std::string::npos) << tree;

    uint32_t functions = 0;
    ASSERT_EQ(tavo_find_board_pcie_num(kTree, "0000:3b:00.0", &functions), 0);
    EXPECT_EQ(functions, 2u);
    EXPECT_EQ(tavo_flush_pcie_device(kTree), 0);
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(1, &card), 0);
    EXPECT_EQ(card->fault_device_count, 1u);  // two functions, one chip reported
    ASSERT_EQ(tavo_get_card_info(2, &card), 0);
    EXPECT_EQ(card->fault_device_count, 0u);

    char function[TAVO_PCIE_LINE_LEN] = {};
    char bridge[TAVO_PCIE_LINE_LEN];
    std::memset(bridge, '#', sizeof bridge);
    ASSERT_EQ(tavo_get_pcie_before_info(kTree, "0000:3d:00.0", function, bridge, 0, 1), 0);
    EXPECT_STREQ(function, "0000:3d:00.0");
    // The zero goes one past the text; the byte right after it is the caller's.
    EXPECT_EQ(std::string(bridge, 14), std::string("0000:3c:00.0#") + '\0');
    EXPECT_EQ(tavo_get_pcie_before_info(kTree, "0000:99:00.0", function, bridge, 0, 1), -1);
    ::unlink(kTree);
}

// A command cut to the buffer would write the tree somewhere else: it is not run.
TEST_F(PcieMapTest, TreeCommandThatDoesNotFitIsNotRun) {
    const std::string dir = "/tmp/cut_tree";
    std::filesystem::create_directories(dir);
    const std::string file = dir + "/tree" + std::string(250, 'x');
    EXPECT_EQ(tavo_save_pcie_info(file.c_str()), -1);
    EXPECT_TRUE(std::filesystem::is_empty(dir));
    std::vector<LogRecord> records = read_log(kErrLog);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(message_origin(records[0]), "tavo_drv_api,tavo_save_pcie_info");
    EXPECT_TRUE(message_text(records[0]).starts_with("call snprintf_s failed."))
        << records[0].message;
    std::filesystem::remove_all(dir);
}

TEST_F(PcieMapTest, VirtualMachineTreeKeepsTheWholePath) {
    build_tree();
    g_tavoBoardInfo.in_virtual_machine = 1;
    ASSERT_EQ(tavo_save_pcie_info(kTree), 0);
    std::string tree = read_file(kTree);
    EXPECT_NE(tree.find("/sys/devices/pci0000:00/0000:00:1f.0\n"), std::string::npos) << tree;
    char function[TAVO_PCIE_LINE_LEN] = {};
    char bridge[TAVO_PCIE_LINE_LEN] = {};
    ASSERT_EQ(tavo_get_pcie_before_info(kTree, "0000:3d:00.0", function, bridge, 0, 2), 0);
    EXPECT_STREQ(function, "0000:3d:00.0");
    EXPECT_STREQ(bridge, "0000:3d:00.0");  // both the last part in a virtual machine
    ::unlink(kTree);
}

}  // namespace
}  // namespace tavo::test
