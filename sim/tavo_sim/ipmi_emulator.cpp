#include "ipmi_emulator.h"

#include "base/sys.h"
#include "sim/emu/ipmi/bmc.h"
#include "sim/emu/ipmi/ipmi_node.h"

#include <fcntl.h>

#include <cstring>
#include <filesystem>
#include <memory>

namespace tavo::sim {

namespace {

using emu::ipmi::Bmc;
using emu::ipmi::IpmiNode;

// The node serves until tavo-sim exits.
std::unique_ptr<IpmiNode> &node() {
    static std::unique_ptr<IpmiNode> only;
    return only;
}

bool start_transcript(Bmc &bmc, std::string &error) {
    std::filesystem::path dir = std::filesystem::path(kRunDir) / "ipmi";
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        error = "cannot create " + dir.string() + ": " + ec.message();
        return false;
    }
    std::string path = (dir / "requests.jsonl").string();
    if (!base::sys_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    // Opens the file for each line, so that a reader may remove or truncate it in between.
    bmc.set_transcript_sink([path](const emu::ipmi::IpmiRequestRecord &record) {
        std::string line = emu::ipmi::transcript_json(record).dump() + "\n";
        base::UniqueFd fd = base::sys_open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (fd) {
            (void)base::write_full(fd.get(), std::as_bytes(std::span(line.data(), line.size())));
        }
    });
    return true;
}

}  // namespace

bool attach_ipmi(World &world, std::string &error) {
    if (!world.host.is_object() || !world.host.contains("ipmi")) {
        return true;
    }
    auto bmc = std::make_shared<Bmc>();
    if (!Bmc::from_json(world.host.at("ipmi"), "ipmi", *bmc, error) ||
        !start_transcript(*bmc, error)) {
        return false;
    }
    node() = IpmiNode::create(world.testbed, bmc, error);
    return node() != nullptr;
}

}  // namespace tavo::sim
