// tavoctl's commands; each returns the process exit status.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "output.h"

namespace CLI {
class App;
}

namespace tavoctl {

int run_list(const Options &options);
int run_board_type(const Options &options);
int run_slots(const Options &options);

struct QueryRequest {
    uint32_t card = 0;
    uint32_t device = 0;
    std::string item;
    std::optional<uint32_t> argument;
};

int run_info(const Options &options);
int run_query(const Options &options, const QueryRequest &request);
std::string query_list_help();

// Adds "label get|set|dump|clear" to `app`; run_label runs the one given.
CLI::App *add_label_command(CLI::App &app, Options &options);
int run_label(const Options &options);

// Adds "mcu info|upgrade|log|check-i2c|boot-area" to `app`; run_mcu runs the one given.
CLI::App *add_mcu_command(CLI::App &app, Options &options);
int run_mcu(const Options &options);

// Adds "reset", "hot-reset", "set" and "config" to `app`; run_control runs the one given.
std::vector<CLI::App *> add_control_commands(CLI::App &app, Options &options);
int run_control(const Options &options);

// Adds "verify PACKAGE"; run_verify checks the package given.
CLI::App *add_verify_command(CLI::App &app, Options &options);
int run_verify(const Options &options);

}  // namespace tavoctl
