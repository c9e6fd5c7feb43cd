// A second process for the label tests. It runs on the same simulated host as the
// test, so its bus transfers reach the test's EEPROM and its lock competes with the
// test's and its siblings'.
//
//   elabel_child get ITEM              prints "<status> <length> <hex bytes>"
//   elabel_child set ITEM TEXT [GO]    waits for file GO to exist when given, then
//                                      prints "<status> <lock pauses>"
//   elabel_child hold MS               takes the lock, prints "locked", holds it MS ms
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tavo/driver_elable.h"
#include "virtual_time.h"

namespace {

constexpr uint64_t kLockPauseUs = 1000;

uint8_t parse_item(const char *text) {
    return static_cast<uint8_t>(std::strtoul(text, nullptr, 0));
}

int get(uint8_t item) {
    uint8_t buffer[512] = {};
    uint8_t *dest = buffer;
    uint16_t length = 0;
    int status = DriverElabelGetData(item, &dest, &length);
    std::printf("%d %u ", status, length);
    for (uint16_t i = 0; i < length && i < sizeof buffer; ++i) {
        std::printf("%02x", buffer[i]);
    }
    std::printf("\n");
    return 0;
}

void wait_for_file(const char *path) {
    std::printf("ready\n");
    std::fflush(stdout);
    while (access(path, F_OK) != 0) {
        tavo::test::really_sleep_ms(1);
    }
}

int set(uint8_t item, std::string_view text, const char *go) {
    if (go != nullptr) {
        wait_for_file(go);
    }
    tavo::test::clear_requested_sleeps();
    int status = DriverElabelSetData(item, reinterpret_cast<const uint8_t *>(text.data()), 0,
                                     static_cast<uint8_t>(text.size()));
    auto sleeps = tavo::test::requested_sleeps();
    long pauses = std::count(sleeps.begin(), sleeps.end(), kLockPauseUs);
    std::printf("%d %ld\n", status, pauses);
    return 0;
}

int hold(unsigned ms) {
    int fd = -1;
    if (ElabelSetLock(&fd, 1000) != 0) {
        std::printf("failed\n");
        return 1;
    }
    std::printf("locked\n");
    std::fflush(stdout);
    tavo::test::really_sleep_ms(ms);
    return ElabelSetUnlock(fd) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "get" && argc == 3) {
        return get(parse_item(argv[2]));
    }
    if (command == "set" && (argc == 4 || argc == 5)) {
        return set(parse_item(argv[2]), argv[3], argc == 5 ? argv[4] : nullptr);
    }
    if (command == "hold" && argc == 3) {
        return hold(static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
    }
    std::fprintf(stderr, "usage: elabel_child get ITEM | set ITEM TEXT [GO] | hold MS\n");
    return 2;
}
