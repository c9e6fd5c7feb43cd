#include "base/sys.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace tavo::base {

namespace {

// Calls `transfer(offset_done)` until `total` bytes have moved. A zero return ends a
// read at end of file; on a write it would loop for ever, so it counts as EIO.
template <typename Transfer>
ssize_t transfer_full(std::size_t total, bool zero_is_eof, Transfer transfer) {
    std::size_t done = 0;
    while (done < total) {
        ssize_t moved = transfer(done);
        if (moved < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        if (moved == 0) {
            if (zero_is_eof) {
                break;
            }
            errno = EIO;
            return -1;
        }
        done += static_cast<std::size_t>(moved);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

UniqueFd sys_open(const char *path, int flags, mode_t mode) {
    int fd = -1;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return UniqueFd(fd);
}

int sys_ioctl(int fd, unsigned long request, void *arg) {
    int result = -1;
    do {
        result = ::ioctl(fd, request, arg);
    } while (result < 0 && errno == EINTR);
    return result;
}

ssize_t read_full(int fd, std::span<std::byte> buffer) {
    return transfer_full(buffer.size(), true, [&](std::size_t done) {
        return ::read(fd, buffer.data() + done, buffer.size() - done);
    });
}

ssize_t pread_full(int fd, std::span<std::byte> buffer, off_t offset) {
    return transfer_full(buffer.size(), true, [&](std::size_t done) {
        return ::pread(fd, buffer.data() + done, buffer.size() - done,
                       offset + static_cast<off_t>(done));
    });
}

ssize_t write_full(int fd, std::span<const std::byte> data) {
    return transfer_full(data.size(), false, [&](std::size_t done) {
        return ::write(fd, data.data() + done, data.size() - done);
    });
}

ssize_t pwrite_full(int fd, std::span<const std::byte> data, off_t offset) {
    return transfer_full(data.size(), false, [&](std::size_t done) {
        return ::pwrite(fd, data.data() + done, data.size() - done,
                        offset + static_cast<off_t>(done));
    });
}

}  // namespace tavo::base
