// tavo-sim: runs a command on a simulated host. See docs/simulated-host.md.
#include "arguments.h"
#include "child.h"
#include "exit_status.h"
#include "host_files.h"
#include "namespace.h"
#include "world.h"

#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace tavo::sim;

// Everything that happens inside the namespace, after the launcher handed over.
int build_host_and_run(const RunOptions &run, gchar **user_environment) {
    std::string error;
    HostDescription host;
    std::vector<HostFile> files;
    if (!load_host_description(run.host_file, host, error) || !host_files(host, files, error) ||
        !prepare_run_dir(error) || !write_host_files(files, error)) {
        return host_failure(error);
    }
    if (!host.builtin_text.empty() &&
        !write_host_files({HostFile{*host.path, host.builtin_text}}, error)) {
        return host_failure(error);
    }
    g_autoptr(UMockdevTestbed) testbed = create_testbed();
    World world{testbed, host.json, host.name};
    if (!attach_emulators(world, error)) {
        return host_failure(error);
    }
    g_autofree gchar *root = umockdev_testbed_get_root_dir(testbed);
    g_auto(GStrv) environment = child_environment(user_environment, {root, host.path});
    return run_command(run.command, environment);
}

int run_inside(std::span<const std::string> args) {
    std::string error;
    Handoff handoff;
    RunOptions run;
    if (!parse_inside_arguments(args, handoff, run, error) || !complete_handoff(handoff, error)) {
        return host_failure(error);
    }
    // Taken before tavo-sim changes its own environment for the testbed.
    g_auto(GStrv) user_environment = g_get_environ();
    return build_host_and_run(run, user_environment);
}

int run_outside(std::span<const std::string> args) {
    std::string error;
    Arguments parsed;
    if (!parse_arguments(args, parsed, error)) {
        return host_failure(error + " (see tavo-sim --help)");
    }
    if (parsed.help) {
        std::fwrite(usage_text().data(), 1, usage_text().size(), stdout);
        return 0;
    }
    return run_in_private_namespace(std::move(parsed.run));
}

}  // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (!args.empty() && args[0] == kInsideMarker) {
        return run_inside(args);
    }
    return run_outside(args);
}
