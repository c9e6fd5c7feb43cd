// Runs the tavo-sim executable on small shell commands and checks what its users rely on.
#include "default_host.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kHostFailure = 125;
const std::string kPreload = "libumockdev-preload.so.0";

struct Result {
    int status = -1;  // exit code, or 128+N for signal N
    std::string out;
    std::string err;
};

using EnvChanges = std::vector<std::pair<std::string, std::optional<std::string>>>;

std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_file(const fs::path &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::map<std::string, std::string> parse_env(const std::string &text) {
    std::map<std::string, std::string> env;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (auto eq = line.find('='); eq != std::string::npos) {
            env[line.substr(0, eq)] = line.substr(eq + 1);
        }
    }
    return env;
}

size_t line_count(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Runs `words` (argv[0] looked up in PATH) with the test's environment plus `env_changes`.
Result spawn(std::vector<std::string> words, const EnvChanges &env_changes, const fs::path &cwd) {
    std::vector<char *> argv;
    for (std::string &w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);
    g_auto(GStrv) env = g_get_environ();
    env = g_environ_unsetenv(env, "TAVO_SIM_HOST");
    for (const auto &[name, value] : env_changes) {
        env = value ? g_environ_setenv(env, name.c_str(), value->c_str(), TRUE)
                    : g_environ_unsetenv(env, name.c_str());
    }
    g_autofree gchar *out = nullptr;
    g_autofree gchar *err = nullptr;
    g_autoptr(GError) error = nullptr;
    int wait_status = 0;
    if (!g_spawn_sync(cwd.c_str(), argv.data(), env, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out,
                      &err, &wait_status, &error)) {
        ADD_FAILURE() << "cannot run " << words[0] << ": " << error->message;
        return {};
    }
    int status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
    return {status, out, err};
}

class TavoSim : public testing::Test {
  protected:
    void SetUp() override {
        std::string templ = std::string(TAVO_SIM_TEST_SCRATCH) + "/scratch-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        scratch_ = templ;
    }
    void TearDown() override { fs::remove_all(scratch_); }

    // A name no other test run uses, for files written on the simulated host.
    std::string unique(const std::string &stem) const {
        return "tavo-sim-test-" + stem + "-" + std::to_string(::getpid()) + "-" +
               scratch_.filename().string();
    }

    Result run(const std::vector<std::string> &args, const EnvChanges &env_changes = {},
               const std::optional<fs::path> &cwd = std::nullopt,
               const std::vector<std::string> &prefix = {}) const {
        std::vector<std::string> words = prefix;
        words.emplace_back(TAVO_SIM_PATH);
        words.insert(words.end(), args.begin(), args.end());
        return spawn(words, env_changes, cwd.value_or(scratch_));
    }

    Result sh(const std::string &script, const EnvChanges &env_changes = {}) const {
        return run({"run", "--", "sh", "-c", script}, env_changes);
    }

    std::string write_host(const std::string &json) const {
        write_file(scratch_ / "host.json", json);
        return (scratch_ / "host.json").string();
    }

    fs::path scratch_;
};

void expect_host_failure(const Result &r, const std::string &message) {
    EXPECT_EQ(r.status, kHostFailure);
    EXPECT_EQ(line_count(r.err), 1u) << r.err;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
}

TEST_F(TavoSim, ExitStatusIsTheCommands) {
    EXPECT_EQ(sh("exit 0").status, 0);
    EXPECT_EQ(sh("exit 3").status, 3);
    EXPECT_EQ(sh("kill -TERM $$").status, 128 + SIGTERM);

    const Result out = sh("echo to-stdout; echo to-stderr >&2");
    EXPECT_EQ(out.out, "to-stdout\n");
    EXPECT_EQ(out.err, "to-stderr\n");
}

TEST_F(TavoSim, CommandThatCannotStartNeverLooksLikeSuccess) {
    EXPECT_EQ(run({"run", "--", unique("absent-command")}).status, 127);
    write_file(scratch_ / "not-executable", "#!/bin/sh\nexit 0\n");
    fs::permissions(scratch_ / "not-executable", fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(run({"run", "--", "./not-executable"}).status, 126);
}

TEST_F(TavoSim, UsageMistakesAre125) {
    expect_host_failure(run({}), "tavo-sim --help");
    expect_host_failure(run({"run", "--"}), "no command");
    expect_host_failure(run({"run", "--host"}), "--host");
    expect_host_failure(run({"run", "--bogus", "--", "true"}), "--bogus");
    expect_host_failure(run({"start", "--", "true"}), "start");

    const Result help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("tavo-sim run [--host FILE] -- COMMAND"), std::string::npos);
}

TEST_F(TavoSim, BadHostDescriptionIs125AndTheCommandDoesNotRun) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"files": )", "invalid JSON"},
        {R"([1, 2])", "must be a JSON object"},
        {R"({"files": ["/run/a"]})", "files: must be an object"},
        {R"({"files": {"/run/a": 7}})", R"(the content of "/run/a" must be a string)"},
        {R"({"files": {"/etc/passwd": "x"}})", R"(path "/etc/passwd" is outside the private host)"},
        {R"({"files": {"/runx/a": "x"}})", "is outside the private host"},
        {R"({"files": {"/run/ok": "", "/tmp": "x"}})", "is outside the private host"},
        {R"({"files": {"/run/../etc/a": "x"}})", "not an absolute, normalised file path"},
    };
    for (const auto &[json, message] : cases) {
        SCOPED_TRACE(json);
        const std::string host = write_host(json);
        const Result r = run({"run", "--host", host, "--", "touch", "command-ran"});
        expect_host_failure(r, host + ": ");
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(scratch_ / "command-ran"));
    }
    expect_host_failure(run({"run", "--host", "absent.json", "--", "true"}), "absent.json");
}

TEST_F(TavoSim, HostFilesAppearWithTheirExactContent) {
    const std::string run_file = "/run/" + unique("dir") + "/board_cfg.ini";
    const std::map<std::string, std::string> files = {
        {run_file, "[board]\nslots = 4\n"},
        {"/etc/usr/minid_not_present", ""},
        {"/tmp/a/b/c.txt", "tab\there \"quoted\" \xc3\xa9\n\nlast line without newline"},
        {"/var/log/" + unique("log"), std::string(5000, 'x')},
    };
    nlohmann::json host = {{"other", {{"ignored", {1, 2}}}}, {"files", files}};
    std::string copy_all;
    int n = 0;
    for (const auto &entry : files) {
        copy_all += "cp " + entry.first + " " + (scratch_ / std::to_string(n++)).string() + " && ";
    }
    ASSERT_EQ(
        run({"run", "--host", write_host(host.dump()), "--", "sh", "-c", copy_all + "true"}).status,
        0);
    n = 0;
    for (const auto &[path, content] : files) {
        SCOPED_TRACE(path);
        EXPECT_EQ(read_file(scratch_ / std::to_string(n++)), content);
    }
    EXPECT_FALSE(fs::exists(fs::path(run_file).parent_path()));
}

TEST_F(TavoSim, WithoutHostFileTheBuiltInDefaultHostIsUsed) {
    const auto files = nlohmann::json::parse(tavo::sim::default_host_json())
                           .value("files", nlohmann::json::object());
    std::string copy_all;
    int n = 0;
    for (const auto &entry : files.items()) {
        copy_all += "cp " + entry.key() + " " + (scratch_ / std::to_string(n++)).string() + " && ";
    }
    ASSERT_EQ(sh(copy_all + "true").status, 0);
    n = 0;
    for (const auto &entry : files.items()) {
        SCOPED_TRACE(entry.key());
        EXPECT_EQ(read_file(scratch_ / std::to_string(n++)), entry.value().get<std::string>());
    }
}

TEST_F(TavoSim, PrivateDirectoriesStartEmptyAndNeverReachTheRealMachine) {
    const bool real_etc_usr = fs::exists("/etc/usr");
    const std::string name = unique("private");
    const std::vector<std::string> dirs = {"/run", "/tmp", "/var/log", "/etc/usr"};

    const std::string host = write_host("{}");
    // A build tree below /tmp is kept reachable inside; everything else there is fresh.
    const fs::path sim_path(TAVO_SIM_PATH);
    const std::string filter =
        sim_path.string().starts_with("/tmp/")
            ? " | grep -v -x '" + std::next(sim_path.begin(), 2)->string() + "'"
            : "";
    const Result listing = run(
        {"run", "--host", host, "--", "sh", "-c", "ls -A /run /tmp /var/log /etc/usr" + filter});
    ASSERT_EQ(listing.status, 0) << listing.err;
    std::string expected_tmp = listing.out.substr(listing.out.find("/tmp:\n") + 6);
    expected_tmp = expected_tmp.substr(0, expected_tmp.find('\n'));
    EXPECT_TRUE(expected_tmp.starts_with("umockdev.")) << listing.out;
    EXPECT_EQ(listing.out,
              "/etc/usr:\n\n/run:\ntavo-sim\n\n/tmp:\n" + expected_tmp + "\n\n/var/log:\n");

    std::string writes;
    for (const std::string &dir : dirs) {
        writes += "mkdir " + dir + "/" + name + " && echo x > " + dir + "/" + name + "/f && ";
    }
    EXPECT_EQ(run({"run", "--host", host, "--", "sh", "-c", writes + "true"}).status, 0);
    for (const std::string &dir : dirs) {
        EXPECT_FALSE(fs::exists(dir + "/" + name)) << dir;
    }
    EXPECT_EQ(fs::exists("/etc/usr"), real_etc_usr);
}

TEST_F(TavoSim, CommandEnvironmentDescribesTheSimulatedHost) {
    const std::string absent_lib = unique("absent") + ".so";
    const EnvChanges caller = {{"LD_PRELOAD", absent_lib},
                               {"ASAN_OPTIONS", "abort_on_error=0"},
                               {"TAVO_SIM_HOST", "/stale/host.json"},
                               {"PATH", "/usr/bin:/bin"},
                               {"TAVO_SIM_TEST_MARK", "kept"}};
    const Result r = sh("env; ls -A /run/tavo-sim/bin", caller);
    ASSERT_EQ(r.status, 0) << r.err;
    auto env = parse_env(r.out);
    EXPECT_EQ(env["LD_PRELOAD"], kPreload + ":" + absent_lib);
    EXPECT_EQ(env["ASAN_OPTIONS"], "abort_on_error=0:verify_asan_link_order=0");
    EXPECT_EQ(env["TAVO_SIM_ACTIVE"], "1");
    EXPECT_EQ(env.count("TAVO_SIM_HOST"), 0u);
    EXPECT_EQ(env["PATH"], "/run/tavo-sim/bin:/usr/bin:/bin");
    EXPECT_EQ(env["TAVO_SIM_TEST_MARK"], "kept");
    EXPECT_TRUE(env["UMOCKDEV_DIR"].starts_with("/tmp/umockdev.")) << env["UMOCKDEV_DIR"];
    EXPECT_FALSE(r.out.ends_with("\n\n"));  // nothing listed in the empty bin directory

    const Result bare = sh("echo \"$LD_PRELOAD|$ASAN_OPTIONS\"",
                           {{"LD_PRELOAD", std::nullopt}, {"ASAN_OPTIONS", std::nullopt}});
    EXPECT_EQ(bare.out, kPreload + "|verify_asan_link_order=0\n");
}

TEST_F(TavoSim, HostFileIsNamedByItsAbsolutePathAndReadableInside) {
    write_host(R"({"files": {}})");
    const Result relative =
        run({"run", "--host", "host.json", "--", "sh", "-c", "echo $TAVO_SIM_HOST"});
    EXPECT_EQ(relative.out, fs::canonical(scratch_ / "host.json").string() + "\n");

    // A host file in the real /tmp is still there inside, though /tmp is fresh.
    std::string templ = "/tmp/tavo-sim-test-XXXXXX";
    ASSERT_NE(::mkdtemp(templ.data()), nullptr);
    const std::string host = templ + "/host.json";
    write_file(host, R"({"files": {"/run/from-tmp": "yes"}})");
    const Result r = run({"run", "--host", host, "--", "sh", "-c",
                          "cat /run/from-tmp; echo; cat \"$TAVO_SIM_HOST\"; ls -A " + templ});
    fs::remove_all(templ);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "yes\n{\"files\": {\"/run/from-tmp\": \"yes\"}}host.json\n");
}

TEST_F(TavoSim, PreloadShowsTheTestbedAsSysButTavoSimRunsWithoutIt) {
    const std::string probe = unique("probe");
    // A host without boards, so that the probe is the testbed's only device.
    const std::string script = "mkdir -p \"$UMOCKDEV_DIR/sys/devices/" + probe +
                               "\" && ls /sys/devices && grep -c libumockdev-preload "
                               "/proc/$PPID/maps; grep -q libumockdev-preload /proc/self/maps "
                               "&& echo preloaded";
    const Result r = run({"run", "--host", write_host("{}"), "--", "sh", "-c", script});
    EXPECT_EQ(r.out, probe + "\n0\npreloaded\n") << r.err;
    EXPECT_FALSE(fs::exists("/sys/devices/" + probe));
}

TEST_F(TavoSim, WorkingDirectoryIsPreserved) {
    write_file(scratch_ / "script.sh", "#!/bin/sh\npwd -P\n");
    fs::permissions(scratch_ / "script.sh", fs::perms::owner_all);
    const Result r = run({"run", "--", "./script.sh"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, fs::canonical(scratch_).string() + "\n");

    expect_host_failure(run({"run", "--", "true"}, {}, "/tmp"), "working directory /tmp");

    // A work tree below a private directory stays reachable at its own path.
    std::string tree = "/tmp/tavo-sim-tree-XXXXXX";
    ASSERT_NE(::mkdtemp(tree.data()), nullptr);
    fs::copy_file(scratch_ / "script.sh", tree + "/script.sh");
    const Result in_tmp = run({"run", "--", "./script.sh"}, {}, tree);
    fs::remove_all(tree);
    EXPECT_EQ(in_tmp.status, 0) << in_tmp.err;
    EXPECT_EQ(in_tmp.out, tree + "\n");
}

TEST_F(TavoSim, MissingBubblewrapIs125) {
    expect_host_failure(run({"run", "--", "true"}, {{"PATH", scratch_.string()}}), "bwrap");
}

TEST_F(TavoSim, WorksForAnUnprivilegedUser) {
    if (::geteuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0) {
        GTEST_SKIP() << "needs root and setpriv to switch to an unprivileged user";
    }
    const std::vector<std::string> as_nobody = {"setpriv", "--reuid=65534", "--regid=65534",
                                                "--clear-groups"};
    const fs::path cwd = TAVO_SIM_TEST_SCRATCH;
    if (run({"--help"}, {}, cwd, as_nobody).status != 0) {
        GTEST_SKIP() << "tavo-sim is not reachable by uid 65534";
    }
    std::vector<std::string> userns_probe = as_nobody;
    userns_probe.insert(userns_probe.end(), {"unshare", "--user", "true"});
    if (spawn(userns_probe, {}, cwd).status != 0) {
        GTEST_SKIP() << "user namespaces are not available to unprivileged users here";
    }
    const Result r = run(
        {"run", "--", "sh", "-c", "id -u && touch /tmp/f /run/f /var/log/f /etc/usr/f && exit 4"},
        {}, cwd, as_nobody);
    EXPECT_EQ(r.status, 4) << r.err;
    EXPECT_EQ(r.out, "65534\n");
}

}  // namespace
