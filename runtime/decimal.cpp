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

// ---- the 16 digits as one 128-bit word, digit 0 in the top byte

using u128 = unsigned __int128;

constexpr u128 every_lane(uint8_t b) {
    u128 x = 0;
    for (int i = 0; i < kDigits; ++i) x = (x << 8) | b;
    return x;
}
constexpr u128 kLaneBias = every_lane(156);  // 256 - 100

inline u128 load_word(const uint8_t *d) noexcept {
    uint64_t hi, lo;
    std::memcpy(&hi, d, 8);
    std::memcpy(&lo, d + 8, 8);
    return (u128{__builtin_bswap64(hi)} << 64) | __builtin_bswap64(lo);
}

inline void store_word(u128 w, uint8_t *d) noexcept {
    const uint64_t hi = __builtin_bswap64(static_cast<uint64_t>(w >> 64));
    const uint64_t lo = __builtin_bswap64(static_cast<uint64_t>(w));
    std::memcpy(d, &hi, 8);
    std::memcpy(d + 8, &lo, 8);
}

constexpr u128 kLaneNines = every_lane(99);

inline int clz128(u128 w) noexcept {
    const uint64_t hi = static_cast<uint64_t>(w >> 64);
    return hi ? __builtin_clzll(hi) : 64 + __builtin_clzll(static_cast<uint64_t>(w));
}

inline int ctz128(u128 w) noexcept {
    const uint64_t lo = static_cast<uint64_t>(w);
    return lo ? __builtin_ctzll(lo) : 64 + __builtin_ctzll(static_cast<uint64_t>(w >> 64));
}

// Base-100 sum of two words of digits 0..99, plus cin in the last digit.
// Each lane is biased by 156 so that it overflows into the next exactly
// when its digit sum reaches 100.  A lane that overflowed holds its digit
// (0..99, top bit clear); one that did not holds digit + 156 (top bit set)
// and gives the bias back.  *carry tells whether the first digit overflowed.
inline u128 add100(u128 a, u128 b, unsigned cin, bool *carry) noexcept {
    const u128 s = a + kLaneBias + b + cin;
    const uint64_t hi = static_cast<uint64_t>(s >> 64), lo = static_cast<uint64_t>(s);
    constexpr uint64_t top = 0x8080808080808080ULL;
    *carry = (hi >> 63) == 0;
    const uint64_t rhi = hi - ((hi & top) >> 7) * 156;
    const uint64_t rlo = lo - ((lo & top) >> 7) * 156;
    return (u128{rhi} << 64) | rlo;
}

}  // namespace

// Adds 1 to digit `last` with the carry towards digit 0.  When the carry
// runs out of the first digit (all were 99) the digits become 1, 0, 0, ...
// and the function returns 1, for the caller to raise the exponent.
inline int add_unit(uint8_t *d, int last) noexcept {
    for (int i = last; i >= 0; --i) {
        if (d[i] < 99) {
            ++d[i];
            return 0;
        }
        d[i] = 0;
    }
    d[0] = 1;
    return 1;
}

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
    if (d[kGuard] >= 50) w->dec_exp += add_unit(d, kDigits - 1);
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

// The addition works on the 16 digits as one 128-bit word, digit 0 in the
// top byte, so that a word compares like the magnitude and base-100 sums
// run in all lanes at once.  It gives exactly what the digit-by-digit
// algorithm (work area with a guard digit, dec_round) gives.  Like that
// algorithm it relies on the zero digits behind the counted ones, which
// every record the library builds has: a record with other bytes there is
// added as its 16 digit bytes say (a defined result, never a read outside
// the record).
namespace {
// A sum in the work words: 16 digits, the guard digit, the header.
struct WordSum {
    u128 w;
    unsigned guard;
    int exp, pos;
};

// Whether a is the operand of larger magnitude (a zero is never larger than
// a non-zero value; equal magnitudes pick a).
[[gnu::always_inline]] inline bool a_is_larger(const Decimal *a, const Decimal *b, u128 wa,
                                               u128 wb, int na, int nb) noexcept {
    if (na == 0) return nb == 0;
    if (nb == 0) return true;
    return a->dec_exp != b->dec_exp ? a->dec_exp > b->dec_exp : wa >= wb;
}

// Normal form after the sum: a carry out of the first digit shifts in a
// new first digit 1 (digit 15 becomes the guard); leading zero digits left
// by a difference are shifted out, the guard following the digits.
[[gnu::always_inline]] inline void normalise(WordSum &r, bool carry) noexcept {
    if (carry) {
        r.guard = static_cast<unsigned>(r.w) & 0xff;
        r.w = (r.w >> 8) | (u128{1} << 120);
        ++r.exp;
    } else if (r.w >> 120 == 0) {
        if (r.w == 0) {
            if (r.guard == 0) {
                r.exp = 0;
                r.pos = 1;
            } else {
                r.w = u128{r.guard} << 120;
                r.guard = 0;
                r.exp -= kDigits;
            }
        } else {
            const int z = clz128(r.w) / 8;
            r.w = (r.w << (8 * z)) | (u128{r.guard} << (8 * (z - 1)));
            r.guard = 0;
            r.exp -= z;
        }
    }
}

// The guard rounded half up into the digits, the range checked, the
// record written.
[[gnu::always_inline]] inline int32_t finish(WordSum r, Decimal *result) noexcept {
    if (r.guard >= 50) {
        bool up = false;
        r.w = add100(r.w, 1, 0, &up);
        if (up) {
            r.w = u128{1} << 120;
            ++r.exp;
        }
    }
    int32_t rc = DEC_OK;
    if (r.exp > kMaxExp) {
        r.exp = kMaxExp;
        rc = DEC_EOVERFLOW;
    } else if (r.exp < kMinExp) {
        r.exp = kMinExp;
        rc = DEC_EUNDERFLOW;
    }
    result->dec_exp = static_cast<int16_t>(r.exp);
    result->dec_pos = static_cast<int16_t>(r.pos);
    result->dec_ndgts = static_cast<int16_t>(r.w == 0 ? 0 : kDigits - ctz128(r.w) / 8);
    store_word(r.w, result->dec_digits);
    return rc;
}

// na, nb: the operands' digit counts, already brought into 0 .. 16.
[[gnu::always_inline]] inline int32_t add_words(const Decimal *a, const Decimal *b, Decimal *result,
                                                int na, int nb) noexcept {
    const u128 wa = load_word(a->dec_digits);
    const u128 wb = load_word(b->dec_digits);
    const bool a_large = a_is_larger(a, b, wa, wb, na, nb);
    const Decimal *L = a_large ? a : b;
    const Decimal *S = a_large ? b : a;
    const u128 wl = a_large ? wa : wb, ws = a_large ? wb : wa;

    const int diff = L->dec_exp - S->dec_exp;
    if (diff > kDigits) {  // S does not reach even the guard digit
        *result = *L;
        return DEC_OK;
    }
    // S aligned on the work positions: its digit 16 - diff lands in the
    // guard, the ones after it are dropped.
    const u128 x = ws >> (8 * (diff > 1 ? diff - 1 : 0));
    const u128 s = diff > 0 ? x >> 8 : ws;
    const unsigned sg = diff > 0 ? static_cast<unsigned>(x) & 0xff : 0;

    // A difference is the sum with the base-100 complement of S (99 - d in
    // every digit, plus one unit in the guard), whose carry out is dropped.
    const bool same = L->dec_pos == S->dec_pos;
    bool out = false;
    WordSum r;
    r.w = add100(wl, same ? s : kLaneNines - s, !same && sg == 0, &out);
    r.guard = same || sg == 0 ? sg : 100 - sg;
    r.exp = L->dec_exp;
    r.pos = L->dec_pos;
    normalise(r, same && out);
    return finish(r, result);
}
}  // namespace

int32_t decadd(const Decimal *a, const Decimal *b, Decimal *result) noexcept {
    return add_words(a, b, result, ndigits(a), ndigits(b));
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
    if (n > len - 1 && len >= 2 && w[len - 1] >= 50)  // round half up on the magnitude
        exp += add_unit(w, static_cast<int>(len) - 2);
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
    const int na = ndigits(a), nb = ndigits(b);
    if (na == 0) {
        *result = *b;
        return 0;
    }
    if (nb == 0) {
        *result = *a;
        return 0;
    }
    return add_words(a, b, result, na, nb);
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
