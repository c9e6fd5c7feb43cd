#include "run_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <stdexcept>

#include "log_reader.h"

extern char **environ;

namespace tavo::test {

CommandResult run_command(const std::vector<std::string> &argv,
                          const std::filesystem::path &scratch) {
    std::vector<std::string> words = argv;
    std::vector<char *> pointers;
    for (std::string &w : words) {
        pointers.push_back(w.data());
    }
    pointers.push_back(nullptr);
    const std::filesystem::path out = scratch / "command.out";
    const std::filesystem::path err = scratch / "command.err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int wait_status = 0;
    if (spawned != 0 || ::waitpid(pid, &wait_status, 0) != pid) {
        throw std::runtime_error("cannot run " + argv.at(0));
    }
    CommandResult result;
    result.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
    result.out = read_file(out);
    result.err = read_file(err);
    return result;
}

}  // namespace tavo::test
