// A umockdev testbed of a test's own, in the simulated host's private /tmp. While it
// lives, UMOCKDEV_DIR (which the preload follows) points at it; the previous value comes
// back when it goes.
#pragma once

#include <umockdev.h>

#include <optional>
#include <string>

namespace tavo::test {

class ScopedTestbed {
  public:
    // `owner` names the world in failure messages.
    explicit ScopedTestbed(std::string owner);
    ~ScopedTestbed();
    ScopedTestbed(const ScopedTestbed &) = delete;
    ScopedTestbed &operator=(const ScopedTestbed &) = delete;

    UMockdevTestbed *get() const { return testbed_; }
    const std::string &root() const { return root_; }
    // Reports a world that cannot be built as a test failure and stops the test.
    [[noreturn]] void fail(const std::string &problem) const;

  private:
    std::string owner_;
    std::optional<std::string> previous_dir_;
    UMockdevTestbed *testbed_ = nullptr;
    std::string root_;
};

}  // namespace tavo::test
