// Hostile SQL through the SQLite extension: statements a database user
// could write to crash the engine, stall it, or get broken values back.
// Each case once crashed, hung or answered wrongly.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <new>
#include <string>

#include "tests/sqlite_fixture.hpp"

using udfkit::test::SqliteDb;

namespace {
// When above 0, the allocation of this thread that fails, counted down.
thread_local long t_fail_in = 0;
}  // namespace

// Allocations of this process (the extension's and the library's included)
// can be made to fail one at a time.
void *operator new(std::size_t n) {
    if (t_fail_in > 0 && --t_fail_in == 0) throw std::bad_alloc();
    if (void *p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void *operator new(std::size_t n, const std::nothrow_t &) noexcept {
    try {
        return operator new(n);
    } catch (...) {
        return nullptr;
    }
}
// Kept out of line: inlined next to the replaced new, GCC takes the pair for
// a new/free mismatch.
[[gnu::noinline]] void operator delete(void *p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void *p, std::size_t) noexcept { std::free(p); }

namespace {

// The first value of the first row, rendered as the fixture renders it,
// or "error: " and SQLite's message; when fail_at is set, that allocation
// of the statement's run fails, and `fired` tells whether it did.
std::string answer(SqliteDb &db, const std::string &sql, long fail_at = 0, bool *fired = nullptr) {
    sqlite3_stmt *st = nullptr;
    t_fail_in = fail_at;
    int rc = sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &st, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_step(st);
    if (fired) *fired = t_fail_in == 0;
    t_fail_in = 0;
    std::string out = rc == SQLITE_ROW    ? SqliteDb::render(st, 0)
                      : rc == SQLITE_DONE ? "<no row>"
                                          : std::string("error: ") + sqlite3_errmsg(db.handle());
    sqlite3_finalize(st);
    return out;
}

struct Case {
    const char *what;
    const char *setup;  // statements run first on a fresh connection
    const char *sql;    // a query whose first value is checked
    const char *want;   // the value, or "error: " and a part of the message
    int max_ms = 0;     // when set, the query must answer within this time
    int max_length = 0; // when set, the connection's length limit
};

const Case kCases[] = {
    // Catalogue tables that are views over the catalogue functions: each
    // lookup runs the function again; the nesting is bounded and the
    // innermost lookup falls back.
    {"syscolattr calling colattribute",
     "create view syscolattr as select 1 tabid, 7 colno, 'label' attrkey,"
     " colattribute(1, 7, 'label') attrvalue",
     "select colattribute(1, 7, 'label')", "NULL"},
    {"syscolattr calling colattributes",
     "create view syscolattr as select 1 tabid, 7 colno, 'k' attrkey,"
     " colattributes(1, 7) attrvalue",
     "select colattributes(1, 7)", "k=k=k=k="},

    // Text results are UTF-8 (a client fails the whole query on one bad row);
    // the cut of a result at a character (lastchars, BLOB results) is in the
    // bridge test.
    {"upper of a 2,500-byte accented text", "",
     "select typeof(x) || length(x) from (select upper(printf('%.*c', 1250, 'é')) x)", "text1023"},
    {"fuzzyexcerpt window starting inside a character", "",
     "select typeof(x) || instr(hex(x), 'E280A6') from"
     " (select fuzzyexcerpt('mot', 'x…………… mot', 2, 10) x)", "text1"},

    // Results that would outgrow what the connection accepts are refused
    // before they are built.
    {"strreplace of 1 MB by 4 KB", "create table t(x); insert into t values (printf('%.*c', 1048576, 'a'))",
     "select strreplace(x, 'a', printf('%.*c', 4095, 'b')) from t", "error: too big", 3000},
    {"concat past the length limit", "",
     "select concat(printf('%.*c', 400, 'a'), printf('%.*c', 400, 'b'), printf('%.*c', 400, 'c'))",
     "error: too big", 0, 1000},
    {"convert growing past the length limit", "",
     "select convert(printf('%.*c', 450, 'é'), 'UTF-8', 'UTF-7')", "error: too big", 0, 1000},

    // Decimal conversions that fail are NULL, never a wrong number.
    {"cvt of a real beyond the decimal range", "", "select cvt(1e308, 'decimal')", "NULL"},
    {"cvt of a thousand nines", "", "select cvt(printf('%.*c', 1000, '9'), 'decimal')", "NULL"},

    // Table-valued functions say which argument is missing.
    {"table-valued function with no argument", "", "select * from jsonlib_next",
     "error: jsonlib_next(): argument 1 of 1 is missing"},
    {"argument compared, not given", "", "select * from jsonlib_getobject where arg1 > 3",
     "error: jsonlib_getobject(): argument 1 of 1 is missing"},
    {"argument given twice", "", "select count(*) from jsonlib_next(1) where arg1 = 2", "i:0"},
    {"argument from a later table of the join", "",
     "select count(*) from jsonlib_getkeyvalue j, (select 1 h) t where j.arg1 = t.h", "i:1"},
};

TEST(SqliteHostile, Reproducers) {
    for (const Case &c : kCases) {
        SqliteDb db;
        if (*c.setup) db.exec(c.setup);
        if (c.max_length) sqlite3_limit(db.handle(), SQLITE_LIMIT_LENGTH, c.max_length);
        const auto start = std::chrono::steady_clock::now();
        const std::string got = answer(db, c.sql);
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::steady_clock::now() - start).count();
        const std::string want = c.want;
        const bool error = want.rfind("error: ", 0) == 0;
        EXPECT_TRUE(error ? got.find(want.substr(7)) != std::string::npos : got == want)
            << c.what << ": " << got;
        EXPECT_TRUE(!c.max_ms || ms <= c.max_ms) << c.what << ": " << ms << " ms";
    }
}

// An allocation that fails anywhere in a call ends it with an error or a
// shorter result; no C++ exception ever reaches SQLite (which would end
// the process).
TEST(SqliteHostile, AllocationFailuresNeverEscape) {
    const char *statements[] = {
        "select upper('abc') || concat('a', 2.5, 'b')",
        "select group_concat(x, ',') from (select 'a' x union all select 'b')",
        "select kind from jsonlib_getobject(jsonlib_createparser('{\"a\":[1,2]}'))",
        "select colattributes(1, 1)",
        "select cvt('12.5', 'decimal(5,2)') || dec_add('1.5', 2) || todate('01/02/2020')",
        "select fuzzysearch('dupont', 'Jean Dupond')",
    };
    const char *catalogue = "create table syscolattr(tabid, colno, attrkey, attrvalue);"
                            "insert into syscolattr values (1, 1, 'k', 'v')";
    for (const char *sql : statements) {
        auto run = [&](long n, bool *fired) {
            SqliteDb db;  // a fresh connection: its first use of a function fails too
            db.exec(catalogue);
            return answer(db, sql, n, fired);
        };
        const std::string normal = run(0, nullptr);
        bool fired = true;
        for (long n = 1; fired && n < 1000; ++n) {
            const std::string got = run(n, &fired);
            if (!fired) {
                EXPECT_EQ(got, normal) << sql;
            } else if (got.rfind("error: ", 0) == 0) {
                EXPECT_NE(got.find("out of memory"), std::string::npos) << sql << " #" << n << got;
            }
        }
        EXPECT_FALSE(fired) << sql << ": still failing after 1000 allocations";
    }
}

}  // namespace
