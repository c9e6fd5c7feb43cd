#pragma once

#include <string_view>

namespace tavo::sim {

// Exit statuses of tavo-sim itself; every other status is the command's.
inline constexpr int kExitHostFailure = 125;  // the simulated host could not be built
inline constexpr int kExitCannotRun = 126;    // the command exists but could not be run
inline constexpr int kExitNotFound = 127;     // the command was not found

// Prints "tavo-sim: REASON" as one line on stderr and returns kExitHostFailure.
int host_failure(std::string_view reason);

// The status a shell would report for a waitpid() status: the exit code, or 128+N for signal N.
int exit_status_from_wait(int wait_status);

}  // namespace tavo::sim
