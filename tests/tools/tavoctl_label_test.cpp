// tavoctl label on a simulated host whose EEPROM holds a label: what an operator
// types and sees, exit status included.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include "run_command.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Result = tavo::test::CommandResult;

// CRC-16/XMODEM, bit by bit.
uint16_t crc16(const std::string &data) {
    uint16_t crc = 0;
    for (unsigned char byte : data) {
        crc ^= static_cast<uint16_t>(byte << 8);
        for (int bit = 0; bit < 8; ++bit) {
            crc = static_cast<uint16_t>((crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1);
        }
    }
    return crc;
}

// EEPROM contents from address 0: 128 blank bytes, then a label holding item 0x11 at
// slot offset 12 and item 0x50 at slot offset 2088.
std::string eeprom_with_label() {
    std::string label(2360, '\0');
    label.replace(0, 4, "BALE");
    auto put = [&label](std::size_t slot, const std::string &text) {
        const uint16_t crc = crc16(text);
        label[slot] = static_cast<char>(crc & 0xff);
        label[slot + 1] = static_cast<char>(crc >> 8);
        label[slot + 2] = static_cast<char>(text.size());
        label.replace(slot + 4, text.size(), text);
    };
    put(12, "SN-0001");
    put(2088, std::string("x\x01", 2));
    return std::string(128, '\xff') + label;
}

class TavoctlLabelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string templ = std::string(TAVOCTL_TEST_SCRATCH) + "/label-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        scratch_ = templ;
        std::ofstream(scratch_ / "label.bin", std::ios::binary) << eeprom_with_label();
        std::ofstream(scratch_ / "host.json")
            << R"({"name": "label", "i2c": {"buses": [{"bus": 8, "devices": [)"
            << R"({"address": 80, "type": "eeprom24c512", "contents_file": "label.bin"}]}]}})";
    }
    void TearDown() override { fs::remove_all(scratch_); }

    // `script` run by sh on the simulated host, with $T standing for tavoctl.
    Result sh(const std::string &script) const {
        return tavo::test::run_command(
            {TAVO_SIM_PATH, "run", "--host", (scratch_ / "host.json").string(), "--", "sh", "-c",
             "T=" + std::string(TAVOCTL_PATH) + "; " + script},
            scratch_);
    }

    fs::path scratch_;
};

TEST_F(TavoctlLabelTest, DumpListsEveryItemInStorageOrder) {
    Result r = sh("$T --json label dump");
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json items = nlohmann::json::parse(r.out)["items"];
    constexpr std::array<int, 26> kIds{0x10, 0x11, 0x12, 0x20, 0x21, 0x22, 0x23, 0x24, 0x25,
                                       0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x60, 0x61,
                                       0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x50};
    ASSERT_EQ(items.size(), kIds.size());
    for (std::size_t i = 0; i < kIds.size(); ++i) {
        EXPECT_EQ(items[i]["item"], kIds[i]) << i;
    }
    EXPECT_EQ(items[1]["text"], "SN-0001");
    EXPECT_EQ(items[1]["length"], 7);
    EXPECT_EQ(items[25]["text"], "x\\x01");
    EXPECT_EQ(items[25]["hex"], "7801");
    EXPECT_EQ(items[0]["length"], 0);
}

TEST_F(TavoctlLabelTest, SetIsReadBackByTheNextCommand) {
    Result r = sh("$T label get 0x11 && $T label set 18 hello && $T label get 0x12");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "SN-0001\n0x12: 5 bytes written\nhello\n");
}

struct Refusal {
    const char *command;
    const char *reason;
};

class TavoctlLabelRefusalTest : public TavoctlLabelTest,
                                public ::testing::WithParamInterface<Refusal> {};

TEST_P(TavoctlLabelRefusalTest, FailsWithOneLine) {
    Result r = sh(std::string("$T ") + GetParam().command);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, std::string(GetParam().reason) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Commands, TavoctlLabelRefusalTest,
    ::testing::Values(
        Refusal{"label get 0x13",
                "tavoctl: DriverElabelGetData failed (-6); details in "
                "/var/log/quillmon_LOG_ERR.log"},
        Refusal{"label set 0x10 five!",
                "tavoctl: DriverElabelSetData failed (-6); details in "
                "/var/log/quillmon_LOG_ERR.log"},
        Refusal{"label get 256", "tavoctl: invalid label item '256' (0..255, or 0x00..0xff)"},
        Refusal{"label get 0x", "tavoctl: invalid label item '0x' (0..255, or 0x00..0xff)"}));

}  // namespace
