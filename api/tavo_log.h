// Log writer shared by every unit of the library. Each call names its file pair;
// the writer opens, appends one record and closes within that call.
#pragma once

#include <cstddef>
#include <ctime>

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

}  // namespace tavo::log

// Appends one record to `live`, rotating it into `backup` first when the message
// would take it past 4 MiB. Never reports a failure: a record that cannot be
// written is dropped.
void IesLogWrite(const char *live, const char *backup, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
// Current time in UTC; the C library's static record, not a copy.
struct tm *LOG_Getime(void);
// Name of the calling user and the remote address of its login.
void GetUserNameIp(char *user, std::size_t user_size, char *address, std::size_t address_size);

// Logs a record "[unit,function,line]:..." to a file pair.
#define TAVO_LOG_TO(pair, unit, format, ...)                                      \
    IesLogWrite((pair).live, (pair).backup, "[%s,%s,%d]:" format, unit, __func__, \
                __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The same, for a helper that reports on behalf of the exported function `function`.
#define TAVO_LOG_FOR(pair, unit, function, format, ...)                           \
    IesLogWrite((pair).live, (pair).backup, "[%s,%s,%d]:" format, unit, function, \
                __LINE__ __VA_OPT__(, ) __VA_ARGS__)
