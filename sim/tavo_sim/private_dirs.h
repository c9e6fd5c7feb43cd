#pragma once

#include <array>
#include <string_view>

namespace tavo::sim {

// Directories that start empty on the simulated host and never reach the real machine.
inline constexpr std::array<std::string_view, 4> kPrivateDirs{"/run", "/etc/usr", "/tmp",
                                                              "/var/log"};

// True if the absolute, normalised `path` lies strictly below one of the private directories.
inline bool is_below_private_dir(std::string_view path) {
    for (std::string_view dir : kPrivateDirs) {
        if (path.size() > dir.size() + 1 && path.starts_with(dir) && path[dir.size()] == '/') {
            return true;
        }
    }
    return false;
}

// True if the absolute, normalised `path` is hidden by a private directory on the simulated host.
inline bool is_in_private_dir(std::string_view path) {
    for (std::string_view dir : kPrivateDirs) {
        if (path == dir) {
            return true;
        }
    }
    return is_below_private_dir(path);
}

}  // namespace tavo::sim
