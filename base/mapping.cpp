#include "base/mapping.h"

#include <unistd.h>

#include <cerrno>

namespace tavo::base {

Mapping Mapping::map(int fd, off_t offset, std::size_t length, int prot, int flags) noexcept {
    long page = ::sysconf(_SC_PAGESIZE);
    if (offset < 0 || length == 0 || page <= 0) {
        errno = EINVAL;
        return {};
    }
    auto lead = static_cast<std::size_t>(offset % page);
    std::size_t total = lead + length;
    if (total < length) {
        errno = EOVERFLOW;
        return {};
    }
    void *address = ::mmap(nullptr, total, prot, flags, fd, offset - static_cast<off_t>(lead));
    if (address == MAP_FAILED) {
        return {};
    }
    return Mapping(address, total, static_cast<std::byte *>(address) + lead, length);
}

void Mapping::reset() noexcept {
    if (address_ != nullptr) {
        ::munmap(address_, length_);
    }
    address_ = nullptr;
    length_ = 0;
    data_ = nullptr;
    size_ = 0;
}

}  // namespace tavo::base
