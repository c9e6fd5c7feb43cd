// i2c-tools, a kernel adapter's ordinary clients, against the emulated buses: they must see
// what the library wrote, and the library what they wrote.
#include <glib.h>
#include <sys/wait.h>

#include "i2c_test_support.h"
#include "tavo/driver_i2c.h"
#include "tavo/i2c_smbus.h"

namespace tavo::test {
namespace {

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs an i2c-tools command in this process's environment (the world's UMOCKDEV_DIR and the
// umockdev preload).
ToolRun run(std::vector<std::string> words) {
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    g_autofree gchar *out = nullptr;
    g_autofree gchar *err = nullptr;
    g_autoptr(GError) error = nullptr;
    int wait_status = 0;
    if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out,
                      &err, &wait_status, &error)) {
        ADD_FAILURE() << "cannot run " << words[0] << ": " << error->message;
        return {};
    }
    return {WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1, out, err};
}

// "0xa0 0xa1 ..." as i2ctransfer prints a read.
std::string listed(std::span<const uint8_t> bytes) {
    std::string text;
    char item[8];
    for (uint8_t byte : bytes) {
        std::snprintf(item, sizeof item, "%s0x%02x", text.empty() ? "" : " ", byte);
        text += item;
    }
    return text + "\n";
}

class I2cToolsTest : public testing::Test {
  protected:
    I2cWorld world_;
    emu::i2c::Eeprom24c512 &eeprom_ = world_.add_eeprom(8, 0x50);
};

TEST_F(I2cToolsTest, I2ctransferReadsWhatTheLibraryWrote) {
    std::vector<uint8_t> data = counting(40, 0xA0);
    ASSERT_EQ(DriverI2cSetData("/dev/i2c-8", 0x50, 0x0123, data.data(), 40), 0);
    ToolRun r = run({"i2ctransfer", "-y", "8", "w2@0x50", "0x01", "0x23", "r40"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, listed(data));
}

TEST_F(I2cToolsTest, LibraryReadsWhatI2ctransferWrote) {
    ToolRun r =
        run({"i2ctransfer", "-y", "8", "w6@0x50", "0x02", "0x0e", "0x11", "0x22", "0x33", "0x44"});
    ASSERT_EQ(r.status, 0) << r.err;
    uint8_t out[6] = {};
    // The write wrapped within its 16-byte page: 0x20e, 0x20f, then 0x200, 0x201.
    EXPECT_EQ(DriverI2cGetData("/dev/i2c-8", 0x50, 0x0200, out, 2), 2);
    EXPECT_EQ(hex(out).substr(0, 4), "3344");
    EXPECT_EQ(DriverI2cGetData("/dev/i2c-8", 0x50, 0x020e, out, 2), 2);
    EXPECT_EQ(hex(out).substr(0, 4), "1122");
}

TEST_F(I2cToolsTest, SmbusByteTransactionsMeetI2cgetAndI2cset) {
    auto &expander = world_.add_pca9555(3, 0x20);
    ASSERT_EQ(I2cSmbusWriteWord(3, 0x20, 2, 0x5AA5), 0);
    ToolRun r = run({"i2cget", "-y", "3", "0x20", "0x02", "w"});
    EXPECT_EQ(r.out, "0x5aa5\n") << r.err;
    r = run({"i2cset", "-y", "3", "0x20", "0x06", "0x0f"});
    ASSERT_EQ(r.status, 0) << r.err;
    uint8_t config = 0;
    EXPECT_EQ(I2cSmbusReadByte(3, 0x20, 6, &config), 0);
    EXPECT_EQ(config, 0x0F);
    EXPECT_EQ(expander.reg(6), 0x0F);
}

TEST_F(I2cToolsTest, I2ctransferReadsTheBoardIdEeprom) {
    auto &board_id = world_.add_board_id_eeprom(0, 0x57);
    board_id.load(0x10, counting(4, 0x30));
    ToolRun r = run({"i2ctransfer", "-y", "0", "w2@0x57", "0x00", "0x0f", "r6"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "0xff 0x30 0x31 0x32 0x33 0xff\n");
}

}  // namespace
}  // namespace tavo::test
