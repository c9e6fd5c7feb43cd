#include "namespace.h"

#include "base/unique_fd.h"
#include "exit_status.h"
#include "host_files.h"
#include "private_dirs.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

namespace tavo::sim {

namespace {

using tavo::base::UniqueFd;

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

void add(Args &args, std::initializer_list<std::string> words) {
    args.insert(args.end(), words);
}

// Mirrors the entries of the real directory `dir` (except `skip`) into the sandbox, where
// `dir` itself is a tmpfs: a mount point missing from the real machine is then only created
// in that tmpfs.
void mirror_entries(Args &args, const fs::path &dir, const std::set<std::string> &skip) {
    std::error_code ec;
    for (const fs::directory_entry &entry : fs::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename();
        if (skip.contains(name)) {
            continue;
        }
        if (entry.is_symlink(ec)) {
            const fs::path target = fs::read_symlink(entry.path(), ec);
            if (!ec) {
                add(args, {"--symlink", target, entry.path()});
            }
        } else {
            add(args, {"--bind-try", entry.path(), entry.path()});
        }
    }
}

// A work tree that lives below a private directory (a checkout in /tmp, say) stays
// reachable at its own path inside; the rest of that directory is still fresh.
void keep_work_trees(Args &args, std::initializer_list<std::string_view> paths) {
    std::set<std::string> roots;
    for (std::string_view path : paths) {
        std::string_view root = private_tree_root(path);
        if (!root.empty() && roots.insert(std::string(root)).second) {
            add(args, {"--bind", std::string(root), std::string(root)});
        }
    }
}

Args bwrap_arguments(const std::optional<std::string> &host_path, const std::string &cwd,
                     const std::string &self) {
    Args args{"bwrap", "--die-with-parent"};
    if (::geteuid() != 0) {
        args.emplace_back("--unshare-user");
    }
    mirror_entries(args, "/", {"dev", "proc", "sys", "etc", "var", "run", "tmp"});
    add(args, {"--dev-bind", "/dev", "/dev", "--bind", "/proc", "/proc"});
    add(args, {"--bind-try", "/sys", "/sys"});
    add(args, {"--tmpfs", "/etc"});
    mirror_entries(args, "/etc", {"usr"});
    add(args, {"--tmpfs", "/var"});
    mirror_entries(args, "/var", {"log"});
    add(args, {"--tmpfs", "/etc/usr", "--tmpfs", "/var/log", "--tmpfs", "/run"});
    add(args, {"--perms", "01777", "--tmpfs", "/tmp"});
    keep_work_trees(args, {cwd, self});
    if (host_path && is_in_private_dir(*host_path)) {
        add(args, {"--ro-bind", *host_path, *host_path});
    }
    add(args, {"--chdir", cwd});
    return args;
}

bool working_directory(std::string &cwd, std::string &error) {
    std::error_code ec;
    cwd = fs::current_path(ec);
    if (ec) {
        error = "cannot find the working directory: " + ec.message();
        return false;
    }
    if (is_in_private_dir(cwd) && private_tree_root(cwd).empty()) {
        error = "the working directory " + cwd +
                " would be hidden by the simulated host's private directories; run from elsewhere";
        return false;
    }
    return true;
}

struct Pipe {
    UniqueFd read;
    UniqueFd write;
};

bool make_pipe(Pipe &p, std::string &error) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        error = std::string("cannot create a pipe: ") + std::strerror(errno);
        return false;
    }
    p.read.reset(fds[0]);
    p.write.reset(fds[1]);
    return true;
}

[[noreturn]] void exec_bwrap(const Args &args, int messages_fd, const Handoff &handoff) {
    std::vector<char *> argv;
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str()));
    }
    argv.push_back(nullptr);
    ::fcntl(handoff.ready_fd, F_SETFD, 0);
    ::fcntl(handoff.stderr_fd, F_SETFD, 0);
    ::dup2(messages_fd, STDERR_FILENO);
    ::execvp(argv[0], argv.data());
    std::fprintf(stderr, "cannot run bwrap (bubblewrap): %s\n", std::strerror(errno));
    _exit(kExitHostFailure);
}

bool read_ready_byte(int fd) {
    char byte = 0;
    ssize_t n;
    do {
        n = ::read(fd, &byte, 1);
    } while (n < 0 && errno == EINTR);
    return n == 1;
}

// Reads `fd` to its end; with `forward`, copies everything to stderr instead of keeping it.
std::string drain(int fd, bool forward) {
    std::string text;
    char buffer[4096];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return text;
        }
        if (forward) {
            (void)!::write(STDERR_FILENO, buffer, static_cast<size_t>(n));
        } else {
            text.append(buffer, static_cast<size_t>(n));
        }
    }
}

int wait_for(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return kExitHostFailure;
        }
    }
    return exit_status_from_wait(status);
}

std::string one_line(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at)) {
        text.replace(at, 1, "; ");
    }
    return text;
}

// A started bwrap, and the read ends of its two pipes.
struct Launch {
    pid_t pid = -1;
    UniqueFd ready;     // gets one byte once the inner tavo-sim runs
    UniqueFd messages;  // bwrap's stderr
};

bool start_bwrap(Args args, const std::string &self, const RunOptions &run, Launch &launch,
                 std::string &error) {
    Pipe ready, messages;
    if (!make_pipe(ready, error) || !make_pipe(messages, error)) {
        return false;
    }
    UniqueFd user_stderr(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    if (!user_stderr) {
        error = std::string("cannot duplicate stderr: ") + std::strerror(errno);
        return false;
    }
    const Handoff handoff{ready.write.get(), user_stderr.get()};
    args.push_back(self);
    for (std::string &arg : inside_arguments(handoff, run)) {
        args.push_back(std::move(arg));
    }
    launch.pid = ::fork();
    if (launch.pid < 0) {
        error = std::string("cannot fork: ") + std::strerror(errno);
        return false;
    }
    if (launch.pid == 0) {
        exec_bwrap(args, messages.write.get(), handoff);
    }
    launch.ready = std::move(ready.read);
    launch.messages = std::move(messages.read);
    return true;
}

// Before the handover, whatever bwrap (or the inner tavo-sim) printed is the reason it failed.
int wait_for_bwrap(Launch &launch) {
    if (!read_ready_byte(launch.ready.get())) {
        const std::string text = one_line(drain(launch.messages.get(), false));
        const int status = wait_for(launch.pid);
        return host_failure(
            "cannot build the private host: " +
            (text.empty() ? "bwrap exited with status " + std::to_string(status) : text));
    }
    drain(launch.messages.get(), true);
    return wait_for(launch.pid);
}

}  // namespace

int run_in_private_namespace(RunOptions run) {
    std::string error, cwd;
    if (run.host_file && !is_builtin_host(*run.host_file) &&
        !resolve_host_path(*run.host_file, error)) {
        return host_failure(error);
    }
    if (!working_directory(cwd, error)) {
        return host_failure(error);
    }
    std::error_code ec;
    const std::string self = fs::read_symlink("/proc/self/exe", ec);
    if (ec) {
        return host_failure("cannot find the tavo-sim executable: " + ec.message());
    }
    // ^C and ^\ reach the command through the terminal's process group; tavo-sim and bwrap
    // wait for it to end instead of dying first and taking it down with them.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    Launch launch;
    if (!start_bwrap(bwrap_arguments(run.host_file, cwd, self), self, run, launch, error)) {
        return host_failure(error);
    }
    return wait_for_bwrap(launch);
}

bool complete_handoff(const Handoff &handoff, std::string &error) {
    UniqueFd ready(handoff.ready_fd);
    UniqueFd user_stderr(handoff.stderr_fd);
    if (::dup2(user_stderr.get(), STDERR_FILENO) < 0) {
        error = std::string("cannot restore stderr: ") + std::strerror(errno);
        return false;
    }
    const char byte = 1;
    if (::write(ready.get(), &byte, 1) != 1) {
        error = std::string("cannot reach the launcher: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace tavo::sim
