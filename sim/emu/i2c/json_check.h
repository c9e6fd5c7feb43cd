// Checked reads of the "i2c" section of a host description. Each returns false with a
// one-line `error` "PATH: problem" naming the JSON path of the offending value.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::emu::i2c {

std::string member_path(const std::string &path, std::string_view key);
std::string element_path(const std::string &path, std::size_t index);

bool require_object(const nlohmann::json &value, const std::string &path, std::string &error);
bool require_array(const nlohmann::json &value, const std::string &path, std::string &error);
// Refuses any member of `object` not in `allowed`.
bool only_members(const nlohmann::json &object, std::initializer_list<std::string_view> allowed,
                  const std::string &path, std::string &error);

// An integer member in [low, high]; `out` stays empty when the member is absent and not
// `required`.
bool read_int(const nlohmann::json &object, std::string_view key, int64_t low, int64_t high,
              bool required, const std::string &path, std::optional<int64_t> &out,
              std::string &error);
bool read_bool(const nlohmann::json &object, std::string_view key, const std::string &path,
               std::optional<bool> &out, std::string &error);
bool read_string(const nlohmann::json &object, std::string_view key, const std::string &path,
                 std::optional<std::string> &out, std::string &error);

// Bytes of a hex text ("00ff10", blanks between bytes allowed).
bool read_hex(const std::string &text, const std::string &path, std::vector<uint8_t> &out,
              std::string &error);
// The whole content of a file, at most `limit` bytes; a relative name resolves against
// `base_dir`.
bool read_binary_file(const std::string &name, const std::filesystem::path &base_dir,
                      std::size_t limit, const std::string &path, std::vector<uint8_t> &out,
                      std::string &error);

}  // namespace tavo::emu::i2c
