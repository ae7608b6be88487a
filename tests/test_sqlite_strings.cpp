// The string family through a real SQLite connection with the extension.
#include <gtest/gtest.h>

#include "tests/sqlite_fixture.hpp"

using udfkit::test::SqliteDb;

namespace {

TEST(SqliteStrings, EveryFunction) {
    SqliteDb db;
    const struct {
        const char *sql, *expected;
    } cases[] = {
        {"select upper('aBc')", "ABC"},
        {"select lower('aBc')", "abc"},
        {"select capitalize('hello WORLD')", "Hello world"},
        {"select basename('/usr/lib/x.so')", "x.so"},
        {"select basename('/usr/lib/')", "NULL"},  // the empty char is the null char
        {"select lastchars('abcdef', 2)", "ef"},
        {"select lastchars('abc', -1)", "abc"},
        {"select strpos('banana', 'n', 4)", "i:5"},
        {"select strpos('banana', 'n', 7)", "i:0"},
        {"select valascii('A')", "i:65"},
        {"select valascii('')", "NULL"},
        {"select strreplace('aaaa', 'aa', 'x')", "xx"},
        {"select concat('ab', '', 'cd')", "abcd"},
        {"select concat(1, 2.5, 'x')", "12.5x"},
        {"select merge('ab', '', 'cd')", "ab cd"},
        {"select merge()", "NULL"},
        {"select champ('a;b;c', ';', 2)", "b"},
        {"select charcolumn(12)", "NULL"},
        {"select vcharcolumn(40)", "NULL"},
        {"select datecolumn()", "NULL"},
        {"select datetimecolumn()", "NULL"},
        {"select intcolumn()", "NULL"},
        {"select minx(3, 1, 2)", "r:1"},
        {"select maxx(3, 1, 2)", "r:3"},
        {"select maxx(4)", "r:4"},
        {"select list_matches('a,b,,c', ',', 'b')", "r:0.3333333333"},
        {"select list_matches('ab,ac,b', ',', 'a?')", "r:0.6666666667"},
        {"select typeof(asdate(10))", "integer"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;
}

TEST(SqliteStrings, NullArgumentsAndOddValues) {
    SqliteDb db;
    const struct {
        const char *sql, *expected;
    } cases[] = {
        {"select upper(NULL)", "NULL"},
        {"select upper(x'414243')", "ABC"},
        {"select upper(12)", "12"},
        {"select strpos(NULL, 'a', 1)", "i:0"},
        {"select strpos('abc', 'c', NULL)", "i:0"},  // a null start is INT32_MIN
        {"select lastchars('abc', 99999999999)", "abc"},
        {"select champ('a b', NULL, 1)", "a"},
        {"select minx(NULL, 2)", "r:2"},
        {"select concat(NULL, 'a', NULL)", "a"},
        {"select valascii(char(233))", "i:-61"},  // first byte of the UTF-8 form
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;
}

TEST(SqliteStrings, GroupConcatAggregate) {
    SqliteDb db;
    db.exec("create table t(g, v); insert into t values (1,'x'),(1,'y'),(1,'z'),(2,NULL),(3,'w')");
    auto rows = db.rows("select g, group_concat(v, ',') from t group by g order by g");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0][1], "z,y,x");
    EXPECT_EQ(rows[1][1], "NULL");
    EXPECT_EQ(rows[2][1], "w");
    // The one-argument form is still SQLite's own.
    EXPECT_EQ(db.one("select group_concat(v) from t where g = 1"), "x,y,z");
    EXPECT_EQ(db.one("select group_concat(v, ',') from t where 0"), "NULL");
}

TEST(SqliteStrings, WrongArgumentCountsAreRefused) {
    SqliteDb db;
    EXPECT_NE(db.error("select upper('a', 'b')"), "<no error>");
    EXPECT_NE(db.error("select strpos('a')"), "<no error>");
    EXPECT_NE(db.error("select minx()"), "<no error>");
}

TEST(SqliteStrings, LongTextsAndManyRows) {
    SqliteDb db;
    db.exec("create table big(x); insert into big values (printf('%.*c', 100000, 'a'))");
    EXPECT_EQ(db.one("select length(upper(x)) from big"), "i:2047");
    EXPECT_EQ(db.one("select length(strreplace(x, 'a', 'bcd')) from big"), "i:300000");
    EXPECT_EQ(db.one("select strpos(x || 'z', 'z', 1) from big"), "i:100001");
    db.exec("create table n(i); with recursive c(i) as (select 1 union all select i+1 from c where i < 5000) "
            "insert into n select i from c");
    EXPECT_EQ(db.one("select sum(length(concat(i, '-', upper('x')))) from n"), "i:" + std::to_string(
        9 * 3 + 90 * 4 + 900 * 5 + 4001 * 6));
}

TEST(SqliteStrings, LoadsIntoSeveralConnections) {
    SqliteDb a, b;
    EXPECT_EQ(a.one("select upper('x')"), "X");
    EXPECT_EQ(b.one("select lower('Y')"), "y");
}

}  // namespace
