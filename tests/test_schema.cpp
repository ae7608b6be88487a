// Catalogue introspection through the test host (queries answered by an
// in-memory SQLite catalogue) and through the SQLite extension.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "host/testhost.hpp"
#include "tests/sqlite_fixture.hpp"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

const char *kCatalogue =
    "create table systypes(typeid integer, typename text);"
    "create table syscolattr(tabid integer, colno integer, attrkey text, attrvalue text);"
    "insert into systypes values (100, 'money'), (101, 'old'), (101, 'point'), (102, '');"
    "insert into syscolattr values (1, 1, 'a', '1'), (1, 1, 'b', '2'),"
    "  (2, 1, 'k', 'x'), (2, 1, 'k', 'y'), (3, 1, 'k', ''), (3, 1, 'k', 'y'),"
    "  (4, 1, 'it''s', 'quoted'), (4, 1, 'k', 'plain');";

struct Catalogue {
    sqlite3 *db = nullptr;
    Catalogue() {
        sqlite3_open(":memory:", &db);
        sqlite3_exec(db, kCatalogue, nullptr, nullptr, nullptr);
    }
    ~Catalogue() { sqlite3_close(db); }
};

TEST(Schema, TypeNames) {
    Catalogue cat;
    const struct { int64_t type, length; const char *text; } cases[] = {
        {0, 10, "char(10)"},          {1, 2, "smallint"},           {3, 8, "float"},
        {5, 5 * 256 + 2, "decimal(5,2)"}, {5, 32 * 256 + 0, "decimal(32,0)"},
        {8, 4, "datetime year to second"}, {13, 8, "datetime year to second"},
        {9, 0, "vchar"},              {9, 255, "vchar(255)"},       {12, 70000, "blob(70000)"},
        {14, 0, "? ? ?(14)"},
        {100, 0, "money"},            {101 | 0x4000, 0, "point"},  // the last row wins
        {102, 0, ""},                 {103, 0, ""},                 // no row: empty
        {0x8000 | 2, 4, "integer"},   // bits above the mask are ignored
    };
    for (const auto &c : cases) {
        TestHost h;
        h.use_database(cat.db);
        Outcome o = h.call(coltype2string, {I(c.type), I(c.length)});
        EXPECT_TRUE(o.exact(1)) << c.type;
        EXPECT_EQ(o.result(), S(c.text)) << c.type << "/" << c.length;
        EXPECT_EQ(h.queries.size(), (c.type & 0x3fff) > 99 ? 1u : 0u);  // user types only
    }
}

TEST(Schema, FailedQueriesAndNullability) {
    TestHost h;  // no catalogue at all: every query fails
    EXPECT_EQ(h.call(coltype2string, {I(150), I(0)}).result(), S("? ? ?(150)"));
    Outcome o = h.call(colattribute, {I(1), I(1), S("a")});
    EXPECT_TRUE(o.exact(1));
    EXPECT_EQ(o.result(), S(""));
    EXPECT_EQ(h.call(colattributes, {I(1), I(1)}).result(), S(""));
    EXPECT_EQ(h.call(coltype2null, {I(2 | 0x4000)}).result(), S("NO"));
    EXPECT_EQ(h.call(coltype2null, {I(2)}).result(), S("YES"));
    EXPECT_EQ(h.call(coltype2null, {I(0x4000)}).result(), S("NO"));
}

TEST(Schema, Attributes) {
    Catalogue cat;
    const struct { int64_t tab; const char *key, *expected; } one[] = {
        {2, "k", "x;y"},
        {3, "k", "y"},  // an empty first value: no leading separator
        {1, "zz", ""},
        {4, "it's", "quoted"},  // the quote is doubled inside the statement
        {4, "' or '1'='1", ""},
    };
    for (const auto &c : one) {
        TestHost h;
        h.use_database(cat.db);
        Outcome o = h.call(colattribute, {I(c.tab), I(1), S(c.key)});
        EXPECT_TRUE(o.exact(1)) << c.key;
        EXPECT_EQ(o.result(), S(c.expected)) << c.key;
    }
    TestHost h;
    h.use_database(cat.db);
    EXPECT_EQ(h.call(colattributes, {I(1), I(1)}).result(), S("a=1;b=2"));
    EXPECT_EQ(h.call(colattributes, {I(9), I(9)}).result(), S(""));
    h.call(colattribute, {I(4), I(2), S("it's")});
    EXPECT_EQ(h.queries.back(),
              "select attrvalue from syscolattr where tabid = 4 and colno = 2 and attrkey = 'it''s'");
}

TEST(Schema, LongResultsAreCut) {
    Catalogue cat;
    sqlite3_exec(cat.db,
                 "with recursive c(i) as (select 1 union all select i+1 from c where i < 3000)"
                 " insert into syscolattr select 7, 1, 'key' || i, printf('%.*c', 200, 'v') from c;"
                 "insert into systypes values (200, printf('%.*c', 300, 't'));",
                 nullptr, nullptr, nullptr);
    TestHost h;
    h.use_database(cat.db);
    Outcome all = h.call(colattributes, {I(7), I(1)});
    EXPECT_TRUE(all.exact(1));  // every one of the 6002 values was popped
    EXPECT_EQ(all.popped, 2 + 2 + 6000);
    EXPECT_EQ(all.result().s.size(), 4095u);
    EXPECT_EQ(all.result().s.substr(0, 10), "key1=vvvvv");
    // Values are popped with capacity 128: 127 characters each.
    EXPECT_EQ(all.result().s.find(';'), 5u + 127u);
    Outcome some = h.call(colattribute, {I(7), I(1), S("key5")});
    EXPECT_EQ(some.result().s, std::string(127, 'v'));
    EXPECT_EQ(h.call(coltype2string, {I(200), I(0)}).result().s, std::string(127, 't'));
}

TEST(Schema, ThroughSqlite) {
    SqliteDb db;
    db.exec(kCatalogue);
    EXPECT_EQ(db.one("select coltype2string(5, 1282)"), "decimal(5,2)");
    EXPECT_EQ(db.one("select coltype2null(16386)"), "NO");
    EXPECT_EQ(db.one("select colattributes(1, 1)"), "a=1;b=2");
    EXPECT_EQ(db.one("select colattributes(9, 9)"), "NULL");
    // The catalogue query runs on the same connection, inside a query.
    auto rows = db.rows("select tabid, colattributes(tabid, colno) from syscolattr group by tabid order by tabid");
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[3][1], "it's=quoted;k=plain");
    SqliteDb bare;  // no catalogue tables: the statements fail
    EXPECT_EQ(bare.one("select coltype2string(120, 0)"), "? ? ?(120)");
    EXPECT_EQ(bare.one("select colattribute(1, 1, 'a')"), "NULL");
}

}  // namespace
