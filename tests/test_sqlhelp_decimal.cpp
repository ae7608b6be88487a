// The decimal helpers that hosts put in SQL: reading values, exact text,
// the fit check of rounding, fields, and packed values that sort.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "sqlhelp/decimal.hpp"

namespace {
using namespace udfkit::sqlhelp;

// What a read gave: the value's exact text, "NULL" or "NaN" (not a number).
std::string shown(DecRead r, const Decimal &d) {
    return r == DecRead::Null ? "NULL" : r == DecRead::NotNumber ? "NaN" : dec_text(d);
}
std::string read_text(const std::string &s) {
    Decimal d;
    return shown(dec_read_text(s.data(), s.size(), d), d);
}
std::string read_packed(const std::vector<unsigned char> &b) {
    Decimal d;
    return shown(dec_read_packed(b.data(), b.size(), d), d);
}

Decimal num(const std::string &s) {
    Decimal d;
    EXPECT_EQ(dec_read_text(s.data(), s.size(), d), DecRead::Ok) << s;
    return d;
}

TEST(SqlDecimal, ReadsTexts) {
    const struct { std::string text; const char *want; } cases[] = {
        {"1,234.50", "1234.5"},  {" -1.5e3", "-1500"}, {"-.5", "-0.5"},   {"12x", "12"},
        {"-0", "0"},             {"1e200", "NaN"},     {"12abc", "NaN"},  {"", "NULL"},
        {"   ", "NULL"},
        // no digit in the mantissa: not a number, whatever the runtime reads
        {"-", "NaN"},            {"+", "NaN"},         {".", "NaN"},      {"-e5", "NaN"},
        {" , ", "NaN"},
        {"99999999999999999999999999999999.5", "100000000000000000000000000000000"},
        {std::string(1000, '9'), "NaN"},
    };
    for (const auto &c : cases) EXPECT_EQ(read_text(c.text), c.want) << c.text;
    Decimal d;
    ASSERT_EQ(dec_read_real(0.1, d), DecRead::Ok);
    EXPECT_EQ(dec_text(d), "0.1");
    ASSERT_EQ(dec_read_int(INT64_MIN, d), DecRead::Ok);  // not the runtime's null
    EXPECT_EQ(dec_text(d), "-9223372036854775808");
    EXPECT_EQ(dec_read_real(1e308, d), DecRead::NotNumber);
    EXPECT_EQ(dec_read_real(1.0 / 0.0, d), DecRead::NotNumber);
}

TEST(SqlDecimal, PackedValues) {
    using B = std::vector<unsigned char>;
    const struct { B bytes; const char *want; } cases[] = {
        {{0x3C, 0x62, 0x4C, 0x37}, "-12345"},
        {{0x80, 0x00, 0x00}, "0"},           // the zero that sorts
        {{0x3F}, "0"},                       // a header alone: a zero
        {{0x00, 0x12, 0x34}, "NULL"},        {{}, "NULL"},
        {{0xC0, 0x00, 0x05}, "0.0005"},      // leading zero digit: normalised
        {{0x80, 0x00, 0x05}, "NaN"},         // ... below the smallest exponent
        {{0xEE, 0x88}, "NaN"},               // 136 is no base-100 digit
        {{0x33, 0x21, 0x2B, 0xA0, 0x6D, 0xD7, 0x13, 0x96, 0xE8, 0xF3, 0xDB, 0x43}, "NaN"},
        {{0xC1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, "1"},
        {{0xC1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, "NaN"},  // a 17th digit
    };
    for (const auto &c : cases) EXPECT_EQ(read_packed(c.bytes), c.want) << testing::PrintToString(c.bytes);
    EXPECT_EQ(dec_pack(num("0"), 4), (B{0x80, 0, 0, 0}));
    EXPECT_EQ(dec_pack(num("-1.5"), 4), (B{0x3E, 0x62, 0x32, 0x00}));
    EXPECT_EQ(read_packed(dec_pack(num("0.995"), 2)), "1");
}

TEST(SqlDecimal, Arithmetic) {
    Decimal sum = num("1,234.50");
    EXPECT_TRUE(dec_accumulate(sum, num("-0.5")));
    EXPECT_EQ(dec_text(sum), "1234");
    Decimal big = num("9e125");
    EXPECT_FALSE(dec_accumulate(big, num("9e125")));
    EXPECT_EQ(dec_text(*dec_subtract(num("10.05"), num("0.06"))), "9.99");
    EXPECT_FALSE(dec_subtract(num("9e125"), num("-9e125")));
    EXPECT_EQ(dec_compare(num("1.50"), num("1.5")), 0);
    EXPECT_EQ(dec_field(num("-99999"), 3, 0), "***");
}

TEST(SqlDecimal, RoundsToAColumnOrSaysItDoesNotFit) {
    const struct { const char *value; int p, s; const char *want; } cases[] = {
        {"-1.235", 10, 2, "-1.24"},  {"1.2", 10, 3, "1.200"},     {"-0.004", 10, 2, "0.00"},
        {"999.995", 5, 2, nullptr},  {"999.994", 5, 2, "999.99"}, {"12345", 5, 0, "12345"},
        {"123456", 5, 0, nullptr},   {"0.5", 1, 1, "0.5"},        {"1", 1, 1, nullptr},
        {"1e29", 32, 2, "100000000000000000000000000000.00"},     {"1e30", 32, 2, nullptr},
    };
    for (const auto &c : cases) {
        const auto got = dec_round_text(num(c.value), c.p, c.s);
        EXPECT_EQ(got.value_or("NULL"), c.want ? c.want : "NULL") << c.value << " " << c.p << "," << c.s;
    }
}

// Random values of every magnitude: packed bytes of one length sort as the
// values they hold do, and a value that fits the length reads back unchanged.
TEST(SqlDecimal, PackedBytesSortInValueOrder) {
    std::mt19937_64 rng(7);
    std::vector<Decimal> values{num("0")};
    for (int i = 0; i < 2000; ++i) {
        std::string s = (rng() % 2 ? "-" : "") + std::to_string(rng() >> rng() % 64);
        values.push_back(num(rng() % 2 ? s : s + "e" + std::to_string(static_cast<int>(rng() % 60) - 30)));
    }
    for (int len : {6, 9, 17}) {
        for (const Decimal &a : values) {
            const auto pa = dec_pack(a, len), pb = dec_pack(values[rng() % values.size()], len);
            EXPECT_TRUE(len != 17 || read_packed(pa) == dec_text(a)) << dec_text(a);
            Decimal ra, rb;  // compare the values the bytes hold
            ASSERT_EQ(dec_read_packed(pa.data(), pa.size(), ra), DecRead::Ok);
            ASSERT_EQ(dec_read_packed(pb.data(), pb.size(), rb), DecRead::Ok);
            const int bytes = std::memcmp(pa.data(), pb.data(), pa.size());
            EXPECT_EQ((bytes > 0) - (bytes < 0), dec_compare(ra, rb))
                << dec_text(ra) << " vs " << dec_text(rb) << " len " << len;
        }
    }
}

}  // namespace
