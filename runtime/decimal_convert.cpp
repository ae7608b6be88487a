// Conversions between decimals and machine integers and doubles.
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "runtime/decimal_internal.hpp"

using namespace udfkit::dec;

namespace {

// Splits a non-zero magnitude into base-100 digits.
void from_magnitude(uint64_t mag, bool negative, Decimal *out) {
    uint8_t rev[10];  // a 64-bit magnitude has at most 10 base-100 digits
    int n = 0;
    while (mag) {
        rev[n++] = static_cast<uint8_t>(mag % 100);
        mag /= 100;
    }
    std::memset(out->dec_digits, 0, kDigits);
    for (int i = 0; i < n; ++i) out->dec_digits[i] = rev[n - 1 - i];
    int nd = n;
    while (nd > 0 && out->dec_digits[nd - 1] == 0) --nd;
    out->dec_exp = static_cast<int16_t>(n);
    out->dec_pos = negative ? 0 : 1;
    out->dec_ndgts = static_cast<int16_t>(nd);
}

void from_int64(int64_t v, Decimal *out) {
    if (v == INT64_MIN) {
        set_null(out);
        return;
    }
    if (v == 0) {
        set_zero(out);
        return;
    }
    from_magnitude(v < 0 ? static_cast<uint64_t>(-v) : static_cast<uint64_t>(v), v < 0, out);
}

// The integer part, wrapping past 64 bits; *is_null for a null record.
int64_t integer_part(const Decimal *dec, bool *is_null) {
    *is_null = dec->dec_pos == -1;
    if (*is_null || dec->dec_exp <= 0) return 0;
    const int n = ndigits(dec);
    const int exp = dec->dec_exp;
    const int kept = n < exp ? n : exp;
    uint64_t r = 0;
    for (int i = 0; i < kept; ++i) r = r * 100 + dec->dec_digits[i];
    for (int i = kept; i < exp; ++i) r *= 100;
    if (dec->dec_pos == 0) r = 0 - r;
    return static_cast<int64_t>(r);
}

inline int dbl_slot(double d) {
    uint64_t bits = std::bit_cast<uint64_t>(d);
    if (bits >> 63) bits = ~bits;
    return static_cast<int>(bits & (kDblSlots - 1));
}

// The record of 16 decimal digits s (value 0.s0 s1 ... x 10^decpt): an odd
// decpt puts s0 alone in the first base-100 digit.  The exponent goes to
// *exp unclamped.
Decimal from_ecvt(const char *s, int decpt, int sign, int *exp) {
    Decimal r{};
    r.dec_pos = sign ? 0 : 1;
    *exp = decpt >= 1 ? (decpt + 1) / 2 : decpt / 2;
    auto dg = [&](int i) { return s[i] - '0'; };
    const int odd = decpt % 2 != 0 ? 1 : 0;
    if (odd) r.dec_digits[0] = static_cast<uint8_t>(dg(0));
    for (int j = odd; j < 8; ++j)  // pairs of digits, after s0 when it stands alone
        r.dec_digits[j] = static_cast<uint8_t>(dg(2 * j - odd) * 10 + dg(2 * j - odd + 1));
    if (odd) r.dec_digits[8] = static_cast<uint8_t>(dg(15) * 10);
    int n = 8 + odd;
    while (n > 0 && r.dec_digits[n - 1] == 0) --n;
    if (n == 0) *exp = 0;
    r.dec_ndgts = static_cast<int16_t>(n);
    return r;
}

}  // namespace

extern "C" {

UDFKIT_API int32_t _deccvint(int32_t value, Decimal *out) {
    if (value == INT32_MIN) {
        set_null(out);
        return 0;
    }
    from_int64(value, out);
    return 0;
}

UDFKIT_API int32_t _deccvlong(long value, Decimal *out) {
    from_int64(value, out);
    return 0;
}

UDFKIT_API int32_t _deccvlong64(int64_t value, Decimal *out) {
    from_int64(value, out);
    return 0;
}

UDFKIT_API int32_t _dectoint(const Decimal *dec, int32_t *out) {
    bool is_null;
    const int64_t v = integer_part(dec, &is_null);
    *out = is_null ? INT32_MIN : static_cast<int32_t>(static_cast<uint32_t>(v));
    return 0;
}

UDFKIT_API int32_t _dectolong(const Decimal *dec, long *out) {
    bool is_null;
    const int64_t v = integer_part(dec, &is_null);
    *out = is_null ? static_cast<long>(INT64_MIN) : static_cast<long>(v);
    return 0;
}

UDFKIT_API int32_t _dectolong64(const Decimal *dec, int64_t *out) {
    bool is_null;
    const int64_t v = integer_part(dec, &is_null);
    *out = is_null ? INT64_MIN : v;
    return 0;
}

UDFKIT_API int32_t _deccvdbl(Decimal *out, double d) {
    // An infinity or a NaN has no decimal form: null and DEC_EOVERFLOW.
    if (!std::isfinite(d)) {
        set_null(out);
        std::memset(out->dec_digits, 0, kDigits);
        return DEC_EOVERFLOW;
    }
    if (d == 0.0 || std::fabs(d) < 1e-16) {
        set_zero(out);
        return 0;
    }
    DblSlot &slot = HashDbl2Dec[dbl_slot(d)];
    if (slot.key == d) {
        *out = slot.value;
        return 0;
    }

    char s[32];
    int decpt = 0, sign = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const int cv = ecvt_r(d, 16, &decpt, &sign, s, sizeof s);
#pragma GCC diagnostic pop
    if (cv != 0) {
        set_null(out);
        return DEC_EOVERFLOW;
    }
    for (int i = static_cast<int>(std::strlen(s)); i < 16; ++i) s[i] = '0';
    int exp;
    Decimal r = from_ecvt(s, decpt, sign, &exp);
    // |d| >= 1e-16 keeps the exponent above -8, so only overflow is possible:
    // reported as the arithmetic does, exponent clamped to 63, not cached.
    if (exp > DEC_MAXEXP) {
        r.dec_exp = DEC_MAXEXP;
        *out = r;
        return DEC_EOVERFLOW;
    }
    r.dec_exp = static_cast<int16_t>(exp);
    slot.key = d;
    slot.value = r;
    *out = r;
    return 0;
}

UDFKIT_API int32_t _dectodbl(const Decimal *dec, double *out) {
    double f = 0.0;
    for (int i = ndigits(dec) - 1; i >= 0; --i) f = (f + dec->dec_digits[i]) * 0.01;
    const int exp = dec->dec_exp;
    if (exp > 0) {
        for (int i = 0; i < exp / 2; ++i) f *= 10000.0;
        if (exp % 2) f *= 100.0;
    } else if (exp < 0) {
        for (int i = 0; i < -exp / 2; ++i) f *= 0.0001;
        if (-exp % 2) f *= 0.01;
    }
    *out = dec->dec_pos == 0 ? -f : f;
    return 0;
}

}  // extern "C"
