// The conversions from SQL through the SQLite extension, end to end: one
// check per way a value comes in and goes out; the rules are tested in
// test_convert.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tests/sqlite_fixture.hpp"

using udfkit::test::SqliteDb;

namespace {

TEST(SqliteConvert, TargetsAndFlag) {
    setenv("TZ", "UTC", 1);
    tzset();
    SqliteDb db;
    const struct { const char *sql, *expected; } cases[] = {
        {"select cvt('  42abc', 'integer')", "i:42"},
        {"select cvt(' -1.5e3', 'float')", "r:-1500"},
        {"select cvt(x'610062', 'char')", "a"},
        {"select hex(cvt('ab', 'blob'))", "6162"},
        {"select cvt(asdate(77061), 'char')", "25/12/2020"},
        {"select subtype(cvt('25/12/2020', 'date'))", "i:68"},
        {"select cvt(asdatetime(1608903900), 'vchar')", "25/12/2020 13:45:00"},
        {"select cvt('1,234.567', 'decimal(10,2)')", "1234.57"},
        {"select cvt(null, 'integer')", "NULL"},
        {"select cvt(null, 'money')", "NULL"},
        {"select cvterror()", "i:0"},
        {"select cvt('31/02/2020', 'date')", "NULL"},
        {"select cvterror()", "i:1"},
        {"select cvterror()", "i:0"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;
    EXPECT_NE(db.error("select cvt(1, 'money')"), "<no error>");
}

}  // namespace
