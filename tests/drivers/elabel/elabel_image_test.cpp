// The label image without a bus: CRC, layout, defaults and the item check.
#include <tuple>

#include "elabel_fixture.h"

namespace tavo::test {
namespace {

struct CrcCase {
    std::string_view data;
    uint16_t crc;
};

class Crc16Test : public ::testing::TestWithParam<CrcCase> {};

TEST_P(Crc16Test, MatchesCrc16Xmodem) {
    const CrcCase &c = GetParam();
    EXPECT_EQ(Crc16(reinterpret_cast<const uint8_t *>(c.data.data()),
                    static_cast<uint32_t>(c.data.size())),
              c.crc);
}

INSTANTIATE_TEST_SUITE_P(CheckValues, Crc16Test,
                         ::testing::Values(CrcCase{"", 0x0000}, CrcCase{"123456789", 0x31C3},
                                           CrcCase{"A", 0x58E5}, CrcCase{"\x01", 0x1021},
                                           CrcCase{"\xff", 0x1EF0},
                                           CrcCase{std::string_view("\0\0", 2), 0x0000}));

TEST(Crc16NullTest, NullDataIsZeroWhateverTheLength) {
    EXPECT_EQ(Crc16(nullptr, 9), 0);
}

// Slot offsets and sizes as the EEPROM's label has always been laid out.
TEST(ElabelLayoutTest, ItemsSitAtTheirFixedOffsets) {
    constexpr std::array<std::tuple<uint8_t, uint16_t, uint16_t>, 26> kExpected{{
        {0x10, 4, 4},      {0x11, 68, 12},   {0x12, 68, 84},   {0x20, 68, 156},  {0x21, 68, 228},
        {0x22, 68, 300},   {0x23, 68, 372},  {0x24, 68, 444},  {0x25, 68, 516},  {0x30, 68, 588},
        {0x31, 68, 660},   {0x32, 68, 732},  {0x33, 68, 804},  {0x34, 68, 876},  {0x35, 68, 948},
        {0x36, 68, 1020},  {0x60, 68, 1092}, {0x61, 68, 1164}, {0x62, 68, 1236}, {0x63, 68, 1308},
        {0x64, 496, 1380}, {0x65, 48, 1880}, {0x66, 48, 1932}, {0x67, 48, 1984}, {0x68, 48, 2036},
        {0x50, 268, 2088},
    }};
    for (std::size_t row = 0; row < kExpected.size(); ++row) {
        const auto &[id, max_length, offset] = kExpected[row];
        const elabel::Item &item = elabel::kItems[row];
        EXPECT_EQ(item.id, id) << row;
        EXPECT_EQ(item.max_length, max_length) << row;
        EXPECT_EQ(item.slot_offset, offset) << row;
        EXPECT_STREQ(item.default_text, "") << row;
    }
}

enum class Fault { kLengthAboveMax, kWrongCrc };

class ElabelVerifyTest : public ElabelTest,
                         public ::testing::WithParamInterface<std::tuple<std::size_t, Fault>> {};

// The first bad item is emptied and reported; the check stops there, so a later bad
// item is left alone.
TEST_P(ElabelVerifyTest, FirstBadItemIsResetAndReported) {
    const auto [row, fault] = GetParam();
    const elabel::Item &bad = elabel::kItems[row];
    const elabel::Item &later = elabel::kItems[elabel::kItemCount - 1];
    LabelImage image = label_with({{bad.id, "good text"}, {0x10, "ab"}});
    uint16_t stored_length = static_cast<uint16_t>(bad.max_length + 1);
    if (fault == Fault::kLengthAboveMax) {
        put_le16(image.data(), bad.slot_offset + 2, stored_length);
    } else {
        image[bad.slot_offset + elabel::kSlotHeaderSize] ^= 0x01;
    }
    put_le16(image.data(), later.slot_offset, 0xBEEF);

    EXPECT_EQ(elabel::DriverElabelVerify(image), -1);

    Slot slot = slot_of(image.data(), bad);
    EXPECT_EQ(slot.length, 0);
    EXPECT_EQ(slot.crc, 0);
    EXPECT_EQ(slot_of(image.data(), later).crc, 0xBEEF);
    const std::string expected =
        fault == Fault::kLengthAboveMax
            ? "item(" + std::to_string(row) + ") data length " + std::to_string(stored_length) +
                  " > max_len " + std::to_string(bad.max_length) + " \r\n"
            : "item(" + std::to_string(row) + ") crc error,set default\r\n";
    EXPECT_TRUE(err_logged("DriverElabelVerify", expected)) << expected;
    EXPECT_EQ(read_log(kErrLog).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Rows, ElabelVerifyTest,
                         ::testing::Combine(::testing::Values(1, 20, 24),
                                            ::testing::Values(Fault::kLengthAboveMax,
                                                              Fault::kWrongCrc)));

}  // namespace
}  // namespace tavo::test
