#include "testbed_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tavo::test {

std::string testbed_path(const std::string &system_path) {
    const char *root = std::getenv("UMOCKDEV_DIR");
    if (root == nullptr) {
        throw std::runtime_error("no umockdev testbed: run inside tavo-sim");
    }
    return std::string(root) + system_path;
}

void write_testbed_file(const std::string &system_path, const std::string &content) {
    std::filesystem::path path = testbed_path(system_path);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

void write_physical_memory(uint64_t size, uint64_t address, std::span<const uint8_t> bytes) {
    std::filesystem::path path = testbed_path("/dev/mem");
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::remove(path);
    int fd = ::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(size)) != 0 ||
        ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(address)) !=
            static_cast<ssize_t>(bytes.size())) {
        if (fd >= 0) {
            ::close(fd);
        }
        throw std::runtime_error("cannot build the testbed's /dev/mem");
    }
    ::close(fd);
}

void remove_testbed_file(const std::string &system_path) {
    std::filesystem::remove_all(testbed_path(system_path));
}

}  // namespace tavo::test
