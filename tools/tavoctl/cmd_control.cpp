// tavoctl reset / hot-reset / set / config: operations that change a device.
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

#include "audit.h"
#include "commands.h"
#include "tavo/tavo_control.h"
#include "tavo/tavo_query.h"
#include "topology.h"

namespace tavoctl {
namespace {

struct ControlArgs {
    uint32_t card = 0;
    uint32_t device = 0;
    std::string what;   // ecc | p2p | ssh
    std::string state;  // on | off
    std::string name;
    std::string value;
    uint32_t size = 64;
    unsigned pause_seconds = 1;
    CLI::App *reset = nullptr;
    CLI::App *hot_reset = nullptr;
    CLI::App *set = nullptr;
    CLI::App *config_get = nullptr;
    CLI::App *config_set = nullptr;
    CLI::App *config_clear = nullptr;
};

ControlArgs &control_args() {
    static ControlArgs args;
    return args;
}

void add_target(CLI::App *command, ControlArgs &args) {
    command->add_option("CARD", args.card, "card id")->required();
    command->add_option("DEVICE", args.device, "device id")->required();
}

std::string target(const ControlArgs &args) {
    return "card " + std::to_string(args.card) + " device " + std::to_string(args.device);
}

// Prints the confirmation of a change, or the failure, and records either in the
// operations log.
int confirm(const Options &options, const std::string &what, int status) {
    audit(what.substr(0, what.find(' ')),
          what + (status == 0 ? ": done" : ": failed (" + std::to_string(status) + ")"));
    if (status != 0) {
        return fail(what, status);
    }
    if (options.json) {
        print_json({{"done", what}});
    } else {
        std::printf("%s: done\n", what.c_str());
    }
    return 0;
}

int run_reset(const Options &options, const ControlArgs &args) {
    return confirm(options, "reset " + target(args), tavo_reset_device_api(args.card, args.device));
}

int run_hot_reset(const Options &options, const ControlArgs &args) {
    int ret = tavo_pre_reset_soc(args.card, args.device);
    if (ret != 0) {
        return fail("tavo_pre_reset_soc", ret);
    }
    ::sleep(args.pause_seconds);
    return confirm(options, "hot reset " + target(args), tavo_rescan_soc(args.card, args.device));
}

int run_set(const Options &options, const ControlArgs &args) {
    if (args.state != "on" && args.state != "off") {
        std::fprintf(stderr, "tavoctl: state must be on or off, not '%s'\n", args.state.c_str());
        return kExitFailure;
    }
    uint32_t enable = args.state == "on" ? 1 : 0;
    int ret = -1;
    if (args.what == "ecc") {
        ret = tavo_config_ecc_enable_api(args.card, args.device, enable);
    } else if (args.what == "p2p") {
        ret = tavo_set_p2p_enable_api(args.card, args.device, enable);
    } else if (args.what == "ssh") {
        ret = tavo_set_ssh_enable_api(args.card, args.device, enable);
    } else {
        std::fprintf(stderr, "tavoctl: unknown switch '%s' (ecc, p2p, ssh)\n", args.what.c_str());
        return kExitFailure;
    }
    return confirm(options, args.what + " " + args.state + " on " + target(args), ret);
}

int run_config_get(const Options &options, const ControlArgs &args) {
    std::vector<unsigned char> buffer(args.size);
    int ret = tavo_get_user_config_api(args.card, args.device, args.name.c_str(), args.size,
                                       buffer.data());
    if (ret != 0) {
        return fail("tavo_get_user_config_api", ret);
    }
    std::string hex;
    for (unsigned char b : buffer) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", b);
        hex += two;
    }
    if (options.json) {
        print_json({{"name", args.name}, {"hex", hex}});
    } else {
        std::printf("%s\n", hex.c_str());
    }
    return 0;
}

int run_config_set(const Options &options, const ControlArgs &args) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(args.value.data());
    int ret = tavo_set_user_config_api(args.card, args.device, args.name.c_str(),
                                       static_cast<uint32_t>(args.value.size()), bytes);
    return confirm(options, "config " + args.name + " set on " + target(args), ret);
}

int run_config_clear(const Options &options, const ControlArgs &args) {
    int ret = tavo_clear_user_config_api(args.card, args.device, args.name.c_str());
    return confirm(options, "config " + args.name + " cleared on " + target(args), ret);
}

}  // namespace

std::vector<CLI::App *> add_control_commands(CLI::App &app, Options &options) {
    ControlArgs &args = control_args();
    args.reset = app.add_subcommand("reset", "reset a device through the BMC");
    add_target(args.reset, args);
    args.hot_reset = app.add_subcommand("hot-reset", "PCIe hot reset of a chip");
    add_target(args.hot_reset, args);
    args.hot_reset->add_option("--pause", args.pause_seconds, "seconds between the halves");
    args.set = app.add_subcommand("set", "switch ecc, p2p or ssh on or off");
    args.set->add_option("WHAT", args.what, "ecc, p2p or ssh")->required();
    add_target(args.set, args);
    args.set->add_option("STATE", args.state, "on or off")->required();
    CLI::App *config = app.add_subcommand("config", "user configuration items of a chip");
    config->require_subcommand(1);
    args.config_get = config->add_subcommand("get", "print an item as hex");
    args.config_set = config->add_subcommand("set", "write an item");
    args.config_clear = config->add_subcommand("clear", "clear an item");
    for (CLI::App *sub : {args.config_get, args.config_set, args.config_clear}) {
        add_target(sub, args);
        sub->add_option("NAME", args.name, "item name")->required();
    }
    args.config_get->add_option("--size", args.size, "bytes to read");
    args.config_set->add_option("VALUE", args.value, "the item's new content")->required();
    std::vector<CLI::App *> commands{args.reset, args.hot_reset, args.set, config};
    for (CLI::App *sub : {args.reset, args.hot_reset, args.set, args.config_get, args.config_set,
                          args.config_clear}) {
        sub->add_flag("--json", options.json, "print one JSON document instead of text");
    }
    return commands;
}

int run_control(const Options &options) {
    const ControlArgs &args = control_args();
    if (int ret = initialise(); ret != 0) {
        return fail("tavo_init", ret);
    }
    if (args.reset->parsed()) {
        return run_reset(options, args);
    }
    if (args.hot_reset->parsed()) {
        return run_hot_reset(options, args);
    }
    if (args.set->parsed()) {
        return run_set(options, args);
    }
    if (args.config_get->parsed()) {
        return run_config_get(options, args);
    }
    if (args.config_set->parsed()) {
        return run_config_set(options, args);
    }
    return run_config_clear(options, args);
}

}  // namespace tavoctl
