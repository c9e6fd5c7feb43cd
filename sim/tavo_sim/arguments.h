#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::sim {

struct RunOptions {
    std::optional<std::string> host_file;
    std::vector<std::string> command;
};

struct Arguments {
    bool help = false;
    RunOptions run;
};

// The descriptors the launcher hands to the copy of tavo-sim running inside the namespace.
struct Handoff {
    int ready_fd = -1;   // one byte written here tells the launcher the namespace is up
    int stderr_fd = -1;  // the user's stderr; until then stderr is the launcher's capture pipe
};

inline constexpr std::string_view kInsideMarker = "--tavo-sim-inside";

// Parses the arguments after the program name. False with `error` set on a usage mistake.
bool parse_arguments(std::span<const std::string> args, Arguments &out, std::string &error);

// Parses "--tavo-sim-inside READY_FD STDERR_FD run ...", as built by inside_arguments().
bool parse_inside_arguments(std::span<const std::string> args, Handoff &handoff, RunOptions &run,
                            std::string &error);

// The arguments that make the re-executed tavo-sim continue inside the namespace.
std::vector<std::string> inside_arguments(const Handoff &handoff, const RunOptions &run);

std::string_view usage_text();

}  // namespace tavo::sim
