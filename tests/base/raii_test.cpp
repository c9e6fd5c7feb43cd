#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "base/c_handle.h"
#include "base/mapping.h"
#include "base/sys.h"
#include "base/unique_fd.h"
#include "base/unique_file.h"

namespace {

using tavo::base::CHandle;
using tavo::base::Mapping;
using tavo::base::UniqueFd;
using tavo::base::UniqueFile;

bool closed(int fd) {
    return ::fcntl(fd, F_GETFD) == -1 && errno == EBADF;
}

std::vector<std::byte> numbered(size_t size) {
    std::vector<std::byte> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::byte>(i * 7 + i / 251);
    }
    return bytes;
}

class BaseFiles : public testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/tavo-base-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string path(const char *name) const { return dir_ + "/" + name; }

    UniqueFd create(const char *name, const std::vector<std::byte> &content) {
        UniqueFd fd = tavo::base::sys_open(path(name).c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        EXPECT_TRUE(fd);
        EXPECT_EQ(tavo::base::write_full(fd.get(), content), static_cast<ssize_t>(content.size()));
        return fd;
    }

    std::string dir_;
};

TEST_F(BaseFiles, ClosedAtEndOfScopeAndOpenedCloseOnExec) {
    int raw = -1;
    {
        UniqueFd fd = create("a", {});
        raw = fd.get();
        EXPECT_EQ(::fcntl(raw, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        UniqueFd moved = std::move(fd);
        EXPECT_FALSE(fd.valid());
        EXPECT_EQ(moved.get(), raw);
    }
    EXPECT_TRUE(closed(raw));

    UniqueFd kept = tavo::base::sys_open(path("a").c_str(), O_RDONLY);
    int released = kept.release();
    EXPECT_FALSE(closed(released)) << "release gives up ownership without closing";
    UniqueFd adopt(released);
    adopt.reset();
    EXPECT_TRUE(closed(released));

    EXPECT_FALSE(tavo::base::sys_open(path("missing").c_str(), O_RDONLY));
    EXPECT_EQ(errno, ENOENT);

    {
        UniqueFile file(std::fopen(path("f").c_str(), "w"));
        ASSERT_TRUE(file);
        raw = ::fileno(file.get());
    }
    EXPECT_TRUE(closed(raw));
}

TEST_F(BaseFiles, MappingAtUnalignedOffsetPointsAtRequestedByte) {
    const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const auto content = numbered(3 * page);
    UniqueFd fd = create("map", content);
    const size_t offset = page + 123;

    Mapping mapping = Mapping::map(fd.get(), static_cast<off_t>(offset), 2 * page - 200);
    ASSERT_TRUE(mapping) << std::strerror(errno);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(mapping.address()) % page, 0u);
    EXPECT_EQ(mapping.size(), 2 * page - 200);
    EXPECT_EQ(mapping.data()[0], content[offset]);
    EXPECT_EQ(mapping.data()[mapping.size() - 1], content[offset + mapping.size() - 1]);

    EXPECT_FALSE(Mapping::map(-1, 0, page));
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(Mapping::map(fd.get(), -1, page));
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(BaseFiles, PositionedTransfersAndShortReadAtEnd) {
    UniqueFd fd = create("p", numbered(100));
    const auto patch = numbered(10);
    EXPECT_EQ(tavo::base::pwrite_full(fd.get(), patch, 95), 10);
    std::vector<std::byte> back(20);
    EXPECT_EQ(tavo::base::pread_full(fd.get(), back, 90), 15) << "file ends at 105";
    EXPECT_TRUE(std::equal(patch.begin(), patch.end(), back.begin() + 5));
}

TEST(BaseSys, ReadFullCollectsShortReadsFromPipe) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    const auto content = numbered(256 * 1024);  // larger than the pipe buffer
    std::thread producer([&] {
        for (size_t done = 0; done < content.size(); done += 4096) {
            std::span<const std::byte> chunk(content.data() + done, 4096);
            EXPECT_EQ(tavo::base::write_full(writer.get(), chunk), 4096);
        }
        writer.reset();
    });
    std::vector<std::byte> received(content.size() + 1);
    EXPECT_EQ(tavo::base::read_full(reader.get(), received), static_cast<ssize_t>(content.size()));
    producer.join();
    received.pop_back();
    EXPECT_EQ(received, content);
}

int g_freed = 0;
struct Widget {};
void free_widget(Widget *widget) {
    ++g_freed;
    delete widget;
}

TEST(BaseHandle, FreesOnceAndIsPointerSized) {
    static_assert(sizeof(CHandle<Widget, free_widget>) == sizeof(Widget *));
    g_freed = 0;
    {
        CHandle<Widget, free_widget> handle(new Widget);
        CHandle<Widget, free_widget> moved = std::move(handle);
    }
    EXPECT_EQ(g_freed, 1);
}

}  // namespace
