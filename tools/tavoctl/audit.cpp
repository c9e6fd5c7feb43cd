#include "audit.h"

#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

namespace tavoctl {
namespace {

constexpr const char *kOperationsLog = "/var/log/quillmon_LOG_OP.log";

std::string user_name() {
    const passwd *entry = ::getpwuid(::getuid());
    return entry != nullptr && entry->pw_name != nullptr ? entry->pw_name : "";
}

// The login's remote address, as the library's own audit records give it.
std::string client_address() {
    if (const char *remote = std::getenv("REMOTEHOST")) {
        return remote;
    }
    if (const char *ssh = std::getenv("SSH_CLIENT")) {
        std::string_view text(ssh);
        std::size_t blank = text.find(' ');
        return blank == std::string_view::npos ? "" : std::string(text.substr(0, blank));
    }
    return "Unknown IP";
}

}  // namespace

void audit(std::string_view command, std::string_view text) {
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> log(std::fopen(kOperationsLog, "ab"),
                                                         &std::fclose);
    if (!log) {
        return;
    }
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    std::fprintf(log.get(),
                 "[%04d/%02d/%02d %02d:%02d:%02d][%04d][%s][%s][tavoctl,%.*s,0]:%.*s\n\r\n",
                 utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                 utc.tm_sec, static_cast<int>(::syscall(SYS_gettid)), user_name().c_str(),
                 client_address().c_str(), static_cast<int>(command.size()), command.data(),
                 static_cast<int>(text.size()), text.data());
}

}  // namespace tavoctl
