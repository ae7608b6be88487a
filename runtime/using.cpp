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

// One layout: the mask, the result of its width, and the number's sign.
struct Layout {
    const char *mask;
    char *out;
    size_t len;      // the mask's width
    size_t int_len;  // positions before the mask's point (all without one)
    bool negative;
};

// Step 1: the magnitude into work (cut to the buffer), and whether the
// number is negative.
bool read_magnitude(const char *number, char (&work)[kWorkSize]) {
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
    return negative;
}

// Step 3: a plain decimal rounded to the digit positions after the mask's
// point; the 1e-10 turns a half in the last place into a round-up.  False
// for a number beyond a double: it has more than 300 integer digits, fits
// no mask, and shows as one that does not fit.
bool round_to_mask(char (&work)[kWorkSize], const char *point) {
    if (!work[0] || !plain_decimal(work)) return true;
    size_t places = 0;
    if (point)
        for (const char *m = point + 1; *m; ++m)
            if (*m == '#' || *m == '$' || *m == '&' || *m == '-' || *m == '<') ++places;
    // Masks far longer than format's 99 characters could ask for more
    // places than the work buffer holds next to a double's 309 integer
    // digits; beyond 700 places they are cut to 700.
    if (places > kMaxPlaces) places = kMaxPlaces;
    const double value = read_decimal(work) + 1e-10;
    if (!std::isfinite(value)) return false;
    print_fixed(work, sizeof work, value, static_cast<int>(places));
    garbage_str(work);
    return true;
}

// Step 5: the point and the fraction positions, in step with the fraction
// characters of the work text.
void lay_fraction(const Layout &l, const char *work_point) {
    l.out[l.int_len] = '.';
    const char *f = work_point ? work_point + 1 : "";
    for (size_t i = l.int_len + 1; i < l.len; ++i) {
        const char m = l.mask[i];
        const bool have = *f != '\0';
        if (m == ')')
            l.out[i] = l.negative ? ')' : (have ? *f : ' ');
        else if (have)
            l.out[i] = *f;
        else
            l.out[i] = m == '%' ? '%' : '0';
        if (have) ++f;
    }
}

// What an integer position without a digit shows: the first '-' or '<'
// (and the first '(') of a negative number takes its sign.
char empty_position(char m, bool negative, bool &minus_placed, bool &paren_placed) {
    switch (m) {
    case '-':
    case '<':
        if (!negative || minus_placed) return m == '<' ? '<' : ' ';
        minus_placed = true;
        return '-';
    case '(':
        if (!negative || paren_placed) return ' ';
        paren_placed = true;
        return '(';
    case '$': return ' ';
    default: return m;
    }
}

// Step 6: the integer part, from the point leftwards, with the signs and
// the floating '$'.  False when digits are left over or the '$' found no
// room (step 7).
bool lay_integer(const Layout &l, const char *work, size_t digits) {
    bool minus_placed = false, paren_placed = false, dollar_seen = false;
    bool currency_pending = false;
    for (size_t i = l.int_len; i-- > 0;) {
        const char m = l.mask[i];
        bool got_digit = false;
        if (m == ' ' || m == ',') {
            l.out[i] = m;
        } else if (digits > 0) {
            l.out[i] = work[--digits];
            got_digit = true;
        } else {
            l.out[i] = empty_position(m, l.negative, minus_placed, paren_placed);
        }
        if (m == '$' && !dollar_seen) {
            dollar_seen = true;
            if (got_digit)
                currency_pending = true;
            else
                place_currency(l.out, l.len, i);
        } else if (currency_pending && !got_digit && (m == '$' || m == '-' || m == '(')) {
            place_currency(l.out, l.len, i);
            currency_pending = false;
        }
    }
    return digits == 0 && !currency_pending;
}

// Step 8: fill left of the first significant digit (everywhere without one).
void fill_left(const Layout &l) {
    size_t first = 0;
    while (first < l.len && (l.out[first] < '1' || l.out[first] > '9')) ++first;
    char fill = ' ';
    for (size_t i = 0; i < first; ++i) {
        switch (l.mask[i]) {
        case '#': case '-': case '<': fill = ' '; break;
        case '&': fill = '0'; break;
        case '*': fill = '*'; break;
        default: break;
        }
        if (fill_target(l.out[i])) l.out[i] = fill;
    }
}

// Step 9: left justification under a '<' of the integer part (a leading
// "- " sign moves next to the number), right justification otherwise.
void justify(const Layout &l) {
    char *out = l.out;
    const size_t len = l.len;
    if (std::memchr(l.mask, '<', l.int_len)) {
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
    char work[kWorkSize];
    const bool negative = read_magnitude(number, work);

    // 2. A field of blanks of the mask's width.
    std::memset(out, ' ', len);
    out[len] = '\0';
    const char *point = std::strchr(mask, '.');
    const Layout l{mask, out, len, point ? static_cast<size_t>(point - mask) : len, negative};

    if (round_to_mask(work, point)) {
        // 4. Integer digits to place.
        const char *work_point = std::strchr(work, '.');
        const size_t digits = work_point ? static_cast<size_t>(work_point - work) : std::strlen(work);
        if (point) lay_fraction(l, work_point);
        if (lay_integer(l, work, digits)) {
            fill_left(l);
            justify(l);
            return 0;
        }
    }
    std::memset(out, '*', len);  // 7. the number does not fit
    return 0;
}

}  // extern "C"
