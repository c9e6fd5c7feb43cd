// The emulated adapter and devices, driven through raw ioctls as any program would.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>

#include <cerrno>

#include "base/unique_fd.h"
#include "i2c_test_support.h"
#include "sim/emu/i2c/host_i2c.h"
#include "sim/emu/i2c/transcript_json.h"

namespace tavo::test {
namespace {

using emu::i2c::I2cBus;

// An open /dev/i2c-N. Each call returns 0 or more, or -errno.
class RawBus {
  public:
    explicit RawBus(int bus) : fd_(::open(I2cWorld::device_path(bus).c_str(), O_RDWR)) {
        EXPECT_TRUE(fd_.valid()) << I2cWorld::device_path(bus);
    }
    long call(unsigned long request, void *arg) const {
        int result = ::ioctl(fd_.get(), request, arg);
        return result < 0 ? -errno : result;
    }
    long rdwr(std::vector<i2c_msg> messages) const {
        i2c_rdwr_ioctl_data request{messages.data(), static_cast<uint32_t>(messages.size())};
        return call(I2C_RDWR, &request);
    }
    long slave(unsigned long address) const {
        return call(I2C_SLAVE, reinterpret_cast<void *>(address));
    }
    long smbus(uint8_t read_write, uint8_t command, uint32_t size, i2c_smbus_data *data) const {
        i2c_smbus_ioctl_data request{read_write, command, size, data};
        return call(I2C_SMBUS, &request);
    }

  private:
    base::UniqueFd fd_;
};

i2c_msg wr(uint16_t address, std::vector<uint8_t> &bytes) {
    return {address, 0, static_cast<uint16_t>(bytes.size()), bytes.data()};
}
i2c_msg rd(uint16_t address, std::vector<uint8_t> &bytes) {
    return {address, I2C_M_RD, static_cast<uint16_t>(bytes.size()), bytes.data()};
}

class I2cEmulatorTest : public testing::Test {
  protected:
    I2cWorld world_;
    emu::i2c::Eeprom24c512 &eeprom_ = world_.add_eeprom(8, 0x50);
    RawBus raw_{8};
};

TEST_F(I2cEmulatorTest, EepromWriteWrapsWithinItsPage) {
    std::vector<uint8_t> write = {0x01, 0x08};
    std::vector<uint8_t> data = counting(20, 0xA0);
    write.insert(write.end(), data.begin(), data.end());
    ASSERT_EQ(raw_.rdwr({wr(0x50, write)}), 1);
    // 0x108..0x10f take the first 8 bytes, then the page wraps to 0x100 for the other 12.
    EXPECT_EQ(hex(eeprom_.contents().subspan(0x100, 17)), "a8a9aaabacadaeafb0b1b2b3a4a5a6a7ff");
}

TEST_F(I2cEmulatorTest, EepromReadWrapsAtTheEndOfMemory) {
    eeprom_.load(0xFFFE, std::vector<uint8_t>{1, 2, 3, 4});  // wraps to 0x0000
    std::vector<uint8_t> address = {0xFF, 0xFE};
    std::vector<uint8_t> out(5);
    ASSERT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), 2);
    EXPECT_EQ(hex(out), "01020304ff");
}

TEST_F(I2cEmulatorTest, EepromDropsDataEndedByARepeatedStart) {
    std::vector<uint8_t> write = {0x00, 0x00, 0x11, 0x22};
    std::vector<uint8_t> out(2);
    ASSERT_EQ(raw_.rdwr({wr(0x50, write), rd(0x50, out)}), 2);
    EXPECT_EQ(hex(eeprom_.contents().first(4)), "ffffffff");
    EXPECT_EQ(hex(out), "ffff");
}

TEST_F(I2cEmulatorTest, EepromIgnoresItsAddressDuringTheWriteCycle) {
    eeprom_.set_write_cycle_transfers(2);
    std::vector<uint8_t> write = {0x00, 0x10, 0x42};
    std::vector<uint8_t> address = {0x00, 0x10};
    std::vector<uint8_t> out(1);
    ASSERT_EQ(raw_.rdwr({wr(0x50, write)}), 1);
    EXPECT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), -ENXIO);
    EXPECT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), -ENXIO);
    EXPECT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), 2);
    EXPECT_EQ(out[0], 0x42);
}

TEST_F(I2cEmulatorTest, ExpanderRegistersComeInPairs) {
    auto &expander = world_.add_pca9555(8, 0x20);
    expander.set_inputs(0x3C00);
    std::vector<uint8_t> outputs = {0x02, 0x0F, 0xF0, 0xAA};  // 2, 3, then 2 again
    std::vector<uint8_t> config = {0x06, 0x00};               // port 0: outputs
    std::vector<uint8_t> polarity = {0x04, 0xFF};
    std::vector<uint8_t> command = {0x00};
    std::vector<uint8_t> out(3);
    ASSERT_EQ(raw_.rdwr({wr(0x20, outputs)}), 1);
    ASSERT_EQ(raw_.rdwr({wr(0x20, config)}), 1);
    ASSERT_EQ(raw_.rdwr({wr(0x20, polarity)}), 1);
    ASSERT_EQ(raw_.rdwr({wr(0x20, command), rd(0x20, out)}), 2);
    EXPECT_EQ(expander.reg(2), 0xAA);
    EXPECT_EQ(expander.reg(3), 0xF0);
    // Input 0 reads the inverted output latch, input 1 the pins; then input 0 again.
    EXPECT_EQ(hex(out), "553c55");
}

TEST_F(I2cEmulatorTest, RefusedRequests) {
    std::vector<uint8_t> one(1);
    std::vector<uint8_t> big(8193);
    i2c_smbus_data data{};
    data.block[0] = 33;
    ASSERT_EQ(raw_.slave(0x50), 0);
    struct Case {
        const char *what;
        std::function<long()> call;
        long result;
    };
    const Case cases[] = {
        {"no messages", [&] { return raw_.rdwr({}); }, -EINVAL},
        {"message over 8192", [&] { return raw_.rdwr({wr(0x50, big)}); }, -EINVAL},
        {"10-bit address",
         [&] {
             return raw_.rdwr({{0x50, I2C_M_TEN, 1, one.data()}});
         },
         -EOPNOTSUPP},
        {"no device", [&] { return raw_.rdwr({rd(0x51, one)}); }, -ENXIO},
        {"slave above 0x7f", [&] { return raw_.slave(0x80); }, -EINVAL},
        {"unknown request", [&] { return raw_.call(I2C_PEC, nullptr); }, -ENOTTY},
        {"smbus size 9", [&] { return raw_.smbus(1, 0, 9, &data); }, -EINVAL},
        {"i2c block read of 33",
         [&] { return raw_.smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_I2C_BLOCK_DATA, &data); }, -EINVAL},
        {"block write of 33",
         [&] { return raw_.smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_BLOCK_DATA, &data); }, -EINVAL},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(c.call(), c.result) << c.what;
    }
    world_.bus(8).fail_next(1);
    EXPECT_EQ(raw_.rdwr({rd(0x50, one)}), -EIO);
}

TEST_F(I2cEmulatorTest, SmbusIsEmulatedWithI2cMessages) {
    auto &device = world_.add<ScriptedDevice>(8, 0x30);
    device.answer = {3, 0xA1, 0xA2, 0xA3, 0xA4};
    ASSERT_EQ(raw_.slave(0x30), 0);
    i2c_smbus_data data{};
    data.word = 0x1234;
    EXPECT_EQ(raw_.smbus(I2C_SMBUS_WRITE, 0x10, I2C_SMBUS_PROC_CALL, &data), 0);
    EXPECT_EQ(data.word, 0xA103);
    EXPECT_EQ(raw_.smbus(I2C_SMBUS_READ, 0x11, I2C_SMBUS_BLOCK_DATA, &data), 0);
    EXPECT_EQ(hex(std::span(data.block, 4)), "03a1a2a3");
    EXPECT_EQ(raw_.smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK, nullptr), 0);
    EXPECT_EQ(raw_.smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_I2C_BLOCK_BROKEN, &data), 0);
    EXPECT_EQ(data.block[0], 32);
    device.answer = {0};  // a block count of 0 is a protocol error
    EXPECT_EQ(raw_.smbus(I2C_SMBUS_READ, 0x11, I2C_SMBUS_BLOCK_DATA, &data), -EPROTO);
    EXPECT_EQ(summaries(world_.bus(8)),
              (std::vector<std::string>{"w30:103412 r30:2", "w30:11 r30:4", "w30:", "w30:00 r30:32",
                                        "w30:11 r30:33 !71"}));
    EXPECT_EQ(hex(device.written),
              "103412"
              "11"
              "00"
              "11");
}

TEST_F(I2cEmulatorTest, SlaveAddressBelongsToTheOpenFile) {
    world_.add_pca9555(8, 0x20);
    RawBus other(8);
    ASSERT_EQ(raw_.slave(0x50), 0);
    ASSERT_EQ(other.slave(0x20), 0);
    i2c_smbus_data data{};
    EXPECT_EQ(other.smbus(I2C_SMBUS_READ, 6, I2C_SMBUS_BYTE_DATA, &data), 0);
    EXPECT_EQ(raw_.smbus(I2C_SMBUS_READ, 6, I2C_SMBUS_BYTE_DATA, &data), 0);
    EXPECT_EQ(summaries(world_.bus(8)), (std::vector<std::string>{"w20:06 r20:1", "w50:06 r50:1"}));
    unsigned long funcs = 0;
    EXPECT_EQ(raw_.call(I2C_FUNCS, &funcs), 0);
    EXPECT_EQ(funcs, I2cBus::kFunctionality);
}

TEST_F(I2cEmulatorTest, NakCountsTransfersToOneAddress) {
    world_.bus(8).nak_next(0x50, 2);
    std::vector<uint8_t> address = {0, 0};
    std::vector<uint8_t> out(1);
    EXPECT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), -ENXIO);
    EXPECT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), -ENXIO);
    EXPECT_EQ(raw_.rdwr({wr(0x50, address), rd(0x50, out)}), 2);
    auto transcript = world_.bus(8).transcript();
    ASSERT_EQ(transcript.size(), 3u);
    EXPECT_EQ(emu::i2c::transcript_json(8, transcript[2]).dump(),
              R"({"bus":8,"error":0,"kind":"rdwr","messages":[)"
              R"({"addr":80,"data":"0000","flags":0,"len":2},)"
              R"({"addr":80,"data":"ff","flags":1,"len":1}]})");
}

struct HostCase {
    const char *json;
    const char *error;
};

std::ostream &operator<<(std::ostream &out, const HostCase &c) {
    return out << c.json;
}

class HostSectionTest : public testing::TestWithParam<HostCase> {};

TEST_P(HostSectionTest, RefusedWithThePathOfTheBadValue) {
    std::vector<std::shared_ptr<I2cBus>> buses;
    std::string error;
    EXPECT_FALSE(emu::i2c::build_buses(nlohmann::json::parse(GetParam().json), "/nonexistent",
                                       buses, error));
    EXPECT_EQ(error, GetParam().error);
    EXPECT_TRUE(buses.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Bad, HostSectionTest,
    testing::Values(
        HostCase{R"({"i2c": []})", "i2c: expected an object"},
        HostCase{R"({"i2c": {"bus": []}})", "i2c.bus: unknown key"},
        HostCase{R"({"i2c": {"buses": [{"bus": 12}]}})", "i2c.buses[0].bus: out of range (0..11)"},
        HostCase{R"({"i2c": {"buses": [{"bus": 1}, {"bus": 1}]}})",
                 "i2c.buses[1].bus: bus 1 described twice"},
        HostCase{R"({"i2c": {"buses": [{"bus": 9, "block_read_max": 34}]}})",
                 "i2c.buses[0].block_read_max: out of range (1..33)"},
        HostCase{
            R"({"i2c": {"buses": [{"bus": 8, "devices": [{"address": 128, "type": "pca9555"}]}]}})",
            "i2c.buses[0].devices[0].address: out of range (0..127)"},
        HostCase{R"({"i2c": {"buses": [{"bus": 8, "devices": [{"address": 80, "type": "pca9555"},)"
                 R"({"address": 80, "type": "mcu_slot"}]}]}})",
                 "i2c.buses[0].devices[1].address: address 80 already used on bus 8"},
        HostCase{R"({"i2c": {"buses": [{"bus": 8, "devices": [{"address": 80, "type": "rom"}]}]}})",
                 "i2c.buses[0].devices[0].type: unknown device type \"rom\" (known: "
                 "board_id_eeprom, eeprom24c512, mcu_slot, pca9555)"},
        HostCase{
            R"({"i2c": {"buses": [{"bus": 0, "devices": [{"address": 87, "type": "board_id_eeprom", "contents": "0g"}]}]}})",
            "i2c.buses[0].devices[0].contents: expected hex bytes (two digits each), found "
            "a bad digit at character 1"},
        HostCase{
            R"({"i2c": {"buses": [{"bus": 0, "devices": [{"address": 87, "type": "board_id_eeprom", "contents_file": "id.bin"}]}]}})",
            "i2c.buses[0].devices[0].contents_file: cannot read /nonexistent/id.bin: No such "
            "file or directory"},
        HostCase{
            R"({"i2c": {"buses": [{"bus": 8, "devices": [{"address": 80, "type": "eeprom24c512", "wp": true}]}]}})",
            "i2c.buses[0].devices[0].wp: unknown key"}));

}  // namespace
}  // namespace tavo::test
