#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavo::test {

inline constexpr const char *kErrLog = "/var/log/quillmon_LOG_ERR.log";
inline constexpr const char *kInfoLog = "/var/log/quillmon_LOG_INFO.log";
inline constexpr const char *kOpLog = "/var/log/quillmon_LOG_OP.log";
inline constexpr const char *kGpLog = "/var/log/quillmon_gplog.log";

// One record of a log file: "[YYYY/MM/DD hh:mm:ss][tid]" then, in the operations
// log, "[user][address]", then the message as formatted by the caller.
struct LogRecord {
    std::string time;  // "YYYY/MM/DD hh:mm:ss"
    long thread_id = 0;
    std::string user;     // operations log only
    std::string address;  // operations log only
    std::string message;  // "[file,function,line]:text..." including its line ends
};

// Whole file as bytes; empty when it does not exist.
std::string read_file(const std::string &path);
bool file_exists(const std::string &path);
// Records of a log file, split at each record header. `with_user` selects the
// operations-log columns.
std::vector<LogRecord> read_log(const std::string &path, bool with_user = false);
// Deletes the four log pairs.
void remove_logs();

// The message text with its "[file,function,line]:" prefix removed, or the whole
// message when it has none.
std::string message_text(const LogRecord &record);
// "file,function" of the prefix, or "" without one.
std::string message_origin(const LogRecord &record);
// Source line of the prefix, or -1 without one.
int message_line(const LogRecord &record);

// True when some record of `path` has origin `origin` ("tavo_drv_api,tavo_init")
// and text `text` exactly (line ends included).
bool logged(const std::string &path, std::string_view origin, std::string_view text);

}  // namespace tavo::test
