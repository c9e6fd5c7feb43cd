#include "host_files.h"

#include "base/unique_fd.h"
#include "default_host.h"
#include "private_dirs.h"
#include "world.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tavo::sim {

namespace {

using tavo::base::UniqueFd;

constexpr std::string_view kDefaultHostName = "built-in default host";

std::string json_string(std::string_view text) {
    return nlohmann::json(text).dump();
}

// nlohmann's messages start with an internal "[json.exception...] " tag.
std::string parse_problem(const nlohmann::json::parse_error &e) {
    std::string_view what = e.what();
    if (auto end = what.find("] "); what.starts_with("[") && end != std::string_view::npos) {
        what.remove_prefix(end + 2);
    }
    return std::string(what);
}

bool read_text(const std::string &path, std::string &text, std::string &error) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    if (!in || !(content << in.rdbuf())) {
        error = path + ": cannot read: " + std::strerror(errno);
        return false;
    }
    text = std::move(content).str();
    return true;
}

bool parse_host(std::string_view text, HostDescription &out, std::string &error) {
    try {
        out.json = nlohmann::json::parse(text);
    } catch (const nlohmann::json::parse_error &e) {
        error = out.name + ": invalid JSON: " + parse_problem(e);
        return false;
    }
    if (!out.json.is_object()) {
        error = out.name + ": the host description must be a JSON object";
        return false;
    }
    return true;
}

bool check_file_path(const std::string &name, const std::string &path, std::string &error) {
    std::filesystem::path p(path);
    if (!p.is_absolute() || p.lexically_normal().string() != path || !p.has_filename()) {
        error = name + ": files: path " + json_string(path) +
                " is not an absolute, normalised file path";
        return false;
    }
    if (!is_below_private_dir(path)) {
        error = name + ": files: path " + json_string(path) +
                " is outside the private host (/run, /etc/usr, /tmp, /var/log)";
        return false;
    }
    return true;
}

bool write_all(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

bool write_file(const HostFile &file, std::string &error) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(file.path).parent_path(), ec);
    if (ec) {
        error = "cannot create the directory of " + file.path + ": " + ec.message();
        return false;
    }
    UniqueFd fd(
        ::open(file.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!fd || !write_all(fd.get(), file.content)) {
        error = "cannot write " + file.path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

bool resolve_host_path(std::string &path, std::string &error) {
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) == nullptr) {
        error = path + ": cannot read: " + std::strerror(errno);
        return false;
    }
    path = resolved;
    return true;
}

bool is_builtin_host(std::string_view name) {
    return name.find('/') == std::string_view::npos && !builtin_host_json(name).empty();
}

bool load_host_description(const std::optional<std::string> &path, HostDescription &out,
                           std::string &error) {
    out.path = path;
    out.name = path ? *path : std::string(kDefaultHostName);
    if (!path) {
        return parse_host(default_host_json(), out, error);
    }
    if (is_builtin_host(*path)) {
        // The device-management simulator reads the same description from a file.
        out.builtin_text = std::string(builtin_host_json(*path));
        out.path = std::string(kRunDir) + "/host-" + *path + ".json";
        return parse_host(out.builtin_text, out, error);
    }
    std::string text;
    return read_text(*path, text, error) && parse_host(text, out, error);
}

bool host_files(const HostDescription &host, std::vector<HostFile> &out, std::string &error) {
    auto files = host.json.find("files");
    if (files == host.json.end()) {
        return true;
    }
    if (!files->is_object()) {
        error = host.name + ": files: must be an object mapping file paths to contents";
        return false;
    }
    for (const auto &[path, content] : files->items()) {
        if (!check_file_path(host.name, path, error)) {
            return false;
        }
        if (!content.is_string()) {
            error =
                host.name + ": files: the content of " + json_string(path) + " must be a string";
            return false;
        }
        out.push_back({path, content.get<std::string>()});
    }
    return true;
}

bool write_host_files(const std::vector<HostFile> &files, std::string &error) {
    for (const HostFile &file : files) {
        if (!write_file(file, error)) {
            return false;
        }
    }
    return true;
}

}  // namespace tavo::sim
