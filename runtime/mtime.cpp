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

}  // namespace

extern "C" UDFKIT_API int32_t StrFTime(char *out, size_t max, const char *format,
                                       const struct tm *t) {
    if (!format || !t) return 0;
    // No room even for the terminator: nothing can be written.
    if (max == 0) return 0;
    size_t n = 0;

    auto put = [&](const char *s, size_t len) -> bool {
        if (n + len >= max) return false;
        if (out) std::memcpy(out + n, s, len);
        n += len;
        return true;
    };
    auto put_num = [&](long long v, int width, Pad pad) -> bool {
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
        // A field that does not come out at its width fails a writing call.
        // A counting call counts what it would write: the whole of a field
        // too large for its width, but a negative field fails it too.
        if (len != width && (out || v < 0)) return false;
        return put(buf, static_cast<size_t>(len));
    };
    auto composite = [&](const char *sub) {
        const int32_t r = StrFTime(out ? out + n : nullptr, max - n, sub, t);
        if (r > 0) n += static_cast<size_t>(r);
    };

    const long long year = static_cast<long long>(t->tm_year) + 1900;
    const int h12 = t->tm_hour > 12 ? t->tm_hour - 12 : t->tm_hour == 0 ? 12 : t->tm_hour;

    for (const char *p = format; *p;) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c & 0x80) {
            const size_t avail = strnlen(p, MB_CUR_MAX);
            const int l = std::mblen(p, avail);
            const size_t take = l > 0 ? static_cast<size_t>(l) : 1;
            if (!put(p, take)) return 0;
            p += take;
            continue;
        }
        if (c != '%') {
            if (n + 1 >= max) return 0;
            if (out) out[n] = static_cast<char>(c);
            ++n;
            ++p;
            continue;
        }
        const char conv = p[1];
        if (!conv) break;
        p += 2;
        bool ok = true;
        const char *name = nullptr;
        switch (conv) {
        case 'a': name = table_entry(0, 7, t->tm_wday); break;
        case 'A': name = table_entry(7, 7, t->tm_wday); break;
        case 'b':
        case 'h': name = table_entry(14, 12, t->tm_mon); break;
        case 'B': name = table_entry(26, 12, t->tm_mon); break;
        case 'c': composite(__time_C[40]); break;
        case 'C': ok = put_num(year / 100, 2, Pad::Zero); break;
        case 'd': ok = put_num(t->tm_mday, 2, Pad::Zero); break;
        case 'D': composite("%m/%d/%y"); break;
        case 'e': ok = put_num(t->tm_mday, 2, Pad::Blank); break;
        case 'H': ok = put_num(t->tm_hour, 2, Pad::Zero); break;
        case 'I': ok = put_num(h12, 2, Pad::Zero); break;
        case 'j': ok = put_num(static_cast<long long>(t->tm_yday) + 1, 3, Pad::Zero); break;
        case 'k': ok = put_num(t->tm_hour, 2, Pad::Blank); break;
        case 'l': ok = put_num(h12, 2, Pad::Blank); break;
        case 'm': ok = put_num(static_cast<long long>(t->tm_mon) + 1, 2, Pad::Zero); break;
        case 'M': ok = put_num(t->tm_min, 2, Pad::Zero); break;
        case 'n': ok = put("\n", 1); break;
        // An hour outside 0 ... 23 counts as morning below 12.
        case 'p': name = __time_C[t->tm_hour < 12 ? 38 : 39]; break;
        case 'r': composite("%I:%M:%S %p"); break;
        case 'R': composite("%H:%M"); break;
        case 'S': ok = put_num(t->tm_sec, 2, Pad::Zero); break;
        case 't': ok = put("\t", 1); break;
        case 'T': composite("%H:%M:%S"); break;
        case 'U': ok = put_num(week_of_year(t->tm_wday, t->tm_yday), 2, Pad::Unsigned); break;
        case 'w': ok = put_num(t->tm_wday, 2, Pad::Zero); break;
        case 'W':
            ok = put_num(week_of_year(t->tm_wday == 0 ? 6 : t->tm_wday - 1LL, t->tm_yday), 2,
                         Pad::Unsigned);
            break;
        case 'x': composite(__time_C[41]); break;
        case 'X': composite(__time_C[42]); break;
        case 'y': ok = put_num(year % 100, 2, Pad::Zero); break;
        case 'Y': ok = put_num(year, 4, Pad::Zero); break;
        case 'Z':
            if (t->tm_isdst >= 0) {
                const char *z = tzname[t->tm_isdst > 0 ? 1 : 0];
                name = z ? z : "";
            }
            break;
        case '%': ok = put("%", 1); break;
        default: break;  // an unknown conversion produces nothing
        }
        if (name) ok = put(name, std::strlen(name));
        if (!ok) return 0;
    }
    if (out) out[n] = '\0';
    return static_cast<int32_t>(n);
}
