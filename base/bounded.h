// Bounds-checked copies, fills, concatenations, formatting and scanning used by
// every unit of the library in place of the unchecked C routines.
//
// The functions live in the global namespace with C++ linkage on purpose: a vendor
// device-management library linked into the same process may bundle C functions of
// the same names, and C++ mangling keeps the two apart. tavo_base is built with hidden
// visibility, so none of them is ever exported from libtavo.
//
// Every function fails, without writing past dest, when a pointer is null, destMax is
// zero or above kBoundedMax, or the data does not fit. See docs/bounded-operations.md.
#pragma once

#include <cerrno>
#include <cstdarg>
#include <cstddef>

namespace tavo::base {

// Largest destMax (and count) accepted; anything above is taken for a corrupted
// length rather than a real buffer.
inline constexpr std::size_t kBoundedMax = 0x7fffffff;

inline constexpr int kBoundedOk = 0;
// A null pointer, or a destination string that is not terminated within destMax.
inline constexpr int kBoundedInvalid = EINVAL;
// destMax is zero or above kBoundedMax, count is above destMax, or the result does
// not fit.
inline constexpr int kBoundedRange = ERANGE;
// Source and destination overlap where the operation does not allow it. Above every
// errno value so that it is never mistaken for one.
inline constexpr int kBoundedOverlap = 256;
// Status of the formatting functions for invalid arguments or output that fails.
inline constexpr int kBoundedFormatFailed = -1;

// True when a snprintf_s or vsnprintf_s result says the whole output was written
// under the character limit `count` (below destMax): neither an error nor a cut.
constexpr bool formatted_whole(int result, std::size_t count) {
    return result >= 0 && static_cast<std::size_t>(result) <= count;
}

}  // namespace tavo::base

// On failure with usable dest and sane destMax, dest[0..destMax) is cleared.
int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
int memmove_s(void *dest, size_t destMax, const void *src, size_t count);
// count > destMax fills the whole of dest[0..destMax) and then reports kBoundedRange,
// so a caller clearing a secret never leaves it in place.
int memset_s(void *dest, size_t destMax, int c, size_t count);

// On failure with usable dest and sane destMax, dest[0] is '\0'.
int strcpy_s(char *dest, size_t destMax, const char *src);
// Copies at most count characters of src, then terminates. Fails when the characters
// actually copied and the terminator do not fit in destMax; count itself may exceed
// destMax for a short src.
int strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
int strcat_s(char *dest, size_t destMax, const char *src);
// Appends at most count characters of src, then terminates.
int strncat_s(char *dest, size_t destMax, const char *src, size_t count);

// Write at most min(count, destMax - 1) characters and the terminator and return the
// length the complete output would have had, so a result above that limit means the
// output was cut. -1 for invalid arguments (null dest or format, destMax zero or too
// large, count > destMax) or an encoding error, with dest[0] = '\0' when dest is usable.
int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list args)
    __attribute__((format(printf, 4, 0)));
// Strict: output that does not fit in destMax - 1 characters fails with -1 and
// dest[0] = '\0'. Returns the number of characters written otherwise.
int sprintf_s(char *dest, size_t destMax, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// As sscanf, but every %s, %c and %[ conversion that is not suppressed takes its
// destination followed by the destination's size in elements as unsigned int. A
// value that does not fit fails that conversion (scanning stops) instead of
// overflowing. Returns the number of values assigned, or EOF for a null argument or
// an input failure before the first conversion.
int sscanf_s(const char *buffer, const char *format, ...);

// Reentrant tokeniser: str starts a new string, nullptr continues from *context.
// nullptr for a null delim or context, or when no token is left.
char *strtok_s(char *str, const char *delim, char **context);
