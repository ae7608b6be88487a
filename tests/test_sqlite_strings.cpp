// The string family through a real SQLite connection with the extension.
#include <gtest/gtest.h>

#include "tests/sqlite_fixture.hpp"

using udfkit::test::SqliteDb;

namespace {

// What the extension adds to the functions' own rules (tested through the
// test host): empty results are NULL, NULL and other SQL types as
// arguments, integers cut to the pop's width.
TEST(SqliteStrings, ValuesThroughTheExtension) {
    SqliteDb db;
    const struct {
        const char *sql, *expected;
    } cases[] = {
        {"select basename('/usr/lib/')", "NULL"},  // the empty char is the null char
        {"select datetimecolumn()", "NULL"},
        {"select intcolumn()", "NULL"},
        {"select concat(1, 2.5, 'x')", "12.5x"},
        {"select minx(3, 1, 2)", "r:1"},
        {"select typeof(asdate(10))", "integer"},
        {"select upper(x'414243')", "ABC"},
        {"select upper(12)", "12"},
        {"select strpos('abc', 'c', NULL)", "i:0"},  // a null start is INT32_MIN
        {"select lastchars('abc', 99999999999)", "abc"},
        {"select champ('a b', NULL, 1)", "a"},  // a NULL text is the empty text
        {"select minx(NULL, 2)", "r:2"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;
}

TEST(SqliteStrings, GroupConcatAggregate) {
    SqliteDb db;
    db.exec("create table t(g, v); insert into t values (1,'x'),(1,'y'),(1,'z'),(2,NULL),(3,'w')");
    const std::vector<std::vector<std::string>> want = {{"i:1", "z,y,x"}, {"i:2", "NULL"}, {"i:3", "w"}};
    EXPECT_EQ(db.rows("select g, group_concat(v, ',') from t group by g order by g"), want);
    // The one-argument form is still SQLite's own.
    EXPECT_EQ(db.one("select group_concat(v) from t where g = 1"), "x,y,z");
    EXPECT_EQ(db.one("select group_concat(v, ',') from t where 0"), "NULL");
}

TEST(SqliteStrings, LongTextsAndManyRows) {
    SqliteDb db;
    db.exec("create table big(x); insert into big values (printf('%.*c', 100000, 'a'))");
    EXPECT_EQ(db.one("select length(strreplace(x, 'a', 'bcd')) from big"), "i:300000");
    EXPECT_EQ(db.one("select strpos(x || 'z', 'z', 1) from big"), "i:100001");
    db.exec("create table n(i); with recursive c(i) as (select 1 union all select i+1 from c where i < 5000) "
            "insert into n select i from c");
    EXPECT_EQ(db.one("select sum(length(concat(i, '-', upper('x')))) from n"), "i:" + std::to_string(
        9 * 3 + 90 * 4 + 900 * 5 + 4001 * 6));
}

}  // namespace
