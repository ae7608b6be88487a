// Dates and datetimes from SQL through the real extension, one check per
// function (the rules are tested in test_date_time).  The extension
// reads the date settings when it loads, so they are fixed here first.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/sqlite_fixture.hpp"

namespace {

using udfkit::test::SqliteDb;

const bool kEnvironment = [] {
    setenv("TZ", "Europe/Paris", 1);
    setenv("DBDATE", "DMY4/", 1);
    setenv("DBDATETIME", "YMD4-", 1);
    setenv("DBTODAY", "25/12/2020", 1);
    return true;
}();

TEST(DateSql, OneCheckPerFunction) {
    ASSERT_TRUE(kEnvironment);
    SqliteDb db;
    const struct { const char *sql, *want; } cases[] = {
        {"select todate('25/12/2020')", "i:77061"},
        {"select todate('2020-12-25', 'YMD4-')", "i:77061"},
        {"select todate('31/02/2020')", "NULL"},
        {"select datetext(77061)", "25/12/2020"},
        {"select datetext(0)", "NULL"},
        {"select daydate(77061) || '.' || monthdate(77061) || '.' || yeardate(77061)",
         "25.12.2020"},
        {"select weekdaydate(todate('25/12/2020'))", "i:5"},
        {"select today()", "i:77061"},
        {"select datesettings()", "DMY4/ YMD4-"},
        // datetimes in local time
        {"select todatetime('2020-12-25 13:45:00')", "i:1608900300"},
        {"select datetimetext(1608900300)", "2020-12-25 13:45:00"},
        {"select todatetime('2020-12-25 24:00')", "NULL"},
    };
    for (auto c : cases) EXPECT_EQ(db.one(c.sql), c.want) << c.sql;
    // A date made from text is a date to the library's functions.
    EXPECT_EQ(db.one("select subtype(todate('25/12/2020'))"), "i:68");
    EXPECT_EQ(db.one("select subtype(todatetime('2020-12-25'))"), "i:84");
}

}  // namespace
