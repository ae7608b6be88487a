// The JSON functions through a real SQLite connection with the extension:
// each way a node's value comes out, the table-valued functions, freeing.
#include <gtest/gtest.h>

#include "tests/sqlite_fixture.hpp"

using udfkit::test::SqliteDb;

namespace {

TEST(SqliteJson, ParseWalkAndFree) {
    SqliteDb db;
    ASSERT_EQ(db.one("select jsonlib_createparser("
                     "'{\"a\": {\"b\": [10, 20.5, \"x\", true, null]}, \"t\": [1, 2]}')"),
              "i:0");
    const struct { const char *sql, *expected; } cases[] = {
        {"select jsonlib_extractobject(0, '$.a.b[0]')", "i:10"},
        {"select jsonlib_extractobject(0, '$.a.b[1]')", "r:20.5"},
        {"select jsonlib_extractobject(0, '$.a.b[2]')", "x"},
        {"select jsonlib_extractobject(0, '$.a.b[3]')", "i:1"},
        {"select jsonlib_extractobject(0, '$.a.b[4]')", "NULL"},
        {"select jsonlib_extractobject(null, '$')", "NULL"},
        {"select count(*) from jsonlib_getobject(7)", "i:0"},
        {"select key from jsonlib_getkeyvalue(jsonlib_extractobject(0, '$'))", "a"},
        {"select jsonlib_getvalue(jsonlib_getvalue4key((select handle from jsonlib_getobject(0)), 't'))",
         "i:1"},
        {"select jsonlib_getvalue(123456789)", "NULL"},
        {"select quote(kind) || ',' || quote(handle) from jsonlib_next(42)", "NULL,0"},
        {"select key is null and value is null from jsonlib_getkeyvalue('junk')", "i:1"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;

    // Walk the top-level members one jsonlib_next call per row.
    auto rows = db.rows(
        "with recursive top(h) as (select handle from jsonlib_getobject(0)),"
        " walk(n, kind, h) as (select 0, n.kind, n.handle from top, jsonlib_next(top.h) n"
        "  union all select walk.n + 1, x.kind, x.handle from walk, top, jsonlib_next(top.h) x"
        "  where walk.kind is not null)"
        " select kind, jsonlib_getkey(h) from walk where kind is not null");
    EXPECT_EQ(rows, (std::vector<std::vector<std::string>>{{"O", "a"}, {"A", "t"}}));

    db.one("select jsonlib_freeparser(0)");
    EXPECT_EQ(db.one("select jsonlib_extractobject(0, '$.a.b[0]')"), "NULL");
    testing::internal::CaptureStderr();
    EXPECT_EQ(db.one("select jsonlib_createparser('[1')"), "i:-1");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "NXJSON PARSE ERROR (263): unexpected end of text at \n");
}

}  // namespace
