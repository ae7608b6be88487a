#include "sqlhelp/decimal.hpp"

#include <cstdio>
#include <cstring>

namespace udfkit::sqlhelp {

namespace {

constexpr int kTextWidth = 200;  // every value fits in its exact text form

Decimal zero() noexcept {
    Decimal d{};
    d.dec_pos = 1;
    return d;
}

// The first `width` characters of a field without its trailing blanks.
std::string field_text(const Decimal &d, int width, int places) {
    char f[kTextWidth];
    _dectoasc(&d, f, width, places);
    int n = width;
    while (n > 0 && f[n - 1] == ' ') --n;
    return std::string(f, static_cast<size_t>(n));
}

// Decimal digits before the point of a value whose last counted digit is
// not zero.
int integer_digits(const Decimal &d) noexcept {
    if (d.dec_ndgts == 0) return 0;
    return 2 * d.dec_exp - (d.dec_digits[0] < 10 ? 1 : 0);
}

// Drops leading zero digits (a packed value need not be in normal form);
// false when the exponent then leaves the decimal range.
bool normalise(Decimal &d) noexcept {
    int z = 0;
    while (z < d.dec_ndgts && d.dec_digits[z] == 0) ++z;
    if (z == 0) return true;
    if (d.dec_exp - z < DEC_MINEXP) return false;
    d.dec_exp = static_cast<int16_t>(d.dec_exp - z);
    d.dec_ndgts = static_cast<int16_t>(d.dec_ndgts - z);
    std::memmove(d.dec_digits, d.dec_digits + z, static_cast<size_t>(d.dec_ndgts));
    std::memset(d.dec_digits + d.dec_ndgts, 0, static_cast<size_t>(z));
    return true;
}

}  // namespace

bool mantissa_has_digit(const char *text, size_t len) noexcept {
    size_t i = 0;
    while (i < len && text[i] == ' ') ++i;
    if (i < len && (text[i] == '-' || text[i] == '+')) ++i;
    for (; i < len; ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') return true;
        if (c != '.' && c != ',' && c != ' ') return false;
    }
    return false;
}

DecRead dec_read_int(int64_t value, Decimal &out) noexcept {
    if (value == INT64_MIN) {  // the library's null integer: read as text
        static const char kMin[] = "-9223372036854775808";
        return dec_read_text(kMin, sizeof kMin - 1, out);
    }
    _deccvlong64(value, &out);
    return DecRead::Ok;
}

DecRead dec_read_real(double value, Decimal &out) noexcept {
    return _deccvdbl(&out, value) == 0 ? DecRead::Ok : DecRead::NotNumber;
}

DecRead dec_read_text(const char *text, size_t len, Decimal &out) noexcept {
    if (_deccvasc(text, static_cast<int32_t>(len), &out) != 0) return DecRead::NotNumber;
    // The empty text (and blanks) is the null of text; other texts need a digit.
    if (out.dec_pos == -1) return DecRead::Null;
    return mantissa_has_digit(text, len) ? DecRead::Ok : DecRead::NotNumber;
}

DecRead dec_read_packed(const unsigned char *bytes, size_t len, Decimal &out) noexcept {
    if (len == 0) return DecRead::Null;
    for (size_t i = 1; i < len; ++i)
        if (bytes[i] > 99 || (i > DEC_MAXDGTS && bytes[i] != 0)) return DecRead::NotNumber;
    _lddecimal(bytes, static_cast<int32_t>(len), &out);
    if (out.dec_pos == -1) return DecRead::Null;
    if (out.dec_ndgts == 0) out.dec_exp = 0;  // a packed zero may carry any header
    return normalise(out) ? DecRead::Ok : DecRead::NotNumber;
}

std::string dec_text(const Decimal &d) {
    if (d.dec_ndgts == 0) return "0";
    return field_text(d, kTextWidth, -1);
}

bool dec_accumulate(Decimal &sum, const Decimal &x) noexcept {
    return _decadd(&sum, &x, &sum) == 0;
}

std::optional<Decimal> dec_subtract(Decimal a, Decimal b) noexcept {
    DecimalNeg(&b);
    Decimal r;
    if (_decadd(&a, &b, &r) != 0) return std::nullopt;
    return r;
}

int dec_compare(const Decimal &a, const Decimal &b) noexcept { return DecimalCompare(&a, &b); }

std::optional<std::string> dec_round_text(Decimal d, int p, int s) {
    // DEC_EROUNDPOS: the value has no digit at that scale; it is exact already.
    DecimalRound(&d, p * 256 + s);
    // The rounding may leave counted zero digits, or a zero with its sign.
    int n = d.dec_ndgts;
    while (n > 0 && d.dec_digits[n - 1] == 0) --n;
    if (n == 0) d = zero();
    d.dec_ndgts = static_cast<int16_t>(n);
    if (integer_digits(d) > p - s) return std::nullopt;
    if (s == 0) return dec_text(d);
    return field_text(d, kTextWidth, s);
}

std::string dec_field(const Decimal &d, int width, int places) {
    std::string f(static_cast<size_t>(width), ' ');
    _dectoasc(&d, f.data(), width, places);
    return f;
}

std::vector<unsigned char> dec_pack(const Decimal &d, int len) {
    std::vector<unsigned char> buf(static_cast<size_t>(len));
    _stdecimal(&d, buf.data(), len);
    if (d.dec_pos != -1 && d.dec_ndgts == 0) buf[0] = 0x80;  // the zero that sorts
    return buf;
}

std::string range_message(const char *what, int lo, int hi) {
    char msg[160];
    std::snprintf(msg, sizeof msg, "%s must be an integer from %d to %d", what, lo, hi);
    return msg;
}

}  // namespace udfkit::sqlhelp
