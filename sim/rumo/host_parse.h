// Loading a host description (JSON) into a Host.
#pragma once

#include "host_model.h"
#include "json_read.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace tavo::sim {

// A description that cannot be used. what() is one line:
// "<source>: <JSON path>: <problem>", the source being the file name, "<text>"
// or "<default>".
class HostError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Checks and converts a parsed description; throws DescriptionError.
Host parse_host(const json &root);

Host load_host_text(std::string_view text, std::string_view source = "<text>");
Host load_host_file(const std::string &path);
Host load_default_host();

}  // namespace tavo::sim
