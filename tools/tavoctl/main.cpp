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
    for (auto *sub : {list, board_type}) {
        sub->add_flag("--json", options.json, "print one JSON document instead of tables");
    }

    CLI11_PARSE(app, argc, argv);
    if (board_type->parsed()) {
        return tavoctl::run_board_type(options);
    }
    return tavoctl::run_list(options);
}
