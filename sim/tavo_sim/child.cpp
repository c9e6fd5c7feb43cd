#include "child.h"

#include "exit_status.h"
#include "world.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string_view>

namespace tavo::sim {

namespace {

constexpr const char *kPreload = "libumockdev-preload.so.0";
// The preload comes before the ASan runtime in the link order of a sanitized command.
constexpr const char *kAsanOption = "verify_asan_link_order=0";
constexpr const char *kDefaultPath = "/usr/local/bin:/usr/bin:/bin";

// "a:b" lists (PATH, LD_PRELOAD, ASAN_OPTIONS) where `list` may be unset or empty.
std::string prepended(std::string_view item, const char *list) {
    std::string result(item);
    if (list != nullptr && *list != '\0') {
        result.append(":").append(list);
    }
    return result;
}

std::string appended(const char *list, std::string_view item) {
    std::string result = list != nullptr && *list != '\0' ? std::string(list) + ":" : "";
    return result.append(item);
}

gchar **set(gchar **env, const char *name, const std::string &value) {
    return g_environ_setenv(env, name, value.c_str(), TRUE);
}

struct ChildWait {
    GMainLoop *loop;
    int wait_status = 0;
};

void on_child_exit(GPid pid, gint wait_status, gpointer data) {
    auto *wait = static_cast<ChildWait *>(data);
    wait->wait_status = wait_status;
    g_spawn_close_pid(pid);
    g_main_loop_quit(wait->loop);
}

// Runs in the forked child before exec.
void prepare_child(gpointer data) {
    // The command must not outlive tavo-sim: the namespace and testbed go away with it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != static_cast<pid_t>(GPOINTER_TO_INT(data))) {
        _exit(kExitHostFailure);
    }
    // The launcher ignores these so that a terminal's ^C reaches the command alone.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGQUIT, SIG_DFL);
}

}  // namespace

gchar **child_environment(gchar **user_environment, const ChildSettings &settings) {
    gchar **env = g_strdupv(user_environment);
    const char *path = g_environ_getenv(env, "PATH");
    env = set(env, "PATH", prepended(kBinDir, path != nullptr ? path : kDefaultPath));
    env = set(env, "LD_PRELOAD", prepended(kPreload, g_environ_getenv(env, "LD_PRELOAD")));
    env = set(env, "ASAN_OPTIONS", appended(g_environ_getenv(env, "ASAN_OPTIONS"), kAsanOption));
    env = set(env, "UMOCKDEV_DIR", settings.testbed_root);
    env = set(env, "TAVO_SIM_ACTIVE", "1");
    if (settings.host_path) {
        env = set(env, "TAVO_SIM_HOST", *settings.host_path);
    } else {
        env = g_environ_unsetenv(env, "TAVO_SIM_HOST");
    }
    return env;
}

int run_command(const std::vector<std::string> &command, gchar **environment) {
    std::vector<char *> argv;
    for (const std::string &arg : command) {
        argv.push_back(const_cast<char *>(arg.c_str()));
    }
    argv.push_back(nullptr);

    auto flags =
        static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH_FROM_ENVP | G_SPAWN_DO_NOT_REAP_CHILD |
                                 G_SPAWN_LEAVE_DESCRIPTORS_OPEN | G_SPAWN_CHILD_INHERITS_STDIN);
    GPid pid = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_spawn_async(nullptr, argv.data(), environment, flags, prepare_child,
                       GINT_TO_POINTER(::getpid()), &pid, &error)) {
        std::fprintf(stderr, "tavo-sim: %s\n", error->message);
        return g_error_matches(error, G_SPAWN_ERROR, G_SPAWN_ERROR_NOENT) ? kExitNotFound
                                                                          : kExitCannotRun;
    }
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    ChildWait wait{loop};
    g_child_watch_add(pid, on_child_exit, &wait);
    g_main_loop_run(loop);
    return exit_status_from_wait(wait.wait_status);
}

}  // namespace tavo::sim
