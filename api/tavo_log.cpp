#include "api/tavo_log.h"

#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/bounded.h"
#include "base/unique_file.h"
#include "tavo/tavo_export.h"

namespace {

using tavo::base::UniqueFile;

// An existing file is appended to; a missing one is created.
UniqueFile open_for_append(const char *live) {
    if (UniqueFile probe{std::fopen(live, "r")}) {
        probe.reset();
        return UniqueFile{std::fopen(live, "ab")};
    }
    return UniqueFile{std::fopen(live, "wb")};
}

// The limit counts the message only, not the record prefix, so a live file may end
// slightly above it.
bool rotate_if_full(UniqueFile &file, const char *live, const char *backup, std::size_t length) {
    if (std::fseek(file.get(), 0, SEEK_END) != 0) {
        return true;
    }
    long position = std::ftell(file.get());
    if (position < 0 || static_cast<unsigned long>(position) + length <=
                            static_cast<unsigned long>(tavo::log::kRotateLimit)) {
        return true;
    }
    file.reset();
    ::unlink(backup);
    std::rename(live, backup);
    file = UniqueFile{std::fopen(live, "a")};
    return static_cast<bool>(file);
}

int kernel_thread_id() {
    return static_cast<int>(::syscall(SYS_gettid));
}

}  // namespace

TAVO_API struct tm *LOG_Getime(void) {
    std::time_t now = std::time(nullptr);
    return std::gmtime(&now);
}

TAVO_API void GetUserNameIp(char *user, std::size_t user_size, char *address,
                            std::size_t address_size) {
    if (user == nullptr || address == nullptr) {
        return;
    }
    const struct passwd *entry = ::getpwuid(::getuid());
    if (entry == nullptr || entry->pw_name == nullptr || entry->pw_name[0] == '\0') {
        return;
    }
    if (strncpy_s(user, user_size, entry->pw_name, std::strlen(entry->pw_name)) != 0) {
        return;
    }
    if (const char *remote = std::getenv("REMOTEHOST")) {
        (void)strncpy_s(address, address_size, remote, std::strlen(remote));
        return;
    }
    if (const char *ssh = std::getenv("SSH_CLIENT")) {
        // "address port port": the address is the text before the first blank.
        const char *blank = std::strchr(ssh, ' ');
        std::size_t length = blank == nullptr ? 0 : static_cast<std::size_t>(blank - ssh);
        if (length <= address_size) {
            (void)strncpy_s(address, address_size, ssh, length);
        } else {
            (void)strncpy_s(address, address_size, "Error IP", 8);
        }
        return;
    }
    (void)strncpy_s(address, address_size, "Unknown IP", 10);
}

TAVO_API void IesLogWrite(const char *live, const char *backup, const char *format, ...) {
    char message[tavo::log::kMessageBufferSize];
    char user[tavo::log::kIdentityBufferSize];
    char address[tavo::log::kIdentityBufferSize];
    (void)memset_s(message, sizeof message, 0, sizeof message);
    (void)memset_s(user, sizeof user, 0, sizeof user);
    (void)memset_s(address, sizeof address, 0, sizeof address);
    if (live == nullptr || backup == nullptr || format == nullptr) {
        return;
    }
    UniqueFile file = open_for_append(live);
    if (!file) {
        return;
    }
    std::va_list args;
    va_start(args, format);
    int formatted = vsnprintf_s(message, sizeof message, sizeof message, format, args);
    va_end(args);
    if (formatted < 0) {
        return;
    }
    if (static_cast<std::size_t>(formatted) > sizeof message - 1) {
        message[sizeof message - 1] = '\0';
    }
    if (!rotate_if_full(file, live, backup, std::strlen(message))) {
        return;
    }
    const struct tm *now = LOG_Getime();
    if (now == nullptr) {
        return;
    }
    int tid = kernel_thread_id();
    if (std::string_view(live).find("LOG_OP") != std::string_view::npos) {
        GetUserNameIp(user, sizeof user - 1, address, sizeof address - 1);
        std::fprintf(file.get(), "[%04d/%02d/%02d %02d:%02d:%02d][%04d][%s][%s]%s",
                     now->tm_year + 1900, now->tm_mon + 1, now->tm_mday, now->tm_hour, now->tm_min,
                     now->tm_sec, tid, user, address, message);
    } else {
        std::fprintf(file.get(), "[%04d/%02d/%02d %02d:%02d:%02d][%04d]%s", now->tm_year + 1900,
                     now->tm_mon + 1, now->tm_mday, now->tm_hour, now->tm_min, now->tm_sec, tid,
                     message);
    }
    std::fflush(file.get());
}
