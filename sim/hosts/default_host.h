#pragma once

#include <string_view>

namespace tavo::sim {

// The built-in host description: used when no host file is named.
std::string_view default_host_json();

}  // namespace tavo::sim
