// The test host's catalogue queries on a real SQLite connection (built only
// where SQLite is installed).
#include <sqlite3.h>

#include <memory>

#include "host/testhost.hpp"

namespace udfkit::test {

namespace {

struct StatementCloser {
    void operator()(sqlite3_stmt *st) const noexcept { sqlite3_finalize(st); }
};

Value column_value(sqlite3_stmt *st, int c) {
    if (sqlite3_column_type(st, c) == SQLITE_INTEGER)
        return Value::integer(sqlite3_column_int64(st, c));
    const unsigned char *t = sqlite3_column_text(st, c);
    return Value::str(t ? reinterpret_cast<const char *>(t) : "");
}

}  // namespace

void TestHost::use_database(sqlite3 *db) {
    query = [db](const std::string &sql, QueryRows &out) {
        sqlite3_stmt *raw = nullptr;
        const int prepared = sqlite3_prepare_v2(db, sql.c_str(), -1, &raw, nullptr);
        std::unique_ptr<sqlite3_stmt, StatementCloser> st(raw);
        if (prepared != SQLITE_OK) return false;
        if (!st) return true;  // no statement: no row, no column
        out.columns = sqlite3_column_count(st.get());
        int rc;
        while ((rc = sqlite3_step(st.get())) == SQLITE_ROW) {
            std::vector<Value> row;
            for (int c = 0; c < out.columns; ++c) row.push_back(column_value(st.get(), c));
            out.rows.push_back(std::move(row));
        }
        return rc == SQLITE_DONE;
    };
}

}  // namespace udfkit::test
