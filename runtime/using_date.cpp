// Date picture masks and the SQL function format, which lays a value out
// under a mask: a date through the date masks, anything else as a number
// text through the number masks.
#include <cstdint>
#include <cstring>

#include "sqlfunc/hostcall.hpp"
#include "udfkit/date.h"
#include "udfkit/masks.h"
#include "udfkit/sqlfunc.h"

// Exported through their declarations in udfkit/masks.h.
extern "C" {

const char *const Ar_jour[7] = {"Sun", "Mon", "Tue", "Wen", "Thu", "Fri", "Sat"};
const char *const Ar_mois[12] = {"Jan", "Fev", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // extern "C"

namespace {

constexpr int32_t kMaskCap = 100;
constexpr int32_t kValueCap = 1024;
constexpr int32_t kNullDate = INT32_MIN;

// The last two decimal digits of v, whatever its sign or size; for the
// parts of a real date (day, month) this is their "%2.2d" text.
void two_digits(char *dst, int32_t v) {
    int32_t r = v % 100;
    if (r < 0) r = -r;
    dst[0] = static_cast<char>('0' + r / 10);
    dst[1] = static_cast<char>('0' + r % 10);
}

struct DateParts {
    char day[2], month[2], year[4];
    const char *weekday_name, *month_name;
};

DateParts parts_of(Date date) {
    DateParts p;
    const int32_t wd = weekdaydate(date);
    const int32_t d = daydate(date);
    const int32_t m = monthdate(date);
    const int32_t y = yeardate(date);
    two_digits(p.day, d);
    two_digits(p.month, m);
    // "%4.4d" of the year.  Years outside 0..9999 (day numbers millions of
    // days from today) would need more than four characters; the field
    // keeps the run's width with the year's last four digits, so yy and
    // yyyy agree.
    int64_t mag = y < 0 ? -static_cast<int64_t>(y) : y;
    for (int i = 3; i >= 0; --i, mag /= 10) p.year[i] = static_cast<char>('0' + mag % 10);
    // Parts outside their range cannot index the name tables: such a date
    // shows "???" for the name.
    p.weekday_name = (wd >= 0 && wd <= 6) ? Ar_jour[wd] : "???";
    p.month_name = (m >= 1 && m <= 12) ? Ar_mois[m - 1] : "???";
    return p;
}

// Replaces the complete run of `len` letters `c` starting at run.
void replace_run(char *run, char c, size_t len, const DateParts &p) {
    switch (c) {
    case 'd':
        if (len == 2) std::memcpy(run, p.day, 2);
        else if (len == 3) std::memcpy(run, p.weekday_name, 3);
        break;
    case 'm':
        if (len == 2) std::memcpy(run, p.month, 2);
        else if (len == 3) std::memcpy(run, p.month_name, 3);
        break;
    case 'y':
        if (len == 2) std::memcpy(run, p.year + 2, 2);
        else if (len == 3) std::memcpy(run + 1, p.year + 2, 2);
        else if (len == 4) std::memcpy(run, p.year, 4);
        break;
    default: break;
    }
}

}  // namespace

extern "C" {

UDFKIT_API int32_t _mk_using_date(Date date, const char *mask, char *out) {
    if (!out) return 0;
    if (!mask) mask = "";
    const DateParts parts = parts_of(date);
    const size_t len = std::strlen(mask);
    std::memcpy(out, mask, len + 1);

    // Runs are found from the end of the mask.  A run of m closes at 4
    // letters and a run of y at 5 without being replaced; the letters to
    // their left start a new run.
    size_t end = len;  // the run being looked at ends before `end`
    while (end > 0) {
        const char c = out[end - 1];
        if (c != 'd' && c != 'm' && c != 'y') {
            --end;
            continue;
        }
        const size_t cap = c == 'm' ? 4 : c == 'y' ? 5 : SIZE_MAX;
        size_t start = end - 1;
        while (start > 0 && out[start - 1] == c && end - start < cap) --start;
        const size_t run = end - start;
        if (run < cap) replace_run(out + start, c, run, parts);
        end = start;
    }
    return 0;
}

// format(value, mask).  Nulls: a null date (the null day number, or day 0,
// which the library's null test also takes for a missing date) and an
// empty value text (how a null of any other type pops as text, and the
// null char itself) give the empty text, the null char, rather than a
// layout of a day 5.9 million years back or of the number zero.
UDFKIT_API void format(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                       int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 200)) return;
    udfkit::guarded([&] {
        char mask[kMaskCap];
        udfkit::pop_into(t, mask);

        // A mask is at most 99 characters, so the result always fits.
        char out[1024];
        out[0] = '\0';
        const HostValueDesc *desc = t->PeekType ? t->PeekType(-1) : nullptr;
        if (desc && desc->type == UDF_T_DATE) {
            int32_t day = kNullDate;
            t->PopDate(&day);
            if (day != kNullDate && day != 0) _mk_using_date(day, mask, out);
        } else {
            char value[kValueCap];
            udfkit::pop_into(t, value);
            if (value[0]) _mk_using_nombre(value, mask, out);
        }
        t->PushString(out);
    });
}

}  // extern "C"
