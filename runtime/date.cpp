// Day-number calendar, date settings, date text and date parts.
//
// Day numbers and calendar dates convert in closed form for every 32-bit
// day number.  The LastYear/LastDate pair is kept as a year-by-year walk
// from 1810 would leave it: after each conversion of a day number in
// 1 ... 217175 it holds the start of that day's year; other day numbers
// leave it alone.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "runtime/date_internal.hpp"
#include "udfkit/convert.h"

using namespace udfkit::date;

namespace {

constexpr int64_t kDay1810 = -kUnixEpochDay + 1;  // days_from_civil(1810, 1, 1)
static_assert(days_from_civil(1810, 1, 1) == kDay1810);

constexpr int32_t days_to_year0(int i) {
    return i >= 1190 ? 0 : static_cast<int32_t>(days_from_civil(1810 + i, 1, 1) - kDay1810);
}
constexpr unsigned char leap_entry(int i) { return i < 1190 && is_leap(1810 + i) ? 1 : 0; }

}  // namespace

// The year tables, computed at build time.
#define UDFKIT_R10(F, b) F(b), F(b + 1), F(b + 2), F(b + 3), F(b + 4), F(b + 5), F(b + 6), \
                         F(b + 7), F(b + 8), F(b + 9)
#define UDFKIT_R100(F, b) UDFKIT_R10(F, b), UDFKIT_R10(F, b + 10), UDFKIT_R10(F, b + 20), \
    UDFKIT_R10(F, b + 30), UDFKIT_R10(F, b + 40), UDFKIT_R10(F, b + 50),                  \
    UDFKIT_R10(F, b + 60), UDFKIT_R10(F, b + 70), UDFKIT_R10(F, b + 80), UDFKIT_R10(F, b + 90)
#define UDFKIT_R1191(F) UDFKIT_R100(F, 0), UDFKIT_R100(F, 100), UDFKIT_R100(F, 200),      \
    UDFKIT_R100(F, 300), UDFKIT_R100(F, 400), UDFKIT_R100(F, 500), UDFKIT_R100(F, 600),   \
    UDFKIT_R100(F, 700), UDFKIT_R100(F, 800), UDFKIT_R100(F, 900), UDFKIT_R100(F, 1000),  \
    UDFKIT_R10(F, 1100), UDFKIT_R10(F, 1110), UDFKIT_R10(F, 1120), UDFKIT_R10(F, 1130),   \
    UDFKIT_R10(F, 1140), UDFKIT_R10(F, 1150), UDFKIT_R10(F, 1160), UDFKIT_R10(F, 1170),   \
    UDFKIT_R10(F, 1180), F(1190)

extern "C" {

const int32_t maxjours[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const int32_t maxjoursBissext[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const int32_t DaysToYear0[1191] = {UDFKIT_R1191(days_to_year0)};
const unsigned char DaysOfYear[1191] = {UDFKIT_R1191(leap_entry)};

UDFKIT_API int32_t LastYear = 1810;
UDFKIT_API int32_t LastDate = 0;

UDFKIT_API char DbDate[30] = "DMY4/";
UDFKIT_API char DbDateTime[30] = "DMY4/";
UDFKIT_API int32_t Siecle = 0;
UDFKIT_API int32_t SieclePrecedent = 0;
UDFKIT_API int32_t FixedTime = 0;

}  // extern "C"

#undef UDFKIT_R1191
#undef UDFKIT_R100
#undef UDFKIT_R10

static_assert(days_to_year0(3) == 1096 && days_to_year0(160) == 58439 &&
              days_to_year0(595) == 217320 && days_to_year0(1189) == 434274);

namespace udfkit::date {

namespace {

// Day numbers shifted to count from 1 March of a year far enough back
// (14700 cycles of 400 years before year 0) that every 32-bit day number
// counts from 0.  Years start in March so that the leap day ends them.
constexpr int64_t kCycles = 14700;
constexpr int64_t kMarchShift = 719468 - kUnixEpochDay + 146097 * kCycles;
static_assert(kMarchShift + INT32_MIN >= 0);

// The year counted from March (shifted) and the day within it (0 ... 365,
// 0 = 1 March).
struct MarchYear {
    uint32_t year;
    uint32_t day;
};

inline MarchYear march_year(Date n) noexcept {
    // Centuries: a 400-year cycle of 146097 days is four centuries of
    // 36524.25 days, so counted in quarter days every century is as long.
    const auto quarter = static_cast<uint64_t>(4 * (n + kMarchShift) + 3);
    const uint32_t century = static_cast<uint32_t>(quarter / 146097);
    const uint32_t in_century = static_cast<uint32_t>(quarter % 146097) | 3;
    // Years of the century: 1461 days per four years, as a multiply
    // whose high half is the year and whose low half the fraction of it
    // (2939745 / 2^32 is 4 / 1461 to within the rounding the range allows).
    const uint64_t product = uint64_t{2939745} * in_century;
    const auto year = static_cast<uint32_t>(product >> 32);
    const uint32_t day = static_cast<uint32_t>(product) / 2939745 / 4;
    return {100 * century + year, day};
}

// Month (3 ... 14 from March) and day (0-based) of a day of a March year:
// the months follow a 153-days-in-five pattern, 2141 / 65536 ~ 5 / 153.
struct MonthDay {
    uint32_t month;
    uint32_t day;
};

inline MonthDay month_day(uint32_t march_day) noexcept {
    const uint32_t x = 2141 * march_day + 197913;
    return {x >> 16, (x & 0xffff) / 2141};
}

constexpr int32_t kYearShift = static_cast<int32_t>(400 * kCycles);

// The civil year of a March year whose day is `day`: January and
// February (days from 306 on) belong to the next civil year.
inline int32_t civil_year(MarchYear y) noexcept {
    return static_cast<int32_t>(y.year) - kYearShift + (y.day >= 306);
}

// LastYear/LastDate follow days 1 ... kFastLast to the start of their year.
inline void keep_last_year(Date n, int32_t year) noexcept {
    if (static_cast<uint32_t>(n) - 1 < static_cast<uint32_t>(kFastLast)) {
        LastYear = year;
        LastDate = DaysToYear0[year - 1810];
    }
}

inline Ymd split_here(Date n) noexcept {
    const MarchYear y = march_year(n);
    const MonthDay md = month_day(y.day);
    const bool next = y.day >= 306;
    const Ymd r{civil_year(y), static_cast<int32_t>(next ? md.month - 12 : md.month),
                static_cast<int32_t>(md.day + 1)};
    keep_last_year(n, r.year);
    return r;
}

}  // namespace

Ymd split(Date n) noexcept { return split_here(n); }

int32_t year_of(Date n) noexcept {
    const int32_t year = civil_year(march_year(n));
    keep_last_year(n, year);
    return year;
}

#define UDFKIT_D10(t) t "0" t "1" t "2" t "3" t "4" t "5" t "6" t "7" t "8" t "9"
const char kTwoDigits[201] =
    UDFKIT_D10("0") UDFKIT_D10("1") UDFKIT_D10("2") UDFKIT_D10("3") UDFKIT_D10("4")
    UDFKIT_D10("5") UDFKIT_D10("6") UDFKIT_D10("7") UDFKIT_D10("8") UDFKIT_D10("9");
#undef UDFKIT_D10

char *put_padded_slow(char *out, int32_t v, int width) noexcept {
    int64_t x = v;
    if (x < 0) {
        *out++ = '-';
        x = -x;
    }
    char digits[12];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + x % 10);
        x /= 10;
    } while (x);
    for (int i = n; i < width; ++i) *out++ = '0';
    while (n) *out++ = digits[--n];
    return out;
}

}  // namespace udfkit::date

namespace {

int64_t floor_div(int64_t a, int64_t b) {
    int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

// dmy2days without the 32-bit cut.  A month outside 1 ... 12 carries into
// the year (month 13 is January of the next year, month 0 December of the
// previous one), so no table is ever indexed by it.
int64_t dmy2days_wide(int64_t day, int64_t month, int64_t year) {
    const int64_t m0 = month - 1;
    const int64_t carry = floor_div(m0, 12);
    year += carry;
    month = m0 - carry * 12 + 1;
    return days_from_civil(year, month, 1) + kUnixEpochDay + (day - 1);
}

// dmy2days_wide for a valid month, through the year tables in 1810 ...
// 2404 (the years texts mostly hold).
int64_t parsed_day_number(int64_t day, int32_t month, int64_t year) {
    static constexpr int32_t kBefore[2][12] = {
        {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334},
        {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335}};
    if (year >= 1810 && year <= 2404) {
        const auto i = static_cast<size_t>(year - 1810);
        return DaysToYear0[i] + kBefore[DaysOfYear[i]][month - 1] + day;
    }
    return dmy2days_wide(day, month, year);
}

// Position i of a settings area, or 0 past its end.
char setting_at(const char *s, size_t i) {
    return i < strnlen(s, sizeof DbDate) ? s[i] : '\0';
}

// True when the text holds the separator of the setting; a setting that
// ends before its separator counts as contained in every text.
bool holds_separator(const char *text, const char *setting) {
    const char sep = setting_at(setting, 4);
    return sep == '\0' || std::strchr(text, sep) != nullptr;
}

int64_t complete_year(int64_t y) {
    if (y > 99) return y;
    return y + (y <= 50 ? Siecle : SieclePrecedent);
}

int32_t month_length(int64_t year, int32_t month) {
    return is_leap(year) ? maxjoursBissext[month - 1] : maxjours[month - 1];
}

Date fail() {
    SetConvertionError();
    return 0;
}

// Copies an environment value into a settings area, cut to the area, and
// appends the separator when the value stops before it.
void read_setting(const char *name, char *area, char sep) {
    const char *v = std::getenv(name);
    if (!v || !*v) return;
    // A longer value is cut: only its first five characters mean anything.
    size_t n = strnlen(v, sizeof DbDate - 1);
    std::memcpy(area, v, n);
    area[n] = '\0';
    if (n <= 4) {
        area[n] = sep;
        area[n + 1] = '\0';
    }
}

}  // namespace

extern "C" {

Date dmy2days(int32_t day, int32_t month, int32_t year) {
    // Day numbers beyond the 32-bit range wrap, as 32-bit arithmetic would.
    return static_cast<Date>(static_cast<uint32_t>(dmy2days_wide(day, month, year)));
}

UDFKIT_API Date mdy2date(int32_t month, int32_t day, int32_t year) {
    return dmy2days(day, month, year);
}

UDFKIT_API int32_t daydate(Date n) { return split_here(n).day; }
UDFKIT_API int32_t monthdate(Date n) { return split_here(n).month; }
UDFKIT_API int32_t yeardate(Date n) { return year_of(n); }

UDFKIT_API int32_t weekdaydate(Date n) {
    const int32_t r = n % 7;
    return r < 0 ? r + 7 : r;
}

UDFKIT_API char *date2char(Date n, char *out) {
    const Ymd d = split(n);
    char setting[5] = {};
    std::memcpy(setting, DbDate, strnlen(DbDate, sizeof setting));
    const bool two_digit_year = setting[3] == '2';
    const char sep = setting[4];
    char *p = out;
    for (size_t i = 0; i < 3; ++i) {
        // A position naming no field writes nothing.
        switch (setting[i]) {
        case 'D': p = put_padded(p, d.day, 2); break;
        case 'M': p = put_padded(p, d.month, 2); break;
        case 'Y':
            p = two_digit_year ? put_padded(p, d.year % 100, 2) : put_padded(p, d.year, 4);
            break;
        default: break;
        }
        if (i < 2 && sep) *p++ = sep;
    }
    *p = '\0';
    return p;
}

UDFKIT_API Date todaydate(void) {
    const time_t now = FixedTime ? static_cast<time_t>(FixedTime) : std::time(nullptr);
    const struct tm *tm = std::localtime(&now);
    if (!tm) return UDFKIT_NULL_DATE;
    return dmy2days(tm->tm_mday, tm->tm_mon + 1, tm->tm_year + 1900);
}

UDFKIT_API Date Char2Date(const char *text, const char *format) {
    if (!text || !*text) return 0;
    if (text[0] == 't' && std::strcmp(text, "today") == 0) return todaydate();
    const size_t len = strnlen(text, 21);
    if (len > 20) return fail();
    if (!format) format = "";
    if (format[0] && format[0] == format[1]) {
        if (std::strcmp(format, "DDMMYYYY") == 0) format = "DMY4";
        else if (std::strcmp(format, "MMDDYYYY") == 0) format = "MDY4";
    }
    char letter[3] = {};
    for (int i = 0; i < 3 && format[i]; ++i) letter[i] = format[i];

    // At most 20 digits in all: 64 bits would overflow only past 18 digits
    // in one field, so a field stops growing once it is far out of range.
    int64_t f[3] = {0, 0, 0};
    int k = 0;
    for (size_t i = 0; i < len; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= '0' && c <= '9') {
            if (f[k] < 100000000000LL) f[k] = f[k] * 10 + (c - '0');
        } else if (std::isalpha(c)) {
            return fail();
        } else {
            if (k == 2) return fail();
            ++k;
        }
    }
    if (k < 2) {
        const int64_t v = f[0];
        if (len == 6 || (len == 8 && letter[0] == 'Y')) {
            f[0] = v / 10000; f[1] = v / 100 % 100; f[2] = v % 100;
        } else if (len == 8 && (letter[0] == 'D' || letter[0] == 'M')) {
            // Month-first texts split like day-first ones, 2, 2 and 4
            // digits (mmddyyyy), so that "MMDDYYYY" reads its own layout.
            f[0] = v / 1000000; f[1] = v / 10000 % 100; f[2] = v % 10000;
        } else if (len != 8) {
            return fail();
        }
    }
    int64_t day = 0, month = 0, year = 0;
    for (int i = 0; i < 3; ++i) {
        if (letter[i] == 'D') day = f[i];
        else if (letter[i] == 'M') month = f[i];
        else if (letter[i] == 'Y') year = f[i];
    }
    year = complete_year(year);
    if (day > 31 || month > 12 || month == 0) return fail();
    if (day > month_length(year, static_cast<int32_t>(month))) return fail();
    const int64_t n = parsed_day_number(day, static_cast<int32_t>(month), year);
    // A year too far out for a 32-bit day number is as unusable as a bad day.
    if (n < INT32_MIN || n > INT32_MAX) return fail();
    return static_cast<Date>(n);
}

UDFKIT_API Date char2date(const char *text) { return Char2Date(text, DbDate); }

UDFKIT_API int32_t _isdateFast(const char *text) {
    if (!text) return 0;
    return holds_separator(text, DbDate) || holds_separator(text, DbDateTime);
}

UDFKIT_API Date _is_date(const char *text) {
    if (!_isdateFast(text)) return 0;
    if (!std::isdigit(static_cast<unsigned char>(text[0]))) return 0;
    if (strnlen(text, 21) > 20) return 0;
    return Char2Date(text, DbDate);
}

UDFKIT_API void _date_init(void) {
    read_setting("DBDATE", DbDate, '/');
    read_setting("DBDATETIME", DbDateTime, '-');

    const time_t now = std::time(nullptr);
    if (const struct tm *tm = std::localtime(&now)) {
        const int64_t y = static_cast<int64_t>(tm->tm_year) + 1900;
        Siecle = static_cast<int32_t>(100 * floor_div(y, 100));
        SieclePrecedent = Siecle - 100;
    }

    const char *today = std::getenv("DBTODAY");
    if (today && *today) {
        // Parsing here must not leave a failure for the host's next read of
        // the conversion error flag.
        const int32_t pending = IsConvertionError();
        const Date d = char2date(today);
        const DateTime t = d ? date2GMT(d) : UDFKIT_NULL_DATETIME;
        IsConvertionError();
        if (pending) SetConvertionError();
        // A date that does not parse, or whose midnight lies outside the
        // 32-bit seconds (before 14 December 1901, after 18 January 2038),
        // freezes nothing: today then follows the clock.
        FixedTime = (t >= INT32_MIN && t <= INT32_MAX) ? static_cast<int32_t>(t) : 0;
    }
}

}  // extern "C"
