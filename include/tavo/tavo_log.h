/*
 * tavo_log.h - the log writer that every part of libtavo reports through.
 *
 * Each call names its file pair (the live file and its backup); the writer opens
 * the live file, appends one record and closes it within that call, rotating the
 * file into the backup first when the message would take it past 4 MiB. A record
 * is "[YYYY/MM/DD hh:mm:ss][thread id]" (UTC), then, in a live file whose path
 * contains "LOG_OP", "[user][client address]", then the formatted message.
 */
#ifndef TAVO_TAVO_LOG_H
#define TAVO_TAVO_LOG_H

#include <stddef.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Appends one record to `live`. Never reports a failure: a record that cannot be
 * written is dropped. A message longer than 4095 characters is cut to 4095. */
void IesLogWrite(const char *live, const char *backup, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
/* Current time in UTC: the C library's static record from gmtime, not a copy. */
struct tm *LOG_Getime(void);
/* Name of the calling user and the remote address of its login ("REMOTEHOST", else
 * the address of "SSH_CLIENT", else "Unknown IP"); each buffer is left as it was
 * when the user has no name. */
void GetUserNameIp(char *user, size_t user_size, char *address, size_t address_size);

#ifdef __cplusplus
}
#endif

#endif
