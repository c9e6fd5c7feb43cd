// Pcidr*: which file and byte a write reaches, the results and the log records.
//
// PcidrDevOpen reports the length of the path it formatted (21 for the short form,
// 26 for the domain form) and PcidrDevWrite writes to the descriptor with that
// number. The write therefore reaches the configuration file only when open() hands
// out exactly that number. The tests line the descriptors up so (every lower one in
// use) to check the intended byte, and leave a gap to show where the write goes
// otherwise.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "descriptor_fill.h"
#include "log_reader.h"
#include "tavo/driver_pci.h"
#include "testbed_files.h"

namespace tavo::test {
namespace {

constexpr int kShortPathLength = 21;   // "/proc/bus/pci/03/00.0"
constexpr int kDomainPathLength = 26;  // "/proc/bus/pci/0000:03/00.0"
constexpr std::size_t kConfigSize = 256;

int lowest_free_descriptor() {
    int probe = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(probe);
    return probe;
}

std::string config_file(const std::string &path) {
    return read_file(testbed_path(path));
}

std::string zeros() {
    return std::string(kConfigSize, '\0');
}

std::string with_byte(std::size_t offset, char value) {
    std::string expected = zeros();
    expected[offset] = value;
    return expected;
}

bool err_logged(const std::string &function, std::string_view text) {
    return logged(kErrLog, "driver_pci," + function, text);
}

class PciDriverTest : public testing::Test {
  protected:
    void SetUp() override {
        remove_logs();
        remove_testbed_file("/proc/bus/pci");
    }
    void TearDown() override { remove_testbed_file("/proc/bus/pci"); }
};

struct WriteCase {
    const char *bus_id;
    const char *present;  // the only configuration file of the testbed
    int descriptor;       // the path length PcidrDevOpen reports
};

TEST_F(PciDriverTest, ByteReachesTheNamedFunctionWhenTheDescriptorsLineUp) {
    const WriteCase cases[] = {
        {"0000:03:00.0", "/proc/bus/pci/03/00.0", kShortPathLength},
        {"03:00.0", "/proc/bus/pci/03/00.0", kShortPathLength},
        {"03:1f.7", "/proc/bus/pci/03/1f.7", kShortPathLength},
        {"0000:3b:00.1", "/proc/bus/pci/3b/00.1", kShortPathLength},
        // No hexadecimal fields: the write goes to ff:1f.7.
        {"not-a-bus-id", "/proc/bus/pci/ff/1f.7", kShortPathLength},
        // Only the domain form exists.
        {"0000:03:00.0", "/proc/bus/pci/0000:03/00.0", kDomainPathLength},
        {"05:02.3", "/proc/bus/pci/0000:05/02.3", kDomainPathLength},
    };
    for (const WriteCase &c : cases) {
        SCOPED_TRACE(std::string(c.bus_id) + " -> " + c.present);
        remove_testbed_file("/proc/bus/pci");
        write_testbed_file(c.present, zeros());
        {
            DescriptorFill fill(c.descriptor);
            EXPECT_EQ(PcidrWriteConfByte(c.bus_id, 0x50, 0x10), 0);
            // The write also closed the descriptor it used.
            EXPECT_EQ(lowest_free_descriptor(), c.descriptor);
        }
        EXPECT_EQ(config_file(c.present), with_byte(0x50, 0x10));
    }
}

TEST_F(PciDriverTest, UnparsableTextIsLoggedWithTheScanResult) {
    write_testbed_file("/proc/bus/pci/ff/1f.7", zeros());
    DescriptorFill fill(kShortPathLength);
    EXPECT_EQ(PcidrWriteConfByte("zz", 0x50, 0x10), 0);
    EXPECT_TRUE(err_logged("PciTransParam",
                           "Invalid input pcie parameter, please check. The parameter is zz. Error "
                           "code 0 \n\r\n"));
}

struct ParseCase {
    const char *text;
    uint8_t bus;
    uint8_t devfn;
};

TEST_F(PciDriverTest, BusIdTextsTranslate) {
    const ParseCase cases[] = {
        {"0000:03:00.0", 0x03, 0x00},
        {"03:00.0", 0x03, 0x00},
        {"03:1f.7", 0x03, 0xFF},
        {"0000:3b:01.2", 0x3B, 0x0A},
        {"0000:ff:1f.7", 0xFF, 0xFF},
        // Fields are cut to their width: device to 5 bits, function to 3.
        {"1ab:3f.f", 0xAB, 0xFF},
        // Left untouched (the sentinels below survive).
        {"", 0x5A, 0xA5},
        {"zz", 0x5A, 0xA5},
        {"03:00", 0x5A, 0xA5},
        // Another domain is misread by the short scan: 0x0001 as the bus, then no '.'.
        {"0001:03:00.0", 0x5A, 0xA5},
    };
    for (const ParseCase &c : cases) {
        SCOPED_TRACE(c.text);
        uint8_t bus = 0x5A;
        uint8_t devfn = 0xA5;
        PciTransParam(c.text, &bus, &devfn);
        EXPECT_EQ(bus, c.bus);
        EXPECT_EQ(devfn, c.devfn);
    }
}

TEST_F(PciDriverTest, OpenReportsThePathLengthNotTheDescriptor) {
    write_testbed_file("/proc/bus/pci/03/00.0", zeros());
    write_testbed_file("/proc/bus/pci/0000:04/00.0", zeros());
    int opened = lowest_free_descriptor();
    EXPECT_EQ(PcidrDevOpen("/proc/bus/pci", 0x03, 0x00, O_RDWR), kShortPathLength);
    PcidrDevClose(opened);
    opened = lowest_free_descriptor();
    EXPECT_EQ(PcidrDevOpen("/proc/bus/pci", 0x04, 0x00, O_RDWR), kDomainPathLength);
    PcidrDevClose(opened);
    EXPECT_EQ(PcidrDevOpen("/proc/bus/pci", 0x06, 0x00, O_RDWR), -908);
    EXPECT_EQ(PcidrDevOpen(nullptr, 0x03, 0x00, O_RDWR), -904);
    EXPECT_TRUE(err_logged("PcidrDevOpen", "Null pointer detected\r\n"));
    EXPECT_TRUE(err_logged("PcidrDevOpen",
                           "\tMessage                        : PCIE file path is "
                           "illegal.\n\r\n"));
}

TEST_F(PciDriverTest, MissingFunctionAndNullBytes) {
    EXPECT_EQ(PcidrWriteConfByte("0000:03:00.0", 0x50, 0x10), -908);
    EXPECT_EQ(PcidrDevWrite(0x03, 0x00, nullptr, 1, 0x50), -904);
}

// With free descriptors below 21 the opened file is not the one written: descriptor
// 21 is. Here it belongs to an unrelated file, which receives the byte and is closed.
TEST_F(PciDriverTest, WithAGapBelowTheWriteHitsAnotherFile) {
    write_testbed_file("/proc/bus/pci/03/00.0", zeros());
    write_testbed_file("/tmp/bystander", zeros());
    base::UniqueFd bystander(::open(testbed_path("/tmp/bystander").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_GE(bystander.get(), 0);
    ASSERT_LT(bystander.get(), kShortPathLength);
    ASSERT_EQ(::dup2(bystander.get(), kShortPathLength), kShortPathLength);
    int leaked = lowest_free_descriptor();

    EXPECT_EQ(PcidrWriteConfByte("03:00.0", 0x50, 0x10), 0);

    EXPECT_EQ(config_file("/proc/bus/pci/03/00.0"), zeros());
    EXPECT_EQ(config_file("/tmp/bystander"), with_byte(0x50, 0x10));
    EXPECT_EQ(::fcntl(kShortPathLength, F_GETFD), -1);
    // The configuration file's own descriptor stays open.
    EXPECT_NE(::fcntl(leaked, F_GETFD), -1);
    ::close(leaked);
}

// Nothing at descriptor 21: the write fails with -909 and the opened one leaks.
TEST_F(PciDriverTest, WithAGapAndNothingAtTheNumberTheWriteFails) {
    write_testbed_file("/proc/bus/pci/03/00.0", zeros());
    ASSERT_LT(lowest_free_descriptor(), kShortPathLength);
    ASSERT_EQ(::fcntl(kShortPathLength, F_GETFD), -1);
    int leaked = lowest_free_descriptor();

    EXPECT_EQ(PcidrWriteConfByte("03:00.0", 0x50, 0x10), -909);

    EXPECT_TRUE(err_logged("PcidrDevWrite", "write[03:00.0] at 80 for 1B failed, ret=-1\n\r\n"));
    EXPECT_EQ(config_file("/proc/bus/pci/03/00.0"), zeros());
    EXPECT_NE(::fcntl(leaked, F_GETFD), -1);
    ::close(leaked);
}

// Each failed write leaks one descriptor, so repeated writes fill the gap and the
// write that gets descriptor 21 lands where it should.
TEST_F(PciDriverTest, RepeatedWritesFillTheGapAndThenSucceed) {
    write_testbed_file("/proc/bus/pci/03/00.0", zeros());
    std::vector<int> free_below;
    for (int fd = 0; fd < kShortPathLength; ++fd) {
        if (::fcntl(fd, F_GETFD) == -1) {
            free_below.push_back(fd);
        }
    }
    ASSERT_FALSE(free_below.empty());
    for (std::size_t i = 0; i < free_below.size(); ++i) {
        EXPECT_EQ(PcidrWriteConfByte("03:00.0", 0x50, 0x10), -909);
    }
    EXPECT_EQ(config_file("/proc/bus/pci/03/00.0"), zeros());
    EXPECT_EQ(PcidrWriteConfByte("03:00.0", 0x50, 0x10), 0);
    EXPECT_EQ(config_file("/proc/bus/pci/03/00.0"), with_byte(0x50, 0x10));
    for (int fd : free_below) {
        ::close(fd);
    }
}

// A file-size limit cuts a four-byte write after two bytes.
TEST_F(PciDriverTest, ShortWriteIsReported) {
    write_testbed_file("/proc/bus/pci/03/00.0", zeros());
    DescriptorFill fill(kShortPathLength);
    const uint8_t bytes[] = {1, 2, 3, 4};
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = saved;
    limited.rlim_cur = kConfigSize + 2;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    int result = PcidrDevWrite(0x03, 0x00, bytes, 4, kConfigSize);
    ::setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previous);

    EXPECT_EQ(result, -910);
    EXPECT_EQ(config_file("/proc/bus/pci/03/00.0"), zeros() + std::string("\x01\x02", 2));
}

}  // namespace
}  // namespace tavo::test
