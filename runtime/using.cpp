// Number picture masks: a number text laid out under a mask such as
// "###,###.##", "$$$,$$$.##" or "(&&&.##)".
//
// The layout works on the result in place.  A position of the integer part
// that receives no digit keeps its mask character for the moment ('#', '&',
// '%', ',', '<' and the literal characters) or becomes a blank ('-', '(',
// '$', ' '); the fill pass then turns whatever is left of the first
// significant digit into the fill character.  The floating '$' looks for
// the first character to its right that is neither a blank nor a comma, so
// '#' positions that are still '#' keep it on its own position.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>

#include "udfkit/masks.h"

namespace {

// Room for the longest number text the callers hand over (1023 characters
// from format, 1031 from direct callers) and for what the rounding prints
// (a finite double has at most 309 integer digits).  Longer texts are cut
// to the buffer: the layout only ever reads the work text, so a cut text
// still gives a result of the mask's width.
constexpr size_t kWorkSize = 1100;
constexpr size_t kMaxPlaces = 700;

bool plain_decimal(const char *s) {
    bool point = false;
    for (; *s; ++s) {
        if (*s == '.') {
            if (point) return false;
            point = true;
        } else if (*s < '0' || *s > '9') {
            return false;
        }
    }
    return true;
}

// Writes the currency sign immediately left of the first character right of
// position `from` that is neither a blank nor a comma (or at the last
// position when there is none).  The position written is never left of
// `from`.
void place_currency(char *out, size_t len, size_t from) {
    size_t j = from + 1;
    while (j < len && (out[j] == ' ' || out[j] == ',')) ++j;
    out[j - 1] = '$';
}

// The number is read and printed with the C library's conversions of the
// C locale whatever locale the host runs under (a decimal comma would
// otherwise cut the number at its point): from_chars reads like strtod and
// to_chars with a precision prints like "%.*f", both correctly rounded.
double read_decimal(const char *text) {
    double value = 0;
    const char *end = text + std::strlen(text);
    const auto r = std::from_chars(text, end, value, std::chars_format::fixed);
    if (r.ec == std::errc::result_out_of_range) {
        // Too large for a double: strtod's HUGE_VAL; too small: zero.
        const char *digit = std::find_if(text, end, [](char c) { return c >= '1' && c <= '9'; });
        const char *point = std::find(text, end, '.');
        value = digit < point ? HUGE_VAL : 0.0;
    } else if (r.ec != std::errc()) {
        value = 0;  // "." alone
    }
    return value;
}

void print_fixed(char *buf, size_t size, double value, int places) {
    const auto r = std::to_chars(buf, buf + size - 1, value, std::chars_format::fixed, places);
    // With at most kMaxPlaces places every double fits; should a text not
    // fit all the same, the work text is empty (the number zero).
    *(r.ec == std::errc() ? r.ptr : buf) = '\0';
}

bool fill_target(char c) {
    return c == ' ' || c == '#' || c == '%' || c == '&' || c == ',' || c == '<';
}

}  // namespace

extern "C" {

UDFKIT_API void garbage_str(char *text) {
    if (!text) return;
    for (char *p = text; *p == '0' || *p == '-' || *p == ' '; ++p)
        if (*p == '0') *p = ' ';
    char *w = text;
    for (const char *r = text; *r; ++r)
        if (*r != ' ') *w++ = *r;
    *w = '\0';
}

UDFKIT_API int32_t _mk_using_nombre(const char *number, const char *mask, char *out) {
    if (!out) return 0;
    if (!mask) mask = "";
    if (!number) number = "";
    const size_t len = std::strlen(mask);

    // 1. The magnitude, and whether the number is negative.
    char work[kWorkSize];
    size_t n = 0;
    while (n < kWorkSize - 1 && number[n]) {
        work[n] = number[n];
        ++n;
    }
    work[n] = '\0';
    garbage_str(work);
    const bool negative = work[0] == '-';
    if (negative) {
        work[0] = ' ';
        garbage_str(work);
    }

    // 2. A field of blanks of the mask's width.
    std::memset(out, ' ', len);
    out[len] = '\0';

    const char *point = std::strchr(mask, '.');
    const size_t int_len = point ? static_cast<size_t>(point - mask) : len;

    // 3. Round a plain decimal to the digit positions after the mask's point;
    // the 1e-10 turns a half in the last place into a round-up.
    if (work[0] && plain_decimal(work)) {
        size_t places = 0;
        if (point)
            for (const char *m = point + 1; *m; ++m)
                if (*m == '#' || *m == '$' || *m == '&' || *m == '-' || *m == '<') ++places;
        // Masks far longer than format's 99 characters could ask for more
        // places than the work buffer holds next to a double's 309 integer
        // digits; beyond 700 places they are cut to 700.
        if (places > kMaxPlaces) places = kMaxPlaces;
        const double value = read_decimal(work) + 1e-10;
        // A number beyond a double has more than 300 integer digits: it
        // fits no mask, and shows as one that does not fit.
        if (!std::isfinite(value)) {
            std::memset(out, '*', len);
            return 0;
        }
        print_fixed(work, sizeof work, value, static_cast<int>(places));
        garbage_str(work);
    }

    // 4. Integer digits to place.
    const char *work_point = std::strchr(work, '.');
    size_t digits = work_point ? static_cast<size_t>(work_point - work) : std::strlen(work);

    // 5. The point and the fraction positions, in step with the fraction
    // characters of the work text.
    if (point) {
        out[int_len] = '.';
        const char *f = work_point ? work_point + 1 : "";
        for (size_t i = int_len + 1; i < len; ++i) {
            const char m = mask[i];
            const bool have = *f != '\0';
            if (m == ')')
                out[i] = negative ? ')' : (have ? *f : ' ');
            else if (have)
                out[i] = *f;
            else
                out[i] = m == '%' ? '%' : '0';
            if (have) ++f;
        }
    }

    // 6. The integer part, from the point leftwards.
    bool minus_placed = false, paren_placed = false, dollar_seen = false;
    bool currency_pending = false;
    for (size_t i = int_len; i-- > 0;) {
        const char m = mask[i];
        bool got_digit = false;
        if (m == ' ' || m == ',') {
            out[i] = m;
        } else if (digits > 0) {
            out[i] = work[--digits];
            got_digit = true;
        } else {
            switch (m) {
            case '-':
            case '<':
                if (negative && !minus_placed) {
                    out[i] = '-';
                    minus_placed = true;
                } else {
                    out[i] = m == '<' ? '<' : ' ';
                }
                break;
            case '(':
                if (negative && !paren_placed) {
                    out[i] = '(';
                    paren_placed = true;
                } else {
                    out[i] = ' ';
                }
                break;
            case '$': out[i] = ' '; break;
            default: out[i] = m; break;
            }
        }
        if (m == '$' && !dollar_seen) {
            dollar_seen = true;
            if (got_digit)
                currency_pending = true;
            else
                place_currency(out, len, i);
        } else if (currency_pending && !got_digit && (m == '$' || m == '-' || m == '(')) {
            place_currency(out, len, i);
            currency_pending = false;
        }
    }

    // 7. Digits left over, or no room for the floating '$'.
    if (digits > 0 || currency_pending) {
        std::memset(out, '*', len);
        return 0;
    }

    // 8. Fill left of the first significant digit (everywhere without one).
    size_t first = 0;
    while (first < len && (out[first] < '1' || out[first] > '9')) ++first;
    char fill = ' ';
    for (size_t i = 0; i < first; ++i) {
        switch (mask[i]) {
        case '#': case '-': case '<': fill = ' '; break;
        case '&': fill = '0'; break;
        case '*': fill = '*'; break;
        default: break;
        }
        if (fill_target(out[i])) out[i] = fill;
    }

    // 9. Justification.
    if (std::memchr(mask, '<', int_len)) {
        if (len >= 2 && out[0] == '-' && out[1] == ' ') {
            size_t j = 2;
            while (j < len && out[j] == ' ') ++j;
            out[0] = ' ';
            out[j - 1] = '-';
        }
        size_t lead = 0;
        while (lead < len && out[lead] == ' ') ++lead;
        std::memmove(out, out + lead, len - lead + 1);
    } else {
        size_t trail = 0;
        while (trail < len && out[len - 1 - trail] == ' ') ++trail;
        if (trail > 0 && trail < len) {
            std::memmove(out + trail, out, len - trail);
            std::memset(out, ' ', trail);
        }
    }
    return 0;
}

}  // extern "C"
