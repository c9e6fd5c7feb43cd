// Test entry point. A test that needs the simulated host refuses to run outside it
// rather than touching the real machine's /var/log, /run and /tmp.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

bool env_is(const char *name, std::string_view value) {
    const char *v = std::getenv(name);
    return v != nullptr && value == v;
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (TAVO_TEST_REQUIRES_SANDBOX && !env_is("TAVO_SIM_ACTIVE", "1")) {
        std::fprintf(stderr, "%s: not inside the simulated host; run it with tavo-sim run --\n",
                     argv[0]);
        return 1;
    }
    return RUN_ALL_TESTS();
}
