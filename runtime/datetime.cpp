// Datetime values: seconds since 1970 UTC, split and built in the local
// time zone; the date part of their text follows DbDateTime.
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "runtime/date_internal.hpp"
#include "udfkit/convert.h"

using namespace udfkit::date;

namespace {

// The date word and each time field are read through a work area of this
// size; a longer word or field is rejected.
constexpr size_t kWorkArea = 32;

DateTime fail() {
    SetConvertionError();
    return UDFKIT_NULL_DATETIME;
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

char setting_at(const char *s, size_t i) {
    return i < strnlen(s, sizeof DbDateTime) ? s[i] : '\0';
}

bool holds_separator(const char *text, const char *setting) {
    const char sep = setting_at(setting, 4);
    return sep == '\0' || std::strchr(text, sep) != nullptr;
}

// One time field, read the way strtol reads it; false when it is longer
// than the work area.
bool time_field(const char *begin, const char *end, long *value) {
    const size_t len = static_cast<size_t>(end - begin);
    if (len >= kWorkArea) return false;
    char area[kWorkArea];
    std::memcpy(area, begin, len);
    area[len] = '\0';
    *value = std::strtol(area, nullptr, 10);
    return true;
}

// The digits of the date word [text, end): their count (0 when there is
// none), or -1 for a letter or more than 8 digits.
int date_digits(const char *text, const char *end, int (&digits)[8]) {
    int count = 0;
    for (const char *q = text; q < end; ++q) {
        const unsigned char c = static_cast<unsigned char>(*q);
        if (c >= '0' && c <= '9') {
            if (count == 8) return -1;
            digits[count++] = c - '0';
        } else if (std::isalpha(c)) {
            return -1;
        }
    }
    return count;
}

// The day, month and year of 6 or 8 digits in the order of DbDateTime (a
// two-digit year takes its century from the settings) into tm; false for a
// date that does not exist or is out of the calendar.
bool read_date(const int (&digits)[8], int count, struct tm *tm) {
    if (count != 6 && count != 8) return false;
    int day = 0, month = 0, year = 0, at = 0;
    // A setting naming the same letter twice would ask for more digits
    // than the text has: such a text is refused before reading past them.
    bool short_of_digits = false;
    auto take = [&](int n) {
        if (at + n > count) {
            short_of_digits = true;
            return 0;
        }
        int v = 0;
        for (int j = 0; j < n; ++j) v = v * 10 + digits[at++];
        return v;
    };
    for (size_t i = 0; i < 3; ++i) {
        switch (setting_at(DbDateTime, i)) {
        case 'D': day = take(2); break;
        case 'M': month = take(2); break;
        case 'Y':
            if (count == 8) {
                year = take(4);
            } else {
                year = take(2);
                year += year <= 50 ? Siecle : SieclePrecedent;
            }
            break;
        default: break;
        }
    }
    if (short_of_digits) return false;
    if (year < 1810 || year > 2405 || month < 1 || month > 12) return false;
    const int32_t *lengths = DaysOfYear[year - 1810] ? maxjoursBissext : maxjours;
    if (day > lengths[month - 1]) return false;
    tm->tm_year = year - 1900;
    tm->tm_mon = month - 1;
    tm->tm_mday = day;
    return true;
}

// Up to three time fields "hh:mm:ss" (missing ones are 0); false for a
// field too long or out of its range.
bool read_time(const char *p, long (&field)[3]) {
    for (int i = 0; i < 3 && *p; ++i) {
        const char *end = p;
        while (*end && *end != ':') ++end;
        if (!time_field(p, end, &field[i])) return false;
        p = end;
        while (*p == ':') ++p;
    }
    return field[0] >= 0 && field[0] <= 23 && field[1] >= 0 && field[1] <= 59 && field[2] >= 0 &&
           field[2] <= 59;
}

}  // namespace

extern "C" {

UDFKIT_API DateTime Char2GMT(const char *text) {
    if (!text) return UDFKIT_NULL_DATETIME;
    const char *p = text;
    while (*p && !is_blank(*p)) ++p;
    if (p == text) return UDFKIT_NULL_DATETIME;
    if (static_cast<size_t>(p - text) >= kWorkArea) return fail();

    int digits[8];
    const int count = date_digits(text, p, digits);
    if (count == 0) return UDFKIT_NULL_DATETIME;
    struct tm tm {};
    long field[3] = {0, 0, 0};
    if (count < 0 || !read_date(digits, count, &tm)) return fail();
    while (is_blank(*p)) ++p;
    if (!read_time(p, field)) return fail();
    tm.tm_hour = static_cast<int>(field[0]);
    tm.tm_min = static_cast<int>(field[1]);
    tm.tm_sec = static_cast<int>(field[2]);
    tm.tm_isdst = -1;
    const time_t t = std::mktime(&tm);
    if (t == static_cast<time_t>(-1)) return fail();
    return t;
}

UDFKIT_API DateTime _is_datetime(const char *text) {
    if (!text) return UDFKIT_NULL_DATETIME;
    if (!holds_separator(text, DbDate) && !holds_separator(text, DbDateTime))
        return UDFKIT_NULL_DATETIME;
    if (!std::isdigit(static_cast<unsigned char>(text[0]))) return UDFKIT_NULL_DATETIME;
    if (strnlen(text, 21) != 20 || !std::strchr(text, ':')) return UDFKIT_NULL_DATETIME;
    return Char2GMT(text);
}

UDFKIT_API void GMT2Char(DateTime t, char *out) {
    out[0] = '\0';
    if (t < 0) return;
    const time_t tt = static_cast<time_t>(t);
    const struct tm *tm = std::localtime(&tt);
    if (!tm) return;

    char format[32];
    size_t n = 0;
    const char sep = setting_at(DbDateTime, 4);
    for (size_t i = 0; i < 3; ++i) {
        const char *piece = "";
        switch (setting_at(DbDateTime, i)) {
        case 'D': piece = "%d"; break;
        case 'M': piece = "%m"; break;
        case 'Y': piece = setting_at(DbDateTime, 3) == '2' ? "%y" : "%Y"; break;
        default: break;
        }
        for (; *piece; ++piece) format[n++] = *piece;
        if (i < 2 && sep) {
            // A '%' separator is written as itself, not read as a conversion.
            if (sep == '%') format[n++] = '%';
            format[n++] = sep;
        }
    }
    std::memcpy(format + n, " %H:%M:%S", 10);
    // A text that does not fit (a year past 9999) leaves the empty text.
    if (StrFTime(out, 20, format, tm) == 0) out[0] = '\0';
}

UDFKIT_API DateTime date2GMT(Date n) {
    const Ymd d = split(n);
    struct tm tm {};
    tm.tm_year = d.year - 1900;
    tm.tm_mon = d.month - 1;
    tm.tm_mday = d.day;
    tm.tm_isdst = -1;
    const time_t t = std::mktime(&tm);
    if (t == static_cast<time_t>(-1)) return fail();
    return t;
}

UDFKIT_API Date GMT2date(DateTime t) {
    const time_t tt = static_cast<time_t>(t);
    const struct tm *tm = std::localtime(&tt);
    // A moment whose year does not fit the C library's fields has no day.
    if (!tm) return UDFKIT_NULL_DATE;
    return dmy2days(tm->tm_mday, tm->tm_mon + 1, tm->tm_year + 1900);
}

}  // extern "C"
