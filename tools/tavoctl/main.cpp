// tavoctl: the operator's tool over libtavo.
#include <CLI/CLI.hpp>

#include "commands.h"

int main(int argc, char **argv) {
    CLI::App app{"tavoctl - manage PCIe accelerator cards through libtavo"};
    tavoctl::Options options;
    app.add_flag("--json", options.json, "print one JSON document instead of tables");
    app.require_subcommand(0, 1);

    auto *list = app.add_subcommand("list", "list cards and their devices (the default)");
    auto *board_type = app.add_subcommand("board-type", "show the board variant of this host");
    auto *slots = app.add_subcommand("slots", "physical PCIe slot and fault devices of each card");
    for (auto *sub : {list, board_type, slots}) {
        sub->add_flag("--json", options.json, "print one JSON document instead of tables");
    }
    auto *label = tavoctl::add_label_command(app, options);
    auto *mcu = tavoctl::add_mcu_command(app, options);
    auto *verify = tavoctl::add_verify_command(app, options);

    std::vector<CLI::App *> control = tavoctl::add_control_commands(app, options);

    auto *info = app.add_subcommand("info", "every reading of every device");
    info->add_flag("--json", options.json, "print one JSON document instead of text");
    tavoctl::QueryRequest request;
    auto *query = app.add_subcommand("query", "one reading of one device");
    query->add_flag("--json", options.json, "print one JSON document instead of text");
    query->add_option("CARD", request.card, "card id")->required();
    query->add_option("DEVICE", request.device, "device id")->required();
    query->add_option("ITEM", request.item, "what to read (see below)")->required();
    query->add_option("ARG", request.argument, "the reading's own argument, where it has one");
    query->footer(tavoctl::query_list_help());

    CLI11_PARSE(app, argc, argv);
    if (slots->parsed()) {
        return tavoctl::run_slots(options);
    }
    if (board_type->parsed()) {
        return tavoctl::run_board_type(options);
    }
    if (label->parsed()) {
        return tavoctl::run_label(options);
    }
    if (verify->parsed()) {
        return tavoctl::run_verify(options);
    }
    if (mcu->parsed()) {
        return tavoctl::run_mcu(options);
    }
    for (CLI::App *command : control) {
        if (command->parsed()) {
            return tavoctl::run_control(options);
        }
    }
    if (info->parsed()) {
        return tavoctl::run_info(options);
    }
    if (query->parsed()) {
        return tavoctl::run_query(options, request);
    }
    return tavoctl::run_list(options);
}
