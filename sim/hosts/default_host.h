#pragma once

#include <string_view>

namespace tavo::sim {

// The built-in host description: used when no host file is named.
std::string_view default_host_json();
// A built-in host by name ("default", "camera"); empty for an unknown name.
std::string_view builtin_host_json(std::string_view name);

}  // namespace tavo::sim
