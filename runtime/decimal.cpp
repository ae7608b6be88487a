// Fixed-point decimals: packed storage, sign flip, the normalising and
// rounding step, addition, rounding to a scale and comparison.
#include <algorithm>
#include <cstring>

#include "runtime/decimal_internal.hpp"

namespace udfkit::dec {
namespace {

constexpr int kMaxExp = DEC_MAXEXP;
constexpr int kMinExp = DEC_MINEXP;

// The first n digits of d, zero beyond them, in an array with a guard slot.
inline void load_digits(const Decimal *d, int n, uint8_t out[kDigits + 1]) noexcept {
    std::memcpy(out, d->dec_digits, kDigits);
    std::memset(out + n, 0, static_cast<size_t>(kDigits + 1 - n));
}

// Compares the magnitudes of two operands (digit arrays already masked).
inline int magnitude_cmp(const Decimal *a, int na, const uint8_t *da, const Decimal *b, int nb,
                         const uint8_t *db) noexcept {
    if (na == 0) return nb == 0 ? 0 : -1;
    if (nb == 0) return 1;
    if (a->dec_exp != b->dec_exp) return a->dec_exp > b->dec_exp ? 1 : -1;
    return std::memcmp(da, db, kDigits);
}

// Base-100 complement of the first k digits, in place: trailing zero digits
// stay 0, the last non-zero digit d becomes 100 - d, earlier ones 99 - d.
// The same rule undoes itself, so it serves both the store and the load.
inline void complement(uint8_t *d, int k) noexcept {
    int last = k - 1;
    while (last >= 0 && d[last] == 0) --last;
    if (last < 0) return;
    d[last] = static_cast<uint8_t>(100 - d[last]);
    for (int i = 0; i < last; ++i) d[i] = static_cast<uint8_t>(99 - d[i]);
}

}  // namespace

int32_t dec_round(DecWork *w, int carry) noexcept {
    uint8_t *d = w->dec_digits;
    if (carry) {
        std::memmove(d + 1, d, kDigits);  // digit 15 moves into the guard
        d[0] = 1;
        ++w->dec_ndgts;
        ++w->dec_exp;
    } else {
        const int n = std::clamp(w->dec_ndgts, 0, kDigits + 1);
        int z = 0;
        while (z < n && d[z] == 0) ++z;
        if (z == n) {
            w->dec_exp = 0;
            w->dec_pos = 1;
        } else if (z > 0) {
            w->dec_exp -= z;
            std::memmove(d, d + z, static_cast<size_t>(n - z));
            std::memset(d + n - z, 0, static_cast<size_t>(z));
        }
    }
    if (d[kGuard] >= 50) {
        int i = kDigits - 1;
        for (; i >= 0; --i) {
            const int v = d[i] + 1;
            if (v < 100) {
                d[i] = static_cast<uint8_t>(v);
                break;
            }
            d[i] = 0;
        }
        if (i < 0) {  // the carry ran out of the first digit: 1, 0, 0, ...
            d[0] = 1;
            ++w->dec_exp;
        }
    }
    int n = std::clamp(w->dec_ndgts, 0, kDigits);
    while (n > 0 && d[n - 1] == 0) --n;
    w->dec_ndgts = n;
    if (w->dec_exp > kMaxExp) {
        w->dec_exp = kMaxExp;
        return DEC_EOVERFLOW;
    }
    if (w->dec_exp < kMinExp) {
        w->dec_exp = kMinExp;
        return DEC_EUNDERFLOW;
    }
    return DEC_OK;
}

int32_t decadd(const Decimal *a, const Decimal *b, Decimal *result) noexcept {
    const int na = ndigits(a), nb = ndigits(b);
    uint8_t da[kDigits + 1], db[kDigits + 1];
    load_digits(a, na, da);
    load_digits(b, nb, db);

    const bool a_large = magnitude_cmp(a, na, da, b, nb, db) >= 0;
    const Decimal *L = a_large ? a : b;
    const Decimal *S = a_large ? b : a;
    const int nl = a_large ? na : nb, ns = a_large ? nb : na;
    const uint8_t *sd = a_large ? db : da;

    const int diff = L->dec_exp - S->dec_exp;
    if (diff > kDigits) {  // S does not reach even the guard digit
        *result = *L;
        return DEC_OK;
    }

    DecWork w;
    w.dec_exp = L->dec_exp;
    w.dec_pos = L->dec_pos;
    std::memcpy(w.dec_digits, a_large ? da : db, kDigits + 1);

    // S aligned on the work positions; its digits past the guard are dropped.
    const int m = std::min(ns + diff, kDigits + 1);
    w.dec_ndgts = std::max(nl, m);
    uint8_t s[kDigits + 1] = {};
    if (diff >= 0 && m > diff) std::memcpy(s + diff, sd, static_cast<size_t>(m - diff));

    int carry = 0;
    if (L->dec_pos == S->dec_pos) {
        for (int p = m - 1; p >= 0; --p) {
            int v = w.dec_digits[p] + s[p] + carry;
            carry = v > 99;
            if (carry) v -= 100;
            w.dec_digits[p] = static_cast<uint8_t>(v);
        }
    } else {
        int borrow = 0;
        for (int p = m - 1; p >= 0; --p) {
            int v = w.dec_digits[p] - s[p] - borrow;
            borrow = v < 0;
            if (borrow) v += 100;
            w.dec_digits[p] = static_cast<uint8_t>(v);
        }
    }

    const int32_t rc = dec_round(&w, carry);
    result->dec_exp = static_cast<int16_t>(w.dec_exp);
    result->dec_pos = static_cast<int16_t>(w.dec_pos);
    result->dec_ndgts = static_cast<int16_t>(w.dec_ndgts);
    std::memcpy(result->dec_digits, w.dec_digits, kDigits);
    return rc;
}

}  // namespace udfkit::dec

using namespace udfkit::dec;

extern "C" {

UDFKIT_API int32_t _stdecimal(const Decimal *dec, unsigned char *buf, int32_t len) {
    if (!dec || !buf || len <= 0) return 0;
    const size_t field = static_cast<size_t>(len);
    if (dec->dec_pos == -1) {
        std::memset(buf, 0, field);
        return 0;
    }
    const int n = ndigits(dec);
    bool zero = true;
    for (int i = 0; i < n && zero; ++i) zero = dec->dec_digits[i] == 0;
    if (zero) {
        // Always the positive form.  A counted run of zero digits (as a
        // rounding may leave) is a zero too, so it sorts with the zeros.
        // An exponent outside the range has no header: such a zero is
        // stored with exponent 0.
        const int e = dec->dec_exp;
        buf[0] = static_cast<unsigned char>(e >= kMinExp && e <= kMaxExp ? e + 0xC0 : 0xC0);
        std::memset(buf + 1, 0, field - 1);
        return 0;
    }

    const bool negative = dec->dec_pos == 0;
    int exp = dec->dec_exp;
    uint8_t w[kDigits];
    std::memcpy(w, dec->dec_digits, kDigits);
    // With len 1 (a caller error) the header alone is stored, unrounded.
    const int room = static_cast<int>(std::min<int32_t>(len - 1, kDigits));
    if (n > len - 1 && len >= 2 && w[len - 1] >= 50) {  // round half up on the magnitude
        int i = len - 2;
        for (; i >= 0; --i) {
            const int v = w[i] + 1;
            if (v < 100) {
                w[i] = static_cast<uint8_t>(v);
                break;
            }
            w[i] = 0;
        }
        if (i < 0) {
            w[0] = 1;
            ++exp;
        }
    }
    int k = std::min(n, room);

    if (exp < kMinExp) {
        // Below the smallest storable magnitude: stored as zero.
        buf[0] = 0xC0;
        std::memset(buf + 1, 0, field - 1);
        return 0;
    }
    if (exp > kMaxExp || (negative && exp == kMaxExp)) {
        // No header exists for these (a negative value with exponent 63
        // would collide with the null marker, and 64 wraps round): the
        // field saturates to the largest magnitude it can hold with the
        // value's sign, which keeps the byte order of the column.
        exp = negative ? kMaxExp - 1 : kMaxExp;
        k = room;
        std::memset(w, 99, kDigits);
    }
    unsigned char header;
    if (negative) {
        header = static_cast<unsigned char>(63 - exp);
        complement(w, k);
    } else {
        header = static_cast<unsigned char>(exp + 0xC0);
    }
    buf[0] = header;
    if (k > 0) std::memcpy(buf + 1, w, static_cast<size_t>(k));
    std::memset(buf + 1 + k, 0, field - 1 - static_cast<size_t>(k));
    return 0;
}

UDFKIT_API int32_t _lddecimal(const unsigned char *buf, int32_t len, Decimal *dec) {
    if (!dec) return 0;
    std::memset(dec->dec_digits, 0, kDigits);
    // A field without even a header byte (a caller error) loads as null.
    if (!buf || len <= 0 || buf[0] == 0x00) {
        set_null(dec);
        return 0;
    }
    const int k = static_cast<int>(std::min<int32_t>(len - 1, kDigits));
    if (k > 0) std::memcpy(dec->dec_digits, buf + 1, static_cast<size_t>(k));
    if (buf[0] & 0x80) {
        dec->dec_pos = 1;
        dec->dec_exp = static_cast<int16_t>(buf[0] - 192);
    } else {
        dec->dec_pos = 0;
        dec->dec_exp = static_cast<int16_t>(63 - buf[0]);
        complement(dec->dec_digits, k);
    }
    int n = k;
    while (n > 0 && dec->dec_digits[n - 1] == 0) --n;
    dec->dec_ndgts = static_cast<int16_t>(n);
    return 0;
}

// Negating a null keeps the null: a null has no sign to flip.
UDFKIT_API int32_t DecimalNeg(Decimal *dec) {
    if (!dec) return -1;
    if (dec->dec_pos == -1) return -1;
    dec->dec_pos = dec->dec_pos == 0 ? 1 : 0;
    return dec->dec_pos;
}

UDFKIT_API int32_t _decadd(const Decimal *a, const Decimal *b, Decimal *result) {
    if (a->dec_pos == -1 || b->dec_pos == -1) {
        set_null(result);
        return 0;
    }
    if (ndigits(a) == 0) {
        *result = *b;
        return 0;
    }
    if (ndigits(b) == 0) {
        *result = *a;
        return 0;
    }
    return decadd(a, b, result);
}

UDFKIT_API int32_t DecimalRound(Decimal *value, int32_t size) {
    if (value->dec_pos == -1 || ndigits(value) == 0) return 0;
    const int s = size & 0xff;
    const int p = (size >> 8) & 0xff;
    const int h = s / 2;
    const int k = value->dec_exp + h;
    if (k > kDigits - 1) return DEC_EROUNDPOS;  // the value is left unchanged
    int i = std::max(k, 0);
    // The digit count is limited to 2 * p; the digits beyond the new count
    // are cleared so that the value stays what its count says (only values
    // that do not fit the precision anyway are affected).
    const int n = ndigits(value);
    if (n > 2 * p) {
        value->dec_ndgts = static_cast<int16_t>(2 * p);
        std::memset(value->dec_digits + 2 * p, 0, static_cast<size_t>(kDigits - 2 * p));
    } else if (value->dec_ndgts != n) {
        value->dec_ndgts = static_cast<int16_t>(n);  // a corrupt count
    }

    const bool odd = s % 2 != 0;
    const bool up = odd ? value->dec_digits[i] % 10 >= 5 : value->dec_digits[i] >= 50;
    if (up) {
        Decimal half{};
        half.dec_exp = static_cast<int16_t>(-h);
        half.dec_pos = value->dec_pos;
        half.dec_ndgts = 1;
        half.dec_digits[0] = odd ? 5 : 50;
        decadd(value, &half, value);
        i = std::max(value->dec_exp + h, 0);
    }
    // After a carry into a new first digit, i may point past the digits;
    // there is nothing to clear there.
    if (i < kDigits) {
        value->dec_digits[i] = odd ? static_cast<uint8_t>(value->dec_digits[i] / 10 * 10) : 0;
        std::memset(value->dec_digits + i + 1, 0, static_cast<size_t>(kDigits - 1 - i));
    }
    if (value->dec_exp < 0 && std::memcmp(value->dec_digits, Zero, kDigits) == 0)
        value->dec_exp = 0;
    return 0;
}

UDFKIT_API int32_t DecimalCompare(const Decimal *a, const Decimal *b) {
    const int na = ndigits(a), nb = ndigits(b);
    if (na == 0) {
        if (nb == 0) return 0;
        return b->dec_pos == 0 ? 1 : -1;
    }
    if (nb == 0) return a->dec_pos != 0 ? 1 : -1;
    if (a->dec_pos != b->dec_pos) return a->dec_pos > b->dec_pos ? 1 : -1;
    const int sign = a->dec_pos == 0 ? -1 : 1;
    if (a->dec_exp != b->dec_exp) return a->dec_exp > b->dec_exp ? sign : -sign;
    uint8_t da[kDigits + 1], db[kDigits + 1];
    load_digits(a, na, da);
    load_digits(b, nb, db);
    const int c = std::memcmp(da, db, kDigits);
    return c == 0 ? 0 : (c > 0 ? sign : -sign);
}

UDFKIT_API int32_t deccmp(const Decimal *a, const Decimal *b) {
    if (a->dec_pos == -1 || b->dec_pos == -1) return DEC_ENULL;
    return DecimalCompare(a, b);
}

}  // extern "C"
