#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

#include "api_fixture.h"

namespace tavo::test {
namespace {

constexpr const char *kTestLog = "/var/log/quillmon_LOG_ERR.log";
constexpr const char *kTestBak = "/var/log/quillmon_LOG_ERR.log.bak";
constexpr const char *kOp = "/var/log/quillmon_LOG_OP.log";
constexpr const char *kOpBak = "/var/log/quillmon_LOG_OP.log.bak";
constexpr long kLimit = 4194304;

void write_file(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

long file_size(const std::string &path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

class ScopedEnv {
  public:
    ScopedEnv(const char *name, const char *value) : name_(name) {
        if (const char *old = std::getenv(name)) {
            old_ = old;
            had_ = true;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (had_) {
            ::setenv(name_, old_.c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

  private:
    const char *name_;
    std::string old_;
    bool had_ = false;
};

class LogTest : public ApiTest {};

TEST_F(LogTest, FirstRecordCreatesTheFileWithTimeAndThreadId) {
    ASSERT_FALSE(file_exists(kTestLog));
    IesLogWrite(kTestLog, kTestBak, "[%s,%s,%d]:value %d.\n\r\n", "unit", "fn", 12, 7);
    auto records = read_log(kTestLog);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "[unit,fn,12]:value 7.\n\r\n");
    EXPECT_EQ(records[0].thread_id, static_cast<long>(::syscall(SYS_gettid)));
    EXPECT_EQ(read_file(kTestLog).substr(21, 1), "[");  // "[YYYY/MM/DD hh:mm:ss]" is 21 bytes
}

TEST_F(LogTest, RecordsAreAppended) {
    IesLogWrite(kTestLog, kTestBak, "one\n");
    IesLogWrite(kTestLog, kTestBak, "two\n");
    auto records = read_log(kTestLog);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].message, "one\n");
    EXPECT_EQ(records[1].message, "two\n");
}

TEST_F(LogTest, TimeIsUtcWhateverTheTimeZone) {
    ScopedEnv tz("TZ", "XYZ-5:45");  // local time 05:45 ahead of UTC
    ::tzset();
    std::time_t before = std::time(nullptr);
    IesLogWrite(kTestLog, kTestBak, "t\n");
    std::time_t after = std::time(nullptr);
    auto records = read_log(kTestLog);
    ASSERT_EQ(records.size(), 1u);
    bool matches = false;
    for (std::time_t t = before; t <= after; ++t) {
        char expected[32];
        std::strftime(expected, sizeof expected, "%Y/%m/%d %H:%M:%S", std::gmtime(&t));
        matches = matches || records[0].time == expected;
    }
    EXPECT_TRUE(matches) << records[0].time;
}

TEST_F(LogTest, LongMessageIsCutTo4095Characters) {
    std::string text(5000, 'x');
    IesLogWrite(kTestLog, kTestBak, "%s", text.c_str());
    auto records = read_log(kTestLog);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, std::string(4095, 'x'));
}

TEST_F(LogTest, MissingDirectoryOrNullArgumentsDropTheRecordSilently) {
    IesLogWrite("/var/log/absent-dir/x.log", "/var/log/absent-dir/x.log.bak", "lost\n");
    EXPECT_FALSE(file_exists("/var/log/absent-dir/x.log"));
    IesLogWrite(nullptr, kTestBak, "lost\n");
    IesLogWrite(kTestLog, nullptr, "lost\n");
    IesLogWrite(kTestLog, kTestBak, nullptr);
    EXPECT_FALSE(file_exists(kTestLog));
}

// The live file rotates only when position + message length exceeds 4 MiB.
TEST_F(LogTest, RotationHappensOnlyPastTheLimit) {
    const std::string message(10, 'm');
    write_file(kTestBak, "old backup");
    write_file(kTestLog, std::string(static_cast<std::size_t>(kLimit - 10), 'a'));

    IesLogWrite(kTestLog, kTestBak, "%s", message.c_str());  // exactly at the limit: kept
    EXPECT_EQ(read_file(kTestBak), "old backup");
    long grown = file_size(kTestLog);
    EXPECT_GT(grown, kLimit);  // the record prefix is not counted

    IesLogWrite(kTestLog, kTestBak, "%s", message.c_str());  // now past it: rotated
    EXPECT_EQ(file_size(kTestBak), grown);
    auto records = read_log(kTestLog);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, message);
}

TEST_F(LogTest, OnlyTheOperationsLogCarriesUserAndAddress) {
    ScopedEnv remote("REMOTEHOST", "console.example");
    IesLogWrite(kOp, kOpBak, "audit\n");
    IesLogWrite(kTestLog, kTestBak, "plain\n");
    auto op = read_log(kOp, true);
    ASSERT_EQ(op.size(), 1u);
    EXPECT_EQ(op[0].user, ::getpwuid(::getuid())->pw_name);
    EXPECT_EQ(op[0].address, "console.example");
    EXPECT_EQ(op[0].message, "audit\n");
    EXPECT_EQ(read_file(kTestLog).find("console.example"), std::string::npos);
    EXPECT_EQ(read_log(kTestLog)[0].message, "plain\n");
}

struct AddressCase {
    const char *remote_host;
    const char *ssh_client;
    const char *expected;
};

class ClientAddressTest : public ApiTest, public ::testing::WithParamInterface<AddressCase> {};

TEST_P(ClientAddressTest, AddressColumnFollowsTheLoginEnvironment) {
    ScopedEnv remote("REMOTEHOST", GetParam().remote_host);
    ScopedEnv ssh("SSH_CLIENT", GetParam().ssh_client);
    IesLogWrite(kOp, kOpBak, "x\n");
    auto op = read_log(kOp, true);
    ASSERT_EQ(op.size(), 1u);
    EXPECT_EQ(op[0].address, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Logins, ClientAddressTest,
                         ::testing::Values(AddressCase{nullptr, nullptr, "Unknown IP"},
                                           AddressCase{nullptr, "192.0.2.7 51234 22", "192.0.2.7"},
                                           AddressCase{nullptr, "192.0.2.7", ""},
                                           AddressCase{"bastion", "192.0.2.7 51234 22",
                                                       "bastion"}));

TEST_F(LogTest, UserAndAddressFillerLeavesBuffersAloneWithoutThem) {
    GetUserNameIp(nullptr, 16, nullptr, 16);  // must not crash
    char user[8] = "keep";
    char address[16] = "keep";
    GetUserNameIp(user, sizeof user, nullptr, sizeof address);
    EXPECT_STREQ(user, "keep");
}

}  // namespace
}  // namespace tavo::test
