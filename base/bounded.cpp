#include "base/bounded.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <string_view>

using tavo::base::kBoundedFormatFailed;
using tavo::base::kBoundedInvalid;
using tavo::base::kBoundedMax;
using tavo::base::kBoundedOk;
using tavo::base::kBoundedOverlap;
using tavo::base::kBoundedRange;

namespace {

bool sane_size(size_t destMax) {
    return destMax != 0 && destMax <= kBoundedMax;
}

bool overlaps(const void *a, size_t aLength, const void *b, size_t bLength) {
    auto first = reinterpret_cast<std::uintptr_t>(a);
    auto second = reinterpret_cast<std::uintptr_t>(b);
    return first < second + bLength && second < first + aLength;
}

int block_copy(void *dest, size_t destMax, const void *src, size_t count, bool allowOverlap) {
    if (dest == nullptr) {
        return kBoundedInvalid;
    }
    if (!sane_size(destMax)) {
        return kBoundedRange;
    }
    int status = kBoundedOk;
    if (src == nullptr) {
        status = kBoundedInvalid;
    } else if (count > destMax) {
        status = kBoundedRange;
    } else if (!allowOverlap && overlaps(dest, count, src, count)) {
        status = kBoundedOverlap;
    }
    if (status != kBoundedOk) {
        std::memset(dest, 0, destMax);
        return status;
    }
    std::memmove(dest, src, count);
    return kBoundedOk;
}

int fail_string(char *dest, int status) {
    dest[0] = '\0';
    return status;
}

// Copies at most `limit` characters of src to dest[offset..], leaving the first
// `offset` characters of dest in place.
int string_put(char *dest, size_t destMax, size_t offset, const char *src, size_t limit) {
    size_t room = destMax - offset;
    size_t length = strnlen(src, std::min(limit, room));
    if (length == room) {
        return fail_string(dest, kBoundedRange);
    }
    if (overlaps(dest, offset + length + 1, src, length + 1)) {
        return fail_string(dest, kBoundedOverlap);
    }
    std::memcpy(dest + offset, src, length);
    dest[offset + length] = '\0';
    return kBoundedOk;
}

int string_copy(char *dest, size_t destMax, const char *src, size_t limit) {
    if (dest == nullptr) {
        return kBoundedInvalid;
    }
    if (!sane_size(destMax)) {
        return kBoundedRange;
    }
    if (src == nullptr) {
        return fail_string(dest, kBoundedInvalid);
    }
    if (limit > kBoundedMax) {
        return fail_string(dest, kBoundedRange);
    }
    return string_put(dest, destMax, 0, src, limit);
}

int string_append(char *dest, size_t destMax, const char *src, size_t limit) {
    if (dest == nullptr) {
        return kBoundedInvalid;
    }
    if (!sane_size(destMax)) {
        return kBoundedRange;
    }
    if (src == nullptr) {
        return fail_string(dest, kBoundedInvalid);
    }
    if (limit > kBoundedMax) {
        return fail_string(dest, kBoundedRange);
    }
    size_t used = strnlen(dest, destMax);
    if (used == destMax) {
        return fail_string(dest, kBoundedInvalid);
    }
    return string_put(dest, destMax, used, src, limit);
}

}  // namespace

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
    return block_copy(dest, destMax, src, count, false);
}

int memmove_s(void *dest, size_t destMax, const void *src, size_t count) {
    return block_copy(dest, destMax, src, count, true);
}

int memset_s(void *dest, size_t destMax, int c, size_t count) {
    if (dest == nullptr) {
        return kBoundedInvalid;
    }
    if (!sane_size(destMax)) {
        return kBoundedRange;
    }
    std::memset(dest, c, std::min(count, destMax));
    // Callers clear secrets right before the memory dies; the fill must not be
    // dropped as a dead store.
    asm volatile("" : : "r"(dest) : "memory");
    return count > destMax ? kBoundedRange : kBoundedOk;
}

int strcpy_s(char *dest, size_t destMax, const char *src) {
    return string_copy(dest, destMax, src, destMax);
}

int strncpy_s(char *dest, size_t destMax, const char *src, size_t count) {
    return string_copy(dest, destMax, src, count);
}

int strcat_s(char *dest, size_t destMax, const char *src) {
    return string_append(dest, destMax, src, destMax);
}

int strncat_s(char *dest, size_t destMax, const char *src, size_t count) {
    return string_append(dest, destMax, src, count);
}

int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list args) {
    if (dest == nullptr || !sane_size(destMax)) {
        return kBoundedFormatFailed;
    }
    if (format == nullptr || count > destMax) {
        return fail_string(dest, kBoundedFormatFailed);
    }
    size_t limit = std::min(count, destMax - 1);
    int length = std::vsnprintf(dest, limit + 1, format, args);
    if (length < 0) {
        return fail_string(dest, kBoundedFormatFailed);
    }
    return length;
}

int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int length = vsnprintf_s(dest, destMax, count, format, args);
    va_end(args);
    return length;
}

int sprintf_s(char *dest, size_t destMax, const char *format, ...) {
    if (dest == nullptr || !sane_size(destMax)) {
        return kBoundedFormatFailed;
    }
    if (format == nullptr) {
        return fail_string(dest, kBoundedFormatFailed);
    }
    va_list args;
    va_start(args, format);
    int length = std::vsnprintf(dest, destMax, format, args);
    va_end(args);
    if (length < 0 || static_cast<size_t>(length) >= destMax) {
        return fail_string(dest, kBoundedFormatFailed);
    }
    return length;
}

char *strtok_s(char *str, const char *delim, char **context) {
    if (delim == nullptr || context == nullptr) {
        return nullptr;
    }
    char *token = str != nullptr ? str : *context;
    if (token == nullptr) {
        return nullptr;
    }
    token += std::strspn(token, delim);
    if (*token == '\0') {
        *context = token;
        return nullptr;
    }
    char *end = token + std::strcspn(token, delim);
    if (*end != '\0') {
        *end++ = '\0';
    }
    *context = end;
    return token;
}

// sscanf_s hands each directive on its own to sscanf, followed by %n to learn how
// much input it consumed. String conversions are first measured with a suppressed
// directive and then copied here, so the C library never writes into a caller's
// buffer without a bound.
namespace {

enum class Length { kNone, kChar, kShort, kLong, kLongLong, kMax, kSize, kPtrdiff, kLongDouble };

struct Directive {
    bool suppress = false;
    size_t width = 0;  // 0: none given
    Length length = Length::kNone;
    char conversion = '\0';
    std::string_view set;   // "[...]" of a %[ conversion
    std::string_view text;  // the whole directive, from '%' on
};

bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

Length parse_length(const char *&cursor) {
    switch (*cursor++) {
        case 'h':
            if (*cursor == 'h') {
                ++cursor;
                return Length::kChar;
            }
            return Length::kShort;
        case 'l':
            if (*cursor == 'l') {
                ++cursor;
                return Length::kLongLong;
            }
            return Length::kLong;
        case 'j':
            return Length::kMax;
        case 'z':
            return Length::kSize;
        case 't':
            return Length::kPtrdiff;
        case 'L':
            return Length::kLongDouble;
        default:
            --cursor;
            return Length::kNone;
    }
}

// The end of a scan set whose '[' is at `open`, or nullptr when it is not closed.
const char *scan_set_end(const char *open) {
    const char *cursor = open + 1;
    if (*cursor == '^') {
        ++cursor;
    }
    if (*cursor == ']') {
        ++cursor;
    }
    const char *close = std::strchr(cursor, ']');
    return close != nullptr ? close + 1 : nullptr;
}

// `cursor` points just after the '%'; on success it is left after the directive.
std::optional<Directive> parse_directive(const char *&cursor) {
    Directive directive;
    const char *begin = cursor - 1;
    if (*cursor == '*') {
        directive.suppress = true;
        ++cursor;
    }
    for (; std::isdigit(static_cast<unsigned char>(*cursor)) != 0; ++cursor) {
        directive.width = directive.width * 10 + static_cast<size_t>(*cursor - '0');
        if (directive.width > kBoundedMax) {
            return std::nullopt;
        }
    }
    directive.length = parse_length(cursor);
    directive.conversion = *cursor;
    if (directive.conversion == '[') {
        const char *end = scan_set_end(cursor);
        if (end == nullptr) {
            return std::nullopt;
        }
        directive.set = std::string_view(cursor, static_cast<size_t>(end - cursor));
        cursor = end;
    } else if (directive.conversion != '\0' &&
               std::strchr("diouxXaAeEfFgGcspn%", directive.conversion) != nullptr) {
        ++cursor;
    } else {
        return std::nullopt;
    }
    directive.text = std::string_view(begin, static_cast<size_t>(cursor - begin));
    return directive;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// Runs one directive (already ending in %n) on `input`; `target` is null when the
// directive is suppressed.
int scan_one(const char *input, const std::string &format, void *target, int *consumed) {
    if (target == nullptr) {
        return std::sscanf(input, format.c_str(), consumed);
    }
    return std::sscanf(input, format.c_str(), target, consumed);
}
#pragma GCC diagnostic pop

void store_count(Length length, void *target, std::ptrdiff_t count) {
    switch (length) {
        case Length::kChar:
            *static_cast<signed char *>(target) = static_cast<signed char>(count);
            break;
        case Length::kShort:
            *static_cast<short *>(target) = static_cast<short>(count);
            break;
        case Length::kLong:
            *static_cast<long *>(target) = static_cast<long>(count);
            break;
        case Length::kLongLong:
            *static_cast<long long *>(target) = static_cast<long long>(count);
            break;
        case Length::kMax:
            *static_cast<intmax_t *>(target) = static_cast<intmax_t>(count);
            break;
        case Length::kSize:
            *static_cast<size_t *>(target) = static_cast<size_t>(count);
            break;
        case Length::kPtrdiff:
            *static_cast<std::ptrdiff_t *>(target) = count;
            break;
        case Length::kNone:
        case Length::kLongDouble:
            *static_cast<int *>(target) = static_cast<int>(count);
            break;
    }
}

// Decodes `bytes` into target[0..size), terminated when `terminate`. False when the
// bytes are not valid multibyte text or the result does not fit.
bool store_wide(std::string_view bytes, wchar_t *target, size_t size, bool terminate) {
    std::mbstate_t state{};
    size_t written = 0;
    size_t reserve = terminate ? 1 : 0;
    while (!bytes.empty()) {
        wchar_t wide = 0;
        size_t used = std::mbrtowc(&wide, bytes.data(), bytes.size(), &state);
        if (used == static_cast<size_t>(-1) || used == static_cast<size_t>(-2) ||
            written + reserve >= size) {
            return false;
        }
        target[written++] = wide;
        bytes.remove_prefix(std::max<size_t>(used, 1));
    }
    if (terminate) {
        target[written] = L'\0';
    }
    return true;
}

bool store_narrow(std::string_view bytes, char *target, size_t size, bool terminate) {
    if (bytes.size() + (terminate ? 1 : 0) > size) {
        return false;
    }
    std::memcpy(target, bytes.data(), bytes.size());
    if (terminate) {
        target[bytes.size()] = '\0';
    }
    return true;
}

// The number of bytes holding `count` multibyte characters at the start of `input`,
// or nullopt when the input ends first or is not valid multibyte text.
std::optional<size_t> multibyte_span(const char *input, size_t count) {
    std::mbstate_t state{};
    size_t length = std::strlen(input);
    size_t offset = 0;
    for (size_t i = 0; i < count; ++i) {
        size_t used = std::mbrtowc(nullptr, input + offset, length - offset, &state);
        if (used == 0 || used == static_cast<size_t>(-1) || used == static_cast<size_t>(-2)) {
            return std::nullopt;
        }
        offset += used;
    }
    return offset;
}

class Scanner {
  public:
    Scanner(const char *buffer, va_list args) : start_(buffer), cursor_(buffer) {
        va_copy(args_, args);
    }
    ~Scanner() { va_end(args_); }
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    int run(const char *format);

  private:
    enum class Step { kDone, kInputFailure, kMatchFailure };
    struct Destination {
        void *target = nullptr;
        size_t size = 0;
    };

    void skip_space();
    Step match(char expected);
    Step convert(const Directive &d);
    Step numeric_field(const Directive &d);
    Step position_field(const Directive &d);
    Step text_field(const Directive &d);
    Step char_field(const Directive &d);
    Destination sized_destination(const Directive &d);
    Step store(const Directive &d, const Destination &dest, std::string_view bytes, bool terminate);
    Step advance(const Directive &d, size_t consumed);

    const char *start_;
    const char *cursor_;
    va_list args_;
    int assigned_ = 0;
    bool converted_ = false;
};

int Scanner::run(const char *format) {
    while (*format != '\0') {
        Step step = Step::kDone;
        if (is_space(*format)) {
            while (is_space(*format)) {
                ++format;
            }
            skip_space();
        } else if (*format != '%') {
            step = match(*format++);
        } else {
            ++format;
            std::optional<Directive> parsed = parse_directive(format);
            if (!parsed) {
                break;
            }
            step = convert(*parsed);
        }
        if (step == Step::kInputFailure) {
            return assigned_ == 0 && !converted_ ? EOF : assigned_;
        }
        if (step == Step::kMatchFailure) {
            break;
        }
    }
    return assigned_;
}

void Scanner::skip_space() {
    while (is_space(*cursor_)) {
        ++cursor_;
    }
}

Scanner::Step Scanner::match(char expected) {
    if (*cursor_ == '\0') {
        return Step::kInputFailure;
    }
    if (*cursor_ != expected) {
        return Step::kMatchFailure;
    }
    ++cursor_;
    return Step::kDone;
}

Scanner::Step Scanner::convert(const Directive &d) {
    switch (d.conversion) {
        case '%':
            skip_space();
            return match('%');
        case 'n':
            return position_field(d);
        case 's':
        case '[':
            return text_field(d);
        case 'c':
            return char_field(d);
        default:
            return numeric_field(d);
    }
}

Scanner::Step Scanner::advance(const Directive &d, size_t consumed) {
    cursor_ += consumed;
    converted_ = true;
    if (!d.suppress) {
        ++assigned_;
    }
    return Step::kDone;
}

Scanner::Step Scanner::numeric_field(const Directive &d) {
    void *target = d.suppress ? nullptr : va_arg(args_, void *);
    if (!d.suppress && target == nullptr) {
        return Step::kMatchFailure;
    }
    int consumed = -1;
    if (scan_one(cursor_, std::string(d.text) + "%n", target, &consumed) == EOF) {
        return Step::kInputFailure;
    }
    if (consumed < 0) {
        return Step::kMatchFailure;
    }
    return advance(d, static_cast<size_t>(consumed));
}

Scanner::Step Scanner::position_field(const Directive &d) {
    if (!d.suppress) {
        void *target = va_arg(args_, void *);
        if (target != nullptr) {
            store_count(d.length, target, cursor_ - start_);
        }
    }
    return Step::kDone;
}

Scanner::Destination Scanner::sized_destination(const Directive &d) {
    Destination dest;
    if (!d.suppress) {
        dest.target = va_arg(args_, void *);
        dest.size = va_arg(args_, unsigned int);
    }
    return dest;
}

Scanner::Step Scanner::store(const Directive &d, const Destination &dest, std::string_view bytes,
                             bool terminate) {
    if (d.suppress) {
        return Step::kDone;
    }
    if (dest.target == nullptr || dest.size == 0) {
        return Step::kMatchFailure;
    }
    bool stored = d.length == Length::kLong
                      ? store_wide(bytes, static_cast<wchar_t *>(dest.target), dest.size, terminate)
                      : store_narrow(bytes, static_cast<char *>(dest.target), dest.size, terminate);
    if (!stored) {
        if (d.length == Length::kLong) {
            static_cast<wchar_t *>(dest.target)[0] = L'\0';
        } else {
            static_cast<char *>(dest.target)[0] = '\0';
        }
        return Step::kMatchFailure;
    }
    return Step::kDone;
}

Scanner::Step Scanner::text_field(const Directive &d) {
    Destination dest = sized_destination(d);
    if (d.length != Length::kNone && d.length != Length::kLong) {
        return Step::kMatchFailure;
    }
    if (d.conversion == 's') {
        skip_space();
    }
    if (*cursor_ == '\0') {
        return Step::kInputFailure;
    }
    std::string measure = "%*";
    if (d.width != 0) {
        measure += std::to_string(d.width);
    }
    measure += d.conversion == 's' ? std::string_view("s") : d.set;
    measure += "%n";
    int consumed = -1;
    if (scan_one(cursor_, measure, nullptr, &consumed) == EOF) {
        return Step::kInputFailure;
    }
    if (consumed <= 0) {
        return Step::kMatchFailure;
    }
    std::string_view token(cursor_, static_cast<size_t>(consumed));
    Step step = store(d, dest, token, true);
    return step == Step::kDone ? advance(d, token.size()) : step;
}

Scanner::Step Scanner::char_field(const Directive &d) {
    Destination dest = sized_destination(d);
    if (d.length != Length::kNone && d.length != Length::kLong) {
        return Step::kMatchFailure;
    }
    size_t width = d.width != 0 ? d.width : 1;
    std::optional<size_t> bytes = width;
    if (d.length == Length::kLong) {
        bytes = multibyte_span(cursor_, width);
    } else if (strnlen(cursor_, width) < width) {
        bytes.reset();
    }
    if (!bytes) {
        return Step::kInputFailure;
    }
    Step step = store(d, dest, std::string_view(cursor_, *bytes), false);
    return step == Step::kDone ? advance(d, *bytes) : step;
}

}  // namespace

int sscanf_s(const char *buffer, const char *format, ...) {
    if (buffer == nullptr || format == nullptr) {
        return EOF;
    }
    va_list args;
    va_start(args, format);
    int assigned = Scanner(buffer, args).run(format);
    va_end(args);
    return assigned;
}
