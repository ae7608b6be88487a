// The conversions as hosts put them in SQL: target names, how a host value
// becomes the engine's source, and which results are NULL.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "sqlhelp/convert.hpp"

namespace {
using namespace udfkit::sqlhelp;
using Mark = CvtSource::Mark;

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
        {real(1e308, "decimal(10,2)"), "NULL"},
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
