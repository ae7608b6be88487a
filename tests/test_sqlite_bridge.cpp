// The SQLite bridge itself: what it registers and how values cross it.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/sqlite_fixture.hpp"
#include "udfkit/sqlfunc.h"

using udfkit::test::SqliteDb;

namespace {

struct TableRow {
    const char *name;
    int min_args, max_args, kind, state;
};
#define UDFKIT_ROW(name, min, max, kind, state, c1, c2) {#name, min, max, kind, state},
constexpr TableRow kTable[] = {UDFKIT_ALL_SQLFUNCS(UDFKIT_ROW)};
#undef UDFKIT_ROW

// Every row of the function table is reachable from SQL with each of its
// argument counts, deterministic exactly when it depends on its arguments
// alone; two-result functions are table-valued functions.
TEST(SqliteBridge, RegistersEveryRowOfTheTable) {
    SqliteDb db;
    for (const TableRow &row : kTable) {
        const std::string name = row.name;
        if (row.kind == UDFKIT_KIND_TWO) {
            EXPECT_EQ(db.one("select count(*) from pragma_module_list where name = '" + name + "'"),
                      "i:1") << name;
            continue;
        }
        const int lo = row.max_args < 0 ? -1 : row.min_args;
        const int hi = row.max_args < 0 ? -1 : row.max_args;
        // One registration (the count), deterministic as the row says (the flag).
        const char *want = row.state == UDFKIT_STATE_NONE ? "1 1" : "1 0";
        for (int n = lo; n <= hi; ++n)
            EXPECT_EQ(db.one("select count(*) || ' ' || max((flags & 2048) != 0) from pragma_function_list"
                             " where builtin = 0 and name = '" + name + "' and narg = " + std::to_string(n)),
                      want) << name << "/" << n;
    }
}

}  // namespace

// One end-to-end check per rule of how values cross the bridge.
TEST(SqliteBridge, ValueRules) {
    SqliteDb db;
    const struct {
        const char *sql, *want;
    } cases[] = {
        // reals pop as plain decimal text, the shortest that reads back
        {"select concat(2.5e15)", "2500000000000000"},
        {"select concat(-1e-7, ' ', 0.1)", "-0.0000001 0.1"},
        {"select concat(1, 2.5, 'x')", "12.5x"},
        // a one-character pop takes a byte
        {"select valascii(char(233))", "i:-61"},
        // a character cut at an end of a result is dropped
        {"select hex(lastchars('xÉÉ', 3))", "C389"},
        {"select lastchars('aÉ', 1)", "NULL"},
        // bytes in another character set come back as a BLOB, UTF-8 as text
        {"select typeof(convert('é', 'UTF-8', 'ISO-8859-1'))", "blob"},
        {"select convert('abc', 'UTF-8', 'ISO-8859-1')", "abc"},
        {"select convert(x'e9', 'ISO-8859-1', 'UTF-8')", "é"},
        // so does any other result that is not UTF-8
        {"select typeof(upper(x'61ff62'))", "blob"},
        // results equal to the null of their type are NULL
        {"select basename('/usr/lib/')", "NULL"},
        {"select datetimecolumn()", "NULL"},
        {"select intcolumn()", "NULL"},
        {"select minx(3, 1, 2)", "r:1"},
        {"select typeof(asdate(10))", "integer"},
        // other SQL types and NULL as arguments; integers cut to the pop's width
        {"select upper(x'414243')", "ABC"},
        {"select upper(12)", "12"},
        {"select strpos('abc', 'c', NULL)", "i:0"},  // a null start is INT32_MIN
        {"select lastchars('abc', 99999999999)", "abc"},
        {"select champ('a b', NULL, 1)", "a"},  // a NULL text is the empty text
        {"select minx(NULL, 2)", "r:2"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.want) << c.sql;
}

TEST(SqliteBridge, GroupConcatAggregate) {
    SqliteDb db;
    db.exec("create table t(g, v); insert into t values (1,'x'),(1,'y'),(1,'z'),(2,NULL),(3,'w')");
    const std::vector<std::vector<std::string>> want = {{"i:1", "z,y,x"}, {"i:2", "NULL"}, {"i:3", "w"}};
    EXPECT_EQ(db.rows("select g, group_concat(v, ',') from t group by g order by g"), want);
    // The one-argument form is still SQLite's own.
    EXPECT_EQ(db.one("select group_concat(v) from t where g = 1"), "x,y,z");
    EXPECT_EQ(db.one("select group_concat(v, ',') from t where 0"), "NULL");
}

// Long texts and many rows cross whole.
TEST(SqliteBridge, LongTextsAndManyRows) {
    SqliteDb db;
    db.exec("create table big(x); insert into big values (printf('%.*c', 100000, 'a'))");
    EXPECT_EQ(db.one("select length(strreplace(x, 'a', 'bcd')) from big"), "i:300000");
    EXPECT_EQ(db.one("select strpos(x || 'z', 'z', 1) from big"), "i:100001");
    db.exec("create table n(i); with recursive c(i) as (select 1 union all select i+1 from c where i < 5000) "
            "insert into n select i from c");
    EXPECT_EQ(db.one("select sum(length(concat(i, '-', upper('x')))) from n"),
              "i:" + std::to_string(9 * 3 + 90 * 4 + 900 * 5 + 4001 * 6));
}

// Anonymisation with the shipped dictionaries: equal inputs give equal
// outputs, across rows too.
TEST(SqliteBridge, Anonymisation) {
    setenv("UDFKIT_DICT_DIR", UDFKIT_SOURCE_DIR "/data", 1);
    SqliteDb db;
    const struct { const char *sql, *expected; } cases[] = {
        {"select anonymize_first('marie', 2)", "Marie-Pierre"},
        {"select anonymize_last('Dupont')", "Barbier"},
        {"select anonymize_letter('', 'abc')", "NULL"},  // the empty char is NULL
        {"select anonymize_last(NULL) = anonymize_last('')", "i:1"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;
    db.exec("create table p(first text, sex int, last text, email text);"
            "insert into p values ('Jean', 0, 'Martin', 'a@x.fr'), ('Anne', 1, 'Petit', 'b@x.fr'),"
            " ('Jean', 0, 'Martin', 'a@x.fr'), ('Zoé', 2, 'Durand', 'c@y.fr'),"
            " ('Anne', 1, 'Petit', 'b@x.fr')");
    EXPECT_EQ(db.one("select count(distinct anonymize_first(first, sex) || '/' ||"
                     " anonymize_last(last) || '/' || anonymize_email(email)) from p"),
              "i:3");
}

// A picture mask lays out a real exactly as it lays out the same number
// written as text, across the whole range of doubles.
TEST(SqliteBridge, MasksReadRealsAsTheirText) {
    SqliteDb db;
    const char *masks[] = {"&&&&&&&&&&&&&&&&&&&", "#.#####", "-###,###,###,###,###,##&.&&&&"};
    for (int e = -320; e <= 308; e += 3)
        for (double m : {1.0, 2.5, 9.87654321, -4.25}) {
            const double d = m * std::pow(10.0, e);
            char real[40], text[400];
            std::snprintf(real, sizeof real, "%.17g", d);  // reads back as d
            *std::to_chars(text, text + sizeof text - 1, d, std::chars_format::fixed).ptr = 0;
            for (const char *mask : masks) {
                const std::string m1 = std::string(", '") + mask + "')";
                EXPECT_EQ(db.one("select format(" + std::string(real) + m1),
                          db.one("select format('" + std::string(text) + "'" + m1)) << d << " " << mask;
            }
        }
}
