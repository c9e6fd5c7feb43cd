// Log writer shared by every unit of the library. Each call names its file pair;
// the writer opens, appends one record and closes within that call.
#pragma once

#include <cstddef>
#include <ctime>
#include <source_location>

#include "tavo/tavo_log.h"

namespace tavo::log {

struct FilePair {
    const char *live;
    const char *backup;
};

inline constexpr FilePair kErr{"/var/log/quillmon_LOG_ERR.log",
                               "/var/log/quillmon_LOG_ERR.log.bak"};
inline constexpr FilePair kInfo{"/var/log/quillmon_LOG_INFO.log",
                                "/var/log/quillmon_LOG_INFO.log.bak"};
inline constexpr FilePair kOp{"/var/log/quillmon_LOG_OP.log", "/var/log/quillmon_LOG_OP.log.bak"};
inline constexpr FilePair kGp{"/var/log/quillmon_gplog.log", "/var/log/quillmon_gplog.log.bak"};

inline constexpr std::size_t kMessageBufferSize = 4096;
inline constexpr std::size_t kIdentityBufferSize = 257;
inline constexpr long kRotateLimit = 4L * 1024 * 1024;

// The place a record is reported from: the reporting function and the line where
// it names itself. A helper that logs on behalf of its caller takes a Site; the
// caller passes `__func__` and the line of that call comes with it.
struct Site {
    // NOLINTNEXTLINE(google-explicit-constructor): callers pass __func__ as is.
    Site(const char *function_name, std::source_location where = std::source_location::current())
        : function(function_name), line(static_cast<int>(where.line())) {}
    const char *function;
    int line;
};

}  // namespace tavo::log

// Logs a record "[unit,function,line]:..." to a file pair.
#define TAVO_LOG_TO(pair, unit, format, ...)                                      \
    IesLogWrite((pair).live, (pair).backup, "[%s,%s,%d]:" format, unit, __func__, \
                __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The same, for a helper that reports on behalf of `site` (a tavo::log::Site, or a
// function name reported with the line of this record).
#define TAVO_LOG_FOR(pair, unit, site, format, ...)                     \
    IesLogWrite((pair).live, (pair).backup, "[%s,%s,%d]:" format, unit, \
                tavo::log::Site(site).function,                         \
                tavo::log::Site(site).line __VA_OPT__(, ) __VA_ARGS__)
