// ASN.1 UTCTime / GeneralizedTime to calendar fields and to seconds since 1970.
#include <cstdint>

#include "tavo/cmsv.h"

namespace {

constexpr uint32_t kTagUtcTime = 23;
constexpr uint32_t kTagGeneralizedTime = 24;
constexpr uint32_t kUtcTimeLength = 13;          // YYMMDDHHMMSSZ
constexpr uint32_t kGeneralizedTimeLength = 15;  // YYYYMMDDHHMMSSZ

// Two ASCII digits; other characters are not rejected and give a wrong value.
uint32_t two_digits(const uint8_t *p) {
    return static_cast<uint32_t>(p[0] - '0') * 10u + static_cast<uint32_t>(p[1] - '0');
}

}  // namespace

extern "C" {

TAVO_API uint32_t cmsv_convert_from_time(const CmsvAsnOcts *time, CmsvDateTime *out) {
    if (time == nullptr || out == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const uint8_t *p = time->data;
    uint32_t year = 0;
    if (time->tag == kTagUtcTime && time->len == kUtcTimeLength && p != nullptr) {
        year = two_digits(p);
        year += year > 49 ? 1900u : 2000u;
        p += 2;
    } else if (time->tag == kTagGeneralizedTime && time->len == kGeneralizedTimeLength &&
               p != nullptr) {
        year = two_digits(p) * 100u + two_digits(p + 2);
        p += 4;
    } else {
        return CMSV_ERR_TIME_FORMAT;
    }
    out->year = static_cast<uint16_t>(year);
    out->month = static_cast<uint8_t>(two_digits(p));
    out->day = static_cast<uint8_t>(two_digits(p + 2));
    out->hour = static_cast<uint8_t>(two_digits(p + 4));
    out->minute = static_cast<uint8_t>(two_digits(p + 6));
    out->second = two_digits(p + 8);
    return CMSV_OK;
}

// Days from a March-based year: February is the year's last month, so leap days
// fall at its end and 367*month/12 gives the day offset of each month start.
TAVO_API uint64_t cmsv_mktime(const CmsvDateTime *time) {
    if (time == nullptr) {
        return 0;
    }
    int64_t year = time->year;
    if (year < 1901) {
        year += 1900;
    }
    int64_t month = static_cast<int64_t>(time->month) - 2;
    if (month < 1) {
        month += 12;
        year -= 1;
    }
    const int64_t days =
        365 * year + year / 4 - year / 100 + year / 400 + 367 * month / 12 + time->day - 719499;
    const int64_t seconds = ((days * 24 + time->hour) * 60 + time->minute) * 60 + time->second;
    return static_cast<uint64_t>(seconds);
}

TAVO_API uint32_t cmsv_convert_datetime_to_time(const CmsvAsnOcts *time, int64_t *seconds) {
    if (time == nullptr || seconds == nullptr) {
        return CMSV_ERR_PARAM;
    }
    CmsvDateTime dt{};
    const uint32_t status = cmsv_convert_from_time(time, &dt);
    if (status != CMSV_OK) {
        return status;
    }
    *seconds = static_cast<int64_t>(cmsv_mktime(&dt));
    return CMSV_OK;
}

}  // extern "C"
