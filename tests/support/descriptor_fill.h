#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <vector>

#include "base/unique_fd.h"

namespace tavo::test {

// Holds every free descriptor below `next`, so that the next open() returns `next`.
// PCI configuration writes go to the descriptor numbered like the length of the path
// they opened, so their tests line the descriptors up with this.
class DescriptorFill {
  public:
    explicit DescriptorFill(int next) {
        while (lowest_free_descriptor() < next) {
            held_.emplace_back(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        }
    }

  private:
    static int lowest_free_descriptor() {
        int probe = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(probe);
        return probe;
    }

    std::vector<base::UniqueFd> held_;
};

}  // namespace tavo::test
