#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

extern char **environ;

namespace tavo::test {

ChildProcess::ChildProcess(const std::vector<std::string> &argv) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return;
    }
    base::UniqueFd read_end(fds[0]);
    base::UniqueFd write_end(fds[1]);
    std::vector<char *> args;
    for (const std::string &a : argv) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, write_end.get(), STDOUT_FILENO);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned == 0) {
        pid_ = pid;
        out_ = std::move(read_end);
    }
}

ChildProcess::ChildProcess(ChildProcess &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), out_(std::move(other.out_)) {}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        (void)wait();
    }
}

std::string ChildProcess::read_line() {
    std::string line;
    char c = 0;
    while (out_ && ::read(out_.get(), &c, 1) == 1 && c != '\n') {
        line.push_back(c);
    }
    return line;
}

int ChildProcess::wait(std::string *rest) {
    char buffer[256];
    ssize_t n = 0;
    while (out_ && (n = ::read(out_.get(), buffer, sizeof buffer)) > 0) {
        if (rest != nullptr) {
            rest->append(buffer, static_cast<std::size_t>(n));
        }
    }
    out_.reset();
    int status = 0;
    pid_t pid = std::exchange(pid_, -1);
    if (pid <= 0 || ::waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace tavo::test
