// tavoctl verify and mcu upgrade with packages that tavo-pack builds, on the
// default simulated host (its card 2 has an MCU).
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "run_command.h"

namespace {

namespace fs = std::filesystem;
using tavo::test::CommandResult;

constexpr std::size_t kHeaderSize = 56;

std::string read_bytes(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_bytes(const fs::path &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// A copy of `package` with the byte at `offset` (from the end when negative) flipped.
fs::path tampered(const fs::path &package, long offset, const std::string &name) {
    std::string bytes = read_bytes(package);
    std::size_t at = offset < 0 ? bytes.size() + offset : static_cast<std::size_t>(offset);
    bytes[at] = static_cast<char>(bytes[at] ^ 0x01);
    fs::path out = package.parent_path() / name;
    write_bytes(out, bytes);
    return out;
}

// A copy of `package` whose CRL section is dropped and declared empty.
fs::path without_crls(const fs::path &package) {
    std::string bytes = read_bytes(package);
    auto field = [&bytes](std::size_t index) {
        return std::stoul(bytes.substr(index * 8, 8), nullptr, 16);
    };
    std::size_t crl_start = kHeaderSize + field(2) + field(4);
    std::string out = bytes.substr(0, 48) + "00000000" +
                      bytes.substr(kHeaderSize, crl_start - kHeaderSize) +
                      bytes.substr(crl_start + field(6));
    fs::path path = package.parent_path() / "no-crl.pkg";
    write_bytes(path, out);
    return path;
}

class TavoctlPackageTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        std::string templ = std::string(TAVOCTL_TEST_SCRATCH) + "/verify-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        scratch_ = templ;
        write_bytes(scratch_ / "firmware.bin", std::string(3000, '\x5a') + "end of image");
        CommandResult r = tavo::test::run_command(
            {TAVO_PACK_PATH, "build", "--payload", (scratch_ / "firmware.bin").string(), "--out",
             (scratch_ / "good.pkg").string(), "--pki", DEV_PKI_DIR},
            scratch_);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    static void TearDownTestSuite() { fs::remove_all(scratch_); }

    // `script` run by sh on the simulated host, with $T standing for tavoctl and
    // $D for the scratch directory.
    static CommandResult sh(const std::string &script) {
        return tavo::test::run_command(
            {TAVO_SIM_PATH, "run", "--", "sh", "-c",
             "T=" + std::string(TAVOCTL_PATH) + "; D=" + scratch_.string() + "; " + script},
            scratch_);
    }

    static fs::path scratch_;
};

fs::path TavoctlPackageTest::scratch_;

TEST_F(TavoctlPackageTest, VerifyAcceptsAGoodPackageAndNamesTheTrustedRoot) {
    CommandResult r = sh("$T verify --json $D/good.pkg");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    nlohmann::json verdict = nlohmann::json::parse(r.out);
    EXPECT_EQ(verdict["accepted"], true);
    EXPECT_TRUE(verdict["stage"].is_null());
    EXPECT_EQ(verdict["trusted_root"]["development"], true);
    EXPECT_NE(verdict["trusted_root"]["subject"].get<std::string>().find("CN="), std::string::npos);
    EXPECT_EQ(verdict["trusted_root"]["sha256"].get<std::string>().size(), 32u * 3 - 1);

    r = sh("$T verify $D/good.pkg");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("good.pkg: accepted"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("DEVELOPMENT root"), std::string::npos) << r.out;
}

TEST_F(TavoctlPackageTest, VerifyNamesTheStageThatRejects) {
    const fs::path good = scratch_ / "good.pkg";
    struct Case {
        fs::path package;
        const char *stage;
        const char *reason;
    };
    const std::vector<Case> cases{
        // The last byte belongs to the payload: only its digest no longer matches.
        {tampered(good, -1, "payload.pkg"), "checksum", "checksum in file list"},
        // The first file-list byte is signed content.
        {tampered(good, kHeaderSize, "list.pkg"), "signature", "verify signature not match"},
        // A header id of 0 instead of 1.
        {tampered(good, 15, "header.pkg"), "header", "Check cmsFileInfo failed"},
        // Without its CRLs the signer's chain is not covered.
        {without_crls(good), "signature", "0x88200012"},
    };
    for (const Case &c : cases) {
        CommandResult r = sh("$T verify --json " + c.package.string());
        EXPECT_EQ(r.status, 1) << c.package;
        nlohmann::json verdict = nlohmann::json::parse(r.out);
        EXPECT_EQ(verdict["accepted"], false);
        EXPECT_EQ(verdict["stage"], c.stage) << r.out;
        EXPECT_NE(r.out.find(c.reason), std::string::npos) << r.out;
    }
}

TEST_F(TavoctlPackageTest, McuUpgradeSendsTheVerifiedPayloadAndRecordsEachStep) {
    CommandResult r = sh("$T mcu upgrade --card 2 $D/good.pkg && cat /var/log/quillmon_LOG_OP.log");
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("package " + (scratch_ / "good.pkg").string() + ": accepted"),
              std::string::npos)
        << r.out;
    // The transfer reports the payload's length, not the package's.
    EXPECT_NE(r.out.find("file_len(3012)"), std::string::npos) << r.out;
    for (const char *step : {"accepted", "image sent", "upgrade started", "status"}) {
        EXPECT_NE(r.out.find("[tavoctl,mcu upgrade,0]:card 2: "), std::string::npos);
        EXPECT_NE(r.out.find(step), std::string::npos) << step;
    }
}

TEST_F(TavoctlPackageTest, TamperedPackageNeverReachesTheMcu) {
    fs::path bad = tampered(scratch_ / "good.pkg", -1, "bad-payload.pkg");
    CommandResult r = sh("$T mcu upgrade --card 2 " + bad.string() +
                         "; echo exit=$?; cat /var/log/quillmon_LOG_OP.log");
    EXPECT_NE(r.out.find("exit=1"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("file_len("), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("image sent"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("rejected at the checksum check"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("nothing was sent to card 2"), std::string::npos) << r.err;
}

TEST_F(TavoctlPackageTest, DryRunAndUnsignedImage) {
    CommandResult r = sh("$T mcu upgrade --card 2 --dry-run $D/good.pkg");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("dry run: would send"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("file_len("), std::string::npos) << r.out;

    r = sh("$T mcu upgrade --card 2 --unsigned-image $D/firmware.bin");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("WITHOUT signature verification"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("file_len(3012)"), std::string::npos) << r.out;
}

}  // namespace
