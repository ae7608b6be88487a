// Decimal records: reading, text, packed storage, integer and double
// conversions, addition, rounding, comparison and the diagnostics; the
// helpers hosts put in SQL (reading, fit check of rounding, packed order).
// Addition on generated records is checked by a fuzz target.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "sqlhelp/decimal.hpp"
#include "tests/decimal_forms.hpp"
#include "udfkit/decimal.h"

namespace {
using namespace udfkit::sqlhelp;
using namespace udfkit::test;

// A record with the given header and digits; count defaults to the digits given.
Decimal rec(int exp, int pos, std::initializer_list<int> digits, int ndgts = INT16_MIN) {
    Decimal d{};
    d.dec_exp = static_cast<int16_t>(exp);
    d.dec_pos = static_cast<int16_t>(pos);
    int i = 0;
    for (int v : digits) d.dec_digits[i++] = static_cast<uint8_t>(v);
    d.dec_ndgts = static_cast<int16_t>(ndgts == INT16_MIN ? i : ndgts);
    return d;
}

Decimal parse(const std::string &s) {
    Decimal d{};
    _deccvasc(s.c_str(), static_cast<int32_t>(s.size()), &d);
    return d;
}

std::string hex(const unsigned char *b, int n) {
    std::string s;
    char x[4];
    for (int i = 0; i < n; ++i) s += (std::snprintf(x, sizeof x, i ? " %02X" : "%02X", b[i]), x);
    return s;
}

TEST(DecimalText, ReadsIntoNormalForm) {
    const struct { const char *in; int rc; const char *shape; } cases[] = {  // "null": a null record
        {"12345.678", 0, "e3 + [1 23 45 67 80]"}, {"-1.5", 0, "e1 - [1 50]"}, {"100", 0, "e2 + [1]"},
        {"0.001", 0, "e-1 + [10]"},  {"  -1,234.50", 0, "e2 - [12 34 50]"},
        {"2e-3", 0, "e-1 + [20]"},   {"-", 0, "e0 - []"},
        {"   ", 0, "null"},
        // one stray character ends the number, two spoil it
        {"12x 99", 0, "e1 + [12]"},  {"1E5x", 0, "e3 + [10]"},  {"1Ex", 0, "e1 + [1]"},
        {"1E5xy", DEC_EBADTEXT, "null"}, {"1.2.3", DEC_EBADTEXT, "null"}, {"1E1000", DEC_EBADEXP, "null"},
        {"1E200", DEC_EOVERFLOW, "e63 + [1]"}, {"1E-200", DEC_EUNDERFLOW, "e-64 + [1]"},
        // beyond 32 digits: rounded at the 33rd, odd and even digit counts
        {"99999999999999999999999999999999.5", 0, "e17 + [1]"},
        {"1234567890123456789012345678901250", 0,
         "e17 + [12 34 56 78 90 12 34 56 78 90 12 34 56 78 90 13]"},
    };
    for (const auto &c : cases) {
        Decimal d = rec(1, 1, {});
        EXPECT_EQ(_deccvasc(c.in, static_cast<int32_t>(std::strlen(c.in)), &d), c.rc) << c.in;
        if (std::string(c.shape) == "null")
            EXPECT_EQ(d.dec_pos, -1) << c.in;
        else
            EXPECT_EQ(shape(d), c.shape) << c.in;
    }
    Decimal d{};
    EXPECT_EQ(_deccvasc("12345", 2, &d), 0);  // the length bounds the read
    EXPECT_EQ(text(d), "12");
}

TEST(DecimalText, Decefcvt) {
    const struct { const char *value; int ndigit, fflag; const char *digits; int decpt, sign; } cases[] = {
        {"-2.5", 0, 1, "3", 1, 1},   {"0.004", 2, 1, "", -2, 0},    {"0.006", 2, 1, "1", -1, 0},
        {"9.96", 1, 1, "100", 2, 0}, {"9.96", 2, 0, "10", 2, 0},    {"0", 3, 1, "000", 0, 0},
        {"1.5", 4, 1, "15000", 1, 0}, {"-0.0449", 2, 1, "4", -1, 1},
        {"-1234567890123456.7890123456789012", 32, 0, "12345678901234567890123456789012", 16, 1},
    };
    for (const auto &c : cases) {
        Decimal d = parse(c.value);
        int decpt = 999, sign = 999;
        EXPECT_STREQ(decefcvt(&d, c.ndigit, &decpt, &sign, c.fflag), c.digits) << c.value;
        EXPECT_EQ(decpt, c.decpt) << c.value;
        EXPECT_EQ(sign, c.sign) << c.value;
    }
    Decimal n = rec(0, -1, {});  // a null writes neither decpt nor sign
    int decpt = 7, sign = 7;
    EXPECT_STREQ(decefcvt(&n, 3, &decpt, &sign, 1), "");
    EXPECT_EQ(decpt * 10 + sign, 77);
}

TEST(DecimalText, FixedAndExponentialFields) {
    const struct { const char *value; int len, right; const char *field; } cases[] = {
        {"3.14159", 5, 4, "3.142"},         {"12345.6", 5, 1, "12345"},   {"123.456", 4, 2, "123."},
        {"0", 6, 0, "0.0   "},              {"-0.004", 6, 2, "-0.00 "},
        {"99999", 4, 0, "1e5 "},            {"-99999", 3, 0, "***"},
        {"0.0001234", 10, 8, "0.00012340"}, {"-123456789012", 8, 2, "-1.23e11"},
        {"100000000000", 8, 2, "1e11    "},
        {"1234567890123456.7890123456789012", 40, 16, "1234567890123456.7890123456789012       "},
    };
    for (const auto &c : cases)
        EXPECT_EQ(field(parse(c.value), c.len, c.right), c.field) << c.value << " len " << c.len;
    EXPECT_EQ(field(rec(0, -1, {}), 5, 2), "     ");
    // A zero with a negative exponent, every fraction digit asked for.
    EXPECT_EQ(field(rec(-3, 1, {}), 6, -1), "0     ");
    EXPECT_EQ(field(rec(-3, 0, {}), 6, -1), "-0    ");
    for (const char *v : {"-0.001", "0.0000000000000000000000000000000000001", "100000000000000000000"})
        EXPECT_EQ(text(parse(v)), v);
}

TEST(DecimalStorage, PackedBytes) {
    const struct { Decimal d; int len; const char *bytes; } cases[] = {
        {parse("12345"), 4, "C3 01 17 2D"},      {parse("-1.5"), 4, "3E 62 32 00"},
        {rec(0, 0, {}), 4, "C0 00 00 00"},       // negative zero: the positive form
        {rec(0, -1, {1, 2, 3}), 4, "00 00 00 00"},
        {rec(0, 1, {99, 50}), 2, "C1 01"},       {rec(0, 0, {99, 50}), 2, "3E 63"},
        {parse("1234567890123456.49"), 9, "C8 0C 22 38 4E 5A 0C 22 38"},
        {parse("1234567890123456.5"), 9, "C8 0C 22 38 4E 5A 0C 22 39"},
        // no header of their own: saturated to the largest magnitude
        {rec(63, 1, {99, 99, 60}), 3, "FF 63 63"}, {rec(63, 0, {99, 99, 60}), 3, "01 00 01"},
        {rec(-65, 1, {5}), 3, "C0 00 00"},
        {parse("7"), 1, "C1"},  // len 1: the header alone
    };
    for (const auto &c : cases) {
        std::vector<unsigned char> b(static_cast<size_t>(c.len) + 4, 0xAB);
        _stdecimal(&c.d, b.data(), c.len);
        EXPECT_EQ(hex(b.data(), c.len), c.bytes) << shape(c.d);
        EXPECT_EQ(b[static_cast<size_t>(c.len)], 0xAB) << "wrote past the field";
    }
    unsigned char untouched = 0x5A;
    Decimal one = parse("1");
    _stdecimal(&one, &untouched, 0);
    EXPECT_EQ(untouched, 0x5A);
}

TEST(DecimalStorage, Loads) {
    const struct { std::vector<unsigned char> bytes; const char *shape; } cases[] = {
        {{0x3C, 0x62, 0x4C, 0x37}, "e3 - [1 23 45]"}, {{0x3E, 0x63}, "e1 - [1]"},
        {{0x00, 0x12, 0x34}, "e0 null []"},           {{0xC0}, "e0 + []"},
        {{0x7F}, "e-64 - []"},                        {{0xC2, 0x05, 0x00, 0x00}, "e2 + [5]"},
    };
    for (const auto &c : cases) {
        Decimal d;
        std::memset(&d, 0x77, sizeof d);
        EXPECT_EQ(_lddecimal(c.bytes.data(), static_cast<int32_t>(c.bytes.size()), &d), 0);
        EXPECT_EQ(shape(d), c.shape) << hex(c.bytes.data(), static_cast<int>(c.bytes.size()));
        for (int i = d.dec_ndgts; i < DEC_MAXDGTS; ++i) EXPECT_EQ(d.dec_digits[i], 0);
    }
    std::vector<unsigned char> wide(30, 0x01);  // digit bytes beyond the sixteenth are ignored
    wide[0] = 0xC1;
    Decimal d;
    _lddecimal(wide.data(), 30, &d);
    EXPECT_EQ(d.dec_ndgts, 16);
}

TEST(DecimalInteger, ToAndFrom) {
    const struct { int64_t v; const char *shape; } cases[] = {
        {-32768, "e3 - [3 27 68]"}, {0, "e0 + []"}, {INT64_MIN + 1, "e10 - [9 22 33 72 3 68 54 77 58 7]"},
    };
    for (const auto &c : cases) {
        Decimal d, e;
        EXPECT_EQ(_deccvlong64(c.v, &d), 0);
        EXPECT_EQ(shape(d), c.shape) << c.v;
        int64_t back = 0;
        _dectolong64(&d, &back);
        EXPECT_EQ(back, c.v);
        if (c.v >= INT32_MIN) {
            _deccvint(static_cast<int32_t>(c.v), &e);
            EXPECT_TRUE(same_record(d, e)) << c.v;
        }
    }
    // The smallest values are the nulls, both ways; to int: truncated
    // toward zero, wrapped to 32 bits.
    Decimal d, e, n = rec(0, -1, {});
    _deccvint(INT32_MIN, &d);
    _deccvlong64(INT64_MIN, &e);
    int32_t i32;
    int64_t i64;
    _dectoint(&n, &i32);
    _dectolong64(&n, &i64);
    EXPECT_EQ(std::tuple(d.dec_pos, e.dec_pos, i32, i64), std::tuple(-1, -1, INT32_MIN, INT64_MIN));
    for (auto [v, want] : {std::pair{"-2.99", -2}, {"1E10", 1410065408}}) {
        Decimal x = parse(v);
        EXPECT_EQ(_dectoint(&x, &i32), 0);
        EXPECT_EQ(i32, want) << v;
    }
}

TEST(DecimalDouble, ToAndFrom) {
    const struct { double v; const char *shape; } cases[] = {
        {-0.01, "e0 - [1]"},          {1e-17, "e0 + []"},        {-0.0, "e0 + []"},
        {12345678.9, "e4 + [12 34 56 78 90]"},
        {1.0 / 3, "e0 + [33 33 33 33 33 33 33 33]"},
    };
    for (const auto &c : cases) {
        Decimal d, again;
        EXPECT_EQ(_deccvdbl(&d, c.v), 0);
        EXPECT_EQ(shape(d), c.shape) << c.v;
        _deccvdbl(&again, c.v);  // served by the cache
        EXPECT_TRUE(same_record(d, again));
    }
    for (auto [v, want] : {std::pair{parse("-0.01"), -0.01}, {rec(0, -1, {}), 0.0}}) {  // a null gives 0
        double out = -99;
        EXPECT_EQ(_dectodbl(&v, &out), 0);
        EXPECT_EQ(out, want) << shape(v);
    }
}

TEST(DecimalDouble, CacheSlotsAndRangeErrors) {
    // 1.0 and 1.0 + 128 ulps share a slot; each conversion replaces the other.
    const double a = 1.0, b = std::nextafter(1.0, 2.0) + 127 * (std::nextafter(1.0, 2.0) - 1.0);
    Decimal da, db, da2;
    _deccvdbl(&da, a);
    _deccvdbl(&db, b);
    _deccvdbl(&da2, a);
    EXPECT_EQ(text(da2), "1");
    EXPECT_TRUE(same_record(da, da2));

    Decimal d;
    EXPECT_EQ(_deccvdbl(&d, 1e200), DEC_EOVERFLOW);
    EXPECT_EQ(d.dec_exp, 63);
    for (double bad : {double(INFINITY), double(NAN)}) {
        EXPECT_EQ(_deccvdbl(&d, bad), DEC_EOVERFLOW);
        EXPECT_EQ(d.dec_pos, -1);
    }
}

TEST(DecimalArithmetic, Sums) {
    const Decimal nines = rec(0, 1, {99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99});
    // Ordinary sums are checked against exact integers in the property tests.
    const struct { Decimal a, b; int rc; const char *shape; } cases[] = {
        {nines, rec(-16, 1, {50}), 0, "e1 + [1]"},      {parse("12.5"), parse("-12.5"), 0, "e0 + []"},
        {rec(63, 1, {99}), rec(63, 1, {99}), DEC_EOVERFLOW, "e63 + [1 98]"},
        {rec(-64, 1, {1}), rec(-64, 0, {2}), 0, "e-64 - [1]"},
        {rec(-63, 1, {1}), rec(-64, 0, {99}), 0, "e-64 + [1]"},
        {rec(-64, 1, {1, 1}), rec(-64, 0, {1}), DEC_EUNDERFLOW, "e-64 + [1]"},
    };
    for (const auto &c : cases) {
        Decimal r;
        EXPECT_EQ(_decadd(&c.a, &c.b, &r), c.rc) << shape(c.a) << " + " << shape(c.b);
        EXPECT_EQ(shape(r), c.shape) << shape(c.a) << " + " << shape(c.b);
    }
}

TEST(DecimalArithmetic, NullOperandsAndAliasing) {
    const Decimal null = rec(0, -1, {}), zero = parse("0");
    Decimal r, s;
    _decadd(&null, &zero, &r);
    _decadd(&zero, &null, &s);
    EXPECT_EQ(r.dec_pos + s.dec_pos, -2);
    Decimal a = parse("1.5"), b = parse("2.25");  // the result may be either operand
    _decadd(&a, &b, &a);
    _decadd(&a, &b, &b);
    EXPECT_EQ(text(a) + " " + text(b), "3.75 6");
}

TEST(DecimalArithmetic, Round) {
    const struct { const char *v; int size, rc; const char *shape; } cases[] = {
        {"-1.235", 10 * 256 + 2, 0, "e1 - [1 24]"},  {"1.2345", 10 * 256 + 2, 0, "e1 + [1 23 0]"},
        {"0.004", 10 * 256 + 2, 0, "e0 + [0]"},     {"-0.006", 10 * 256 + 2, 0, "e0 - [1 0]"},
        {"9.995", 10 * 256 + 2, 0, "e1 + [10]"},    {"0", 10 * 256 + 2, 0, "e0 + []"},
        {"12345678901234567890.5", 32 * 256 + 12, DEC_EROUNDPOS, "e10 + [12 34 56 78 90 12 34 56 78 90 50]"},
    };
    for (const auto &c : cases) {
        Decimal d = parse(c.v);
        EXPECT_EQ(DecimalRound(&d, c.size), c.rc) << c.v;
        EXPECT_EQ(shape(d), c.shape) << c.v;
        for (int i = d.dec_ndgts; i < DEC_MAXDGTS; ++i) EXPECT_EQ(d.dec_digits[i], 0) << c.v;
    }
    // Exponent 10 at scale 10 rounds the sixteenth digit away; at 12, -1.
    Decimal d = rec(10, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 60});
    Decimal same = d;
    EXPECT_EQ(DecimalRound(&d, 32 * 256 + 12), DEC_EROUNDPOS);
    EXPECT_TRUE(same_record(d, same));
    EXPECT_EQ(DecimalRound(&d, 32 * 256 + 10), 0);
    EXPECT_EQ(shape(d), "e10 + [1 2 3 4 5 6 7 8 9 10 11 12 13 14 16 0]");
    Decimal null = rec(0, -1, {5});
    EXPECT_EQ(DecimalRound(&null, 10 * 256 + 2), 0);
    EXPECT_EQ(null.dec_pos, -1);
}

TEST(DecimalArithmetic, Compare) {
    // Signed values are compared against exact integers in the property tests.
    const struct { const char *a, *b; int cmp; } cases[] = {{"-0", "0", 0}, {"1E-100", "0", 1}};
    for (const auto &c : cases) {
        const Decimal a = parse(c.a), b = parse(c.b);
        EXPECT_EQ(DecimalCompare(&a, &b), c.cmp) << c.a << " ? " << c.b;
        EXPECT_EQ(deccmp(&a, &b), c.cmp) << c.a << " ? " << c.b;
    }
    const Decimal null = rec(0, -1, {}), one = parse("1");
    EXPECT_EQ(deccmp(&null, &one), DEC_ENULL);
    EXPECT_EQ(deccmp(&one, &null), DEC_ENULL);
    EXPECT_EQ(DecimalCompare(&null, &one), -1);  // a null built by the library reads as zero
    // DecimalNeg returns the new sign, and keeps a null null.
    Decimal d = parse("3"), z = parse("0"), n = null;
    EXPECT_EQ(DecimalNeg(&d), 0);
    EXPECT_EQ(DecimalNeg(&d), 1);
    EXPECT_EQ(std::tuple(DecimalNeg(&z), DecimalNeg(&n)), std::tuple(0, -1));
    EXPECT_EQ(DecimalCompare(&z, &d), -1);
    EXPECT_EQ(n.dec_pos, -1);
}

std::string dump_of(const Decimal &d) {
    char buf[1024] = {};
    FILE *f = fmemopen(buf, sizeof buf - 1, "w");
    decimal_dump(f, &d);
    std::fclose(f);
    return buf;
}

TEST(DecimalDiagnostics, Dump) {
    EXPECT_EQ(dump_of(parse("1.5")),
              "DecimalDump::: dec_exp: 1 dec_pos: 1 dec_ndgts: 2\n"
              "(01)(50)(00)(00)(00)(00)(00)(00)(00)(00)(00)(00)(00)(00)(00)(00)\n"
              "dectoasc Value(1.500000000000000000)\n");
    EXPECT_NE(dump_of(rec(2, 1, {200, 7})).find("(-56)(07)"), std::string::npos);
    testing::internal::CaptureStderr();
    DumpDouble("one", 1.0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "one: 00 00 00 00 00 00 f0 3f \n");
}

std::string hook_heard;
int32_t hook(const char *where, int32_t line) {
    hook_heard += std::string(where) + ":" + std::to_string(line) + " ";
    return 0;
}

TEST(DecimalDiagnostics, VerifyCallsTheHookOnCorruptCounts) {
    DecSetAbort(hook);
    const Decimal good = rec(1, 1, {1}, 16), over = rec(1, 1, {1}, 17), under = rec(1, 1, {1}, -1);
    testing::internal::CaptureStderr();
    DecVerify("good", 1, &good);
    DecVerify("over", 2, &over);
    DecVerify("under", 3, &under);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(hook_heard, "over:2 under:3 ");
    EXPECT_EQ(err.rfind("DecVerify: over-2\nDecimalDump::: ", 0), 0u) << err;
    DecSetAbort(nullptr);
    const Decimal bad = rec(1, 1, {1}, 17);
    EXPECT_DEATH(DecVerify("x", 1, &bad), "DecVerify: x-1");
}

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
