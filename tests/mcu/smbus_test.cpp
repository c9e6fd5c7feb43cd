// The SMBus transport: the same frames on bus 9, slave 0x64, answered by the same
// MCU model as the pass-through.
#include <array>
#include <cstring>

#include "host_parse.h"
#include "i2c_world.h"
#include "mcu_fixture.h"
#include "mcu_smbus_device.h"

namespace tavo::test {
namespace {

using emu::i2c::TransferKind;
using mcu_model::McuSmbusDevice;

mcu_model::McuConfig card_mcu() {
    return sim::load_host_text(mcu_host(kDefaultMcu)).cards.at(1).mcu.value();
}

class SmbusTest : public McuTest {
  protected:
    void SetUp() override {
        McuTest::SetUp();
        // The MCU's reply to a full frame is a count byte and 32 bytes.
        world_.bus(9).set_block_read_max(33);
    }

    struct Read {
        int result;
        std::array<uint8_t, TAVO_MCU_FRAME_DATA_MAX> data{};
        uint32_t piece = 0;
        uint32_t total = 0;
    };
    template <typename Exchange>
    static Read read(Exchange exchange, uint8_t argument, uint16_t command, uint32_t length) {
        Read r{};
        r.result = exchange(kMcuCard, argument, command, 0, length, nullptr, 0, r.data.data(),
                            &r.piece, &r.total);
        return r;
    }

    I2cWorld world_;
    McuSmbusDevice &mcu_ = world_.add<McuSmbusDevice>(9, 0x64, card_mcu());
};

TEST_F(SmbusTest, SameAnswerAsThroughThePassThrough) {
    struct Item {
        uint8_t argument;
        uint16_t command;
        uint32_t length;
    };
    for (Item item : {Item{0, TAVO_MCU_CMD_SN, 20}, Item{0, TAVO_MCU_CMD_TEMPERATURE, 2},
                      Item{35, TAVO_MCU_CMD_ELABEL, 20}}) {
        Read smbus = read(tavo_mcu_get_info_by_i2c, item.argument, item.command, item.length);
        Read passthru = read(tavo_mcu_get_info_by_mini, item.argument, item.command, item.length);
        ASSERT_EQ(smbus.result, 0) << item.command;
        ASSERT_EQ(passthru.result, 0) << item.command;
        EXPECT_EQ(smbus.data, passthru.data) << item.command;
        EXPECT_EQ(smbus.piece, passthru.piece) << item.command;
        EXPECT_EQ(smbus.total, passthru.total) << item.command;
    }
    const auto &frames = mcu_.model().transcript();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[2].transport, mcu_model::Transport::smbus);
    EXPECT_EQ(frames[2].argument, 35);
    EXPECT_EQ(frames[1].length, 2u);
}

TEST_F(SmbusTest, BlockWriteOfTheFrameThenBlockReadOfLengthPlus13) {
    Read r = read(tavo_mcu_get_info_by_i2c, 0, TAVO_MCU_CMD_TEMPERATURE, 2);
    ASSERT_EQ(r.result, 0);
    EXPECT_EQ(r.data[0] | r.data[1] << 8, 300);
    auto transfers = world_.bus(9).transcript();
    ASSERT_EQ(transfers.size(), 2u);
    EXPECT_EQ(transfers[0].kind, TransferKind::kSmbus);
    EXPECT_EQ(transfers[0].command, 0x20);
    EXPECT_EQ(transfers[0].size, 5u) << "SMBus block write";
    ASSERT_EQ(transfers[0].messages.size(), 1u);
    const std::vector<uint8_t> frame{0x20, 12, 0x80, 0, 3, 0, 0, 0, 0, 0, 2, 0, 0, 0};
    EXPECT_EQ(transfers[0].messages[0].data, frame);
    EXPECT_EQ(transfers[1].command, 0x21);
    EXPECT_EQ(transfers[1].size, 8u) << "I2C block read";
    ASSERT_EQ(transfers[1].messages.size(), 2u);
    EXPECT_EQ(transfers[1].messages[1].length, 15u);
}

TEST_F(SmbusTest, WritesSendOneFrameAndReadNothing) {
    const uint8_t control = 2;
    ASSERT_EQ(
        tavo_mcu_set_info_by_i2c(kMcuCard, 0x80, TAVO_MCU_CMD_UPGRADE_CONTROL, 0, 1, &control), 0);
    EXPECT_EQ(world_.bus(9).transcript().size(), 1u);
    const auto &frames = mcu_.model().transcript();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].direction, mcu_model::Direction::write);
    EXPECT_EQ(mcu_.model().last_upgrade_control(), 2);
    EXPECT_TRUE(mcu_requests().empty()) << "nothing went through the chip";
}

TEST_F(SmbusTest, FailuresOfTheMcuAndOfTheBus) {
    mcu_.model().fail_command(TAVO_MCU_CMD_SN, 1, 5);
    EXPECT_EQ(read(tavo_mcu_get_info_by_i2c, 0, TAVO_MCU_CMD_SN, 20).result, -1);
    EXPECT_TRUE(err_logged("tavo_mcu_get_info_by_i2c", "error_code=5.\n\r\n"));

    world_.bus(9).set_block_read_max(32);
    EXPECT_EQ(read(tavo_mcu_get_info_by_i2c, 0, TAVO_MCU_CMD_SN, 20).result, -1);
    EXPECT_TRUE(err_logged("tavo_mcu_get_info_by_i2c", "call I2cSmbusReadBlock failed.-1.\n\r\n"));

    world_.bus(9).nak_next(0x64, 1);
    const uint8_t control = 2;
    EXPECT_EQ(
        tavo_mcu_set_info_by_i2c(kMcuCard, 0x80, TAVO_MCU_CMD_UPGRADE_CONTROL, 0, 1, &control), -1);
    EXPECT_TRUE(err_logged("tavo_mcu_set_info_by_i2c", "call I2cSmbusWriteBlock failed.-1.\n\r\n"));
}

}  // namespace
}  // namespace tavo::test
