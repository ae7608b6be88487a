// Conversions between SQL types: the matrix, the text rules, the range
// tests with their hook, and the error flag; null values of every type;
// the conversions as hosts put them in SQL (target names, how a host value
// becomes the engine's source, which results are NULL).
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "sqlhelp/convert.hpp"
#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/null.h"

namespace {
using namespace udfkit::sqlhelp;
using Mark = CvtSource::Mark;

// One source value with its own storage; sv() gives a record pointing into it.
struct Src {
    uint16_t type, size;
    std::string text;  // char, vchar, blob
    alignas(8) unsigned char cell[32] = {};
    VChar vc{0, nullptr};
    SqlVar var{};

    SqlVar *sv() {
        void *data = cell;
        if (type == UDF_T_CHAR) data = text.data();
        if (type == UDF_T_VCHAR || type == UDF_T_BLOB) {
            vc = VChar{static_cast<int32_t>(text.size()), text.data()};
            data = &vc;
        }
        var = SqlVar{type, size, data};
        return &var;
    }
};

template <class T>
Src num(uint16_t type, T v, uint16_t size = 8) {
    Src s{type, size, {}};
    std::memcpy(s.cell, &v, sizeof v);
    return s;
}
Src i32(int32_t v, uint16_t type = UDF_T_INTEGER) { return num(type, v); }
Src i64(int64_t v, uint16_t type = UDF_T_LONGINT) { return num(type, v); }
Src dbl(double v) { return num(UDF_T_FLOAT, v); }
Src date(int32_t v) { return num(UDF_T_DATE, v); }
Src txt(std::string t, uint16_t type = UDF_T_CHAR) { return Src{type, 0, std::move(t)}; }
Src vch(std::string t) { return txt(std::move(t), UDF_T_VCHAR); }
Src dec(const char *t, uint16_t size) {
    Decimal d;
    _deccvasc(t, static_cast<int32_t>(std::strlen(t)), &d);
    return num(UDF_T_DECIMAL, d, size);
}
Src null_of(uint16_t type) {
    Src s = num<uint64_t>(type, 0);
    _nullvar(s.sv());
    return s;
}
uint64_t bits(double d) { return std::bit_cast<uint64_t>(d); }

// Dates and datetimes in UTC under the default settings.
struct Env : ::testing::Environment {
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        for (const char *v : {"DBDATE", "DBDATETIME", "DBTODAY"}) unsetenv(v);
        _date_init();
    }
};

// 25 December 2020: day number and moments in UTC.
constexpr int32_t kXmas = 77061;
constexpr int64_t kXmasMidnight = 1608854400;
constexpr int64_t kXmas1345 = 1608903900;

const auto *const env = ::testing::AddGlobalTestEnvironment(new Env);

template <auto F>
long long as(SqlVar *v) { return F(v); }

std::vector<std::pair<SqlVar *, int32_t>> heard;
void hook(SqlVar *source, int32_t target) { heard.emplace_back(source, target); }

// Integer, date and datetime targets with the overflow hook installed: the
// error flag, and what the hook hears (the target's type code, 0: nothing).
struct Row {
    Src src;
    long long want;
    int flag = 0, heard = 0;
};

TEST(Convert, IntegerTargets) {
    const double nan = std::nan("");
    const struct { const char *name; long long (*fn)(SqlVar *); std::vector<Row> rows; } targets[] = {
        {"int", as<cvt_int>, {
            // text rule: blanks skipped, tail ignored, no number gives the null
            {txt("  42abc"), 42},   {txt("abc"), INT32_MIN},  {txt(".5"), INT32_MIN}, {txt("\t5"), INT32_MIN},
            {txt("3000000000"), -1294967296, 0, 2},       {vch(std::string("12\0" "34", 5)), 12},
            // floats move 0.0001 away from zero; beyond 64 bits (or NaN): the
            // null, and no flag (an overflow is the hook's business)
            {dbl(2.99995), 3},      {dbl(2.5), 2},            {dbl(3e9), -1294967296, 0, 2},
            {dbl(2147483647.0), 2147483647, 0, 2},        {dbl(2147483646.9), 2147483646},
            {dbl(nan), INT32_MIN},  {dbl(1e300), INT32_MIN, 0, 2}, {null_of(UDF_T_FLOAT), INT32_MIN},
            {num<float>(UDF_T_SMALLFLOAT, 1.0f), INT32_MIN},
            // decimals truncate, and are not range tested
            {dec("-12345.678", 0x0803), -12345},          {dec("3000000000", 0x0a00), -1294967296},
            {i64(3000000000LL), -1294967296, 0, 2},
        }},
        {"short", as<cvt_short>, {
            {dbl(-1e300), INT16_MIN, 0, 1}, {dec("40000", 0x0500), -25536, 0, 1}, {i32(40000), -25536, 0, 1},
            {null_of(UDF_T_DATE), INT16_MIN},
        }},
        {"long", as<cvt_long64>, {
            {dbl(1e19), INT64_MIN}, {dbl(1e18), 1000000000000000000LL},  // no range test
            {dec("-12345678901234.9", 0x1001), -12345678901234LL}, {txt("9223372036854775807"), INT64_MAX},
            {vch(""), INT64_MIN},
        }},
        // dates: text under DBDATE, floats truncated without nudge
        {"date", as<cvt_date>, {
            {txt("   25/12/2020"), kXmas},                 {txt("31/02/2020"), 0, 1},
            {dbl(-1.99999), -1},    {dbl(1e300), INT32_MIN},  {dec("77061.9", 0x0601), kXmas},
            {i32(int32_t(kXmas1345), UDF_T_DATETIME32), kXmas}, {i64((1LL << 32) + 5), 5},  // low 32 bits
            {i64(kXmas1345, UDF_T_TIMESTAMP), kXmas}, {i64(kXmasMidnight - 1, UDF_T_DATETIME), kXmas - 1},
        }},
        {"dtime", as<cvt_dtime>, {
            {txt("25/12/2020 13:45:00"), kXmas1345},       {txt(" 25/12/2020"), INT64_MIN},
            {txt("25/12/2020 24:00"), INT64_MIN, 1},       {date(0), INT64_MIN},  // date 0 is null here
            {date(kXmas), kXmasMidnight},                  {dec("-3.5", 0x0201), -3},
            {dbl(HUGE_VAL), INT64_MIN},
        }},
    };
    SetConvertionOverflowHook(hook);
    for (const auto &t : targets) {
        for (size_t i = 0; i < t.rows.size(); ++i) {
            SCOPED_TRACE(testing::Message() << t.name << " row " << i);
            Row c = t.rows[i];
            IsConvertionError();
            heard.clear();
            SqlVar *v = c.src.sv();
            EXPECT_EQ(t.fn(v), c.want);
            EXPECT_EQ(IsConvertionError(), c.flag);
            ASSERT_EQ(heard.size(), c.heard ? 1u : 0u);
            if (c.heard) {
                EXPECT_EQ(heard[0].first, v);
                EXPECT_EQ(heard[0].second, c.heard);
            }
        }
    }
    SetConvertionOverflowHook(nullptr);  // no hook: nothing is tested, the value wraps
    heard.clear();
    Src big = i64(3000000000LL);
    EXPECT_EQ(cvt_int(big.sv()), -1294967296);
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(_Dbl2Int(-2.99995), -3);
    EXPECT_EQ(_Dbl2Int(4294967298.0), 2);
}

TEST(Convert, ToDouble) {
    const struct { const char *name; Src src; double want; } cases[] = {  // NaN: the null double
        {"text", txt(" 1.5e3xyz"), 1500.0},
        {"vchar", vch("-0.25"), -0.25},
        {"smallfloat", num<float>(UDF_T_SMALLFLOAT, 1.0f), NAN},
        {"decimal", dec("1.5", 0x0201), 1.5},
        {"date", date(kXmas), double(kXmas)},
        {"datetime null", null_of(UDF_T_DATETIME), NAN},
    };
    for (auto c : cases) {
        const double got = cvt_double(c.src.sv());
        if (std::isnan(c.want))
            EXPECT_EQ(bits(got), ~0ull) << c.name;
        else
            EXPECT_EQ(got, c.want) << c.name;
    }
    Src q = dbl(std::nan(""));  // a NaN other than the null travels unchanged
    EXPECT_EQ(bits(cvt_double(q.sv())), bits(std::nan("")));
}

// cvt_char, cvt_vchar and cvt_blob side by side; null: the target's null.
TEST(Convert, TextTargets) {
    const struct { const char *name; Src src; const char *chr, *vchar; } cases[] = {
        {"longint", i64(1608903900), "1608903900", "1608903900"},
        {"timestamp", i64(kXmas1345, UDF_T_TIMESTAMP), "1608903900", "25/12/2020 13:45:00"},
        {"float", dbl(0.1), "0.100000", "0.100000"},
        {"float 1e42", dbl(1e42), "1000000000000000044885712678075916785549312.000000", "1e+42"},
        {"decimal(5,2)", dec("123.45", 0x0502), "123.45 ", "123.45 "},
        {"decimal(5,0) cut at the point", dec("123.6", 0x0500), "123", "123"},
        {"decimal point left last", dec("123.456", 0x0202), "123", "123"},
        {"date 0 is a day", date(0), "31/12/1809", "31/12/1809"},
        {"datetime", i64(kXmas1345, UDF_T_DATETIME), "25/12/2020 13:45:00", "25/12/2020 13:45:00"},
        {"char empty", txt(""), "", nullptr},
        {"smallfloat", num<float>(UDF_T_SMALLFLOAT, 1.0f), "", nullptr},
    };
    for (auto c : cases) {
        EXPECT_STREQ(cvt_char(c.src.sv()), c.chr) << c.name;
        for (auto fn : {cvt_vchar, cvt_blob}) {
            VChar out{-1, nullptr};
            fn(c.src.sv(), &out);
            if (!c.vchar) {
                EXPECT_EQ(out.vc_len, 0) << c.name;
                EXPECT_EQ(out.vc_data, nullptr) << c.name;
                continue;
            }
            ASSERT_NE(out.vc_data, nullptr) << c.name;
            EXPECT_EQ(std::string(out.vc_data, out.vc_len), c.vchar) << c.name;
            std::free(out.vc_data);
        }
    }
    Src t = txt("abc");  // a char source is its own text
    EXPECT_EQ(cvt_char(t.sv()), t.text.data());

    // Size 0 prints 18 characters with every fraction digit, and is written back.
    Src z = dec("12.5", 0);
    EXPECT_STREQ(cvt_char(z.sv()), "12.500000000000000");
    EXPECT_EQ(z.var.var_size, 0x10FF);
    // A precision the areas cannot hold is cut to them.
    Src big = dec("1", 0xFF01);
    EXPECT_EQ(std::strlen(cvt_char(big.sv())), 199u);
    VChar out;
    cvt_vchar(big.sv(), &out);
    EXPECT_EQ(out.vc_len, 49);
    std::free(out.vc_data);
}

TEST(Convert, VcharSources) {
    const struct { size_t len, want; int flag; } cases[] = {
        {65534, 65534, 0}, {65535, 65534, 1}};
    for (const auto &c : cases) {
        Src s = vch(std::string(c.len, '7'));
        IsConvertionError();
        EXPECT_EQ(std::strlen(cvt_char(s.sv())), c.want) << c.len;
        EXPECT_EQ(IsConvertionError(), c.flag) << c.len;
    }
    // To a vchar or blob: copied byte for byte, NULs included, also when empty.
    for (const std::string &bytes : {std::string("a\0b\0c", 5), std::string()}) {
        Src s = txt(bytes, UDF_T_BLOB);
        VChar out;
        cvt_vchar(s.sv(), &out);
        EXPECT_EQ(std::string(out.vc_data, static_cast<size_t>(out.vc_len)), bytes);
        std::free(out.vc_data);
    }
    // A negative length reads nothing: the null, and no flag.
    Src bad = vch("abc");
    SqlVar *v = bad.sv();
    bad.vc.vc_len = -4;
    IsConvertionError();
    EXPECT_STREQ(cvt_char(v), "");
    VChar out{1, nullptr};
    cvt_blob(v, &out);
    EXPECT_EQ(out.vc_len, 0);
    EXPECT_EQ(IsConvertionError(), 0);
}

TEST(Convert, ToDecimal) {
    // size 0: cvt_decimal, else cvt_decimal_prec; want null: the null decimal
    const struct { const char *name; Src src; int32_t size; const char *want; int32_t status; } cases[] = {
        {"text", txt("  12.5"), 0, "12.5", 0},
        {"text empty", txt(""), 0, nullptr, 0},
        {"text bad", txt("1.2.3"), 0, nullptr, DEC_EBADTEXT},
        {"float", dbl(0.1), 0, "0.1", 0},
        {"longint", i64(INT64_MAX), 0, "9223372036854775807", 0},
        {"text rounded", txt("1.235"), 0x0a02, "1.24", 0},
        {"decimal rounded", dec("2.345", 0x0503), 0x0a02, "2.35", 0},
        {"integer not rounded", i32(12345), 0x0302, "12345", 0},
        {"decimal null", null_of(UDF_T_DECIMAL), 0x0a02, nullptr, 0},
    };
    for (auto c : cases) {
        Decimal out;
        const int32_t st = c.size ? cvt_decimal_prec(c.src.sv(), &out, c.size)
                                  : cvt_decimal(c.src.sv(), &out);
        EXPECT_EQ(st, c.status) << c.name;
        if (!c.want) {
            EXPECT_EQ(out.dec_pos, -1) << c.name;
            continue;
        }
        Decimal want;
        _deccvasc(c.want, static_cast<int32_t>(std::strlen(c.want)), &want);
        EXPECT_EQ(deccmp(&out, &want), 0) << c.name;
    }
    Src far = txt("1E20");  // rounding beyond the sixteenth digit
    Decimal out;
    EXPECT_EQ(cvt_decimal_prec(far.sv(), &out, 32 * 256 + 12), DEC_EROUNDPOS);
}

TEST(Null, IsNullVarPerType) {
    const struct { const char *name; Src src; int32_t null; } cases[] = {
        {"char empty", txt(""), 1},
        {"smallint min", num<int16_t>(UDF_T_SMALLINT, -32768), 1},
        {"smallint -32767", num<int16_t>(UDF_T_SMALLINT, -32767), 0},
        {"date 0", date(0), 1},
        {"datetime32 0", i32(0, UDF_T_DATETIME32), 0},
        {"float quiet NaN", dbl(std::nan("")), 0},
        {"float low half ones", num<uint64_t>(UDF_T_FLOAT, 0xffffffffull), 0},
        {"smallfloat ones", num<uint64_t>(UDF_T_SMALLFLOAT, ~0ull), 0},
        {"datetime min+1", i64(INT64_MIN + 1, UDF_T_DATETIME), 0},
        {"user type", i64(INT64_MIN, 14), 0},
    };
    for (auto c : cases) EXPECT_EQ(_is_null_var(c.src.sv()), c.null) << c.name;
}

// What _nullvar writes is exactly what _is_null_var accepts, and no more.
TEST(Null, NullvarPerType) {
    const struct { uint16_t type; size_t written; } cases[] = {  // bytes changed from the 0x11 fill
        {UDF_T_CHAR, 1},     {UDF_T_SMALLINT, 2},  {UDF_T_INTEGER, 4},   {UDF_T_FLOAT, 8},
        {UDF_T_DECIMAL, 6},  {UDF_T_SERIAL, 4},    {UDF_T_DATE, 4},      {UDF_T_DATETIME32, 4},
        {UDF_T_LONGINT, 8},  {UDF_T_TIMESTAMP, 8}, {UDF_T_DATETIME, 8},  {UDF_T_SMALLFLOAT, 0},
        {15, 0}};
    for (auto c : cases) {
        alignas(8) unsigned char cell[32];
        std::memset(cell, 0x11, sizeof cell);
        SqlVar var{c.type, 8, cell};
        EXPECT_EQ(_is_null_var(&var), 0) << c.type;
        _nullvar(&var);
        EXPECT_EQ(_is_null_var(&var), c.written ? 1 : 0) << c.type;
        for (size_t i = c.written; i < sizeof cell; ++i)
            ASSERT_EQ(cell[i], 0x11) << "type " << c.type << " byte " << i;
    }
    // A null decimal: only the sign decides, and the float test says no.
    Decimal d{};
    std::memset(&d, 0x11, sizeof d);
    snulldec(&d);
    EXPECT_EQ(d.dec_exp, 0);
    EXPECT_EQ(d.dec_ndgts, 0);
    d.dec_ndgts = 7;
    SqlVar var{UDF_T_DECIMAL, 0x0502, &d};
    EXPECT_EQ(_is_null_var(&var), 1);
    EXPECT_EQ(_is_nulld(reinterpret_cast<const double *>(&d)), 0);
    Src f = num<uint64_t>(UDF_T_FLOAT, 0x1111111111111111ull, 4);  // a float null fills var_size bytes
    _nullvar(f.sv());
    EXPECT_EQ(f.cell[3], 0xff);
    EXPECT_EQ(f.cell[4], 0x11);
}

TEST(Null, VcharReleasesOnce) {
    VChar vc{5, static_cast<char *>(std::malloc(5))};
    SqlVar v{UDF_T_BLOB, 0, &vc};
    EXPECT_EQ(_is_null_var(&v), 0);
    _nullvar(&v);
    EXPECT_EQ(_is_null_var(&v), 1);
    // Already empty: nothing is freed again (the sanitizers would tell).
    snullvchar(&vc);
    _nullvar(&v);
}


// A result as "NULL", "t:text", "b:bytes", "r:real", "i:int", "d:day", "s:seconds".
std::string render(const CvtResult &r) {
    switch (r.kind) {
    case CvtResult::Kind::Null: return "NULL";
    case CvtResult::Kind::Text: return "t:" + r.bytes;
    case CvtResult::Kind::Bytes: return "b:" + r.bytes;
    case CvtResult::Kind::Real: {
        char buf[64];
        std::snprintf(buf, sizeof buf, "r:%.10g", r.real);
        return buf;
    }
    case CvtResult::Kind::Integer: return "i:" + std::to_string(r.integer);
    case CvtResult::Kind::Date: return "d:" + std::to_string(r.integer);
    case CvtResult::Kind::Datetime: return "s:" + std::to_string(r.integer);
    }
    return "?";
}

std::string run(CvtSource &src, const char *target) {
    const auto type = parse_cvt_target(target);
    if (!type) return "unknown target";
    return render(convert(src, *type));
}

// A source of each kind converted to target.
std::string text(const std::string &t, const char *target) {
    CvtSource s;
    return s.set_text(t.c_str()), run(s, target);
}
std::string integer(int64_t v, Mark mark, const char *target) {
    CvtSource s;
    return s.set_integer(v, mark), run(s, target);
}
std::string real(double v, const char *target) {
    CvtSource s;
    return s.set_real(v), run(s, target);
}
std::string bytes(const std::string &b, const char *target) {
    CvtSource s;
    return s.set_bytes(b.data(), b.size()), run(s, target);
}

struct SqlConvert : ::testing::Test {
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        IsConvertionError();
    }
};

TEST_F(SqlConvert, TargetNames) {
    const struct { const char *name; bool ok; int32_t size; } cases[] = {
        {"char", true, 0},          {" Integer ", true, 0},        {"INT", true, 0},
        {"decimal", true, 0},       {"decimal(10,2)", true, 2562}, {"DECIMAL ( 5 , 0 )", true, 1280},
        {"decimal(7)", true, 1792}, {"decimal(33,2)", false, 0},   {"decimal(5,6)", false, 0},
        {"decimal(0)", false, 0},   {"decimal(5,2", false, 0},     {"money", false, 0},
        {"", false, 0},
    };
    for (const auto &c : cases) {
        const auto type = parse_cvt_target(c.name);
        EXPECT_EQ(type.has_value(), c.ok) << c.name;
        if (type) {
            EXPECT_EQ(type->decimal_size, c.size) << c.name;
        }
    }
}

TEST_F(SqlConvert, Values) {
    const struct { std::string got; const char *want; } cases[] = {
        {text("abc", "int"), "NULL"},
        {integer(3000000000, Mark::None, "integer"), "i:-1294967296"},  // a longint source wraps
        {bytes("abc", "blob"), "b:abc"},
        {integer(77061, Mark::Date, "char"), "t:25/12/2020"},
        {integer(0, Mark::Date, "date"), "NULL"},
        {text("25/12/2020 13:45", "datetime"), "s:1608903900"},
        {integer(1608903900, Mark::Datetime, "vchar"), "t:25/12/2020 13:45:00"},
        {integer(1608903900, Mark::None, "char"), "t:1608903900"},
        {text("12.50", "decimal"), "t:12.5"},
        {integer(-7, Mark::None, "decimal(5,2)"), "t:-7.00"},
        {text("", "vchar"), "NULL"},
        // a decimal conversion that reports a status gives NULL
        {real(1e308, "decimal"), "NULL"},
        {text(std::string(1000, '9'), "decimal"), "NULL"},
        {text("1e29", "decimal(32,2)"), "t:100000000000000000000000000000.00"},
        // no digit in the mantissa: no number, whatever the runtime reads
        {text("-", "decimal"), "NULL"},
        {bytes(std::string("-\0" "5", 3), "integer"), "NULL"},
        {text("-", "char"), "t:-"},
        {text("-.5", "float"), "r:-0.5"},
    };
    for (const auto &c : cases) EXPECT_EQ(c.got, c.want);
    EXPECT_EQ(IsConvertionError(), 0);
    EXPECT_EQ(text("31/02/2020", "date"), "NULL");
    EXPECT_EQ(IsConvertionError(), 1);
}

}  // namespace
