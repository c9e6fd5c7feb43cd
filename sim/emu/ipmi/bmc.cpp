#include "bmc.h"

#include "sim/emu/i2c/json_check.h"

#include <cstdio>
#include <optional>

namespace tavo::emu::ipmi {

namespace {

using i2c::element_path;
using i2c::only_members;
using i2c::read_int;
using i2c::require_array;
using i2c::require_object;

bool read_byte(const nlohmann::json &object, std::string_view key, bool required,
               const std::string &path, uint8_t &out, std::string &error) {
    std::optional<int64_t> value;
    if (!read_int(object, key, 0, 255, required, path, value, error)) {
        return false;
    }
    if (value) {
        out = static_cast<uint8_t>(*value);
    }
    return true;
}

bool read_mini(const nlohmann::json &entry, const std::string &path, Bmc &bmc, std::string &error) {
    if (!require_object(entry, path, error) ||
        !only_members(entry, {"card", "mini", "reset_completion", "get_completion", "state"}, path,
                      error)) {
        return false;
    }
    uint8_t card = 0;
    uint8_t number = 0;
    Mini mini;
    if (!read_byte(entry, "card", true, path, card, error) ||
        !read_byte(entry, "mini", true, path, number, error) ||
        !read_byte(entry, "reset_completion", false, path, mini.reset_completion, error) ||
        !read_byte(entry, "get_completion", false, path, mini.get_completion, error) ||
        !read_byte(entry, "state", false, path, mini.state, error)) {
        return false;
    }
    if (number == 0) {
        error = path + ".mini: minis are numbered from 1 on the wire";
        return false;
    }
    if (bmc.mini(card, number) != nullptr) {
        error = path + ": card " + std::to_string(card) + " mini " + std::to_string(number) +
                " is listed twice";
        return false;
    }
    bmc.set_mini(card, number, mini);
    return true;
}

bool manufacturer_matches(const std::vector<uint8_t> &data) {
    return data[0] == (kOemEnterpriseNumber & 0xFF) &&
           data[1] == ((kOemEnterpriseNumber >> 8) & 0xFF) &&
           data[2] == ((kOemEnterpriseNumber >> 16) & 0xFF);
}

}  // namespace

bool Bmc::from_json(const nlohmann::json &section, const std::string &path, Bmc &out,
                    std::string &error) {
    if (!require_object(section, path, error) || !only_members(section, {"minis"}, path, error)) {
        return false;
    }
    if (!section.contains("minis")) {
        return true;
    }
    const std::string minis_path = path + ".minis";
    const nlohmann::json &minis = section.at("minis");
    if (!require_array(minis, minis_path, error)) {
        return false;
    }
    for (std::size_t i = 0; i < minis.size(); ++i) {
        if (!read_mini(minis[i], element_path(minis_path, i), out, error)) {
            return false;
        }
    }
    return true;
}

void Bmc::set_mini(uint8_t card, uint8_t mini, const Mini &value) {
    std::lock_guard lock(mutex_);
    minis_[{card, mini}] = value;
}

Mini *Bmc::mini(uint8_t card, uint8_t mini) {
    std::lock_guard lock(mutex_);
    auto it = minis_.find({card, mini});
    return it == minis_.end() ? nullptr : &it->second;
}

std::vector<uint8_t> Bmc::answer_oem(const std::vector<uint8_t> &data) {
    if (data.size() < 4 || !manufacturer_matches(data) ||
        (data[3] != kSubReset && data[3] != kSubGetState)) {
        return {kInvalidCommand};
    }
    if (data.size() != kOemRequestSize) {
        return {kInvalidLength};
    }
    std::vector<uint8_t> answer{0, data[0], data[1], data[2]};
    std::lock_guard lock(mutex_);
    auto it = minis_.find({data[8], data[9]});
    if (it == minis_.end()) {
        return {kOutOfRange};
    }
    Mini &mini = it->second;
    if (data[3] == kSubReset) {
        answer[0] = mini.reset_completion;
        if (mini.reset_completion == 0) {
            ++mini.resets;
        }
        return answer;
    }
    answer[0] = mini.get_completion;
    answer.push_back(mini.state);
    return answer;
}

std::vector<uint8_t> Bmc::handle(uint8_t netfn, uint8_t cmd, const std::vector<uint8_t> &data,
                                 long msgid) {
    IpmiRequestRecord record{netfn, cmd, data, msgid};
    std::function<void(const IpmiRequestRecord &)> sink;
    {
        std::lock_guard lock(mutex_);
        transcript_.push_back(record);
        sink = sink_;
    }
    if (sink) {
        sink(record);
    }
    if (netfn != kOemNetFn || cmd != kOemCmd) {
        return {kInvalidCommand};
    }
    return answer_oem(data);
}

std::vector<IpmiRequestRecord> Bmc::transcript() const {
    std::lock_guard lock(mutex_);
    return transcript_;
}

void Bmc::clear_transcript() {
    std::lock_guard lock(mutex_);
    transcript_.clear();
}

void Bmc::set_transcript_sink(std::function<void(const IpmiRequestRecord &)> sink) {
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
}

nlohmann::json transcript_json(const IpmiRequestRecord &record) {
    std::string hex;
    for (uint8_t byte : record.data) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        hex += pair;
    }
    return {{"netfn", record.netfn}, {"cmd", record.cmd}, {"data", hex}, {"msgid", record.msgid}};
}

}  // namespace tavo::emu::ipmi
