// Cost of verifying an upgrade package against hashing its payload, and the memory a
// verification needs. Run inside the simulated host, so that a failure logs to its
// private /var/log:
//   tavo-sim run -- build/bench/verify_bench [MIB ...]   (default: 1 and 1024)
// The payloads and packages go to $TAVO_BENCH_DIR (default /var/tmp) and are deleted
// at the end.
//
// For each size: write a pseudo-random payload, build a package with tavo-pack and
// the development PKI, read the package once so that it sits in the page cache, then
// three times over, alternately:
//  - raw: SHA-256 through the provider's digest slots (CmsvSetCallbackFuncs) over the
//    payload bytes of the package, read with a plain loop of 64 KiB reads;
//  - verify: the whole TavoCmsValidateSign on the package.
// Each measurement runs in a forked child, which reports its wall and CPU time and
// the growth of its peak resident set (VmHWM after the call minus VmRSS just before
// it; the kernel starts a child's VmHWM at its resident set when forked). The
// parent prints the medians; nothing is asserted.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "tavo/tavo_upgrade.h"

extern char **environ;

namespace {

constexpr std::size_t kMiB = 1024 * 1024;
constexpr std::size_t kReadBlock = 64 * 1024;
constexpr int kRepeats = 3;

// The files to delete if the run stops early.
std::vector<std::string> g_files;

[[noreturn]] void die(const std::string &what) {
    std::fprintf(stderr, "verify_bench: %s (errno %d: %s)\n", what.c_str(), errno,
                 std::strerror(errno));
    for (const std::string &file : g_files) {
        unlink(file.c_str());
    }
    std::exit(1);
}

double seconds(clockid_t clock) {
    timespec ts{};
    clock_gettime(clock, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// A field of /proc/self/status in KiB, read without stdio so as not to allocate.
long status_kib(const char *field) {
    std::array<char, 4096> text{};
    int fd = open("/proc/self/status", O_RDONLY);
    if (fd < 0) {
        return -1;
    }
    ssize_t got = read(fd, text.data(), text.size() - 1);
    close(fd);
    if (got <= 0) {
        return -1;
    }
    const char *at = std::strstr(text.data(), field);
    return at != nullptr ? std::strtol(at + std::strlen(field) + 1, nullptr, 10) : -1;
}

void write_payload(const std::string &path, std::size_t size) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) {
        die("cannot create " + path);
    }
    std::vector<uint64_t> block(kMiB / sizeof(uint64_t));
    uint64_t state = 0x9e3779b97f4a7c15ULL;
    for (std::size_t done = 0; done < size; done += kMiB) {
        for (uint64_t &word : block) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            word = state;
        }
        std::size_t count = std::min(kMiB, size - done);
        if (write(fd, block.data(), count) != static_cast<ssize_t>(count)) {
            die("cannot write " + path);
        }
    }
    if (close(fd) != 0) {
        die("cannot close " + path);
    }
}

void build_package(const std::string &payload, const std::string &package) {
    std::vector<std::string> args{TAVO_PACK_PATH, "build", "--payload", payload,    "--out",
                                  package,        "--pki", DEV_PKI_DIR, "--digest", "sha256"};
    std::vector<char *> argv;
    for (std::string &arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    // Its report line would interleave with ours.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int spawned = posix_spawn(&pid, TAVO_PACK_PATH, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        errno = spawned;
        die("cannot run " TAVO_PACK_PATH);
    }
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        die("tavo-pack build failed for " + payload);
    }
}

std::size_t file_size(const std::string &path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        die("cannot stat " + path);
    }
    return static_cast<std::size_t>(st.st_size);
}

// Reads the whole file once so that both measurements find it in the page cache.
void warm(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        die("cannot open " + path);
    }
    std::vector<uint8_t> block(kReadBlock);
    while (read(fd, block.data(), block.size()) > 0) {
    }
    close(fd);
}

// SHA-256 of `count` bytes of `path` from `offset`, through the provider's digest
// slots; lowercase hex, or "" on failure.
std::string raw_sha256(const std::string &path, off_t offset, std::size_t count) {
    CmsvCallbackFuncs funcs{};
    void *md = nullptr;
    if (CmsvSetCallbackFuncs(&funcs) != 0 || funcs.mdCtxCreate(&md) != 0) {
        return "";
    }
    std::string hex;
    int fd = open(path.c_str(), O_RDONLY);
    std::vector<uint8_t> block(kReadBlock);
    if (fd >= 0 && lseek(fd, offset, SEEK_SET) == offset && funcs.mdInit(md, AOID_SHA256) == 0) {
        std::size_t left = count;
        while (left > 0) {
            ssize_t got = read(fd, block.data(), std::min(left, block.size()));
            if (got <= 0 || funcs.mdUpdate(md, block.data(), static_cast<uint32_t>(got)) != 0) {
                break;
            }
            left -= static_cast<std::size_t>(got);
        }
        std::array<uint8_t, 64> digest{};
        uint32_t length = 0;
        if (left == 0 && funcs.mdFinal(md, digest.data(), &length) == 0) {
            for (uint32_t i = 0; i < length; ++i) {
                std::array<char, 3> two{};
                std::snprintf(two.data(), two.size(), "%02x", digest[i]);
                hex += two.data();
            }
        }
    }
    if (fd >= 0) {
        close(fd);
    }
    funcs.mdCtxDestroy(md);
    return hex;
}

struct Sample {
    double wall = 0;     // s
    double cpu = 0;      // s
    long rssBefore = 0;  // KiB, just before the call
    long hwmAfter = 0;   // KiB
    long maxrss = 0;     // KiB, the child's peak as wait4 reports it
    int ok = 0;

    long growth() const { return hwmAfter - rssBefore; }
};

// Runs `work` in a forked child; `work` returns 1 on success.
template <typename Work>
Sample in_child(Work work) {
    int pipefd[2];
    if (pipe(pipefd) != 0) {
        die("pipe");
    }
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) {
        die("fork");
    }
    if (pid == 0) {
        close(pipefd[0]);
        Sample s;
        s.rssBefore = status_kib("VmRSS:");
        double wall = seconds(CLOCK_MONOTONIC);
        double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID);
        s.ok = work();
        s.cpu = seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu;
        s.wall = seconds(CLOCK_MONOTONIC) - wall;
        s.hwmAfter = status_kib("VmHWM:");
        ssize_t wrote = write(pipefd[1], &s, sizeof(s));
        _exit(wrote == static_cast<ssize_t>(sizeof(s)) ? 0 : 1);
    }
    close(pipefd[1]);
    Sample s;
    ssize_t got = read(pipefd[0], &s, sizeof(s));
    close(pipefd[0]);
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid || got != static_cast<ssize_t>(sizeof(s)) ||
        !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        die("measuring child failed");
    }
    s.maxrss = usage.ru_maxrss;
    return s;
}

template <typename Field>
double median(std::vector<Sample> samples, Field field) {
    std::sort(samples.begin(), samples.end(),
              [&](const Sample &a, const Sample &b) { return field(a) < field(b); });
    return static_cast<double>(field(samples[samples.size() / 2]));
}

void run(const std::string &dir, std::size_t mib) {
    std::string stem =
        dir + "/verify_bench." + std::to_string(getpid()) + "." + std::to_string(mib) + "MiB";
    std::string payload = stem + ".bin";
    std::string package = stem + ".pkg";
    std::size_t size = mib * kMiB;
    g_files = {payload, package};
    write_payload(payload, size);
    build_package(payload, package);
    std::size_t packageSize = file_size(package);
    off_t payloadOffset = static_cast<off_t>(packageSize - size);
    warm(package);

    // The baseline must hash exactly the bytes the file list's digest covers.
    std::string digest = raw_sha256(package, payloadOffset, size);
    std::vector<char> head(static_cast<std::size_t>(payloadOffset));
    int fd = open(package.c_str(), O_RDONLY);
    if (digest.empty() || fd < 0 || read(fd, head.data(), head.size()) != payloadOffset ||
        std::string(head.begin(), head.end()).find(digest) == std::string::npos) {
        die("the raw hash does not match the file list of " + package);
    }
    close(fd);

    std::vector<Sample> raw;
    std::vector<Sample> verify;
    for (int i = 0; i < kRepeats; ++i) {
        raw.push_back(in_child([&] { return raw_sha256(package, payloadOffset, size) == digest; }));
        verify.push_back(in_child([&] { return TavoCmsValidateSign(package.c_str()) == 0; }));
        if (!raw.back().ok || !verify.back().ok) {
            die("a measurement failed on " + package);
        }
    }
    unlink(payload.c_str());
    unlink(package.c_str());
    g_files.clear();

    auto wall = [](const Sample &s) { return s.wall; };
    auto cpu = [](const Sample &s) { return s.cpu; };
    auto growth = [](const Sample &s) { return s.growth(); };
    auto byRusage = [](const Sample &s) { return s.maxrss - s.rssBefore; };
    double rawWall = median(raw, wall);
    double verWall = median(verify, wall);
    double mb = static_cast<double>(size) / 1e6;
    std::printf("payload %zu MiB (package %zu bytes), median of %d\n", mib, packageSize, kRepeats);
    std::printf("  raw SHA-256 : wall %9.3f ms  cpu %9.3f ms  %7.1f MB/s  peak growth %5.0f KiB\n",
                rawWall * 1e3, median(raw, cpu) * 1e3, mb / rawWall, median(raw, growth));
    std::printf(
        "  verification: wall %9.3f ms  cpu %9.3f ms  %7.1f MB/s  peak growth %5.0f KiB"
        " (wait4: %.0f KiB)\n",
        verWall * 1e3, median(verify, cpu) * 1e3, mb / verWall, median(verify, growth),
        median(verify, byRusage));
    std::printf("  verification speed / raw hashing speed: %.3f (wall), %.3f (cpu)\n",
                rawWall / verWall, median(raw, cpu) / median(verify, cpu));
    for (int i = 0; i < kRepeats; ++i) {
        std::printf("  run %d: raw %.3f ms, verify %.3f ms, verify growth %ld KiB\n", i + 1,
                    raw[i].wall * 1e3, verify[i].wall * 1e3, verify[i].growth());
    }
}

}  // namespace

int main(int argc, char **argv) {
    const char *env = std::getenv("TAVO_BENCH_DIR");
    std::string dir = env != nullptr && *env != '\0' ? env : "/var/tmp";
    std::vector<std::size_t> sizes;
    for (int i = 1; i < argc; ++i) {
        sizes.push_back(std::strtoull(argv[i], nullptr, 10));
    }
    if (sizes.empty()) {
        sizes = {1, 1024};
    }
    std::printf("files in %s; package read once before measuring (page cache warm for both)\n",
                dir.c_str());
    for (std::size_t mib : sizes) {
        if (mib == 0 || mib > 4095) {
            std::fprintf(stderr, "verify_bench: sizes are 1 to 4095 MiB\n");
            return 2;
        }
        run(dir, mib);
    }
    return 0;
}
