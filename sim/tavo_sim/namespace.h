#pragma once

#include "arguments.h"

#include <string>

namespace tavo::sim {

// Re-executes tavo-sim inside a private mount namespace built by bwrap and waits for it.
// Returns the inner tavo-sim's exit status, or 125 if the namespace could not be built.
int run_in_private_namespace(RunOptions run);

// Inside the namespace: gives stderr back to the user and tells the launcher that the
// namespace is up, so that later failures are reported by tavo-sim itself.
bool complete_handoff(const Handoff &handoff, std::string &error);

}  // namespace tavo::sim
