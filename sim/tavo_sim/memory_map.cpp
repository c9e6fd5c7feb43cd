// "memory_map": {"size": "0x12100000",
//                "bytes": [{"address": "0x12020EE0", "hex": "00 11 00 22 33 44 55"}]}
// "proc_files": {"/proc/meminfo": "MemTotal: 3900000 kB\n"}
// "pci": {"functions": ["pci0000:3a/0000:3a:00.0/0000:3b:00.0", ...]}   (below /sys/devices)
// "dmidecode": "# dmidecode 3.4\nHandle 0x0009, DMI type 9, ..."  (what dmidecode prints)
#include "memory_map.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "base/sys.h"
#include "base/unique_fd.h"

namespace tavo::sim {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr uint64_t kMaxMemorySize = uint64_t{1} << 36;

bool read_number(const json &value, const std::string &path, uint64_t &out, std::string &error) {
    if (value.is_number_unsigned()) {
        out = value.get<uint64_t>();
        return true;
    }
    if (value.is_string()) {
        const std::string text = value.get<std::string>();
        std::size_t used = 0;
        try {
            out = std::stoull(text, &used, 0);
        } catch (const std::exception &) {
            used = 0;
        }
        if (used == text.size() && used != 0) {
            return true;
        }
    }
    error = path + ": expected an unsigned number or a \"0x...\" text";
    return false;
}

bool read_hex_bytes(const json &value, const std::string &path, std::vector<uint8_t> &out,
                    std::string &error) {
    if (!value.is_string()) {
        error = path + ": expected hexadecimal bytes such as \"00 11 22\"";
        return false;
    }
    std::istringstream in(value.get<std::string>());
    std::string word;
    while (in >> word) {
        std::size_t used = 0;
        unsigned long byte = 0;
        try {
            byte = std::stoul(word, &used, 16);
        } catch (const std::exception &) {
            used = 0;
        }
        if (used != word.size() || word.size() > 2 || byte > 0xFF) {
            error = path + ": \"" + word + "\" is not a hexadecimal byte";
            return false;
        }
        out.push_back(static_cast<uint8_t>(byte));
    }
    return true;
}

bool write_region(int fd, const json &entry, const std::string &path, uint64_t size,
                  std::string &error) {
    if (!entry.is_object() || !entry.contains("address") || !entry.contains("hex") ||
        entry.size() != 2) {
        error = path + ": expected {\"address\": ..., \"hex\": ...}";
        return false;
    }
    uint64_t address = 0;
    std::vector<uint8_t> bytes;
    if (!read_number(entry["address"], path + ".address", address, error) ||
        !read_hex_bytes(entry["hex"], path + ".hex", bytes, error)) {
        return false;
    }
    if (address + bytes.size() > size) {
        error = path + ": bytes end past the memory size";
        return false;
    }
    if (::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(address)) !=
        static_cast<ssize_t>(bytes.size())) {
        error = path + ": cannot write the memory image";
        return false;
    }
    return true;
}

bool build_memory(const json &section, const fs::path &root, std::string &error) {
    if (!section.is_object() || !section.contains("size")) {
        error = "memory_map: expected an object with \"size\"";
        return false;
    }
    for (const auto &[key, unused] : section.items()) {
        if (key != "size" && key != "bytes") {
            error = "memory_map." + key + ": unknown key";
            return false;
        }
    }
    uint64_t size = 0;
    if (!read_number(section["size"], "memory_map.size", size, error)) {
        return false;
    }
    if (size == 0 || size > kMaxMemorySize) {
        error = "memory_map.size: must be between 1 and 64 GiB";
        return false;
    }
    fs::create_directories(root / "dev");
    base::UniqueFd fd =
        base::sys_open((root / "dev/mem").c_str(), O_CREAT | O_RDWR | O_TRUNC, 0600);
    if (!fd || ::ftruncate(fd.get(), static_cast<off_t>(size)) != 0) {
        error = "memory_map: cannot create the memory image";
        return false;
    }
    const json bytes = section.value("bytes", json::array());
    if (!bytes.is_array()) {
        error = "memory_map.bytes: expected an array";
        return false;
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (!write_region(fd.get(), bytes[i], "memory_map.bytes[" + std::to_string(i) + "]", size,
                          error)) {
            return false;
        }
    }
    return true;
}

bool build_proc_files(const json &section, const fs::path &root, std::string &error) {
    if (!section.is_object()) {
        error = "proc_files: expected an object of path -> text";
        return false;
    }
    for (const auto &[path, content] : section.items()) {
        fs::path normal = fs::path(path).lexically_normal();
        if (!content.is_string() || !path.starts_with("/proc/") || normal.string() != path) {
            error = "proc_files: \"" + path + "\" must be a normalised /proc/ path with text";
            return false;
        }
        fs::path target = root / path.substr(1);
        fs::create_directories(target.parent_path());
        std::ofstream(target, std::ios::binary) << content.get<std::string>();
    }
    return true;
}

bool build_pci_tree(const json &section, const fs::path &root, std::string &error) {
    if (!section.is_object() || section.size() != 1 || !section.contains("functions") ||
        !section["functions"].is_array()) {
        error = "pci: expected {\"functions\": [paths below /sys/devices]}";
        return false;
    }
    for (const json &path : section["functions"]) {
        const std::string text = path.is_string() ? path.get<std::string>() : std::string();
        if (text.empty() || text.front() == '/' || fs::path(text).lexically_normal() != text ||
            text.starts_with("..")) {
            error = "pci.functions: \"" + text + "\" must be a relative, normalised path";
            return false;
        }
        fs::create_directories(root / "sys/devices" / text);
    }
    return true;
}

// A stand-in dmidecode, first on the command's PATH, that prints the recorded output.
bool install_dmidecode(const json &section, std::string &error) {
    if (!section.is_string()) {
        error = "dmidecode: expected the text that dmidecode prints";
        return false;
    }
    const fs::path output = fs::path(kRunDir) / "dmidecode.out";
    const fs::path program = fs::path(kBinDir) / "dmidecode";
    std::ofstream(output, std::ios::binary) << section.get<std::string>();
    std::ofstream(program) << "#!/bin/sh\ncat " << output.string() << "\n";
    fs::permissions(program, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                 fs::perms::others_read | fs::perms::others_exec);
    return true;
}

}  // namespace

bool attach_memory_map(World &world, std::string &error) {
    g_autofree gchar *root_dir = umockdev_testbed_get_root_dir(world.testbed);
    const fs::path root = root_dir;
    if (world.host.contains("memory_map") && !build_memory(world.host["memory_map"], root, error)) {
        return false;
    }
    if (world.host.contains("proc_files") &&
        !build_proc_files(world.host["proc_files"], root, error)) {
        return false;
    }
    if (world.host.contains("pci") && !build_pci_tree(world.host["pci"], root, error)) {
        return false;
    }
    if (world.host.contains("dmidecode") && !install_dmidecode(world.host["dmidecode"], error)) {
        return false;
    }
    return true;
}

}  // namespace tavo::sim
