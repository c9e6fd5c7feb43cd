// Download of the MCU's logs into time-stamped files under /tmp/mcu_log/.
#include "mcu/mcu_log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "base/unique_file.h"
#include "mcu/mcu_frame.h"
#include "mcu/mcu_lock.h"
#include "tavo/tavo_export.h"

const std::array<tavo_mcu_log_info, TAVO_MCU_LOG_TYPE_COUNT> g_tavo_mcu_log_info{{
    {TAVO_MCU_LOG_ERROR, TAVO_MCU_CMD_ERROR_LOG, 204800, "error_log"},
    {TAVO_MCU_LOG_OPERATE, TAVO_MCU_CMD_OPERATE_LOG, 102400, "operate_log"},
    {TAVO_MCU_LOG_MAINTENANCE, TAVO_MCU_CMD_MAINTENANCE_LOG, 102400, "maintaince_log"},
}};

namespace {

using tavo::base::UniqueFile;
using tavo::mcu::kDataMax;

constexpr const char *kCollect = "tavo_mcu_collect_log";
constexpr std::size_t kBufferSize = 1024;
constexpr std::size_t kFileNameSize = 512;
constexpr mode_t kLogDirMode = 0777;
constexpr uint64_t kPauseEveryFrames = 50;
constexpr useconds_t kPauseUs = 10000;

using Buffer = std::array<uint8_t, kBufferSize>;

struct Collection {
    uint32_t card_id;
    uint32_t type;
    uint16_t command;
    uint32_t total;
    std::FILE *file;
};

int percent(uint64_t position, uint64_t total) {
    return static_cast<int>(position * 100 / total);
}

void write_out(const Collection &c, const Buffer &buffer, std::size_t count) {
    if (count != 0 && std::fwrite(buffer.data(), 1, count, c.file) != count) {
        API_LOG_ERR_FOR(kCollect, "write file failed errno(%d).\r\n", errno);
    }
    std::fflush(c.file);
}

void print_progress(const Collection &c, uint32_t position, const char *lead) {
    std::printf("%stype(%d): file_len(%d)--offset(%d) [%d].", lead, static_cast<int>(c.type),
                static_cast<int>(c.total), static_cast<int>(position), percent(position, c.total));
    std::fflush(stdout);
}

// The first reply's piece length is where the next frame lands in the buffer. A
// piece longer than a frame has already failed its copy (logged) and the collection
// goes on with it; refused are only the lengths that would take a frame, or a log
// that ends within the first reply, past the end of the buffer.
bool first_reply_fits(uint32_t first, uint32_t total) {
    if (total <= first) {
        return total <= kBufferSize;
    }
    return uint64_t{first} + kDataMax <= kBufferSize;
}

bool ensure_log_dir() {
    if (::access(TAVO_MCU_LOG_DIR, F_OK) == 0) {
        return true;
    }
    if (::mkdir(TAVO_MCU_LOG_DIR, kLogDirMode) != 0) {
        std::printf("mcu log will save in %s. But mkdir %s failed.", TAVO_MCU_LOG_DIR,
                    TAVO_MCU_LOG_DIR);
        std::fflush(stdout);
        return false;
    }
    return true;
}

UniqueFile open_log_file(const tavo_mcu_log_info &info, uint32_t card_id, const std::tm &start) {
    std::array<char, kFileNameSize> name{};
    int ret = snprintf_s(name.data(), name.size(), name.size() - 1,
                         "%s%s_%d_%04d%02d%02d%02d%02d%02d.log", TAVO_MCU_LOG_DIR, info.name,
                         static_cast<int>(card_id), start.tm_year + 1900, start.tm_mon + 1,
                         start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec);
    if (!tavo::base::formatted_whole(ret, name.size() - 1)) {
        API_LOG_ERR_FOR(kCollect, "call snprintf_s failed.%d.\n\r\n", ret);
    }
    UniqueFile file{std::fopen(name.data(), "a+")};
    if (!file) {
        API_LOG_ERR_FOR(kCollect, "open file %s failed errno(%d).\r\n", name.data(), errno);
    }
    return file;
}

// The frames after the first piece of `first` bytes. Each piece is measured
// against the total; the buffer goes to the file whenever another frame might
// not fit, and the lock hook is let go for 10 ms every 50 frames.
int collect_rest(const Collection &c, Buffer &buffer, uint32_t first, tavo::mcu::McuLock &lock,
                 uint32_t &position) {
    position = first;
    std::size_t buffered = first;
    uint64_t frames = (uint64_t{c.total} - first + kDataMax - 1) / kDataMax;
    for (uint64_t i = 0; i < frames; ++i) {
        uint32_t piece = uint64_t{position} + kDataMax > c.total ? c.total - position
                                                                 : static_cast<uint32_t>(kDataMax);
        uint32_t scratch_piece = 0;
        uint32_t scratch_total = 0;
        int ret =
            tavo_mcu_get_info(c.card_id, 0, c.command, position, static_cast<uint32_t>(kDataMax),
                              nullptr, 0, buffer.data() + buffered, &scratch_piece, &scratch_total);
        if (ret != 0) {
            API_LOG_ERR_FOR(kCollect,
                            "call tavo_mcu_get_info fail.ret(%d) offset(%d) len_curr(%d)\n\r\n",
                            ret, static_cast<int>(position), static_cast<int>(piece));
            return -1;
        }
        position += piece;
        buffered += piece;
        if (buffered + kDataMax > buffer.size()) {
            write_out(c, buffer, buffered);
            buffered = 0;
            print_progress(c, position, "\r");
        }
        if (i % kPauseEveryFrames == 0) {
            lock.release();
            usleep(kPauseUs);
            if (int status = lock.acquire(tavo::mcu::kLockTimeoutLog); status != 0) {
                API_LOG_ERR_FOR(kCollect, "call mcu_get_lock failed.%d.\n\r\n", status);
                return -1;
            }
        }
    }
    write_out(c, buffer, buffered);
    return 0;
}

}  // namespace

extern "C" {

TAVO_API int tavo_mcu_collect_log(uint32_t card_id, uint32_t log_type) {
    if (log_type >= g_tavo_mcu_log_info.size()) {
        API_LOG_ERR("log type(%u) is not one of 0..%u.\n\r\n", log_type,
                    static_cast<unsigned>(g_tavo_mcu_log_info.size() - 1));
        return -1;
    }
    std::time_t now = std::time(nullptr);
    std::tm start{};
    (void)localtime_r(&now, &start);
    const tavo_mcu_log_info &info = g_tavo_mcu_log_info[log_type];
    Buffer buffer{};
    uint32_t first = 0;
    uint32_t total = 0;
    auto command = static_cast<uint16_t>(info.command);
    int ret = tavo_mcu_get_info(card_id, 0, command, 0, static_cast<uint32_t>(kDataMax), nullptr, 0,
                                buffer.data(), &first, &total);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info fail.ret(%d)\n\r\n", ret);
        return -1;
    }
    if (total == 0) {
        std::printf("get %s success, total len=%d.\n", info.name, 0);
        return 0;
    }
    if (!first_reply_fits(first, total)) {
        API_LOG_ERR("len(%d) error.\n\r\n", static_cast<int>(first));
        return -1;
    }
    if (!ensure_log_dir()) {
        return -1;
    }
    UniqueFile file = open_log_file(info, card_id, start);
    if (!file) {
        return -1;
    }
    Collection c{card_id, log_type, command, total, file.get()};
    if (total <= first) {
        write_out(c, buffer, total);
        file.reset();
        std::printf("get %s success.len_total=%d.\n", info.name, static_cast<int>(total));
        return 0;
    }
    print_progress(c, first, "");
    tavo::mcu::McuLock lock(tavo::mcu::kLockTimeoutLog);
    if (lock.status() != 0) {
        file.reset();
        API_LOG_ERR("call tavo_mcu_set_lock failed.%d.\n\r\n", lock.status());
        return -1;
    }
    uint32_t position = first;
    if (collect_rest(c, buffer, first, lock, position) != 0) {
        return -1;
    }
    file.reset();
    lock.release();
    std::printf("\rtype(%d): file_len(%d)--offset(%d) [100].\n", static_cast<int>(log_type),
                static_cast<int>(total), static_cast<int>(position));
    std::fflush(stdout);
    return 0;
}

}  // extern "C"
