#include "json_read.h"

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

namespace tavo::sim {

namespace {

bool is_name(std::string_view key) {
    auto name_char = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    };
    return !key.empty() && !(key.front() >= '0' && key.front() <= '9') &&
           std::all_of(key.begin(), key.end(), name_char);
}

// Follows the parser's events to know the path of each object, and remembers the
// first key that an object repeats.
class DuplicateKeyFinder {
  public:
    bool on_event(json::parse_event_t event, const json &parsed) {
        switch (event) {
            case json::parse_event_t::object_start:
            case json::parse_event_t::array_start:
                frames_.push_back(
                    {event == json::parse_event_t::array_start, 0, {}, {}, current_path()});
                break;
            case json::parse_event_t::key:
                on_key(parsed.get<std::string>());
                break;
            case json::parse_event_t::object_end:
            case json::parse_event_t::array_end:
                frames_.pop_back();
                finish_element();
                break;
            case json::parse_event_t::value:
                finish_element();
                break;
        }
        return true;
    }

    const std::optional<DescriptionError> &duplicate() const { return duplicate_; }

  private:
    struct Frame {
        bool is_array;
        std::size_t index;
        std::string key;
        std::set<std::string, std::less<>> keys;
        std::string path;
    };

    // Path of the value that starts now.
    std::string current_path() const {
        if (frames_.empty()) {
            return {};
        }
        const Frame &parent = frames_.back();
        return parent.is_array ? element_path(parent.path, parent.index)
                               : member_path(parent.path, parent.key);
    }

    void on_key(std::string key) {
        Frame &frame = frames_.back();
        if (!frame.keys.insert(key).second && !duplicate_) {
            duplicate_.emplace(frame.path, "duplicate key " + json(key).dump());
        }
        frame.key = std::move(key);
    }

    void finish_element() {
        if (!frames_.empty() && frames_.back().is_array) {
            ++frames_.back().index;
        }
    }

    std::vector<Frame> frames_;
    std::optional<DescriptionError> duplicate_;
};

}  // namespace

std::string member_path(const std::string &path, std::string_view key) {
    if (!is_name(key)) {
        return entry_path(path, key);
    }
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string entry_path(const std::string &path, std::string_view key) {
    return path + "[" + json(std::string(key)).dump() + "]";
}

std::string element_path(const std::string &path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

std::string describe_range(const std::string &low, const std::string &high) {
    return "(" + low + ".." + high + ")";
}

json parse_json_text(std::string_view text) {
    DuplicateKeyFinder finder;
    json::parser_callback_t callback = [&finder](int /*depth*/, json::parse_event_t event,
                                                 json &parsed) {
        return finder.on_event(event, parsed);
    };
    json result;
    try {
        result = json::parse(text, callback);
    } catch (const json::parse_error &e) {
        std::string what = e.what();
        // Drop the library's "[json.exception.parse_error.101] " tag.
        auto tag_end = what.find("] ");
        throw DescriptionError(
            {},
            "invalid JSON: " + (tag_end == std::string::npos ? what : what.substr(tag_end + 2)));
    }
    if (finder.duplicate()) {
        throw *finder.duplicate();
    }
    return result;
}

void require_object(const json &value, const std::string &path) {
    if (!value.is_object()) {
        throw DescriptionError(path, "expected an object");
    }
}

void require_array(const json &value, const std::string &path) {
    if (!value.is_array()) {
        throw DescriptionError(path, "expected an array");
    }
}

std::string read_text(const json &value, const std::string &path, std::size_t max_bytes) {
    if (!value.is_string()) {
        throw DescriptionError(path, "expected a string");
    }
    const auto &text = value.get_ref<const std::string &>();
    if (text.size() > max_bytes) {
        throw DescriptionError(path, "text longer than " + std::to_string(max_bytes) + " bytes");
    }
    if (text.find('\0') != std::string::npos) {
        throw DescriptionError(path, "text contains a NUL character");
    }
    return text;
}

}  // namespace tavo::sim
