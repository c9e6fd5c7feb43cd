#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tavo::test {

// Path of `system_path` ("/dev/mem", "/proc/meminfo") inside the umockdev testbed
// of the simulated host; the library opening `system_path` gets this file.
std::string testbed_path(const std::string &system_path);
// Writes `content` to the testbed's copy of `system_path`, creating directories.
void write_testbed_file(const std::string &system_path, const std::string &content);
// Makes the testbed's /dev/mem a sparse file of `size` bytes holding `bytes` at
// physical address `address`.
void write_physical_memory(uint64_t size, uint64_t address, std::span<const uint8_t> bytes);
void remove_testbed_file(const std::string &system_path);

}  // namespace tavo::test
