// Internals of the decimal package: the work area, the normalising and
// rounding step every computed value passes through, the magnitude
// addition, and the package's process-wide state.
#pragma once

#include <cstdint>

#include "udfkit/decimal.h"

namespace udfkit::dec {

constexpr int kDigits = DEC_MAXDGTS;  // base-100 digits of a Decimal
constexpr int kGuard = kDigits;       // index of the guard digit in a work area

// A Decimal with a seventeenth (guard) digit that holds the first base-100
// digit beyond the capacity.  The header fields are wider than a Decimal's
// so that text with an absurd exponent can be laid out before the range
// check; dec_ndgts may be 17, or 18 just after a carry.
struct DecWork {
    int32_t dec_exp;
    int32_t dec_pos;
    int32_t dec_ndgts;
    uint8_t dec_digits[kDigits + 1];
};

// Normalises w (or, with carry 1, shifts in the carry out of digit 0),
// rounds the guard digit half up on the magnitude, trims the digit count
// and checks the exponent range.  Returns 0, DEC_EOVERFLOW or DEC_EUNDERFLOW
// (the exponent is then clamped to 63 or -64).
int32_t dec_round(DecWork *w, int carry) noexcept;

// Signed sum of two non-null values; result may alias either operand.
int32_t decadd(const Decimal *a, const Decimal *b, Decimal *result) noexcept;

// Digit count of a record as the operations read it: a corrupt count is
// brought back into 0 .. 16 so that no digit outside the array is read.
inline int ndigits(const Decimal *d) noexcept {
    const int n = d->dec_ndgts;
    return n < 0 ? 0 : (n > kDigits ? kDigits : n);
}

inline void set_null(Decimal *d) noexcept {
    d->dec_exp = 0;
    d->dec_pos = -1;
    d->dec_ndgts = 0;
}

inline void set_zero(Decimal *d) noexcept {
    *d = Decimal{};
    d->dec_pos = 1;
}

// ---- process-wide state of the package (defined in decimal_state.cpp)

// Sixteen zero digits: a digit array whose value is zero.
extern const uint8_t Zero[kDigits];

// The digit string returned by decefcvt: at most 150 digits and a NUL.
constexpr int kDecStringDigits = 150;
extern char DecString[kDecStringDigits + 1];

// Cache of double-to-decimal conversions, one entry per slot.
struct DblSlot {
    double key;
    Decimal value;
};
constexpr int kDblSlots = 128;
extern DblSlot HashDbl2Dec[kDblSlots];

// The hook DecVerify calls instead of aborting, when installed.
extern DecAbortHook DecAbortFct;

}  // namespace udfkit::dec
