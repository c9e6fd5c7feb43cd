// The label store against an emulated EEPROM at /dev/i2c-8, slave 0x50.
#include <algorithm>
#include <vector>

#include "child_process.h"
#include "elabel_fixture.h"
#include "i2c_world.h"

namespace tavo::test {
namespace {

constexpr std::size_t kLabelStart = 128;
constexpr std::size_t kLabelEnd = kLabelStart + elabel::kImageSize;

class ElabelStoreTest : public ElabelTest {
  protected:
    void SetUp() override {
        ElabelTest::SetUp();
        eeprom_.erase();
    }

    void store(const LabelImage &image) { eeprom_.load(kLabelStart, image); }
    const uint8_t *stored() { return eeprom_.contents().data() + kLabelStart; }
    Slot stored_slot(uint8_t id) { return slot_of(stored(), item_by_id(id)); }
    std::size_t transfers() { return world_.bus(8).transcript().size(); }

    // The data bytes of every page write since the transcript was cleared, in order
    // (each write message is two address bytes and the data).
    std::vector<std::vector<uint8_t>> page_writes() {
        std::vector<std::vector<uint8_t>> pages;
        for (const auto &transfer : world_.bus(8).transcript()) {
            for (const auto &message : transfer.messages) {
                if ((message.flags & I2C_M_RD) == 0 && message.data.size() > 2) {
                    pages.emplace_back(message.data.begin() + 2, message.data.end());
                }
            }
        }
        return pages;
    }

    static int get(uint8_t id, std::string &text) {
        std::vector<uint8_t> buffer(512, 0xEE);
        uint8_t *dest = buffer.data();
        uint16_t length = 0;
        int status = DriverElabelGetData(id, &dest, &length);
        text.assign(buffer.begin(), buffer.begin() + length);
        EXPECT_EQ(buffer[length], 0xEE) << "nothing is written past the item";
        return status;
    }
    static int set(uint8_t id, std::string_view text, uint16_t offset = 0) {
        return DriverElabelSetData(id, reinterpret_cast<const uint8_t *>(text.data()), offset,
                                   static_cast<uint8_t>(text.size()));
    }

    I2cWorld world_;
    emu::i2c::Eeprom24c512 &eeprom_ = world_.add_eeprom(8, 0x50);
};

TEST_F(ElabelStoreTest, BlankEepromIsFormattedOnFirstInit) {
    ASSERT_EQ(DriverElabelInit(), 0);
    LabelImage formatted{};
    std::copy_n("BALE", 4, formatted.begin());
    EXPECT_TRUE(std::equal(formatted.begin(), formatted.end(), stored()));
    EXPECT_TRUE(std::all_of(eeprom_.contents().begin(), eeprom_.contents().begin() + kLabelStart,
                            [](uint8_t b) { return b == 0xFF; }));
    EXPECT_EQ(eeprom_.contents()[kLabelEnd], 0xFF);
    EXPECT_EQ(g_elabelEnv.flags, 0u);
    EXPECT_TRUE(
        err_logged("DriverElabelInit",
                   "DriverElabelInit: magic number is valid :set elabel to default\r\n\r\n"));
    EXPECT_EQ(read_log(kErrLog).size(), 1u);

    std::string text = "?";
    EXPECT_EQ(get(0x50, text), 0);
    EXPECT_EQ(text, "");
}

TEST_F(ElabelStoreTest, GoodLabelIsReadOnceAndServedFromMemory) {
    const std::string longest(268, 'z');
    store(label_with({{0x11, "SN-0001"}, {0x50, longest}}));
    ASSERT_EQ(DriverElabelInit(), 0);
    EXPECT_EQ(g_elabelEnv.flags, kElabelFlagVerified);
    EXPECT_TRUE(page_writes().empty());
    EXPECT_TRUE(read_log(kErrLog).empty());

    store(label_with({{0x11, "changed"}}));
    const std::size_t before = transfers();
    std::string text;
    EXPECT_EQ(get(0x11, text), 0);
    EXPECT_EQ(text, "SN-0001");
    EXPECT_EQ(get(0x50, text), 0);
    EXPECT_EQ(text, longest);
    EXPECT_EQ(transfers(), before);
}

enum class Fault { kLengthAboveMax, kWrongCrc };

class ElabelCorruptLabelTest : public ElabelStoreTest, public ::testing::WithParamInterface<Fault> {
  protected:
    void store_corrupt_label() {
        LabelImage image = label_with({{0x10, "ab"}, {0x20, "bad"}, {0x50, "later"}});
        const elabel::Item &bad = item_by_id(0x20);
        if (GetParam() == Fault::kLengthAboveMax) {
            put_le16(image.data(), bad.slot_offset + 2, 69);
        } else {
            put_le16(image.data(), bad.slot_offset, 0x1234);
        }
        store(image);
    }
    static std::string verify_message() {
        return GetParam() == Fault::kLengthAboveMax ? "item(3) data length 69 > max_len 68 \r\n"
                                                    : "item(3) crc error,set default\r\n";
    }
};

// Five reads fail the same check; the whole label, not only the bad item, is then
// rewritten empty, and init reports the loss.
TEST_P(ElabelCorruptLabelTest, InitRewritesTheWholeLabelToDefaults) {
    store_corrupt_label();
    EXPECT_EQ(DriverElabelInit(), -1);
    EXPECT_EQ(err_count("DriverElabelVerify", verify_message()), 5u);
    EXPECT_TRUE(err_logged(
        "DriverElabelInit",
        "DriverElabelInit:fail to read and verify elabel,set elabel to default\r\n\r\n"));
    EXPECT_EQ(g_elabelEnv.flags, 0u);
    EXPECT_TRUE(label_is_consistent(stored()));
    for (const elabel::Item &item : elabel::kItems) {
        EXPECT_EQ(slot_of(stored(), item).length, 0) << int{item.id};
    }

    const std::size_t before = transfers();
    std::string text = "?";
    EXPECT_EQ(get(0x10, text), 0);
    EXPECT_EQ(text, "");
    EXPECT_EQ(transfers(), before);
}

TEST_P(ElabelCorruptLabelTest, GetReportsTheFailedInit) {
    store_corrupt_label();
    std::string text;
    EXPECT_EQ(get(0x10, text), -1);
    EXPECT_TRUE(err_logged("DriverElabelGetData", "DriverElabelInit failed.-1 \r\n\r\n"));
}

// The first init defaults the label; the second finds it good and the set goes on.
TEST_P(ElabelCorruptLabelTest, SetSucceedsOnTheSecondInit) {
    store_corrupt_label();
    EXPECT_EQ(set(0x11, "new"), 0);
    EXPECT_TRUE(err_logged("DriverElabelSetData", "init_cnt: 1\n\r\n"));
    EXPECT_FALSE(err_logged("DriverElabelSetData", "init_cnt: 2\n\r\n"));
    EXPECT_EQ(g_elabelEnv.flags, kElabelFlagVerified);
    EXPECT_EQ(stored_slot(0x11).data.substr(0, 3), "new");
    EXPECT_EQ(stored_slot(0x10).length, 0);
    EXPECT_TRUE(label_is_consistent(stored()));
}

INSTANTIATE_TEST_SUITE_P(Faults, ElabelCorruptLabelTest,
                         ::testing::Values(Fault::kLengthAboveMax, Fault::kWrongCrc));

TEST_F(ElabelStoreTest, SetAtOffsetZeroReplacesTheItem) {
    store(label_with({{0x10, "ab"}, {0x11, "ABCDEFGHIJ"}}));
    ASSERT_EQ(set(0x11, "xyz"), 0);
    Slot slot = stored_slot(0x11);
    EXPECT_EQ(slot.length, 3);
    EXPECT_EQ(slot.crc, Crc16(reinterpret_cast<const uint8_t *>("xyz"), 3));
    EXPECT_EQ(slot.data, "xyz" + std::string(65, '\0'));
    EXPECT_EQ(stored_slot(0x10).data.substr(0, 2), "ab");
    EXPECT_TRUE(label_is_consistent(stored()));
    std::string text;
    EXPECT_EQ(get(0x11, text), 0);
    EXPECT_EQ(text, "xyz");
}

TEST_F(ElabelStoreTest, SetAtAnOffsetKeepsTheBytesBeforeIt) {
    store(label_with({{0x11, "ABCDEFGHIJ"}}));
    ASSERT_EQ(set(0x11, "xyz", 5), 0);
    Slot slot = stored_slot(0x11);
    EXPECT_EQ(slot.length, 8);
    EXPECT_EQ(slot.data.substr(0, 8), "ABCDExyz");
    EXPECT_EQ(slot.crc, Crc16(reinterpret_cast<const uint8_t *>("ABCDExyz"), 8));
}

// The EEPROM is zeroed in full before the new image goes in.
TEST_F(ElabelStoreTest, UpdateErasesBeforeItWrites) {
    store(label_with({{0x11, "old"}}));
    ASSERT_EQ(DriverElabelInit(), 0);
    world_.bus(8).clear_transcript();
    ASSERT_EQ(set(0x12, "new"), 0);
    std::vector<uint8_t> written;
    for (const auto &page : page_writes()) {
        written.insert(written.end(), page.begin(), page.end());
    }
    ASSERT_EQ(written.size(), 2 * elabel::kImageSize);
    EXPECT_TRUE(std::all_of(written.begin(), written.begin() + elabel::kImageSize,
                            [](uint8_t b) { return b == 0; }));
    EXPECT_TRUE(std::equal(written.begin() + elabel::kImageSize, written.end(), stored()));
    EXPECT_TRUE(std::equal(stored(), stored() + elabel::kImageSize, g_elabelDataTmp));
}

struct Fit {
    uint8_t id;
    uint16_t offset;
    uint8_t count;
};

class ElabelFitTest : public ElabelStoreTest, public ::testing::WithParamInterface<Fit> {};

TEST_P(ElabelFitTest, DataEndingAtMaxLengthFitsAndOneMoreByteDoesNot) {
    const Fit fit = GetParam();
    const std::string data(fit.count, 'q');
    ASSERT_EQ(set(fit.id, data, fit.offset), 0);
    EXPECT_EQ(stored_slot(fit.id).length, fit.offset + fit.count);
    EXPECT_TRUE(label_is_consistent(stored()));

    world_.bus(8).clear_transcript();
    EXPECT_EQ(set(fit.id, data, static_cast<uint16_t>(fit.offset + 1)), -6);
    EXPECT_TRUE(err_logged("DriverElabelSetData",
                           "DriverElabelSetData: data to write is too long \r\n\r\n"));
    EXPECT_EQ(transfers(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Items, ElabelFitTest,
                         ::testing::Values(Fit{0x10, 0, 4}, Fit{0x10, 3, 1}, Fit{0x65, 0, 48},
                                           Fit{0x50, 13, 255}, Fit{0x64, 241, 255}));

TEST_F(ElabelStoreTest, BadSetArgumentsAreRefusedWithoutBusTraffic) {
    ASSERT_EQ(DriverElabelInit(), 0);
    remove_logs();
    world_.bus(8).clear_transcript();
    const uint8_t byte = 'a';
    EXPECT_EQ(DriverElabelSetData(0x11, &byte, 0, 0), -6);
    EXPECT_EQ(DriverElabelSetData(0x11, nullptr, 0, 1), -6);
    EXPECT_EQ(err_count("DriverElabelSetData", "DriverElabelSetData: argument invalid\r\n\r\n"),
              2u);
    EXPECT_EQ(DriverElabelSetData(0x13, &byte, 0, 1), -6);
    EXPECT_TRUE(err_logged("DriverElabelSetData", "DriverElabelSetData: no item 19\r\n\r\n"));
    EXPECT_EQ(transfers(), 0u);
}

TEST_F(ElabelStoreTest, BadGetArgumentsAreRefused) {
    ASSERT_EQ(DriverElabelInit(), 0);
    remove_logs();
    uint8_t buffer[69];
    uint8_t *dest = buffer;
    uint16_t length = 0;
    EXPECT_EQ(DriverElabelGetData(0x13, &dest, &length), -6);
    EXPECT_TRUE(err_logged("DriverElabelGetData", "DriverElabelSetData: no item 19\r\n\r\n"));
    EXPECT_EQ(DriverElabelGetData(0x11, nullptr, &length), -6);
    EXPECT_EQ(DriverElabelGetData(0x11, &dest, nullptr), -6);
    uint8_t *null_dest = nullptr;
    EXPECT_EQ(DriverElabelGetData(0x11, &null_dest, &length), 1);
    EXPECT_TRUE(err_logged("DriverElabelGetData", "call memcpy_s failed! 22\n\r\n"));
}

// Clear erases without the lock, so it works while another process holds it.
TEST_F(ElabelStoreTest, ClearLeavesABlankLabelThatTheNextInitFormats) {
    store(label_with({{0x11, "SN-0001"}}));
    ASSERT_EQ(DriverElabelInit(), 0);
    {
        ChildProcess other({ELABEL_CHILD, "hold", "120000"});
        ASSERT_EQ(other.read_line(), "locked");
        EXPECT_EQ(DriverElabelClear(), 0);
    }
    EXPECT_TRUE(
        std::all_of(stored(), stored() + elabel::kImageSize, [](uint8_t b) { return b == 0; }));
    std::string text = "?";
    EXPECT_EQ(get(0x11, text), 0);
    EXPECT_EQ(text, "");

    reset_label_store();
    EXPECT_EQ(DriverElabelInit(), 0);
    EXPECT_TRUE(
        err_logged("DriverElabelInit",
                   "DriverElabelInit: magic number is valid :set elabel to default\r\n\r\n"));
    EXPECT_TRUE(label_is_consistent(stored()));
}

TEST_F(ElabelStoreTest, UnreadableMagicIsReportedInTheDiagnosticsLog) {
    world_.bus(8).fail_next(1000);
    EXPECT_EQ(DriverElabelInit(), -1);
    EXPECT_TRUE(logged(kGpLog, origin("DriverElabelInit"), "read ElectronicLabel failed\r\n\r\n"));
    const auto sleeps = requested_sleeps();
    EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 1u), 5);
    EXPECT_EQ(g_elabelEnv.image, g_elabelDataTmp);
    int fd = -1;
    ASSERT_EQ(ElabelSetLock(&fd, 1), 0) << "the lock was released";
    EXPECT_EQ(ElabelSetUnlock(fd), 0);
}

// A part that drops writes: the erase "succeeds" on a blank label, the image write
// fails its read-back five times and the label stays blank.
TEST_F(ElabelStoreTest, FailedWriteAfterTheEraseLeavesABlankLabel) {
    ASSERT_EQ(DriverElabelInit(), 0);
    ASSERT_EQ(DriverElabelClear(), 0);
    eeprom_.set_write_protected(true);
    remove_logs();
    clear_requested_sleeps();

    EXPECT_EQ(set(0x11, "lost"), -1);
    EXPECT_TRUE(
        err_logged("DriverFlashWritElectronicLabel", "call DriverI2cSetData error.-1 \n\r\n"));
    EXPECT_TRUE(
        err_logged("DriverElabelUpdate", "fail to DriverFlashWritElectronicLabel. -1\r\n\r\n"));
    EXPECT_TRUE(err_logged("DriverElabelSetData", "elabel_update Error.-1 \r\n\r\n"));
    const auto sleeps = requested_sleeps();
    EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 1u), 5);
    EXPECT_TRUE(
        std::all_of(stored(), stored() + elabel::kImageSize, [](uint8_t b) { return b == 0; }));
}

TEST_F(ElabelStoreTest, FailedEraseEndsTheUpdate) {
    store(label_with({{0x11, "kept"}}));
    ASSERT_EQ(DriverElabelInit(), 0);
    eeprom_.set_write_protected(true);
    remove_logs();
    world_.bus(8).clear_transcript();

    EXPECT_EQ(DriverElabelUpdate(), -1);
    EXPECT_TRUE(
        err_logged("DriverFlashEraseElectronicLabel", "call DriverI2cSetData error.-1 \n\r\n"));
    EXPECT_TRUE(
        err_logged("DriverElabelUpdate", "fail to DriverFlashEraseElectronicLabel. -1\r\n\r\n"));
    for (const auto &page : page_writes()) {
        EXPECT_TRUE(std::all_of(page.begin(), page.end(), [](uint8_t b) { return b == 0; }))
            << "nothing but the erase reached the EEPROM";
    }
}

TEST_F(ElabelStoreTest, BlankEepromThatCannotBeWrittenFailsInit) {
    eeprom_.set_write_protected(true);
    EXPECT_EQ(DriverElabelInit(), -1);
    EXPECT_TRUE(err_logged("DriverElabelInit", "DriverElabelInit: fail to write flash\r\n\r\n"));
    EXPECT_EQ(g_elabelEnv.image, g_elabelDataTmp);
}

TEST_F(ElabelStoreTest, ClearReportsAFailedErase) {
    eeprom_.set_write_protected(true);
    EXPECT_EQ(DriverElabelClear(), -1);
    EXPECT_TRUE(
        err_logged("DriverElabelClear", "DriverElabelClear: fail to erase flash.-1 \r\n\r\n"));
    EXPECT_EQ(g_elabelEnv.image, nullptr) << "clear does not initialise the store";
}

}  // namespace
}  // namespace tavo::test
