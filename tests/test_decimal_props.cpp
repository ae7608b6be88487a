// Properties of the decimal package checked on many random values: the
// word-parallel addition against a plain digit-by-digit one, and reading,
// printing and adding (commutative, exact, consistent with comparison)
// against exact 128-bit integer arithmetic.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "decimal_test_util.hpp"
#include "runtime/decimal_internal.hpp"

using namespace dectest;

namespace {

using i128 = __int128;
constexpr int kScale = 12;  // every reference value is an integer times 10^-12

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

// Up to 18 significant digits at a random place within the scale.
i128 scaled_value(std::mt19937_64 &rng) {
    i128 m = 0;
    for (int i = static_cast<int>(rng() % 18); i >= 0; --i) m = m * 10 + static_cast<int>(rng() % 10);
    for (int i = static_cast<int>(rng() % (kScale + 1)); i > 0; --i) m *= 10;
    return rng() % 2 ? -m : m;
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
Decimal record(std::mt19937_64 &rng) {
    static const uint8_t pick[] = {0, 1, 49, 50, 98, 99};
    Decimal d{};
    const int n = static_cast<int>(rng() % (DEC_MAXDGTS + 1));
    for (int i = 0; i < n; ++i)
        d.dec_digits[i] = rng() % 3 ? pick[rng() % 6] : static_cast<uint8_t>(rng() % 100);
    d.dec_ndgts = static_cast<int16_t>(n);
    const int base = rng() % 4 == 0 ? 60 : (rng() % 3 == 0 ? -62 : 0);
    const int spread = rng() % 2 ? 128 : 7;
    d.dec_exp = static_cast<int16_t>(std::clamp(base + static_cast<int>(rng() % spread) - spread / 2, -64, 63));
    d.dec_pos = static_cast<int16_t>(rng() % 2);
    return d;
}

TEST(DecimalProperties, WordAdditionMatchesDigitByDigit) {
    std::mt19937_64 rng(7);
    for (int i = 0; i < 400000; ++i) {
        const Decimal a = record(rng), b = record(rng);
        Decimal want, got;
        const int32_t rw = reference_add(&a, &b, &want);
        const int32_t rg = udfkit::dec::decadd(&a, &b, &got);
        ASSERT_EQ(rg, rw) << shape(a) << " + " << shape(b);
        ASSERT_TRUE(same_record(got, want))
            << shape(a) << " + " << shape(b) << ": " << shape(got) << " want " << shape(want);
    }
}

TEST(DecimalProperties, AdditionIsExactCommutativeAndOrdered) {
    std::mt19937_64 rng(20261123);
    for (int i = 0; i < 50000; ++i) {
        const i128 ma = scaled_value(rng), mb = scaled_value(rng);
        const Decimal a = parse(scaled_text(ma)), b = parse(scaled_text(mb));
        ASSERT_EQ(text(a), scaled_text(ma));
        Decimal ab, ba;
        ASSERT_EQ(_decadd(&a, &b, &ab), 0);
        ASSERT_EQ(_decadd(&b, &a, &ba), 0);
        ASSERT_TRUE(same_record(ab, ba)) << scaled_text(ma) << " + " << scaled_text(mb);
        ASSERT_EQ(text(ab), scaled_text(ma + mb)) << scaled_text(ma) << " + " << scaled_text(mb);
        ASSERT_EQ(DecimalCompare(&a, &b), sign_of(ma - mb));
        ASSERT_EQ(deccmp(&ab, &a), sign_of(mb));
        Decimal nb = b, back;
        DecimalNeg(&nb);
        ASSERT_EQ(_decadd(&ab, &nb, &back), 0);
        ASSERT_EQ(DecimalCompare(&back, &a), 0) << text(back) << " vs " << text(a);
    }
}

}  // namespace
