#include "json_check.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace tavo::emu::i2c {

using nlohmann::json;

namespace {

bool fail(std::string &error, const std::string &path, const std::string &problem) {
    error = path + ": " + problem;
    return false;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace

std::string member_path(const std::string &path, std::string_view key) {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string element_path(const std::string &path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

bool require_object(const json &value, const std::string &path, std::string &error) {
    return value.is_object() || fail(error, path, "expected an object");
}

bool require_array(const json &value, const std::string &path, std::string &error) {
    return value.is_array() || fail(error, path, "expected an array");
}

bool only_members(const json &object, std::initializer_list<std::string_view> allowed,
                  const std::string &path, std::string &error) {
    for (const auto &[key, value] : object.items()) {
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
            return fail(error, member_path(path, key), "unknown key");
        }
    }
    return true;
}

bool read_int(const json &object, std::string_view key, int64_t low, int64_t high, bool required,
              const std::string &path, std::optional<int64_t> &out, std::string &error) {
    std::string where = member_path(path, key);
    auto it = object.find(key);
    if (it == object.end()) {
        return !required || fail(error, where, "missing");
    }
    if (!it->is_number_integer()) {
        return fail(error, where, "expected an integer");
    }
    bool fits = it->is_number_unsigned() ? it->get<uint64_t>() <= static_cast<uint64_t>(high)
                                         : it->get<int64_t>() <= high;
    if (!fits || (!it->is_number_unsigned() && it->get<int64_t>() < low)) {
        return fail(error, where,
                    "out of range (" + std::to_string(low) + ".." + std::to_string(high) + ")");
    }
    out = it->get<int64_t>();
    return true;
}

bool read_bool(const json &object, std::string_view key, const std::string &path,
               std::optional<bool> &out, std::string &error) {
    auto it = object.find(key);
    if (it == object.end()) {
        return true;
    }
    if (!it->is_boolean()) {
        return fail(error, member_path(path, key), "expected a boolean");
    }
    out = it->get<bool>();
    return true;
}

bool read_string(const json &object, std::string_view key, const std::string &path,
                 std::optional<std::string> &out, std::string &error) {
    auto it = object.find(key);
    if (it == object.end()) {
        return true;
    }
    if (!it->is_string()) {
        return fail(error, member_path(path, key), "expected a string");
    }
    out = it->get<std::string>();
    return true;
}

bool read_hex(const std::string &text, const std::string &path, std::vector<uint8_t> &out,
              std::string &error) {
    out.clear();
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        int high = hex_digit(text[i]);
        int low = i + 1 < text.size() ? hex_digit(text[i + 1]) : -1;
        if (high < 0 || low < 0) {
            return fail(error, path,
                        "expected hex bytes (two digits each), found a bad digit at character " +
                            std::to_string(i + (high < 0 ? 0 : 1)));
        }
        out.push_back(static_cast<uint8_t>(high << 4 | low));
        i += 2;
    }
    return true;
}

bool read_binary_file(const std::string &name, const std::filesystem::path &base_dir,
                      std::size_t limit, const std::string &path, std::vector<uint8_t> &out,
                      std::string &error) {
    std::filesystem::path file = base_dir / name;  // an absolute name replaces base_dir
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return fail(error, path, "cannot read " + file.string() + ": " + std::strerror(errno));
    }
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (out.size() > limit) {
        return fail(error, path,
                    file.string() + " holds " + std::to_string(out.size()) +
                        " bytes, more than the device's " + std::to_string(limit));
    }
    return true;
}

}  // namespace tavo::emu::i2c
