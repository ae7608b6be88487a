// The date helpers as hosts put them in SQL: which values are NULL, the
// setting a parse uses, texts and parts.
#include <gtest/gtest.h>

#include "sqlhelp/date.hpp"
#include "tests/date_fixture.hpp"

namespace {
using namespace udfkit::sqlhelp;

class SqlDate : public udfkit::test::DateTest {};

TEST_F(SqlDate, DayArguments) {
    const struct { int64_t in; bool ok; } cases[] = {
        {77061, true}, {-364, true}, {1, true}, {0, false}, {INT32_MIN, false},
        {INT32_MAX, true}, {int64_t{INT32_MAX} + 1, false}, {INT64_MIN, false},
    };
    for (const auto &c : cases) EXPECT_EQ(date_arg(c.in).has_value(), c.ok) << c.in;
}

TEST_F(SqlDate, ParsesAndPrints) {
    set_settings("DMY4/", "YMD4-");
    const struct { const char *text, *setting; int32_t want; } cases[] = {
        {"25/12/2020", nullptr, 77061}, {"2020-12-25", "YMD4-", 77061},
        {"12252020", "MMDDYYYY", 77061}, {"31/02/2020", nullptr, 0},
        {"", nullptr, 0}, {nullptr, nullptr, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(date_parse(c.text, c.setting).value_or(0), c.want) << (c.text ? c.text : "null");
    EXPECT_EQ(date_text(77061).value_or("NULL"), "25/12/2020");
    EXPECT_EQ(date_text(*date_parse("1/1/51", nullptr)).value_or("NULL"), "01/01/1951");
    EXPECT_EQ(date_part(DatePart::Day, 77061) * 10000 + date_part(DatePart::Month, 77061) * 100 +
                  date_part(DatePart::Weekday, 77061),
              251205);
    EXPECT_EQ(date_part(DatePart::Year, 77061), 2020);
    EXPECT_EQ(date_settings(), "DMY4/ YMD4-");
}

TEST_F(SqlDate, Datetimes) {
    set_tz("Europe/Paris");
    set_settings("DMY4/", "YMD4-");
    EXPECT_EQ(datetime_parse("2020-12-25 13:45:00").value_or(0), 1608900300);
    EXPECT_FALSE(datetime_parse("2020-12-25 24:00"));
    EXPECT_FALSE(datetime_parse(nullptr));
    EXPECT_EQ(datetime_text(1608900300).value_or("NULL"), "2020-12-25 13:45:00");
    EXPECT_EQ(datetime_text(*datetime_parse("2021-03-28 02:30")).value_or("NULL"), "2021-03-28 03:30:00");
    EXPECT_FALSE(datetime_text(-1));
}

}  // namespace
