#pragma once

#include "world.h"

#include <string>

namespace tavo::sim {

// The emulated BMC of the host description's "ipmi" section on /dev/ipmi0, each request
// appended as a JSON line to kRunDir/ipmi/requests.jsonl. Without the section there is no
// IPMI device. See docs/emulated-ipmi.md.
bool attach_ipmi(World &world, std::string &error);

}  // namespace tavo::sim
