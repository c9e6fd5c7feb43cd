// The inter-process lock on /run/elabel_lock_flag, against a second process that
// holds it (that process sleeps for real; this one's pauses are virtual).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "child_process.h"
#include "elabel_fixture.h"

namespace tavo::test {
namespace {

constexpr const char *kLockFile = "/run/elabel_lock_flag";

bool descriptor_open(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

class ElabelLockTest : public ElabelTest {
  protected:
    // Another process holding the lock until it is killed or `ms` have passed.
    static ChildProcess holder(unsigned ms = 120000) {
        ChildProcess child({ELABEL_CHILD, "hold", std::to_string(ms)});
        EXPECT_EQ(child.read_line(), "locked");
        return child;
    }
};

TEST_F(ElabelLockTest, FreeLockIsTakenAtOnceAndKeepsOtherProcessesOut) {
    int fd = -1;
    ASSERT_EQ(ElabelSetLock(&fd, 1000), 0);
    EXPECT_TRUE(requested_sleeps().empty());
    struct stat st {};
    ASSERT_EQ(::stat(kLockFile, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    ChildProcess refused({ELABEL_CHILD, "hold", "0"});
    EXPECT_EQ(refused.read_line(), "failed");
    EXPECT_EQ(refused.wait(), 1);

    EXPECT_EQ(ElabelSetUnlock(fd), 0);
    EXPECT_FALSE(descriptor_open(fd));
    ChildProcess admitted({ELABEL_CHILD, "hold", "0"});
    EXPECT_EQ(admitted.read_line(), "locked");
    EXPECT_EQ(admitted.wait(), 0);
}

class ElabelLockPassesTest : public ElabelLockTest,
                             public ::testing::WithParamInterface<uint32_t> {};

// Each pass is 100 tries and a 1 ms pause; 1000 passes are about one second.
TEST_P(ElabelLockPassesTest, HeldLockIsGivenUpAfterThePasses) {
    ChildProcess other = holder();
    int fd = -1;
    EXPECT_EQ(ElabelSetLock(&fd, GetParam()), -1);
    EXPECT_EQ(requested_sleeps(), std::vector<uint64_t>(GetParam(), 1000));
    EXPECT_GE(fd, 0);
    EXPECT_FALSE(descriptor_open(fd));
    EXPECT_TRUE(read_log(kErrLog).empty());
}

INSTANTIATE_TEST_SUITE_P(Passes, ElabelLockPassesTest, ::testing::Values(1u, 3u, 1000u));

TEST_F(ElabelLockTest, InitAndUpdateReportBusBusy) {
    ChildProcess other = holder();
    EXPECT_EQ(DriverElabelInit(), -8);
    EXPECT_TRUE(err_logged("DriverElabelInit", "driver_elabel bus busy.\n\r\n"));
    EXPECT_EQ(g_elabelEnv.image, g_elabelDataTmp);
    EXPECT_EQ(g_elabelEnv.flags, 0u);

    EXPECT_EQ(DriverElabelUpdate(), -8);
    EXPECT_TRUE(err_logged("DriverElabelUpdate", "driver_elabel bus busy.\n\r\n"));
}

TEST_F(ElabelLockTest, SetTriesInitThreeTimes) {
    ChildProcess other = holder();
    const uint8_t text[] = "x";
    EXPECT_EQ(DriverElabelSetData(0x11, text, 0, 1), -1);
    for (const char *attempt : {"init_cnt: 1\n\r\n", "init_cnt: 2\n\r\n", "init_cnt: 3\n\r\n"}) {
        EXPECT_TRUE(err_logged("DriverElabelSetData", attempt)) << attempt;
    }
    EXPECT_TRUE(err_logged("DriverElabelSetData", "DriverElabelInit failed. -8\r\n\r\n"));
    EXPECT_EQ(err_count("DriverElabelInit", "driver_elabel bus busy.\n\r\n"), 3u);
    EXPECT_EQ(requested_sleeps().size(), 3000u);
}

TEST_F(ElabelLockTest, UnopenableLockFileIsReported) {
    ::unlink(kLockFile);
    ASSERT_EQ(::mkdir(kLockFile, 0700), 0);
    int fd = -1;
    EXPECT_EQ(ElabelSetLock(&fd, 1000), -1);
    EXPECT_EQ(fd, -1);
    EXPECT_TRUE(err_logged("ElabelSetLock",
                           "elabel_get_lock:open file failed! /run/elabel_lock_flag.\r\n"));
    EXPECT_EQ(DriverElabelInit(), -8);
    ::rmdir(kLockFile);
}

TEST_F(ElabelLockTest, UnlockRefusesANegativeDescriptor) {
    EXPECT_EQ(ElabelSetUnlock(-1), -1);
    EXPECT_TRUE(err_logged("ElabelSetUnlock", "ElabelSetUnlock:fd is 0.\r\n"));
}

}  // namespace
}  // namespace tavo::test
