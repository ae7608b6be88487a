// The SQLite bridge itself: what it registers and how values cross it.
#include <gtest/gtest.h>

#include <string>

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
        for (int n = lo; n <= hi; ++n) {
            const std::string where = " from pragma_function_list where builtin = 0 and name = '" +
                                      name + "' and narg = " + std::to_string(n);
            EXPECT_EQ(db.one("select count(*)" + where), "i:1") << name << "/" << n;
            EXPECT_EQ(db.one("select (flags & 2048) != 0" + where),
                      row.state == UDFKIT_STATE_NONE ? "i:1" : "i:0")
                << name << "/" << n << " determinism";
        }
    }
}

}  // namespace
