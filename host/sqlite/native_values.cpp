// Typed values from SQL: SQLite has no date or datetime type, so an integer
// carries a subtype that the bridge reports through PeekType.
//   asdate(n)      the day number n as a date (day 1 = 1 January 1810)
//   asdatetime(s)  s seconds since 1970 UTC as a datetime
// The mark survives only while the value is passed straight into another
// function; stored in a table it is a plain integer again.
#include "host/sqlite/bridge.hpp"

namespace {
using namespace udfkit::sqlite;

template <unsigned Subtype>
void mark(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    sqlite3_result_int64(ctx, sqlite3_value_int64(argv[0]));
    sqlite3_result_subtype(ctx, Subtype);
}

int register_values(sqlite3 *db) {
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | result_subtype_flag();
    int rc = sqlite3_create_function(db, "asdate", 1, flags, nullptr, mark<kDateSubtype>,
                                     nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_create_function(db, "asdatetime", 1, flags, nullptr,
                                     mark<kDateTimeSubtype>, nullptr, nullptr);
    return rc;
}
const NativeBlock kNatives(register_values);
}  // namespace
