// I2cSmbus*: the SMBus requests that reach the bus, the block clamps and the log records.
#include <functional>

#include "drivers/i2c_smbus.h"
#include "i2c_test_support.h"
#include "tavo/i2c_smbus.h"

namespace tavo::test {
namespace {

class I2cSmbusTest : public testing::Test {
  protected:
    void SetUp() override {
        remove_logs();
        mcu_.answer = counting(34, 0x80);
    }

    static bool err_logged(const std::string &function, std::string_view text) {
        return logged(kErrLog, "i2c_smbus," + function, text);
    }
    // The one SMBus request on bus 9, checked for its kind, and its messages.
    std::string request() {
        auto transcript = world_.bus(9).transcript();
        if (transcript.size() != 1 || transcript[0].kind != emu::i2c::TransferKind::kSmbus) {
            return "not one SMBus request";
        }
        return std::to_string(transcript[0].read_write) + "/" + std::to_string(transcript[0].size) +
               " " + summary(transcript[0]);
    }

    I2cWorld world_;
    ScriptedDevice &mcu_ = world_.add<ScriptedDevice>(9, 0x64);
    emu::i2c::Pca9555 &expander_ = world_.add_pca9555(3, 0x20);
};

TEST_F(I2cSmbusTest, ByteAndWordTransactions) {
    expander_.set_inputs(0x1234);
    uint8_t byte = 0;
    uint16_t word = 0;
    EXPECT_EQ(I2cSmbusReadByte(3, 0x20, 1, &byte), 0);
    EXPECT_EQ(byte, 0x12);
    EXPECT_EQ(I2cSmbusReadWord(3, 0x20, 0, &word), 0);
    EXPECT_EQ(word, 0x1234);  // low byte first: port 0, then port 1
    EXPECT_EQ(I2cSmbusWriteByte(3, 0x20, 6, 0x0F), 0);
    EXPECT_EQ(I2cSmbusWriteWord(3, 0x20, 2, 0xBEEF), 0);
    EXPECT_EQ(expander_.reg(6), 0x0F);
    EXPECT_EQ(expander_.reg(2), 0xEF);
    EXPECT_EQ(expander_.reg(3), 0xBE);
    EXPECT_EQ(summaries(world_.bus(3)),
              (std::vector<std::string>{"w20:01 r20:1", "w20:00 r20:2", "w20:060f", "w20:02efbe"}));
    EXPECT_TRUE(read_log(kErrLog).empty());
}

TEST_F(I2cSmbusTest, BlockWriteIsClampedTo32) {
    std::vector<uint8_t> data = counting(40, 1);
    EXPECT_EQ(I2cSmbusWriteBlock(9, 0x64, 0x20, 40, data.data()), 0);
    EXPECT_EQ(request(), "0/5 w64:2020" + hex(std::span(data).first(32)));
}

struct BlockReadCase {
    uint32_t length;
    int bus_limit;
    std::string request;
    std::size_t copied;  // bytes written to the output, from the second byte received
};

std::ostream &operator<<(std::ostream &out, const BlockReadCase &c) {
    return out << c.length << " bytes, bus limit " << c.bus_limit;
}

class BlockReadTest : public I2cSmbusTest, public testing::WithParamInterface<BlockReadCase> {};

TEST_P(BlockReadTest, FirstByteReceivedIsDropped) {
    const BlockReadCase &c = GetParam();
    world_.bus(9).set_block_read_max(c.bus_limit);
    std::vector<uint8_t> out(40, 0x55);
    EXPECT_EQ(I2cSmbusReadBlock(9, 0x64, 0x21, c.length, out.data()), 0);
    EXPECT_EQ(request(), c.request);
    std::vector<uint8_t> expected(40, 0x55);
    std::copy_n(mcu_.answer.begin() + 1, c.copied, expected.begin());
    EXPECT_EQ(hex(out), hex(expected));
}

INSTANTIATE_TEST_SUITE_P(Lengths, BlockReadTest,
                         testing::Values(BlockReadCase{33, 33, "1/8 w64:21 r64:33", 32},
                                         BlockReadCase{34, 33, "1/8 w64:21 r64:32", 31},
                                         BlockReadCase{100, 32, "1/8 w64:21 r64:32", 31},
                                         BlockReadCase{2, 32, "1/8 w64:21 r64:2", 1},
                                         BlockReadCase{1, 32, "1/8 w64:21 r64:1", 0},
                                         BlockReadCase{0, 32, "1/8 w64:21 r64:0", 0}));

TEST_F(I2cSmbusTest, BlockReadOf33FailsWhereTheAdapterStopsAt32) {
    uint8_t out[33];
    EXPECT_EQ(I2cSmbusReadBlock(9, 0x64, 0x21, 33, out), -1);
    EXPECT_EQ(request(), "1/8  !22");  // refused before any message
    EXPECT_TRUE(err_logged("I2cSmbusReadBlock", "i2c smbus access failed:64\r\n"));
}

TEST_F(I2cSmbusTest, BusIdOutsideTheTableIsRefused) {
    uint8_t byte = 0;
    EXPECT_EQ(I2cSmbusReadByte(12, 0x64, 0, &byte), -1);
    EXPECT_EQ(read_log(kErrLog).size(), 1u);
    EXPECT_TRUE(err_logged("I2cSmbusInit", "invalid id 12\r\n"));
}

TEST_F(I2cSmbusTest, BusThatCannotBeOpened) {
    world_.make_unopenable(5);
    EXPECT_EQ(I2cSmbusWriteByte(5, 0x64, 0, 0), -1);
    EXPECT_TRUE(err_logged("I2cSmbusInit", "Open /dev/i2c-5 dev error!\r\n"));
}

TEST_F(I2cSmbusTest, SlaveAddressAbove7BitsIsRefused) {
    EXPECT_EQ(I2cSmbusWriteByte(9, 0x80, 0, 0), -1);
    EXPECT_TRUE(err_logged("I2cSmbusWriteByte", "set slave address failed:80\r\n"));
    EXPECT_TRUE(world_.bus(9).transcript().empty());
}

TEST_F(I2cSmbusTest, FailedTransactionNamesTheSlave) {
    uint8_t byte = 0;
    uint16_t word = 0;
    uint8_t block[33] = {};
    struct Case {
        const char *function;
        std::function<int()> call;
        const char *text;
    };
    const Case cases[] = {
        {"I2cSmbusWriteByte", [&] { return I2cSmbusWriteByte(9, 0x64, 0, 1); },
         "i2c smbus access failed:64\r\n"},
        {"I2cSmbusReadByte", [&] { return I2cSmbusReadByte(9, 0x64, 0, &byte); },
         "i2c smbus access failed:64\r\n"},
        {"I2cSmbusWriteWord", [&] { return I2cSmbusWriteWord(9, 0x64, 0, 1); },
         "i2c smbus access failed:64\n\r\n"},
        {"I2cSmbusReadWord", [&] { return I2cSmbusReadWord(9, 0x64, 0, &word); },
         "i2c smbus access failed:64\r\n"},
        {"I2cSmbusWriteBlock", [&] { return I2cSmbusWriteBlock(9, 0x64, 0x20, 4, block); },
         "i2c smbus access failed:64\r\n"},
        {"I2cSmbusReadBlock", [&] { return I2cSmbusReadBlock(9, 0x64, 0x21, 8, block); },
         "i2c smbus access failed:64\r\n"},
    };
    for (const Case &c : cases) {
        remove_logs();
        world_.bus(9).nak_next(0x64, 1);
        EXPECT_EQ(c.call(), -1) << c.function;
        EXPECT_EQ(read_log(kErrLog).size(), 1u) << c.function;
        EXPECT_TRUE(err_logged(c.function, c.text)) << c.function;
    }
}

}  // namespace
}  // namespace tavo::test
