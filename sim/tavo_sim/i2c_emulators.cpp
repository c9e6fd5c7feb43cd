#include "i2c_emulators.h"

#include "base/sys.h"
#include "sim/emu/i2c/host_i2c.h"
#include "sim/emu/i2c/i2c_node.h"
#include "sim/emu/i2c/transcript_json.h"

#include <fcntl.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

namespace tavo::sim {

namespace {

using emu::i2c::I2cBus;
using emu::i2c::I2cNode;
using emu::i2c::I2cTransferRecord;

// The nodes serve until tavo-sim exits.
std::vector<std::unique_ptr<I2cNode>> &nodes() {
    static std::vector<std::unique_ptr<I2cNode>> all;
    return all;
}

std::filesystem::path transcript_dir() {
    return std::filesystem::path(kRunDir) / "i2c";
}

// Opens the file for each line, so that a reader may remove or truncate it in between.
void append_line(const std::string &path, const std::string &line) {
    base::UniqueFd fd = base::sys_open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd) {
        (void)base::write_full(fd.get(), std::as_bytes(std::span(line.data(), line.size())));
    }
}

bool start_transcript(I2cBus &bus, std::string &error) {
    std::string path =
        (transcript_dir() / ("bus-" + std::to_string(bus.number()) + ".jsonl")).string();
    base::UniqueFd fd = base::sys_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!fd) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    bus.set_transcript_sink([path, number = bus.number()](const I2cTransferRecord &record) {
        append_line(path, emu::i2c::transcript_json(number, record).dump() + "\n");
    });
    return true;
}

}  // namespace

bool attach_i2c(World &world, std::string &error) {
    std::filesystem::path host_file(world.host_name);
    std::filesystem::path base_dir =
        host_file.is_absolute() ? host_file.parent_path() : std::filesystem::current_path();
    std::vector<std::shared_ptr<I2cBus>> buses;
    if (!emu::i2c::build_buses(world.host, base_dir, buses, error)) {
        return false;
    }
    std::error_code ec;
    std::filesystem::create_directories(transcript_dir(), ec);
    if (ec) {
        error = "cannot create " + transcript_dir().string() + ": " + ec.message();
        return false;
    }
    for (const std::shared_ptr<I2cBus> &bus : buses) {
        if (!start_transcript(*bus, error)) {
            return false;
        }
        std::unique_ptr<I2cNode> node = I2cNode::create(world.testbed, bus, error);
        if (!node) {
            return false;
        }
        nodes().push_back(std::move(node));
    }
    return true;
}

}  // namespace tavo::sim
