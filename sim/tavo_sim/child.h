#pragma once

#include <glib.h>

#include <optional>
#include <string>
#include <vector>

namespace tavo::sim {

struct ChildSettings {
    std::string testbed_root;
    std::optional<std::string> host_path;
};

// The command's environment: the user's, plus the umockdev preload and the simulated host's
// variables. Returns a new NULL-terminated list (free with g_strfreev).
gchar **child_environment(gchar **user_environment, const ChildSettings &settings);

// Runs `command` with `environment`, serving the default GLib main context until it exits.
// Returns its exit status (128+N for signal N; 126/127 if it could not be started).
int run_command(const std::vector<std::string> &command, gchar **environment);

}  // namespace tavo::sim
