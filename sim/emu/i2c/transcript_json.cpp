#include "transcript_json.h"

#include <cstdio>

namespace tavo::emu::i2c {

namespace {

std::string hex(const std::vector<uint8_t> &bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0xF]);
    }
    return text;
}

}  // namespace

nlohmann::json transcript_json(int bus, const I2cTransferRecord &record) {
    nlohmann::json out = {{"bus", bus},
                          {"kind", record.kind == TransferKind::kRdwr ? "rdwr" : "smbus"}};
    if (record.kind == TransferKind::kSmbus) {
        out["read_write"] = record.read_write;
        out["command"] = record.command;
        out["size"] = record.size;
    }
    out["error"] = record.error;
    nlohmann::json messages = nlohmann::json::array();
    for (const I2cMessageRecord &m : record.messages) {
        messages.push_back(
            {{"addr", m.address}, {"flags", m.flags}, {"len", m.length}, {"data", hex(m.data)}});
    }
    out["messages"] = std::move(messages);
    return out;
}

}  // namespace tavo::emu::i2c
