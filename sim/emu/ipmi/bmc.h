// An emulated BMC answering the OEM mini reset requests (netfn 0x30, cmd 0x93), built from
// the "ipmi" section of a host description. See docs/emulated-ipmi.md.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tavo::emu::ipmi {

// The manufacturer number the BMC accepts in bytes 0..2 of its OEM requests.
inline constexpr uint32_t kOemEnterpriseNumber = 0x0007DB;
inline constexpr uint8_t kOemNetFn = 0x30;
inline constexpr uint8_t kOemCmd = 0x93;
inline constexpr uint8_t kSubReset = 0x53;
inline constexpr uint8_t kSubGetState = 0x54;
inline constexpr std::size_t kOemRequestSize = 11;

// IPMI completion codes the BMC uses.
inline constexpr uint8_t kInvalidCommand = 0xC1;
inline constexpr uint8_t kInvalidLength = 0xC7;
inline constexpr uint8_t kOutOfRange = 0xC9;

struct Mini {
    uint8_t reset_completion = 0;
    uint8_t get_completion = 0;
    uint8_t state = 0;
    unsigned resets = 0;
};

struct IpmiRequestRecord {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    std::vector<uint8_t> data;
    long msgid = 0;  // as the requester numbered it
};

class Bmc {
  public:
    // Card and mini as on the wire: the mini counted from 1.
    using Key = std::pair<uint8_t, uint8_t>;

    // Builds the BMC from an "ipmi" section; false with `error` "PATH: problem".
    static bool from_json(const nlohmann::json &section, const std::string &path, Bmc &out,
                          std::string &error);

    void set_mini(uint8_t card, uint8_t mini, const Mini &value);
    // nullptr when the description has no such mini.
    Mini *mini(uint8_t card, uint8_t mini);

    // Records the request and returns the response data: completion code, then payload.
    std::vector<uint8_t> handle(uint8_t netfn, uint8_t cmd, const std::vector<uint8_t> &data,
                                long msgid);

    std::vector<IpmiRequestRecord> transcript() const;
    void clear_transcript();
    // Also called for every request (tavo-sim writes JSON lines from it).
    void set_transcript_sink(std::function<void(const IpmiRequestRecord &)> sink);

  private:
    std::vector<uint8_t> answer_oem(const std::vector<uint8_t> &data);

    mutable std::mutex mutex_;
    std::map<Key, Mini> minis_;
    std::vector<IpmiRequestRecord> transcript_;
    std::function<void(const IpmiRequestRecord &)> sink_;
};

// {"netfn":48,"cmd":147,"data":"db0700...","msgid":0}: data in lower-case hex.
nlohmann::json transcript_json(const IpmiRequestRecord &record);

}  // namespace tavo::emu::ipmi
