// Decimal addition on records the input builds: the library's word-parallel
// addition against a plain digit-by-digit one, bit for bit; then reading,
// printing and adding values against exact 128-bit integers (commutative,
// exact, consistent with comparison).  Input: the choices of both record
// generators, read twice from the start.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/choices.hpp"
#include "runtime/decimal_internal.hpp"
#include "tests/decimal_forms.hpp"
#include "udfkit/decimal.h"

using fuzzgen::Choices;
using namespace udfkit::test;

namespace {

using i128 = __int128;
constexpr int kScale = 12;  // every reference value is an integer times 10^-12

[[noreturn]] void fail(const char *what, const std::string &a, const std::string &b,
                       const std::string &more = "") {
    std::fprintf(stderr, "%s: %s + %s %s\n", what, a.c_str(), b.c_str(), more.c_str());
    std::abort();
}

Decimal parse(const std::string &s) {
    Decimal d{};
    _deccvasc(s.c_str(), static_cast<int32_t>(s.size()), &d);
    return d;
}

// The reference value m x 10^-12 written as the shortest exact text.
std::string scaled_text(i128 m) {
    std::string s;
    for (i128 v = m < 0 ? -m : m; v || s.size() <= kScale; v /= 10)
        s.insert(s.begin(), static_cast<char>('0' + static_cast<int>(v % 10)));
    s.insert(s.size() - kScale, ".");
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.') s.pop_back();
    return (m < 0 ? "-" : "") + s;
}

// Up to 18 significant digits at any place within the scale.
i128 scaled_value(Choices &in) {
    i128 m = 0;
    for (int i = static_cast<int>(in.below(18)); i >= 0; --i) m = m * 10 + static_cast<int>(in.below(10));
    for (int i = static_cast<int>(in.below(kScale + 1)); i > 0; --i) m *= 10;
    return in.below(2) ? -m : m;
}

int sign_of(i128 v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

// The addition done digit by digit in a work area with a guard digit, the
// plain way; the library's word-parallel addition must agree bit for bit.
int32_t reference_add(const Decimal *a, const Decimal *b, Decimal *result) {
    using udfkit::dec::DecWork;
    constexpr int N = DEC_MAXDGTS;
    const int na = udfkit::dec::ndigits(a), nb = udfkit::dec::ndigits(b);
    uint8_t da[N + 1] = {}, db[N + 1] = {};
    std::memcpy(da, a->dec_digits, static_cast<size_t>(na));
    std::memcpy(db, b->dec_digits, static_cast<size_t>(nb));
    const bool a_large = nb == 0 || (na != 0 && (a->dec_exp != b->dec_exp ? a->dec_exp > b->dec_exp
                                                                        : std::memcmp(da, db, N) >= 0));
    if (!a_large) return reference_add(b, a, result);
    const int diff = a->dec_exp - b->dec_exp;
    if (diff > N) return *result = *a, 0;
    DecWork w{};
    w.dec_exp = a->dec_exp;
    w.dec_pos = a->dec_pos;
    std::memcpy(w.dec_digits, da, N + 1);
    const int m = std::min(nb + diff, N + 1);
    w.dec_ndgts = std::max(na, m);
    const bool same_sign = a->dec_pos == b->dec_pos;
    int carry = 0;
    for (int p = m - 1; p >= 0; --p) {
        const int j = p - diff, sv = j >= 0 && j < nb ? db[j] : 0;
        int v = w.dec_digits[p] + (same_sign ? sv + carry : -sv - carry);
        carry = v > 99 || v < 0;
        w.dec_digits[p] = static_cast<uint8_t>(carry ? v + (same_sign ? -100 : 100) : v);
    }
    if (!same_sign) carry = 0;
    const int32_t rc = udfkit::dec::dec_round(&w, carry);
    *result = Decimal{};
    result->dec_exp = static_cast<int16_t>(w.dec_exp);
    result->dec_pos = static_cast<int16_t>(w.dec_pos);
    result->dec_ndgts = static_cast<int16_t>(w.dec_ndgts);
    std::memcpy(result->dec_digits, w.dec_digits, N);
    return rc;
}

// Records that stress the carries: digits drawn mostly from 0, 1, 49, 50,
// 98 and 99, exponents close together and near both ends of the range, or
// anywhere; leading zero digits now and then.
Decimal record(Choices &in) {
    static const uint8_t pick[] = {0, 1, 49, 50, 98, 99};
    Decimal d{};
    const int n = static_cast<int>(in.below(DEC_MAXDGTS + 1));
    for (int i = 0; i < n; ++i)
        d.dec_digits[i] = in.below(3) ? pick[in.below(6)] : static_cast<uint8_t>(in.below(100));
    d.dec_ndgts = static_cast<int16_t>(n);
    const int base = in.below(4) == 0 ? 60 : (in.below(3) == 0 ? -62 : 0);
    const int spread = in.below(2) ? 128 : 7;
    const int exp = base + static_cast<int>(in.below(spread)) - spread / 2;
    d.dec_exp = static_cast<int16_t>(std::clamp(exp, -64, 63));
    d.dec_pos = static_cast<int16_t>(in.below(2));
    return d;
}

void word_addition_matches_digit_by_digit(Choices in) {
    const Decimal a = record(in), b = record(in);
    Decimal want, got;
    const int32_t rw = reference_add(&a, &b, &want);
    const int32_t rg = udfkit::dec::decadd(&a, &b, &got);
    if (rg != rw) fail("return code", shape(a), shape(b), std::to_string(rg) + " want " + std::to_string(rw));
    if (!same_record(got, want)) fail("record", shape(a), shape(b), shape(got) + " want " + shape(want));
}

void addition_is_exact_commutative_and_ordered(Choices in) {
    const i128 ma = scaled_value(in), mb = scaled_value(in);
    const std::string ta = scaled_text(ma), tb = scaled_text(mb);
    const Decimal a = parse(ta), b = parse(tb);
    if (text(a) != ta) fail("read and printed", ta, tb, text(a));
    Decimal ab, ba;
    if (_decadd(&a, &b, &ab) != 0 || _decadd(&b, &a, &ba) != 0) fail("failed", ta, tb);
    if (!same_record(ab, ba)) fail("not commutative", ta, tb);
    if (text(ab) != scaled_text(ma + mb)) fail("inexact", ta, tb, text(ab));
    if (DecimalCompare(&a, &b) != sign_of(ma - mb)) fail("compared", ta, tb);
    if (deccmp(&ab, &a) != sign_of(mb)) fail("sum compared", ta, tb);
    Decimal nb = b, back;
    DecimalNeg(&nb);
    if (_decadd(&ab, &nb, &back) != 0) fail("subtraction failed", ta, tb);
    if (DecimalCompare(&back, &a) != 0) fail("not undone", ta, tb, text(back));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    word_addition_matches_digit_by_digit(Choices(data, size));
    addition_is_exact_commutative_and_ordered(Choices(data, size));
    return 0;
}
