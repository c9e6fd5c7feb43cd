#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tavo::test {

struct CommandResult {
    int status = -1;  // exit status; -1 when it did not exit normally
    std::string out;
    std::string err;
};

// Runs `argv` (argv[0] a path) with the test's environment, its standard output and
// error captured through files in `scratch`.
CommandResult run_command(const std::vector<std::string> &argv,
                          const std::filesystem::path &scratch);

}  // namespace tavo::test
