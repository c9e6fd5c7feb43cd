#pragma once

#include <cstdio>
#include <utility>

namespace tavo::base {

// Owns a FILE * and closes it on destruction. Writers that must know whether
// buffered data reached the file call close() and check its result.
class UniqueFile {
  public:
    UniqueFile() noexcept = default;
    explicit UniqueFile(std::FILE *file) noexcept : file_(file) {}
    ~UniqueFile() { reset(); }

    UniqueFile(UniqueFile &&other) noexcept : file_(other.release()) {}
    UniqueFile &operator=(UniqueFile &&other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueFile(const UniqueFile &) = delete;
    UniqueFile &operator=(const UniqueFile &) = delete;

    std::FILE *get() const noexcept { return file_; }
    explicit operator bool() const noexcept { return file_ != nullptr; }

    [[nodiscard]] std::FILE *release() noexcept { return std::exchange(file_, nullptr); }

    void reset(std::FILE *file = nullptr) noexcept {
        close();
        file_ = file;
    }

    // fclose's status, 0 when nothing was open.
    int close() noexcept {
        std::FILE *old = std::exchange(file_, nullptr);
        return old != nullptr ? std::fclose(old) : 0;
    }

  private:
    std::FILE *file_ = nullptr;
};

}  // namespace tavo::base
