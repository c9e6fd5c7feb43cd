// A helper process started by a test, with its standard output on a pipe.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace tavo::test {

class ChildProcess {
  public:
    // Starts `argv` with the test's environment, so the child shares its simulated
    // host. running() is false when it could not be started.
    explicit ChildProcess(const std::vector<std::string> &argv);
    ~ChildProcess();
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&) = delete;
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    bool running() const { return pid_ > 0; }
    // The next line of output without its newline; "" at the end of the output.
    std::string read_line();
    // Waits for the child; its exit status (128 + N for signal N), the rest of its
    // output in `rest`.
    int wait(std::string *rest = nullptr);

  private:
    pid_t pid_ = -1;
    base::UniqueFd out_;
};

}  // namespace tavo::test
