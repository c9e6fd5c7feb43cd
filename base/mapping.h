#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <cstddef>
#include <utility>

namespace tavo::base {

// Owns an mmap'ed region and unmaps it on destruction.
class Mapping {
  public:
    Mapping() noexcept = default;
    // Adopts a region returned by mmap; `data` defaults to its first byte.
    Mapping(void *address, std::size_t length) noexcept
        : Mapping(address, length, static_cast<std::byte *>(address), length) {}
    ~Mapping() { reset(); }

    Mapping(Mapping &&other) noexcept
        : address_(std::exchange(other.address_, nullptr)),
          length_(std::exchange(other.length_, 0)),
          data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)) {}
    Mapping &operator=(Mapping &&other) noexcept {
        if (this != &other) {
            reset();
            std::swap(address_, other.address_);
            std::swap(length_, other.length_);
            std::swap(data_, other.data_);
            std::swap(size_, other.size_);
        }
        return *this;
    }
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    // Maps `length` bytes of `fd` from `offset`, which need not be page aligned.
    // An empty Mapping with errno set on failure.
    static Mapping map(int fd, off_t offset, std::size_t length, int prot = PROT_READ,
                       int flags = MAP_SHARED) noexcept;

    // The whole page-aligned region as mmap returned it.
    void *address() const noexcept { return address_; }
    std::size_t length() const noexcept { return length_; }
    // The requested bytes inside it.
    std::byte *data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }

    explicit operator bool() const noexcept { return address_ != nullptr; }

    void reset() noexcept;

  private:
    Mapping(void *address, std::size_t length, std::byte *data, std::size_t size) noexcept
        : address_(address), length_(length), data_(data), size_(size) {}

    void *address_ = nullptr;
    std::size_t length_ = 0;
    std::byte *data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace tavo::base
