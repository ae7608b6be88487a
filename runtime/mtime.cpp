// StrFTime: broken-down time to text under %-conversions, with fixed
// English names whatever the process locale.
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "runtime/date_internal.hpp"
#include "udfkit/date.h"

extern "C" {
const char *const __time_C[43] = {
    "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat",
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday",
    "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec",
    "January", "February", "March", "April", "May", "June", "July", "August", "September",
    "October", "November", "December",
    "AM", "PM",
    "%a %b %d %H:%M:%S %Y",
    "%m/%d/%y",
    "%H:%M:%S",
};
}

namespace {

enum class Pad { Zero, Blank, Unsigned };

// The text printf gives for v under "%.Nd" (Zero), "%Nd" (Blank) or
// "%.Nu" (Unsigned), N = width, at buf; returns its length.
int number_text(char *buf, long long v, int width, Pad pad) {
    char digits[24];
    int n = 0;
    bool neg = false;
    unsigned long long x;
    if (pad == Pad::Unsigned) {
        x = static_cast<unsigned>(static_cast<int>(v));
    } else if (v < 0) {
        neg = true;
        x = 0ULL - static_cast<unsigned long long>(v);
    } else {
        x = static_cast<unsigned long long>(v);
    }
    do {
        digits[n++] = static_cast<char>('0' + x % 10);
        x /= 10;
    } while (x);
    int len = 0;
    if (pad == Pad::Blank) {
        for (int i = n + neg; i < width; ++i) buf[len++] = ' ';
        if (neg) buf[len++] = '-';
    } else {
        if (neg) buf[len++] = '-';
        for (int i = n; i < width; ++i) buf[len++] = '0';
    }
    while (n) buf[len++] = digits[--n];
    return len;
}

// Week of the year, given the weekday counted from the week's first day.
long long week_of_year(long long wday_from_first, long long yday) {
    long long w = wday_from_first;
    if (w < 0) w += 7;
    const long long d = yday - w;
    return d <= 0 ? 0 : (d + 6) / 7;
}

const char *table_entry(int base, int count, int index) {
    // Out-of-range fields name nothing rather than read past the table.
    return index >= 0 && index < count ? __time_C[base + index] : "";
}

// The text being produced: n characters so far, in out (or only counted
// when out is null), never reaching max.
struct Writer {
    char *out;
    size_t max;
    size_t n = 0;

    bool put(const char *s, size_t len) {
        if (n + len >= max) return false;
        if (out) std::memcpy(out + n, s, len);
        n += len;
        return true;
    }

    bool put_num(long long v, int width, Pad pad) {
        if (pad != Pad::Blank && v >= 0 && (width == 2 ? v < 100 : width == 4 && v < 10000)) {
            if (n + static_cast<size_t>(width) >= max) return false;
            if (out) {
                if (width == 2) udfkit::date::put2(out + n, static_cast<unsigned>(v));
                else udfkit::date::put4(out + n, static_cast<unsigned>(v));
            }
            n += static_cast<size_t>(width);
            return true;
        }
        char buf[32];
        const int len = number_text(buf, v, width, pad);
        // A counting call counts the declared width, whatever the field
        // prints; a field that does not come out at its width fails a
        // writing call.
        if (!out) return put(buf, static_cast<size_t>(width));
        if (len != width) return false;
        return put(buf, static_cast<size_t>(len));
    }

    // A composite conversion formats its sub-format on the rest of the
    // area; when that fails it contributes nothing.
    void composite(const char *sub, const struct tm *t) {
        const int32_t r = StrFTime(out ? out + n : nullptr, max - n, sub, t);
        if (r > 0) n += static_cast<size_t>(r);
    }
};

// The name a conversion writes, or null for the other conversions.
const char *conversion_name(char c, const struct tm *t) {
    switch (c) {
    case 'a': return table_entry(0, 7, t->tm_wday);
    case 'A': return table_entry(7, 7, t->tm_wday);
    case 'b':
    case 'h': return table_entry(14, 12, t->tm_mon);
    case 'B': return table_entry(26, 12, t->tm_mon);
    // An hour outside 0 ... 23 counts as morning below 12.
    case 'p': return __time_C[t->tm_hour < 12 ? 38 : 39];
    case 'Z': {
        if (t->tm_isdst < 0) return "";
        const char *z = tzname[t->tm_isdst > 0 ? 1 : 0];
        return z ? z : "";
    }
    default: return nullptr;
    }
}

// One conversion other than a name; false when the call fails.  An
// unknown conversion produces nothing.
bool conversion(Writer &w, char c, const struct tm *t) {
    const long long year = static_cast<long long>(t->tm_year) + 1900;
    const int h12 = t->tm_hour > 12 ? t->tm_hour - 12 : t->tm_hour == 0 ? 12 : t->tm_hour;
    switch (c) {
    case 'c': w.composite(__time_C[40], t); return true;
    case 'C': return w.put_num(year / 100, 2, Pad::Zero);
    case 'd': return w.put_num(t->tm_mday, 2, Pad::Zero);
    case 'D': w.composite("%m/%d/%y", t); return true;
    case 'e': return w.put_num(t->tm_mday, 2, Pad::Blank);
    case 'H': return w.put_num(t->tm_hour, 2, Pad::Zero);
    case 'I': return w.put_num(h12, 2, Pad::Zero);
    case 'j': return w.put_num(static_cast<long long>(t->tm_yday) + 1, 3, Pad::Zero);
    case 'k': return w.put_num(t->tm_hour, 2, Pad::Blank);
    case 'l': return w.put_num(h12, 2, Pad::Blank);
    case 'm': return w.put_num(static_cast<long long>(t->tm_mon) + 1, 2, Pad::Zero);
    case 'M': return w.put_num(t->tm_min, 2, Pad::Zero);
    case 'n': return w.put("\n", 1);
    case 'r': w.composite("%I:%M:%S %p", t); return true;
    case 'R': w.composite("%H:%M", t); return true;
    case 'S': return w.put_num(t->tm_sec, 2, Pad::Zero);
    case 't': return w.put("\t", 1);
    case 'T': w.composite("%H:%M:%S", t); return true;
    case 'U': return w.put_num(week_of_year(t->tm_wday, t->tm_yday), 2, Pad::Unsigned);
    case 'w': return w.put_num(t->tm_wday, 2, Pad::Zero);
    case 'W':
        return w.put_num(week_of_year(t->tm_wday == 0 ? 6 : t->tm_wday - 1LL, t->tm_yday), 2,
                         Pad::Unsigned);
    case 'x': w.composite(__time_C[41], t); return true;
    case 'X': w.composite(__time_C[42], t); return true;
    case 'y': return w.put_num(year % 100, 2, Pad::Zero);
    case 'Y': return w.put_num(year, 4, Pad::Zero);
    case '%': return w.put("%", 1);
    default: return true;
    }
}

// Bytes copied as they stand from p: a multibyte character of the current
// locale whole, else one byte.
size_t literal_length(const char *p) {
    if (!(static_cast<unsigned char>(*p) & 0x80)) return 1;
    const int l = std::mblen(p, strnlen(p, MB_CUR_MAX));
    return l > 0 ? static_cast<size_t>(l) : 1;
}

}  // namespace

extern "C" UDFKIT_API int32_t StrFTime(char *out, size_t max, const char *format,
                                       const struct tm *t) {
    // No room even for the terminator: nothing can be written.
    if (!format || !t || max == 0) return 0;
    Writer w{out, max};
    for (const char *p = format; *p;) {
        if (*p != '%') {
            const size_t take = literal_length(p);
            if (!w.put(p, take)) return 0;
            p += take;
            continue;
        }
        const char c = p[1];
        if (!c) break;  // a '%' that ends the format
        p += 2;
        const char *name = conversion_name(c, t);
        if (!(name ? w.put(name, std::strlen(name)) : conversion(w, c, t))) return 0;
    }
    if (out) out[w.n] = '\0';
    return static_cast<int32_t>(w.n);
}
