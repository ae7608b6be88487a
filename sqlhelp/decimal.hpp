// Exact decimals for SQL, for every host: reading SQL values into the
// library's Decimal, the exact text of a value, the sum, rounding to a
// decimal(p,s) column with its fit check, the fixed-width field, and the
// packed form whose bytes sort in value order.
//
// The text functions of the runtime share one buffer and the double
// conversion a cache: a host calls these under its library lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "udfkit/decimal.h"

namespace udfkit::sqlhelp {

// Bounds of the integer arguments of the decimal helpers.
constexpr int kDecDefaultPackLen = 17;  // header and all 16 digits
constexpr int kDecMinPackLen = 2;
constexpr int kDecMaxPackLen = 64;
constexpr int kDecMaxPrecision = 2 * DEC_MAXDGTS;
constexpr int kDecMaxFormatWidth = 1000;
constexpr int kDecMinFormatPlaces = -1;  // as many places as the value holds
constexpr int kDecMaxFormatPlaces = 2 * DEC_MAXDGTS + 128;

// Whether a number text has a digit in its mantissa (after blanks and one
// sign, among digits, '.', ',' and blanks): '-', '.', '+' and 'e5' have
// none and are not numbers to the SQL helpers, whatever the runtime reads
// in them.
bool mantissa_has_digit(const char *text, size_t len) noexcept;

// What reading an SQL value gave: a null (SQL NULL, the empty text, a null
// packed value), a decimal, or something that is not a number (the result
// is then NULL, and an aggregate gives NULL).
enum class DecRead { Null, Ok, NotNumber };

DecRead dec_read_int(int64_t value, Decimal &out) noexcept;
// A float to 16 significant digits (0.1 is one tenth exactly).
DecRead dec_read_real(double value, Decimal &out) noexcept;
// '1,234.50', ' -1.5e3'; text with no digit at all is not a number.
DecRead dec_read_text(const char *text, size_t len, Decimal &out) noexcept;
// A packed value of any length (see dec_pack).  A digit byte that is not a
// base-100 digit (above 99), or a digit beyond the sixteenth that is not
// zero, makes it not a number.
DecRead dec_read_packed(const unsigned char *bytes, size_t len, Decimal &out) noexcept;

// The exact text of a value: every fraction digit it holds, no padding.
std::string dec_text(const Decimal &d);

// sum += x; false when the sum leaves the decimal range.
bool dec_accumulate(Decimal &sum, const Decimal &x) noexcept;
// a - b, or nothing beyond the decimal range.
std::optional<Decimal> dec_subtract(Decimal a, Decimal b) noexcept;
// -1, 0 or 1.
int dec_compare(const Decimal &a, const Decimal &b) noexcept;

// d rounded to s places (half away from zero) as text with exactly s
// places; nothing when its integer part does not fit decimal(p, s).
// Needs 1 <= p <= kDecMaxPrecision and 0 <= s <= p.
std::optional<std::string> dec_round_text(Decimal d, int p, int s);

// d in a field of exactly `width` characters with `places` places; a value
// that does not fit goes to exponent form, or to `width` stars.
std::string dec_field(const Decimal &d, int width, int places);

// The packed column form in `len` bytes (kDecMinPackLen ... kDecMaxPackLen).
// Packed values of one length compare bytewise in value order: a zero gets
// the lowest positive header (0x80 and zero bytes, which loads back as
// zero) where the runtime's store writes the header of exponent 0 (0xC0),
// above the positive values below 0.01.
std::vector<unsigned char> dec_pack(const Decimal &d, int len);

// The message for an integer argument outside lo ... hi.
std::string range_message(const char *what, int lo, int hi);

}  // namespace udfkit::sqlhelp
