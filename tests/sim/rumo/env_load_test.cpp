// Loading at first use from TAVO_SIM_HOST, seen from a fresh process.
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

extern char **environ;

namespace {

struct ProbeOutput {
    std::string out;
    std::string err;
};

std::string read_all(const std::string &path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Runs the probe with TAVO_SIM_HOST set to `host`, or unset.
ProbeOutput run_probe(const tavo::test::TempDir &dir, const std::optional<std::string> &host) {
    std::vector<std::string> env_text;
    for (char **e = environ; *e != nullptr; ++e) {
        if (!std::string(*e).starts_with("TAVO_SIM_HOST=")) {
            env_text.emplace_back(*e);
        }
    }
    if (host) {
        env_text.push_back("TAVO_SIM_HOST=" + *host);
    }
    std::vector<char *> envp;
    for (std::string &e : env_text) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);

    std::string out = dir.path() + "/probe.out";
    std::string err = dir.path() + "/probe.err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::string probe = RUMO_ENV_PROBE;
    char *argv[] = {probe.data(), nullptr};
    pid_t pid = 0;
    int spawned = posix_spawn(&pid, probe.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << probe;
        return {};
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return {read_all(out), read_all(err)};
}

TEST(FirstUse, LoadsTheFileNamedByTheEnvironment) {
    tavo::test::TempDir dir;
    std::string host = dir.write("host.json", R"({"cards": [{"chips": [{}]}]})");
    ProbeOutput probe = run_probe(dir, host);
    EXPECT_EQ(probe.out, "ret=0 count=1\nret=0 count=1\n");
    EXPECT_EQ(probe.err, "");
}

TEST(FirstUse, LoadsTheDefaultWithoutTheVariable) {
    tavo::test::TempDir dir;
    EXPECT_EQ(run_probe(dir, std::nullopt).out, "ret=0 count=4\nret=0 count=4\n");
    EXPECT_EQ(run_probe(dir, "").out, "ret=0 count=4\nret=0 count=4\n");
}

TEST(FirstUse, BadFileFailsEveryCallAndIsReportedOnce) {
    tavo::test::TempDir dir;
    std::string bad = dir.write("bad.json", R"({"cards": [{"chips": [{"temperature": true}]}]})");
    std::string missing = dir.path() + "/absent.json";
    struct Case {
        std::string host;
        std::string err;
    };
    for (const Case &c : {Case{bad, bad + ": cards[0].chips[0].temperature: expected an integer\n"},
                          Case{missing, missing + ": cannot read: No such file or directory\n"}}) {
        ProbeOutput probe = run_probe(dir, c.host);
        EXPECT_EQ(probe.out, "ret=5 count=-1\nret=5 count=-1\n");
        EXPECT_EQ(probe.err, c.err);
    }
}

}  // namespace
