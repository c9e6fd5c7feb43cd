// Reading JSON values of a host description with checks. Every failure throws
// DescriptionError naming the JSON path of the offending value.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace tavo::sim {

using nlohmann::json;

class DescriptionError : public std::runtime_error {
  public:
    DescriptionError(std::string path, const std::string &problem)
        : std::runtime_error(path.empty() ? problem : path + ": " + problem),
          path_(std::move(path)) {}
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

// Paths: "cards[1].chips[0].temperature" for members of a record (a key that is
// not a name is quoted), frequency["4"] or files["/run/board_cfg.ini"] for the
// entries of a map.
std::string member_path(const std::string &path, std::string_view key);
std::string entry_path(const std::string &path, std::string_view key);
std::string element_path(const std::string &path, std::size_t index);

// Parses JSON text, refusing a key that appears twice in one object.
json parse_json_text(std::string_view text);

void require_object(const json &value, const std::string &path);
void require_array(const json &value, const std::string &path);

// "(low..high)"
std::string describe_range(const std::string &low, const std::string &high);

// An integer of the range of T (booleans and fractions are refused).
template <class T>
T read_int(const json &value, const std::string &path) {
    static_assert(std::numeric_limits<T>::is_integer);
    constexpr auto low = std::numeric_limits<T>::min();
    constexpr auto high = std::numeric_limits<T>::max();
    if (!value.is_number_integer()) {
        throw DescriptionError(path, "expected an integer");
    }
    bool fits = false;
    if (value.is_number_unsigned()) {
        fits = value.get<std::uint64_t>() <= static_cast<std::uint64_t>(high);
    } else {
        auto v = value.get<std::int64_t>();
        fits = v >= static_cast<std::int64_t>(low) &&
               (v < 0 || static_cast<std::uint64_t>(v) <= static_cast<std::uint64_t>(high));
    }
    if (!fits) {
        throw DescriptionError(
            path, "out of range " + describe_range(std::to_string(+low), std::to_string(+high)));
    }
    return value.is_number_unsigned() ? static_cast<T>(value.get<std::uint64_t>())
                                      : static_cast<T>(value.get<std::int64_t>());
}

// A key of a map object that is a decimal number of the range of T.
template <class T>
T read_number_key(std::string_view key, const std::string &path) {
    T result{};
    const char *end = key.data() + key.size();
    auto [ptr, ec] = std::from_chars(key.data(), end, result);
    if (key.empty() || key.front() == '-' || key.front() == '+' ||
        ec == std::errc::invalid_argument || ptr != end) {
        throw DescriptionError(path, "key must be a decimal number");
    }
    if (ec == std::errc::result_out_of_range) {
        throw DescriptionError(
            path, "key out of range " +
                      describe_range("0", std::to_string(+std::numeric_limits<T>::max())));
    }
    return result;
}

// A string of at most max_bytes bytes without NUL characters.
std::string read_text(const json &value, const std::string &path, std::size_t max_bytes);

template <class T, std::size_t N>
std::array<T, N> read_int_array(const json &value, const std::string &path) {
    if (!value.is_array() || value.size() != N) {
        throw DescriptionError(path, "expected an array of " + std::to_string(N) + " integers");
    }
    std::array<T, N> out{};
    for (std::size_t i = 0; i < N; ++i) {
        out[i] = read_int<T>(value[i], element_path(path, i));
    }
    return out;
}

// Objects with a fixed set of keys: each key has a setter; others are refused.
template <class T>
struct Field {
    std::string_view key;
    void (*set)(T &out, const json &value, const std::string &path);
};

template <class T, std::size_t N>
const Field<T> *find_field(const std::array<Field<T>, N> &fields, std::string_view key) {
    for (const Field<T> &f : fields) {
        if (f.key == key) {
            return &f;
        }
    }
    return nullptr;
}

template <class T, std::size_t N>
void read_fields(T &out, const json &value, const std::string &path,
                 const std::array<Field<T>, N> &fields) {
    require_object(value, path);
    for (const auto &[key, item] : value.items()) {
        const Field<T> *field = find_field(fields, key);
        if (field == nullptr) {
            throw DescriptionError(member_path(path, key), "unknown key");
        }
        field->set(out, item, member_path(path, key));
    }
}

template <class>
struct MemberTraits;
template <class C, class M>
struct MemberTraits<M C::*> {
    using Owner = C;
    using Type = M;
};

// Setter of an integer member, for Field tables: &set_int<&rumo_hbm_info::temp>.
template <auto Member>
void set_int(typename MemberTraits<decltype(Member)>::Owner &out, const json &value,
             const std::string &path) {
    out.*Member = read_int<typename MemberTraits<decltype(Member)>::Type>(value, path);
}

}  // namespace tavo::sim
