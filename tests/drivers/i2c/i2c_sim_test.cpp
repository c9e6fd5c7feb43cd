// tavo-sim builds the buses of a host description's "i2c" section and records their traffic.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kHostFailure = 125;

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

class I2cSimTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string templ = std::string(TAVO_SIM_TEST_SCRATCH) + "/i2c-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        scratch_ = templ;
    }
    void TearDown() override { fs::remove_all(scratch_); }

    std::string write(const std::string &name, const std::string &content) const {
        std::ofstream(scratch_ / name, std::ios::binary) << content;
        return (scratch_ / name).string();
    }

    // tavo-sim run [--host HOST] -- sh -c SCRIPT
    Result sh(const std::string &script, const std::string &host = "") const {
        std::vector<std::string> words = {TAVO_SIM_PATH, "run"};
        if (!host.empty()) {
            words.insert(words.end(), {"--host", host});
        }
        words.insert(words.end(), {"--", "sh", "-c", script});
        std::vector<char *> argv;
        for (std::string &word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        g_autofree gchar *out = nullptr;
        g_autofree gchar *err = nullptr;
        g_autoptr(GError) error = nullptr;
        int wait_status = 0;
        if (!g_spawn_sync(scratch_.c_str(), argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr,
                          &out, &err, &wait_status, &error)) {
            ADD_FAILURE() << error->message;
            return {};
        }
        return {WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1, out, err};
    }

    fs::path scratch_;
};

TEST_F(I2cSimTest, HostFileBusesServeI2cToolsAndRecordEachTransfer) {
    write("label.bin", "TAVO");
    std::string host = write("host.json", R"({"cards": [], "i2c": {"buses": [
        {"bus": 8, "devices": [{"address": 80, "type": "eeprom24c512",
                                "contents_file": "label.bin"}]}]}})");
    Result r =
        sh("i2ctransfer -y 8 w2@0x50 0 0 r4 && i2ctransfer -y 8 w1@0x51 0; "
           "cat /run/tavo-sim/i2c/bus-8.jsonl",
           host);
    EXPECT_EQ(r.out,
              "0x54 0x41 0x56 0x4f\n"
              R"({"bus":8,"error":0,"kind":"rdwr","messages":[{"addr":80,"data":"0000","flags":0,)"
              R"("len":2},{"addr":80,"data":"5441564f","flags":1,"len":4}]})"
              "\n"
              R"({"bus":8,"error":6,"kind":"rdwr","messages":[{"addr":81,"data":"00","flags":0,)"
              R"("len":1}]})"
              "\n")
        << r.err;
}

// Bus 9 belongs to the card MCU; what answers there is checked with the MCU model.
TEST_F(I2cSimTest, DefaultHostHasTheBoardBuses) {
    Result r =
        sh("i2ctransfer -y 0 w2@0x57 0 0 r1 && i2cget -y 3 0x20 6 w && i2cget -y 8 0x50 0 && "
           "ls /run/tavo-sim/i2c");
    EXPECT_EQ(r.out, "0x01\n0xffff\n0xff\nbus-0.jsonl\nbus-3.jsonl\nbus-8.jsonl\nbus-9.jsonl\n")
        << r.err;
}

TEST_F(I2cSimTest, BadSectionStopsTheHostWithOneLine) {
    std::string host = write("host.json", R"({"cards": [], "i2c": {"buses": [{"bus": 8, "devices": [
            {"address": 80, "type": "eeprom24c512", "contents_file": "absent.bin"}]}]}})");
    Result r = sh("true", host);
    EXPECT_EQ(r.status, kHostFailure);
    EXPECT_EQ(r.err, "tavo-sim: " + host + ": i2c.buses[0].devices[0].contents_file: cannot read " +
                         (scratch_ / "absent.bin").string() + ": No such file or directory\n");
}

}  // namespace
