// Firmware upload, upgrade control and status, log collection and the I2C link
// check.
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <regex>

#include "mcu_fixture.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

constexpr uint16_t kData = TAVO_MCU_CMD_UPGRADE_DATA;
constexpr const char *kImagePath = "/tmp/mcu-image.bin";

void write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

std::vector<uint8_t> received_image() {
    std::vector<uint8_t> image(4096);
    uint32_t length = 0;
    EXPECT_EQ(rumo_sim_mcu_get_image(kMcuCard, image.data(), static_cast<uint32_t>(image.size()),
                                     &length),
              0);
    image.resize(std::min<std::size_t>(length, image.size()));
    return image;
}

class UploadTest : public McuTest {};

TEST_F(UploadTest, FortyBytesGoAsTwoFrames) {
    std::vector<uint8_t> image = counting_bytes(40);
    write_file(kImagePath, image);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, kImagePath), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "\nfile_len(40)--offset(0) [0].\rfile_len(40)--offset(40) [100].\n");
    EXPECT_EQ(mcu_requests(),
              (std::vector<Request>{{kData, 0, 20, 0, 0, counting_bytes(20)},
                                    {kData, 20, 20, 0x80, 0, counting_bytes(20, 21)}}));
    EXPECT_EQ(received_image(), image);
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{1})) << "after frame 0";
}

TEST_F(UploadTest, FortyOneBytesEndWithAOneByteFrame) {
    std::vector<uint8_t> image = counting_bytes(41);
    write_file(kImagePath, image);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, kImagePath), 0);
    (void)::testing::internal::GetCapturedStdout();
    std::vector<Request> requests = mcu_requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[1].control, 0);
    EXPECT_EQ(requests[2], (Request{kData, 40, 1, 0x80, 0, {41}}));
    EXPECT_EQ(received_image(), image);
}

TEST_F(UploadTest, ProgressEvery1500BytesAndAPauseEvery50Frames) {
    std::vector<uint8_t> image = counting_bytes(3000);
    write_file(kImagePath, image);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, kImagePath), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "\nfile_len(3000)--offset(0) [0]."
              "\rfile_len(3000)--offset(1500) [50]."
              "\rfile_len(3000)--offset(3000) [100]."
              "\rfile_len(3000)--offset(3000) [100].\n");
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{1, 1, 1})) << "frames 0, 50 and 100";
    EXPECT_EQ(mcu_requests().size(), 150u);
    EXPECT_EQ(received_image(), image);
}

struct Shrink {
    std::string path;
    off_t size;
};

// Cuts the image file once its first frame has reached the MCU.
void shrink_after_first_frame(const rumo_sim_mcu_frame *frame, void *context) {
    const auto *shrink = static_cast<const Shrink *>(context);
    if (frame->command == kData && frame->offset == 0) {
        EXPECT_EQ(::truncate(shrink->path.c_str(), shrink->size), 0);
    }
}

TEST_F(UploadTest, FileThatShrinksDuringTheTransferFails) {
    write_file(kImagePath, counting_bytes(100));
    Shrink shrink{kImagePath, 45};
    ASSERT_EQ(rumo_sim_mcu_set_hook(shrink_after_first_frame, &shrink), 0);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, kImagePath), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\nfile_len(100)--offset(0) [0].");
    ASSERT_EQ(rumo_sim_mcu_set_hook(nullptr, nullptr), 0);
    EXPECT_TRUE(err_logged("tavo_mcu_upgrade_transfile", "count(5) err. len_curr(20).\n\r\n"));
    EXPECT_EQ(offsets_of(mcu_requests(), kData), (std::vector<uint32_t>{0, 20}));
}

TEST_F(UploadTest, UnusablePathsAndEmptyFiles) {
    const std::string illegal =
        std::string("\t") + "Message" + std::string(23, ' ') + " : Upgrade file path is illegal.\n";
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, "/tmp/no-such-image"), -1);
    EXPECT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, ("/tmp/" + std::string(260, 'a')).c_str()), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), illegal + illegal);

    write_file(kImagePath, {});
    EXPECT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, kImagePath), -1);
    EXPECT_TRUE(
        err_logged("tavo_mcu_upgrade_transfile", "call TavoGetFileLength failed. 0 .\n\r\n"));
    EXPECT_TRUE(mcu_requests().empty());
}

TEST_F(UploadTest, ControlAndStatusBytes) {
    write_file(kImagePath, counting_bytes(41));
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_upgrade_transfile(kMcuCard, kImagePath), 0);
    (void)::testing::internal::GetCapturedStdout();
    ASSERT_EQ(rumo_sim_mcu_clear_frames(kMcuCard), 0);
    ASSERT_EQ(tavo_mcu_upgrade_control(kMcuCard, 0x101), 0);
    EXPECT_EQ(mcu_requests(), (std::vector<Request>{{25, 0, 1, 0x80, 0, {1}}}));
    struct Status {
        uint8_t first, second;
        bool operator==(const Status &) const = default;
    };
    std::vector<Status> seen;
    for (int i = 0; i < 3; ++i) {
        Status s{};
        ASSERT_EQ(tavo_mcu_get_upgrade_statues(kMcuCard, &s.first, &s.second), 0);
        seen.push_back(s);
    }
    EXPECT_TRUE(seen == (std::vector<Status>{{3, 0}, {3, 50}, {4, 100}}));
    EXPECT_EQ(mcu_requests()[1], (Request{26, 0, 2, 0x80, 0, {}}));
}

// ---- Logs ----

std::vector<fs::path> log_files() {
    std::vector<fs::path> files;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(TAVO_MCU_LOG_DIR, ec)) {
        files.push_back(entry.path());
    }
    return files;
}

class LogTest : public McuTest {
  protected:
    void SetUp() override {
        McuTest::SetUp();
        fs::remove_all(TAVO_MCU_LOG_DIR);
    }
};

TEST_F(LogTest, ThousandBytesInFortyNineFurtherFramesWrittenAtTheEnd) {
    std::vector<uint8_t> log = counting_bytes(1000);
    set_item(TAVO_MCU_CMD_ERROR_LOG, log);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_collect_log(kMcuCard, TAVO_MCU_LOG_ERROR), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "type(0): file_len(1000)--offset(20) [2]."
              "\rtype(0): file_len(1000)--offset(1000) [100].\n")
        << "no flush before the end";
    std::vector<uint32_t> offsets = offsets_of(mcu_requests(), TAVO_MCU_CMD_ERROR_LOG);
    ASSERT_EQ(offsets.size(), 50u);
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        EXPECT_EQ(offsets[i], 20 * i);
    }
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{10000})) << "after frame 0 only";
    std::vector<fs::path> files = log_files();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(files[0].filename().string(), std::regex(R"(error_log_2_\d{14}\.log)")))
        << files[0];
    std::string content = read_file(files[0].string());
    EXPECT_EQ(content, std::string(log.begin(), log.end()));
}

TEST_F(LogTest, LongLogIsFlushedEvery1020Bytes) {
    std::vector<uint8_t> log = counting_bytes(2500);
    set_item(TAVO_MCU_CMD_MAINTENANCE_LOG, log);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_collect_log(kMcuCard, TAVO_MCU_LOG_MAINTENANCE), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "type(2): file_len(2500)--offset(20) [0]."
              "\rtype(2): file_len(2500)--offset(1020) [40]."
              "\rtype(2): file_len(2500)--offset(2040) [81]."
              "\rtype(2): file_len(2500)--offset(2500) [100].\n");
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{10000, 10000, 10000}))
        << "frames 0, 50 and 100";
    std::vector<fs::path> files = log_files();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(files[0].filename().string().starts_with("maintaince_log_2_"));
    EXPECT_EQ(read_file(files[0].string()), std::string(log.begin(), log.end()));
}

TEST_F(LogTest, EmptyAndShortLogs) {
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_collect_log(kMcuCard, TAVO_MCU_LOG_ERROR), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "get error_log success, total len=0.\n");
    EXPECT_FALSE(fs::exists(TAVO_MCU_LOG_DIR)) << "no file for an empty log";

    set_item(TAVO_MCU_CMD_OPERATE_LOG, {'o', 'k', '\n'});
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_collect_log(kMcuCard, TAVO_MCU_LOG_OPERATE), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "get operate_log success.len_total=3.\n");
    std::vector<fs::path> files = log_files();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(read_file(files[0].string()), "ok\n");
}

TEST_F(LogTest, UnknownLogTypeAndFailedFrames) {
    EXPECT_EQ(tavo_mcu_collect_log(kMcuCard, 3), -1);
    EXPECT_TRUE(err_logged("tavo_mcu_collect_log", "log type(3) is not one of 0..2.\n\r\n"));
    EXPECT_TRUE(mcu_requests().empty());

    ASSERT_EQ(rumo_sim_mcu_fail_command(kMcuCard, TAVO_MCU_CMD_ERROR_LOG, 3, 1), 0);
    EXPECT_EQ(tavo_mcu_collect_log(kMcuCard, TAVO_MCU_LOG_ERROR), -1);
    EXPECT_TRUE(err_logged("tavo_mcu_collect_log", "call tavo_mcu_get_info fail.ret(-1)\n\r\n"));
    EXPECT_FALSE(fs::exists(TAVO_MCU_LOG_DIR));
}

// A first reply may claim a piece longer than a frame: its copy fails and the
// download goes on from that offset, unless the buffer would be overrun.
struct FirstPieceCase {
    const char *name;
    uint32_t piece;
    std::size_t log_size;
    int result;
};

class FirstPieceTest : public LogTest, public ::testing::WithParamInterface<FirstPieceCase> {};

TEST_P(FirstPieceTest, OverlongFirstPiece) {
    const FirstPieceCase &c = GetParam();
    std::vector<uint8_t> log = counting_bytes(c.log_size);
    set_item(TAVO_MCU_CMD_ERROR_LOG, log);
    ASSERT_EQ(rumo_sim_mcu_set_piece_length(kMcuCard, TAVO_MCU_CMD_ERROR_LOG, 1, c.piece), 0);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(tavo_mcu_collect_log(kMcuCard, TAVO_MCU_LOG_ERROR), c.result);
    (void)::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(err_logged("tavo_mcu_get_info_by_mini", "call memcpy_s failed.34.\n\r\n"));
    if (c.result != 0) {
        EXPECT_TRUE(err_logged("tavo_mcu_collect_log",
                               "len(" + std::to_string(c.piece) + ") error.\n\r\n"));
        EXPECT_TRUE(log_files().empty());
        return;
    }
    std::string expected(std::min<std::size_t>(c.piece, c.log_size), '\0');
    if (c.piece < c.log_size) {
        expected.append(log.begin() + c.piece, log.end());
    }
    std::vector<fs::path> files = log_files();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(read_file(files[0].string()), expected);
}

INSTANTIATE_TEST_SUITE_P(Pieces, FirstPieceTest,
                         ::testing::Values(FirstPieceCase{"RestFollows", 30, 100, 0},
                                           FirstPieceCase{"LogWithinThePiece", 30, 25, 0},
                                           FirstPieceCase{"NextFrameEndsTheBuffer", 1004, 1100, 0},
                                           FirstPieceCase{"NextFrameWouldOverrun", 1005, 1100, -1}),
                         [](const auto &param_info) { return std::string(param_info.param.name); });

// ---- I2C link check ----

class LinkCheckTest : public McuTest {};

TEST_F(LinkCheckTest, LinkThatDoesNotMoveFromSlotThree) {
    start(mcu_host(R"({"chip_slots": [3], "link_test_report": "MINI1 MINI3 fail"})"),
          "mcu_card=2:3\n");
    std::array<uint32_t, TAVO_MCU_CHECK_FLAG_COUNT> flags{};
    flags.fill(7);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_check_i2c(kMcuCard, flags.data()), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\tChecking... Please do not interrupt!");
    EXPECT_EQ(flags, (std::array<uint32_t, 6>{1, 0, 0, 1, 0, 1}));
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{3000000, 10000000, 3000000}));
    EXPECT_GE(total_requested_sleep_us(), 13000000u);
    EXPECT_EQ(mcu_requests(), (std::vector<Request>{{1558, 0, 1, 0, 0, {1}},
                                                    {22, 0, 2, 0x80, 0, {1, 2}},
                                                    {23, 0, 20, 0x80, 0, {2}},
                                                    {22, 0, 2, 0x80, 0, {0, 2}}}));
    rumo_sim_mcu_state state{};
    ASSERT_EQ(rumo_sim_mcu_get_state(kMcuCard, &state), 0);
    EXPECT_EQ(state.peripheral_test, 0) << "the test was stopped";
}

TEST_F(LinkCheckTest, FailedReportStopsTheTest) {
    ASSERT_EQ(rumo_sim_mcu_fail_command(kMcuCard, 23, 3, 3), 0);
    std::array<uint32_t, TAVO_MCU_CHECK_FLAG_COUNT> flags{};
    flags.fill(7);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_check_i2c(kMcuCard, flags.data()), 0);
    (void)::testing::internal::GetCapturedStdout();
    EXPECT_EQ(flags, (std::array<uint32_t, 6>{0, 1, 7, 7, 7, 7}));
    EXPECT_TRUE(err_logged("tavo_mcu_check_i2c",
                           "call tavo_mcu_get_peripheral_test_result failed.-1.\n\r\n"));
    EXPECT_TRUE(err_logged("tavo_mcu_get_iic_to_miniD_status",
                           "call tavo_mcu_get_info_dynamic failed.-1.\n\r\n"));
    EXPECT_EQ(mcu_requests().back(), (Request{22, 0, 2, 0x80, 0, {0, 2}}));
}

TEST_F(LinkCheckTest, FailedSwitchEndsTheCheck) {
    std::array<uint32_t, TAVO_MCU_CHECK_FLAG_COUNT> flags{};
    flags.fill(7);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_check_i2c(1, flags.data()), 0);
    (void)::testing::internal::GetCapturedStdout();
    EXPECT_EQ(flags, (std::array<uint32_t, 6>{7, 7, 7, 7, 7, 7}));
    EXPECT_TRUE(
        err_logged("tavo_mcu_check_i2c", "call tavo_switch_mini2mcu_channel failed.-1.\n\r\n"));
}

class TwoChipLinkCheckTest : public TwoChipMcuTest {};

TEST_F(TwoChipLinkCheckTest, LinkThatMovesHasNoFailedSlot) {
    std::array<uint32_t, TAVO_MCU_CHECK_FLAG_COUNT> flags{};
    flags.fill(7);
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(tavo_mcu_check_i2c(kMcuCard, flags.data()), 0);
    (void)::testing::internal::GetCapturedStdout();
    EXPECT_EQ(flags, (std::array<uint32_t, 6>{0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(requested_sleeps(), (std::vector<uint64_t>{3000000, 3000000}));
}

}  // namespace
}  // namespace tavo::test
