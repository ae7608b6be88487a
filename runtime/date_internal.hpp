// Calendar arithmetic shared by the date and datetime modules.
#pragma once

#include <cstdint>
#include <cstring>

#include "udfkit/date.h"

extern "C" {
// Day number of day/month/year (internal form of mdy2date).
Date dmy2days(int32_t day, int32_t month, int32_t year);
}

namespace udfkit::date {

// Day numbers 1 ... kFastLast are the range in which LastYear/LastDate
// follow every conversion to year, month and day.
constexpr int32_t kFastLast = 217175;
// Day number of 1 January 1970.
constexpr int32_t kUnixEpochDay = 58440;

struct Ymd {
    int32_t year;
    int32_t month;  // 1 ... 12
    int32_t day;    // 1 ... 31
};

constexpr bool is_leap(int64_t y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

// Days from 1 January 1970 to y-m-d, proleptic Gregorian, any year.
constexpr int64_t days_from_civil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// Year, month and day of a day number.  In the range 1 ... kFastLast it
// leaves LastYear/LastDate at the start of the year it found.
Ymd split(Date n) noexcept;
// The year alone, with the same effect on LastYear/LastDate.
int32_t year_of(Date n) noexcept;

// "00" ... "99".
extern const char kTwoDigits[201];

inline char *put2(char *out, unsigned v) noexcept {  // v in 0 ... 99
    std::memcpy(out, kTwoDigits + 2 * v, 2);
    return out + 2;
}

inline char *put4(char *out, unsigned v) noexcept {  // v in 0 ... 9999
    return put2(put2(out, v / 100), v % 100);
}

// printf's %.Nd of v at out; returns the end.  No terminator.
char *put_padded_slow(char *out, int32_t v, int width) noexcept;

inline char *put_padded(char *out, int32_t v, int width) noexcept {
    if (width == 2 && v >= 0 && v < 100) return put2(out, static_cast<unsigned>(v));
    if (width == 4 && v >= 0 && v < 10000) return put4(out, static_cast<unsigned>(v));
    return put_padded_slow(out, v, width);
}

}  // namespace udfkit::date
