#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace tavo::sim {

// A host description: the JSON shared by tavo-sim and the device-management simulator.
struct HostDescription {
    std::string name;                 // the file name, for messages
    std::optional<std::string> path;  // absolute path; none for the built-in default host
    nlohmann::json json;
    std::string builtin_text;  // a built-in host's description, written to `path` inside
};

// True for the name of a built-in host ("camera"): a name without a slash.
bool is_builtin_host(std::string_view name);

struct HostFile {
    std::string path;
    std::string content;
};

// Turns the --host argument into the absolute path without symlinks, so the same file can
// be found inside the namespace.
bool resolve_host_path(std::string &path, std::string &error);

// Reads the host description at `path`, or the built-in default host when there is none.
bool load_host_description(const std::optional<std::string> &path, HostDescription &out,
                           std::string &error);

// The files the host description places on the simulated host (its "files" object).
bool host_files(const HostDescription &host, std::vector<HostFile> &out, std::string &error);

// Writes `files`, creating their parent directories.
bool write_host_files(const std::vector<HostFile> &files, std::string &error);

}  // namespace tavo::sim
