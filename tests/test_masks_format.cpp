// Date picture masks and the SQL function format, through the test host
// and through the SQLite extension.
#include <gtest/gtest.h>

#include <string>

#include "host/testhost.hpp"
#include "tests/sqlite_fixture.hpp"
#include "udfkit/masks.h"
#include "udfkit/sqlfunc.h"

namespace {

using namespace udfkit::test;

constexpr int32_t kChristmas2020 = 77061;  // Friday 25 December 2020

std::string lay_date(int32_t day, const std::string &mask) {
    std::string out(mask.size() + 1, '\x7f');
    EXPECT_EQ(_mk_using_date(day, mask.c_str(), out.data()), 0);
    return out.c_str();
}

TEST(DateMask, Runs) {
    const struct { int32_t day; const char *mask, *want; } cases[] = {
        {kChristmas2020, "ddd dd mmm yyyy", "Fri 25 Dec 2020"}, {kChristmas2020, "mm-dd-yy", "12-25-20"},
        {kChristmas2020, "ddmmyy", "251220"},       {kChristmas2020, "(ddd)", "(Fri)"},
        {kChristmas2020, "DD/MM/YYYY", "DD/MM/YYYY"}, {kChristmas2020, "d/m/y", "d/m/y"},
        // runs of other lengths
        {kChristmas2020, "dddd", "dddd"},           {kChristmas2020, "ddddd dd", "ddddd 25"},
        {kChristmas2020, "yyy", "y20"},             {kChristmas2020, "mmmm", "mmmm"},
        {kChristmas2020, "mmmmmm", "12mmmm"},       {kChristmas2020, "mmmmmmm", "Decmmmm"},
        {kChristmas2020, "mmmmmmmm", "mmmmmmmm"},   {kChristmas2020, "yyyyyy", "yyyyyy"},
        {kChristmas2020, "yyyyyyy", "20yyyyy"},     {kChristmas2020, "yyyyyyyyy", "2020yyyyy"},
        {kChristmas2020, "today is ddd", "today is Fri"}, {kChristmas2020, "", ""},
        {1, "ddd dd mmm yyyy", "Mon 01 Jan 1810"},  {0, "dd/mm/yyyy", "31/12/1809"},
        {-1, "ddd", "Sat"},                         {77101, "ddd dd mmm yyyy", "Wen 03 Fev 2021"},
        {217176, "dd/mm/yyyy", "09/08/2404"},       {69397, "ddd dd/mm/yy", "Sat 01/01/00"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(lay_date(c.day, c.mask), c.want) << c.day << " '" << c.mask << "'";
}

TEST(Format, DatesAndEverythingElse) {
    const std::string long_mask(120, '#');
    const struct { Value value; std::string mask, want; } cases[] = {
        {Value::date(kChristmas2020), "yyyy-mm-dd", "2020-12-25"},
        {S("77061"), "yyyy-mm-dd", "yyyy 77061"},  // text goes to the number masks
        {S("1234.567"), "$$$,$$$.##", " $1,234.57"},
        {I(-42), "(###)", "(  42"},
        {D(12.5), "###.##", " 12.50"},
        {S("7"), long_mask, std::string(98, ' ') + "7"},  // mask cut to 99
        {S("0"), "&&&", "000"},
        {S(std::string(1500, '9')), "###,###.##", "**********"},
        {S("-" + std::string(600, '1') + "." + std::string(600, '2')), "###,###.##", "**********"},
        // nulls: the empty text
        {Value::date(INT32_MIN), "dd/mm/yyyy", ""},
        {Value::date(0), "dd/mm/yyyy", ""},
        {Value::null(), "###", ""},
        {S(""), "###", ""},
    };
    for (const auto &c : cases) {
        TestHost h;
        Outcome o = h.call(format, {c.value, S(c.mask)});
        ASSERT_TRUE(o.exact(1)) << c.value << " " << c.mask;
        EXPECT_EQ(o.result(), S(c.want)) << c.value << " '" << c.mask << "'";
    }
}

TEST(FormatSqlite, EndToEnd) {
    SqliteDb db;
    EXPECT_EQ(db.one("select format(asdate(77061), 'ddd dd mmm yyyy')"), "Fri 25 Dec 2020");
    EXPECT_EQ(db.one("select format(77061, 'dd/mm/yyyy')"), "dd/mm77061");
    EXPECT_EQ(db.one("select format(1250.1, '$$$,$$$.##')"), " $1,250.10");
    EXPECT_EQ(db.one("select format(null, '###')"), "NULL");
    // SQLite's own format() still serves other argument counts.
    EXPECT_EQ(db.one("select format('%d-%s', 5, 'x')"), "5-x");
}

}  // namespace
