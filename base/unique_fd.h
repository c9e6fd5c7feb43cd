#pragma once

#include <unistd.h>

#include <utility>

namespace tavo::base {

// Owns a file descriptor and closes it on destruction.
class UniqueFd {
  public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    ~UniqueFd() { reset(); }

    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int get() const noexcept { return fd_; }
    bool valid() const noexcept { return fd_ >= 0; }
    explicit operator bool() const noexcept { return valid(); }

    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

    // close() is not retried on EINTR: Linux has released the descriptor by then and
    // a retry could close one another thread just opened.
    void reset(int fd = -1) noexcept {
        int old = std::exchange(fd_, fd);
        if (old >= 0) {
            ::close(old);
        }
    }

  private:
    int fd_ = -1;
};

}  // namespace tavo::base
