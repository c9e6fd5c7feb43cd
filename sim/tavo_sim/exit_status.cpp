#include "exit_status.h"

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace tavo::sim {

int host_failure(std::string_view reason) {
    std::string line(reason);
    for (char &c : line) {
        if (c == '\n') {
            c = ' ';
        }
    }
    std::fprintf(stderr, "tavo-sim: %s\n", line.c_str());
    return kExitHostFailure;
}

int exit_status_from_wait(int wait_status) {
    if (WIFEXITED(wait_status)) {
        return WEXITSTATUS(wait_status);
    }
    if (WIFSIGNALED(wait_status)) {
        return 128 + WTERMSIG(wait_status);
    }
    return kExitHostFailure;
}

}  // namespace tavo::sim
