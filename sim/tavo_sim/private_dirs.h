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

// For a path strictly below a private directory, the top of its tree there
// ("/tmp/work/build/x" gives "/tmp/work"); empty otherwise.
inline std::string_view private_tree_root(std::string_view path) {
    for (std::string_view dir : kPrivateDirs) {
        if (path.size() > dir.size() + 1 && path.starts_with(dir) && path[dir.size()] == '/') {
            std::size_t end = path.find('/', dir.size() + 1);
            return path.substr(0, end);
        }
    }
    return {};
}

}  // namespace tavo::sim
