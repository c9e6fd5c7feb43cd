// Upgrade file helpers (unit tavo_comm).
#include "upgrade/tavo_comm.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/tavo_log.h"
#include "base/unique_file.h"
#include "tavo/tavo_export.h"

namespace {

constexpr const char *kUnit = "tavo_comm";
constexpr std::size_t kPathMax = 4096;

void report_illegal_path() {
    std::printf("\t%-30s : Upgrade file path is illegal.\n", "Message");
}

}  // namespace

TAVO_API int TavoGetFileLength(const char *path, uint32_t *length) {
    if (path == nullptr || length == nullptr || strnlen(path, kPathMax) >= kPathMax) {
        report_illegal_path();
        return -1;
    }
    char resolved[PATH_MAX + 1] = {};
    if (realpath(path, resolved) == nullptr) {
        report_illegal_path();
        return -1;
    }
    tavo::base::UniqueFile file{std::fopen(resolved, "r")};
    if (!file) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "open file %s failed errno(%d).\r\n", resolved, errno);
        return -1;
    }
    long end = std::fseek(file.get(), 0, SEEK_END) == 0 ? std::ftell(file.get()) : -1;
    if (end < 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "call fseek fail.file %s failed errno(%d).\r\n",
                    resolved, errno);
        return -1;
    }
    *length = static_cast<uint32_t>(end);
    return 0;
}
