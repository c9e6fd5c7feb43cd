// System calls as every unit uses them: descriptors are close-on-exec, EINTR is
// retried, and reads and writes go on past short counts.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>

#include "base/unique_fd.h"

namespace tavo::base {

// open(2) with O_CLOEXEC added. An invalid UniqueFd with errno set on failure.
UniqueFd sys_open(const char *path, int flags, mode_t mode = 0);

// ioctl(2); -1 with errno set on failure.
int sys_ioctl(int fd, unsigned long request, void *arg);

// Read until `buffer` is full or the end of the file. The count read, short only at
// the end of the file, or -1 with errno set.
ssize_t read_full(int fd, std::span<std::byte> buffer);
ssize_t pread_full(int fd, std::span<std::byte> buffer, off_t offset);

// Write all of `data`. Its size, or -1 with errno set.
ssize_t write_full(int fd, std::span<const std::byte> data);
ssize_t pwrite_full(int fd, std::span<const std::byte> data, off_t offset);

}  // namespace tavo::base
