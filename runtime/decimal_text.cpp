// Decimal text conversion: reading numbers written in text, the rounded
// digit string of a value, and fixed-width fields.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "runtime/decimal_internal.hpp"

using namespace udfkit::dec;

namespace {

constexpr int kSigDigits = 34;  // significant decimal digits read from a text

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The character at i ends the text when it is the last one or a blank
// follows it.
inline bool ends_text(const char *text, int64_t i, int64_t n) {
    return i == n - 1 || text[i + 1] == ' ';
}

// Decimal digits before the point of 0.D1 D2 ... x 10^decpt.
inline int decimal_point(const Decimal &v) {
    const int lead = ndigits(&v) > 0 && v.dec_digits[0] < 10 ? 1 : 0;
    return 2 * v.dec_exp - lead;
}

// Count of fraction digits a value holds, without a trailing zero.
int fraction_digits(const Decimal *dec) {
    const int n = ndigits(dec);
    if (n == 0) return 0;
    int f = 2 * (n - dec->dec_exp);
    if (f <= 0) return 0;
    if (dec->dec_digits[n - 1] % 10 == 0) --f;
    return f;
}

// The mantissa of a number text: its first significant digits and where
// the point falls among them.
struct Mantissa {
    uint8_t sig[kSigDigits];
    int kept = 0;            // significant digits kept (later ones read as 0)
    int64_t int_sig = 0;     // significant digits before the point
    int64_t frac_zeros = 0;  // zeros after the point before the first significant one
    bool started = false;    // a significant digit was seen
};

// Reads digits, one '.', and ',' or ' ' anywhere, from text[i] up to the
// first other character; DEC_EBADTEXT for a second point.
int32_t read_mantissa(const char *text, int64_t n, int64_t &i, Mantissa &m) {
    bool point = false;
    for (; i < n; ++i) {
        const char c = text[i];
        if (is_digit(c)) {
            if (!m.started && c == '0') {
                if (point) ++m.frac_zeros;
                continue;
            }
            m.started = true;
            if (m.kept < kSigDigits) m.sig[m.kept++] = static_cast<uint8_t>(c - '0');
            if (!point) ++m.int_sig;
        } else if (c == '.') {
            if (point) return DEC_EBADTEXT;
            point = true;
        } else if (c != ',' && c != ' ') {
            break;
        }
    }
    return 0;
}

// What follows the mantissa: nothing (the end, or a last character or one
// followed by a blank, ignored), or an exponent.
int32_t read_exponent(const char *text, int64_t n, int64_t i, int64_t &exp10) {
    if (i >= n || ends_text(text, i, n)) return 0;
    if (text[i] != 'E' && text[i] != 'e') return DEC_EBADTEXT;
    ++i;  // a character follows the E
    bool eneg = false;
    if (text[i] == '+' || text[i] == '-') eneg = text[i++] == '-';
    if (i >= n) return 0;  // a sign as the last character: no exponent
    int64_t e = 0;
    for (; i < n && is_digit(text[i]); ++i) {
        e = e * 10 + (text[i] - '0');
        if (e > 999) return DEC_EBADEXP;
    }
    if (i < n && !ends_text(text, i, n)) return DEC_EBADTEXT;
    exp10 = eneg ? -e : e;
    return 0;
}

// value = 0.s1 s2 ... x 10^t into the work area; an odd t puts s1 alone in
// the first base-100 digit so that the point falls between two digits.
void lay_out(const Mantissa &m, int64_t exp10, DecWork &w) {
    const int64_t t = (m.int_sig > 0 ? m.int_sig : -m.frac_zeros) + exp10;
    const int pad = t % 2 != 0 ? 1 : 0;
    // Far outside the range either way; the rounding cannot bring it back.
    const int64_t exp = std::clamp<int64_t>((t + pad) / 2, -1000, 1000);
    for (int j = 0; j < m.kept; ++j) {
        const int q = pad + j;
        if (q / 2 > kGuard) break;
        const int add = q % 2 ? m.sig[j] : m.sig[j] * 10;
        w.dec_digits[q / 2] = static_cast<uint8_t>(w.dec_digits[q / 2] + add);
    }
    w.dec_exp = static_cast<int32_t>(exp);
    w.dec_ndgts = std::min((pad + m.kept + 1) / 2, kGuard + 1);
}

// The digits of a value laid out with a point: as many places as asked
// (right 0 counts as 1), or fewer when that makes the field fit.
struct Fixed {
    const char *digits;  // in DecString
    int64_t dl;          // their count
    int decpt, sign;
    bool point;  // false: an integer written without a point
};

Fixed fixed_digits(const Decimal *dec, int32_t len, int32_t right) {
    // A negative right asks for every fraction digit the value holds (its
    // trailing zero left out); a value without fraction digits is then
    // written as an integer, without a point.
    Fixed f;
    int places;
    f.point = true;
    if (right < 0) {
        places = fraction_digits(dec);
        f.point = places > 0;
    } else {
        places = right == 0 ? 1 : right;
    }
    f.digits = decefcvt(dec, places, &f.decpt, &f.sign, 1);
    f.dl = static_cast<int64_t>(std::strlen(f.digits));
    const int64_t need = f.dl + (f.decpt != f.dl ? 1 : 0) + f.sign;
    if (need > len && places >= need - len) {
        f.digits = decefcvt(dec, static_cast<int32_t>(places - (need - len)), &f.decpt, &f.sign, 1);
        f.dl = static_cast<int64_t>(std::strlen(f.digits));
    }
    return f;
}

// Fixed layout; whatever falls at len or beyond is left out.
void fixed_layout(const Fixed &f, char *field, int32_t len) {
    int64_t pos = 0;
    auto put = [&](char c) {
        if (pos < len) field[pos] = c;
        ++pos;
    };
    if (f.sign) put('-');
    if (f.decpt <= 0) {
        put('0');
        if (!f.point) return;
        put('.');
        for (int64_t j = 0; j < -int64_t{f.decpt} && pos < len; ++j) put('0');
        for (int64_t j = 0; j < f.dl && pos < len; ++j) put(f.digits[j]);
    } else {
        for (int64_t j = 0; j < f.decpt && pos < len; ++j) put(j < f.dl ? f.digits[j] : '0');
        if (f.point) put('.');
        for (int64_t j = f.decpt; j < f.dl && pos < len; ++j) put(f.digits[j]);
    }
}

// Writes 'e' and the exponent e at the end of the field (and the sign at
// position 0); returns the position of 'e', or -1 when no mantissa digit
// would fit before it.
int64_t put_exponent(char *field, int32_t len, int64_t e, int sign) {
    std::memset(field, ' ', static_cast<size_t>(len));
    char xs[24];
    const int xl = std::snprintf(xs, sizeof xs, "%lld", static_cast<long long>(e < 0 ? -e : e));
    const int64_t q = int64_t{len} - xl - (e < 0 ? 1 : 0) - 1;
    if (q <= sign) return -1;
    field[q] = 'e';
    int64_t p = q + 1;
    if (e < 0) field[p++] = '-';
    std::memcpy(field + p, xs, static_cast<size_t>(xl));
    if (sign) field[0] = '-';
    return q;
}

// The mantissa digits md in field[start, q), then its trailing zeros after
// the point and a point left at its end removed, each removal shifting the
// exponent one place to the left.
void put_mantissa(char *field, int32_t len, int64_t start, int64_t q, const char *md) {
    const int64_t ml = static_cast<int64_t>(std::strlen(md));
    field[start] = md[0];
    int64_t end = start + 1;  // the mantissa is field[start, end)
    if (end < q) {
        field[end++] = '.';
        for (int64_t j = 1; end < q; ++j) field[end++] = j < ml ? md[j] : '0';
    }
    auto remove_last = [&] {
        --end;
        std::memmove(field + end, field + end + 1, static_cast<size_t>(len - end - 1));
        field[len - 1] = ' ';
    };
    if (end > start + 1) {
        while (end > start + 2 && field[end - 1] == '0') remove_last();
        if (field[end - 1] == '.') remove_last();
    }
}

// Exponential layout, repeated while the rounding carries into a new power
// of ten; false when the field cannot hold it.
bool exponent_layout(const Decimal *dec, char *field, int32_t len, int decpt, int sign) {
    for (int round = 0; round < 4; ++round) {
        const int64_t q = put_exponent(field, len, int64_t{decpt} - 1, sign);
        if (q < 0) return false;
        const int32_t m = static_cast<int32_t>(std::max<int64_t>(q - sign - 1, 1));
        int dp2 = 0, sign2 = 0;
        const char *md = decefcvt(dec, m, &dp2, &sign2, 0);
        if (*md == '\0') return false;
        if (dp2 == decpt) {
            put_mantissa(field, len, sign, q, md);
            return true;
        }
        decpt = dp2;
    }
    return false;
}

}  // namespace

extern "C" {

UDFKIT_API int32_t _deccvasc(const char *text, int32_t length, Decimal *out) {
    out->dec_pos = -1;
    // The text is read within its length only; nothing past it is looked at.
    if (!text || length <= 0) return 0;
    const int64_t n = length;
    int64_t i = 0;
    while (i < n && text[i] == ' ') ++i;
    if (i == n) return 0;

    bool negative = false;
    if (text[i] == '-' || text[i] == '+') negative = text[i++] == '-';
    Mantissa m;
    int64_t exp10 = 0;
    int32_t rc = read_mantissa(text, n, i, m);
    if (rc == 0) rc = read_exponent(text, n, i, exp10);
    if (rc != 0) return rc;

    DecWork w{};
    w.dec_pos = 1;
    if (m.started) lay_out(m, exp10, w);
    rc = dec_round(&w, 0);
    out->dec_exp = static_cast<int16_t>(w.dec_exp);
    out->dec_ndgts = static_cast<int16_t>(w.dec_ndgts);
    std::memcpy(out->dec_digits, w.dec_digits, kDigits);
    out->dec_pos = negative ? 0 : 1;
    return rc;
}

UDFKIT_API char *decefcvt(const Decimal *dec, int32_t ndigit, int *decpt, int *sign,
                          int32_t fflag) {
    DecString[0] = '\0';
    if (!dec || dec->dec_pos == -1) return DecString;

    // Work on a copy whose digits beyond the count are 0, so that a '0'
    // past the last stored digit comes out naturally.
    Decimal v = *dec;
    v.dec_ndgts = static_cast<int16_t>(ndigits(dec));
    std::memset(v.dec_digits + v.dec_ndgts, 0, static_cast<size_t>(kDigits - v.dec_ndgts));

    *sign = dec->dec_pos == 0 ? 1 : 0;
    int dp = decimal_point(v);
    *decpt = dp;
    int64_t count = fflag ? int64_t{dp} + ndigit : int64_t{ndigit};
    if (count < 0) return DecString;

    const int lead = v.dec_ndgts > 0 && v.dec_digits[0] < 10 ? 1 : 0;
    const int64_t stored = 2 * v.dec_ndgts - lead;
    if (count < stored) {
        // Half a unit of the last wanted place, 0.5 x 10^t, with the value's sign.
        const int64_t t = dp - count;
        Decimal half{};
        half.dec_pos = v.dec_pos;
        half.dec_ndgts = 1;
        const int64_t he = t % 2 == 0 ? t / 2 : (t + 1) / 2;
        half.dec_exp = static_cast<int16_t>(std::clamp<int64_t>(he, INT16_MIN, INT16_MAX));
        half.dec_digits[0] = t % 2 == 0 ? 50 : 5;
        if (decadd(&v, &half, &v) == DEC_EOVERFLOW) return DecString;
        dp = decimal_point(v);
        *decpt = dp;
        count = fflag ? int64_t{dp} + ndigit : int64_t{ndigit};
    }
    if (count <= 0) return DecString;

    const int first = ndigits(&v) > 0 && v.dec_digits[0] < 10 ? 1 : 0;
    const int64_t want = std::min<int64_t>(count, kDecStringDigits);
    for (int64_t j = 0; j < want; ++j) {
        const int64_t q = first + j;
        char c = '0';
        if (q / 2 < kDigits) {
            const int d = v.dec_digits[q / 2];
            c = static_cast<char>('0' + (q % 2 ? d % 10 : d / 10));
        }
        DecString[j] = c;
    }
    DecString[want] = '\0';
    return DecString;
}

UDFKIT_API int32_t _dectoasc(const Decimal *dec, char *field, int32_t len, int32_t right) {
    if (!field || len <= 0) return 0;
    std::memset(field, ' ', static_cast<size_t>(len));
    if (!dec || dec->dec_pos == -1) return 0;
    const Fixed f = fixed_digits(dec, len, right);
    fixed_layout(f, field, len);
    if (f.decpt <= len - f.sign) return 0;
    // The integer part does not fit.
    if (!exponent_layout(dec, field, len, f.decpt, f.sign))
        std::memset(field, '*', static_cast<size_t>(len));
    return 0;
}

}  // extern "C"
