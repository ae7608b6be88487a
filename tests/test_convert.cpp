// Conversions between SQL types: the matrix, the text rules, the range
// tests with their hook, and the error flag.
#include "tests/convert_fixture.hpp"

#include <cmath>
#include <limits>
#include <vector>

using namespace cvtest;

namespace {

const auto *const env = ::testing::AddGlobalTestEnvironment(new Env);

struct Expect {
    const char *name;
    Src src;
    long long want;
    int flag = 0;
};

template <class F>
void check_int_target(const char *target, F fn, std::vector<Expect> cases) {
    for (auto &c : cases) {
        IsConvertionError();
        EXPECT_EQ(static_cast<long long>(fn(c.src.sv())), c.want) << target << ": " << c.name;
        EXPECT_EQ(IsConvertionError(), c.flag) << target << ": " << c.name;
    }
}

TEST(Convert, ToInt) {
    check_int_target("cvt_int", cvt_int, {
        {"text with blanks and tail", txt("  42abc"), 42},
        {"text letters", txt("abc"), INT32_MIN},
        {"text point first", txt(".5"), INT32_MIN},
        {"text negative", txt("-7"), -7},
        {"text plus", txt("+3"), 3},
        {"text blanks only", txt("   "), INT32_MIN},
        {"text empty", txt(""), INT32_MIN},
        {"text tab first", txt("\t5"), INT32_MIN},
        {"text too big wraps", txt("3000000000"), -1294967296},
        {"vchar", vch("123"), 123},
        {"vchar NUL inside", vch(std::string("12\0" "34", 5)), 12},
        {"blob", txt("-9", UDF_T_BLOB), -9},
        {"smallint", i16(-5), -5},
        {"smallint null", null_of(UDF_T_SMALLINT), INT32_MIN},
        {"float 2.99995", dbl(2.99995), 3},
        {"float 2.5", dbl(2.5), 2},
        {"float -2.5", dbl(-2.5), -2},
        {"float -2.99995", dbl(-2.99995), -3},
        {"float 3e9 wraps", dbl(3e9), -1294967296},
        {"float NaN", dbl(std::nan("")), INT32_MIN, 1},
        {"float inf", dbl(HUGE_VAL), INT32_MIN, 1},
        {"float 1e300", dbl(1e300), INT32_MIN, 1},
        {"float null", null_of(UDF_T_FLOAT), INT32_MIN},
        {"smallfloat", num<float>(UDF_T_SMALLFLOAT, 1.0f), INT32_MIN},
        {"decimal truncates", dec("12345.678", 0x0803), 12345},
        {"decimal negative", dec("-2.99", 0x0302), -2},
        {"decimal null", null_of(UDF_T_DECIMAL), INT32_MIN},
        {"date 0 is a day", date(0), 0},
        {"date", date(kXmas), kXmas},
        {"datetime32", i32(-1, UDF_T_DATETIME32), -1},
        {"longint wraps", i64(3000000000LL), -1294967296},
        {"timestamp", i64(kXmas1345, UDF_T_TIMESTAMP), kXmas1345},
        {"datetime null", null_of(UDF_T_DATETIME), INT32_MIN},
        {"user type", i32(5, 14), INT32_MIN},
    });
}

TEST(Convert, ToShortAndLong) {
    check_int_target("cvt_short", cvt_short, {
        {"integer 40000 wraps", i32(40000), -25536},
        {"smallint as is", i16(-32767), -32767},
        {"text", txt(" 12x"), 12},
        {"text wraps", txt("70000"), 4464},
        {"float nudged", dbl(-2.99995), -3},
        {"decimal wraps", dec("40000", 0x0500), -25536},
        {"longint", i64(-1), -1},
        {"date null", null_of(UDF_T_DATE), INT16_MIN},
        {"float NaN", dbl(std::nan("")), INT16_MIN, 1},
    });
    check_int_target("cvt_long64", cvt_long64, {
        {"text", txt("9223372036854775807"), INT64_MAX},
        {"text letters", txt("x1"), INT64_MIN},
        {"integer widened", i32(-1), -1},
        {"serial", i32(7, UDF_T_SERIAL), 7},
        {"date widened", date(-364), -364},
        {"float nudged", dbl(-2.99995), -3},
        {"float beyond 64 bits", dbl(1e19), INT64_MIN, 1},
        {"decimal", dec("-12345678901234.9", 0x1001), -12345678901234LL},
        {"datetime", i64(-5, UDF_T_DATETIME), -5},
        {"vchar null", vch(""), INT64_MIN},
    });
}

TEST(Convert, DbltoInt) {
    const struct {
        double in;
        int32_t want;
    } cases[] = {{2.99995, 3}, {2.5, 2}, {-2.5, -2}, {-2.99995, -3}, {0.0, 0},
                 {-0.00005, 0}, {4294967298.0, 2}, {std::nan(""), INT32_MIN},
                 {-HUGE_VAL, INT32_MIN}};
    for (const auto &c : cases) EXPECT_EQ(_Dbl2Int(c.in), c.want) << c.in;
}

TEST(Convert, ToDouble) {
    const struct {
        const char *name;
        Src src;
        double want;  // NaN: the null double
    } cases[] = {
        {"text", txt(" 1.5e3xyz"), 1500.0},
        {"text letters", txt("e5"), NAN},
        {"text empty", txt(""), NAN},
        {"vchar", vch("-0.25"), -0.25},
        {"smallint", i16(-3), -3.0},
        {"integer", i32(42), 42.0},
        {"smallfloat", num<float>(UDF_T_SMALLFLOAT, 1.0f), NAN},
        {"decimal", dec("1.5", 0x0201), 1.5},
        {"date", date(kXmas), double(kXmas)},
        {"datetime32", i32(100, UDF_T_DATETIME32), 100.0},
        {"longint", i64(1LL << 40), double(1LL << 40)},
        {"datetime", i64(kXmas1345, UDF_T_DATETIME), double(kXmas1345)},
        {"datetime null", null_of(UDF_T_DATETIME), NAN},
        {"user type", i64(1, 40), NAN},
    };
    for (auto c : cases) {
        const double got = cvt_double(c.src.sv());
        if (std::isnan(c.want))
            EXPECT_EQ(bits(got), ~0ull) << c.name;
        else
            EXPECT_EQ(got, c.want) << c.name;
    }
    // A NaN that is not the null pattern travels unchanged.
    const double q = std::numeric_limits<double>::quiet_NaN();
    Src f = dbl(q);
    EXPECT_EQ(bits(cvt_double(f.sv())), bits(q));
}

TEST(Convert, ToDateAndDatetime) {
    check_int_target("cvt_date", cvt_date, {
        {"text", txt("25/12/2020"), kXmas},
        {"text after blanks", txt("   25/12/2020"), kXmas},
        {"text bad day", txt("31/02/2020"), 0, 1},
        {"text empty", txt(""), INT32_MIN},
        {"vchar", vch("25122020"), kXmas},
        {"smallint", i16(3), 3},
        {"float truncated, not nudged", dbl(-1.99999), -1},
        {"float NaN", dbl(std::nan("")), INT32_MIN, 1},
        {"decimal", dec("77061.9", 0x0601), kXmas},
        {"date 0 stays", date(0), 0},
        {"datetime32", i32(static_cast<int32_t>(kXmas1345), UDF_T_DATETIME32), kXmas},
        {"longint low bits", i64((1LL << 32) + 5), 5},
        {"timestamp", i64(kXmas1345, UDF_T_TIMESTAMP), kXmas},
        {"datetime", i64(kXmasMidnight - 1, UDF_T_DATETIME), kXmas - 1},
    });
    check_int_target("cvt_dtime", cvt_dtime, {
        {"text", txt("25/12/2020 13:45:00"), kXmas1345},
        {"text leading blank", txt(" 25/12/2020"), INT64_MIN},
        {"text bad hour", txt("25/12/2020 24:00"), INT64_MIN, 1},
        {"vchar date only", vch("25-12-2020"), kXmasMidnight},
        {"date 0 is null here", date(0), INT64_MIN},
        {"date", date(kXmas), kXmasMidnight},
        {"integer", i32(-7), -7},
        {"smallint", i16(9), 9},
        {"float", dbl(1.9), 1},
        {"float -inf", dbl(-HUGE_VAL), INT64_MIN, 1},
        {"decimal", dec("-3.5", 0x0201), -3},
        {"datetime32 widened", i32(-2, UDF_T_DATETIME32), -2},
        {"longint", i64(kXmas1345), kXmas1345},
        {"datetime", i64(kXmas1345, UDF_T_DATETIME), kXmas1345},
    });
}

TEST(Convert, ToChar) {
    const struct {
        const char *name;
        Src src;
        const char *want;
    } cases[] = {
        {"smallint", i16(-5), "-5"},
        {"smallint null", null_of(UDF_T_SMALLINT), ""},
        {"integer", i32(42), "42"},
        {"serial", i32(-1, UDF_T_SERIAL), "-1"},
        {"longint", i64(1608903900), "1608903900"},
        {"timestamp as number", i64(kXmas1345, UDF_T_TIMESTAMP), "1608903900"},
        {"float", dbl(0.1), "0.100000"},
        {"float huge", dbl(1e300), "1e+300"},
        {"float NaN", dbl(std::nan("")), "nan"},
        {"smallfloat", num<float>(UDF_T_SMALLFLOAT, 1.0f), ""},
        {"decimal(5,0)", dec("123", 0x0500), "123"},
        {"decimal(5,0) cuts the fraction", dec("123.6", 0x0500), "123"},
        {"date", date(kXmas), "25/12/2020"},
        {"date 0 is a day", date(0), "31/12/1809"},
        {"date null", null_of(UDF_T_DATE), ""},
        {"datetime", i64(kXmas1345, UDF_T_DATETIME), "25/12/2020 13:45:00"},
        {"datetime32", i32(static_cast<int32_t>(kXmas1345), UDF_T_DATETIME32),
         "25/12/2020 13:45:00"},
        {"datetime before 1970", i64(-1, UDF_T_DATETIME), ""},
        {"vchar NUL at sixth byte", vch(std::string("hello\0world", 11)), "hello"},
        {"user type", i32(1, 99), ""},
    };
    for (auto c : cases) EXPECT_STREQ(cvt_char(c.src.sv()), c.want) << c.name;

    // A char source comes back as itself.
    Src t = txt("abc");
    SqlVar *v = t.sv();
    EXPECT_EQ(cvt_char(v), t.text.data());
}

TEST(Convert, DecimalText) {
    // decimal(5,2): width p + 2, laid out from the left and blank padded.
    Src d = dec("123.45", 0x0502);
    EXPECT_STREQ(cvt_char(d.sv()), "123.45 ");
    // A size of 0 prints every digit in 18 characters and is written back.
    Src z = dec("12.5", 0);
    SqlVar *v = z.sv();
    EXPECT_STREQ(cvt_char(v), "12.500000000000000");
    EXPECT_EQ(v->var_size, 0x10FF);
    // A point left last is cut.
    Src p = dec("123.456", 0x0202);
    EXPECT_STREQ(cvt_char(p.sv()), "123");
    // A precision beyond what the areas hold stays inside them.
    Src big = dec("1", 0xFF01);
    EXPECT_EQ(std::strlen(cvt_char(big.sv())), 199u);
    VChar out;
    cvt_vchar(big.sv(), &out);
    EXPECT_EQ(out.vc_len, 49);
    std::free(out.vc_data);
}

TEST(Convert, VcharFetchLimits) {
    const struct {
        size_t len;
        size_t want;
        int flag;
    } cases[] = {{65534, 65534, 0}, {65535, 65534, 1}, {70000, 65534, 1}, {10, 10, 0}};
    for (const auto &c : cases) {
        Src s = vch(std::string(c.len, 'x'));
        IsConvertionError();
        EXPECT_EQ(std::strlen(cvt_char(s.sv())), c.want) << c.len;
        EXPECT_EQ(IsConvertionError(), c.flag) << c.len;
    }
    // Garbage length: no byte read, the null, and the flag.
    Src bad = vch("abc");
    SqlVar *v = bad.sv();
    bad.vc.vc_len = -4;
    IsConvertionError();
    EXPECT_STREQ(cvt_char(v), "");
    EXPECT_EQ(cvt_int(v), INT32_MIN);
    VChar out{1, nullptr};
    cvt_blob(v, &out);
    EXPECT_EQ(out.vc_len, 0);
    EXPECT_EQ(out.vc_data, nullptr);
    EXPECT_EQ(IsConvertionError(), 1);
}

TEST(Convert, ToVcharAndBlob) {
    const struct {
        const char *name;
        Src src;
        const char *want;  // null: the null vchar
    } cases[] = {
        {"char", txt("abc"), "abc"},
        {"char empty", txt(""), nullptr},
        {"smallint", i16(7), "7"},
        {"integer null", null_of(UDF_T_INTEGER), nullptr},
        {"float", dbl(0.1), "0.100000"},
        {"float too wide for %f", dbl(1e42), "1e+42"},
        {"float -1e300", dbl(-1e300), "-1e+300"},
        {"decimal", dec("-1.5", 0x0501), "-1.5   "},
        {"date", date(kXmas), "25/12/2020"},
        {"datetime32", i32(static_cast<int32_t>(kXmas1345), UDF_T_DATETIME32),
         "25/12/2020 13:45:00"},
        {"longint", i64(-12), "-12"},
        {"timestamp as datetime text", i64(kXmas1345, UDF_T_TIMESTAMP), "25/12/2020 13:45:00"},
        {"smallfloat", num<float>(UDF_T_SMALLFLOAT, 1.0f), nullptr},
    };
    for (auto c : cases) {
        for (auto fn : {cvt_vchar, cvt_blob}) {
            VChar out{-1, nullptr};
            fn(c.src.sv(), &out);
            if (!c.want) {
                EXPECT_EQ(out.vc_len, 0) << c.name;
                EXPECT_EQ(out.vc_data, nullptr) << c.name;
                continue;
            }
            ASSERT_NE(out.vc_data, nullptr) << c.name;
            EXPECT_EQ(std::string(out.vc_data, out.vc_len), c.want) << c.name;
            EXPECT_EQ(out.vc_data[out.vc_len], '\0') << c.name;
            std::free(out.vc_data);
        }
    }
    // Vchar and blob sources are copied byte for byte, NULs included.
    const std::string bytes("a\0b\0c", 5);
    for (uint16_t t : {uint16_t(UDF_T_VCHAR), uint16_t(UDF_T_BLOB)}) {
        Src s = txt(bytes, t);
        VChar out;
        cvt_blob(s.sv(), &out);
        ASSERT_EQ(out.vc_len, 5);
        EXPECT_NE(out.vc_data, s.text.data());
        EXPECT_EQ(std::string(out.vc_data, 5), bytes);
        std::free(out.vc_data);
    }
}

TEST(Convert, ToDecimal) {
    const struct {
        const char *name;
        Src src;
        const char *want;  // null: the null decimal
        int32_t status;
    } cases[] = {
        {"text", txt("12.5"), "12.5", 0},
        {"text after blanks", txt("  -0.05"), "-0.05", 0},
        {"text empty", txt(""), nullptr, 0},
        {"text bad", txt("1.2.3"), nullptr, DEC_EBADTEXT},
        {"vchar", vch("1E3"), "1000", 0},
        {"smallint", i16(-32767), "-32767", 0},
        {"integer", i32(100), "100", 0},
        {"float", dbl(0.1), "0.1", 0},
        {"date", date(kXmas), "77061", 0},
        {"longint", i64(INT64_MAX), "9223372036854775807", 0},
        {"datetime null", null_of(UDF_T_DATETIME), nullptr, 0},
        {"user type", i32(3, 20), nullptr, 0},
    };
    for (auto c : cases) {
        Decimal out;
        EXPECT_EQ(cvt_decimal(c.src.sv(), &out), c.status) << c.name;
        if (!c.want) {
            EXPECT_EQ(out.dec_pos, -1) << c.name;
            continue;
        }
        Decimal want;
        ASSERT_EQ(_deccvasc(c.want, static_cast<int32_t>(std::strlen(c.want)), &want), 0);
        EXPECT_EQ(deccmp(&out, &want), 0) << c.name;
    }
    // A decimal source is copied whole, null included.
    Src n = null_of(UDF_T_DECIMAL);
    Decimal out{};
    EXPECT_EQ(cvt_decimal(n.sv(), &out), 0);
    EXPECT_EQ(std::memcmp(&out, n.cell, sizeof out), 0);
}

TEST(Convert, ToDecimalWithPrecision) {
    const int32_t size = 10 * 256 + 2;
    const struct {
        const char *name;
        Src src;
        const char *want;
    } cases[] = {
        {"text rounds", txt("1.235"), "1.24"},
        {"float rounds", dbl(-1.235), "-1.24"},
        {"decimal rounds", dec("2.345", 0x0503), "2.35"},
        {"integer kept", i32(12345), "12345"},
    };
    for (auto c : cases) {
        Decimal out, want;
        EXPECT_EQ(cvt_decimal_prec(c.src.sv(), &out, size), 0) << c.name;
        _deccvasc(c.want, static_cast<int32_t>(std::strlen(c.want)), &want);
        EXPECT_EQ(deccmp(&out, &want), 0) << c.name;
    }
    Src n = null_of(UDF_T_DECIMAL);
    Decimal out{};
    EXPECT_EQ(cvt_decimal_prec(n.sv(), &out, size), 0);
    EXPECT_EQ(out.dec_pos, -1);
    // Rounding beyond the sixteenth digit is the status.
    Src far = txt("1E20");
    EXPECT_EQ(cvt_decimal_prec(far.sv(), &out, 32 * 256 + 12), DEC_EROUNDPOS);
}

// The hook hears of every value outside an integer or smallint target.
std::vector<std::pair<SqlVar *, int32_t>> heard;
void hook(SqlVar *source, int32_t target) { heard.emplace_back(source, target); }

TEST(Convert, OverflowHook) {
    const struct {
        const char *name;
        Src src;
        bool shortTarget;
        long long want;
        int32_t heardType;  // 0: not called
    } cases[] = {
        {"longint to int", i64(3000000000LL), false, -1294967296, 2},
        {"integer to short", i32(40000), true, -25536, 1},
        {"integer to short in range", i32(-32768), true, -32768, 0},
        {"text to int", txt("99999999999"), false, 1215752191, 2},
        {"text to short", txt("-40000"), true, 25536, 1},
        {"float to int edge", dbl(2147483647.0), false, 2147483647, 2},
        {"float to int below edge", dbl(2147483646.9), false, 2147483646, 0},
        {"float to short", dbl(-32768.5), true, -32768, 1},
        {"decimal to short", dec("32768", 0x0500), true, -32768, 1},
        {"decimal to int never tested", dec("3000000000", 0x0a00), false, -1294967296, 0},
        {"datetime to short", i64(1 << 20, UDF_T_DATETIME), true, 0, 1},
    };
    SetConvertionOverflowHook(hook);
    for (auto c : cases) {
        heard.clear();
        SqlVar *v = c.src.sv();
        const long long got = c.shortTarget ? cvt_short(v) : cvt_int(v);
        EXPECT_EQ(got, c.want) << c.name;
        if (c.heardType) {
            ASSERT_EQ(heard.size(), 1u) << c.name;
            EXPECT_EQ(heard[0].first, v) << c.name;
            EXPECT_EQ(heard[0].second, c.heardType) << c.name;
        } else {
            EXPECT_TRUE(heard.empty()) << c.name;
        }
    }
    // Long targets and dates are never range tested; no hook, no test.
    heard.clear();
    Src l = i64(INT64_MAX);
    cvt_long64(l.sv());
    cvt_date(l.sv());
    EXPECT_TRUE(heard.empty());
    SetConvertionOverflowHook(nullptr);
    Src big = i64(3000000000LL);
    EXPECT_EQ(cvt_int(big.sv()), -1294967296);
    EXPECT_TRUE(heard.empty());
    ReportConvertions();
}

}  // namespace

namespace {

// Storage of every fixed-size type filled with hostile bit patterns: each
// conversion gives a defined result and stays inside its areas.
TEST(Convert, GarbageBits) {
    std::vector<std::vector<unsigned char>> patterns = {
        std::vector<unsigned char>(32, 0x00), std::vector<unsigned char>(32, 0xff),
        std::vector<unsigned char>(32, 0x80), std::vector<unsigned char>(32, 0x7f),
        std::vector<unsigned char>(32, 0x63)};
    uint64_t seed = 0x9e3779b97f4a7c15ull;
    for (int i = 0; i < 200; ++i) {
        std::vector<unsigned char> p(32);
        for (auto &b : p) {
            seed ^= seed << 13, seed ^= seed >> 7, seed ^= seed << 17;
            b = static_cast<unsigned char>(seed);
        }
        patterns.push_back(p);
    }
    const uint16_t sizes[] = {0, 8, 0x0502, 0x10FF, 0x2010, 0xFFFF};
    for (uint16_t type = 1; type <= 20; ++type) {
        if (type == UDF_T_VCHAR || type == UDF_T_BLOB) continue;
        for (const auto &p : patterns) {
            for (uint16_t size : sizes) {
                alignas(8) unsigned char cell[32];
                std::memcpy(cell, p.data(), sizeof cell);
                SqlVar v{type, size, cell};
                EXPECT_LT(std::strlen(cvt_char(&v)), 200u);
                for (auto fn : {cvt_vchar, cvt_blob}) {
                    VChar out{0, nullptr};
                    fn(&v, &out);
                    if (out.vc_data) {
                        EXPECT_LT(out.vc_len, 50);
                        EXPECT_EQ(std::strlen(out.vc_data), static_cast<size_t>(out.vc_len));
                    }
                    std::free(out.vc_data);
                }
                cvt_double(&v);
                cvt_int(&v);
                cvt_short(&v);
                cvt_long64(&v);
                cvt_date(&v);
                cvt_dtime(&v);
                Decimal d;
                cvt_decimal(&v, &d);
                cvt_decimal_prec(&v, &d, size);
            }
        }
    }
    IsConvertionError();
}

// Date and datetime sources and targets meet at local midnight in any zone.
TEST(Convert, LocalMidnightInZones) {
    const char *zones[] = {"UTC", "Europe/Paris", "America/New_York", "Australia/Lord_Howe"};
    const int32_t days[] = {kXmas, 77061 - 270 /* around the spring change */, 58440, 1};
    for (const char *z : zones) {
        setenv("TZ", z, 1);
        tzset();
        for (int32_t day : days) {
            Src d = date(day);
            const int64_t t = cvt_dtime(d.sv());
            ASSERT_NE(t, INT64_MIN) << z << " " << day;
            const time_t tt = static_cast<time_t>(t);
            struct tm parts;
            localtime_r(&tt, &parts);
            EXPECT_EQ(parts.tm_hour * 60 + parts.tm_min, 0) << z << " " << day;
            Src back = i64(t, UDF_T_DATETIME);
            EXPECT_EQ(cvt_date(back.sv()), day) << z;
            Src ts = i64(t, UDF_T_TIMESTAMP);
            EXPECT_EQ(cvt_date(ts.sv()), day) << z;
        }
    }
    setenv("TZ", "UTC", 1);
    tzset();
}

}  // namespace
