#include "virtual_time.h"

#include <unistd.h>
#include <ctime>
#include <mutex>
#include <numeric>

namespace tavo::test {
namespace {

std::mutex &sleeps_mutex() {
    static std::mutex m;
    return m;
}

std::vector<uint64_t> &sleeps() {
    static std::vector<uint64_t> v;
    return v;
}

void record(uint64_t us) {
    std::lock_guard lock(sleeps_mutex());
    sleeps().push_back(us);
}

}  // namespace

std::vector<uint64_t> requested_sleeps() {
    std::lock_guard lock(sleeps_mutex());
    return sleeps();
}

void clear_requested_sleeps() {
    std::lock_guard lock(sleeps_mutex());
    sleeps().clear();
}

uint64_t total_requested_sleep_us() {
    auto all = requested_sleeps();
    return std::accumulate(all.begin(), all.end(), uint64_t{0});
}

void really_sleep_ms(unsigned ms) {
    timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &ts, &ts) != 0) {
    }
}

}  // namespace tavo::test

extern "C" {

unsigned int sleep(unsigned int seconds) {
    tavo::test::record(uint64_t{seconds} * 1000000u);
    return 0;
}

int usleep(useconds_t us) {
    tavo::test::record(us);
    return 0;
}

int nanosleep(const struct timespec *req, struct timespec *rem) {
    if (req != nullptr) {
        tavo::test::record(static_cast<uint64_t>(req->tv_sec) * 1000000u +
                           static_cast<uint64_t>(req->tv_nsec) / 1000u);
    }
    if (rem != nullptr) {
        rem->tv_sec = 0;
        rem->tv_nsec = 0;
    }
    return 0;
}

}  // extern "C"
