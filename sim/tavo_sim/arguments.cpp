#include "arguments.h"

#include <charconv>

namespace tavo::sim {

namespace {

constexpr std::string_view kHostOption = "--host";

bool is_help(std::string_view arg) {
    return arg == "--help" || arg == "-h";
}

bool set_host(RunOptions &run, std::string_view value, std::string &error) {
    if (run.host_file) {
        error = "--host given more than once";
        return false;
    }
    if (value.empty()) {
        error = "--host needs a file name";
        return false;
    }
    run.host_file = std::string(value);
    return true;
}

// Parses the options that follow "run"; stops at "--" or at the first word of the command.
bool parse_run_options(std::span<const std::string> args, Arguments &out, std::string &error) {
    size_t i = 0;
    for (; i < args.size(); ++i) {
        std::string_view arg = args[i];
        if (arg == "--") {
            ++i;
            break;
        }
        if (is_help(arg)) {
            out.help = true;
            return true;
        }
        if (arg == kHostOption) {
            if (i + 1 == args.size()) {
                error = "--host needs a file name";
                return false;
            }
            if (!set_host(out.run, args[++i], error)) {
                return false;
            }
            continue;
        }
        if (arg.starts_with("--host=")) {
            if (!set_host(out.run, arg.substr(kHostOption.size() + 1), error)) {
                return false;
            }
            continue;
        }
        if (arg.starts_with("-")) {
            error = "unknown option '" + std::string(arg) + "'";
            return false;
        }
        break;
    }
    out.run.command.assign(args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
    if (out.run.command.empty()) {
        error = "run: no command given";
        return false;
    }
    return true;
}

bool parse_fd(std::string_view text, int &fd) {
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), fd);
    return ec == std::errc() && end == text.data() + text.size() && fd >= 0;
}

}  // namespace

bool parse_arguments(std::span<const std::string> args, Arguments &out, std::string &error) {
    if (args.empty()) {
        error = "no command given";
        return false;
    }
    if (is_help(args[0])) {
        out.help = true;
        return true;
    }
    if (args[0] != "run") {
        error = "unknown command '" + args[0] + "'";
        return false;
    }
    return parse_run_options(args.subspan(1), out, error);
}

bool parse_inside_arguments(std::span<const std::string> args, Handoff &handoff, RunOptions &run,
                            std::string &error) {
    if (args.size() < 3 || args[0] != kInsideMarker || !parse_fd(args[1], handoff.ready_fd) ||
        !parse_fd(args[2], handoff.stderr_fd)) {
        error = "malformed internal arguments";
        return false;
    }
    Arguments parsed;
    if (!parse_arguments(args.subspan(3), parsed, error)) {
        return false;
    }
    run = std::move(parsed.run);
    return true;
}

std::vector<std::string> inside_arguments(const Handoff &handoff, const RunOptions &run) {
    std::vector<std::string> args{std::string(kInsideMarker), std::to_string(handoff.ready_fd),
                                  std::to_string(handoff.stderr_fd), "run"};
    if (run.host_file) {
        args.insert(args.end(), {std::string(kHostOption), *run.host_file});
    }
    args.emplace_back("--");
    args.insert(args.end(), run.command.begin(), run.command.end());
    return args;
}

std::string_view usage_text() {
    return R"(Usage: tavo-sim run [--host FILE] -- COMMAND [ARGS...]
       tavo-sim --help

Runs COMMAND on a simulated host: a private mount namespace with fresh, empty
/run, /tmp, /var/log and /etc/usr; the board files listed in the host
description FILE (default: the built-in host); and a umockdev testbed that
COMMAND sees through LD_PRELOAD. Nothing written to those directories reaches
the real machine.

Options:
  --host FILE   host description (JSON); its "files" object maps absolute paths
                under /run, /etc/usr, /tmp or /var/log to file contents
  -h, --help    show this help

Exit status: that of COMMAND; 128+N if COMMAND was killed by signal N;
126 if COMMAND could not be run, 127 if it was not found; 125 if the
simulated host could not be built.
)";
}

}  // namespace tavo::sim
