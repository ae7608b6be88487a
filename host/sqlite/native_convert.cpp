// The library's type conversions from SQL (the rules are in
// sqlhelp/convert.hpp):
//   cvt(value, target)  value converted as the host engine converts it;
//                       target: char, vchar, blob, float, integer, smallint,
//                       longint, date, datetime, decimal or decimal(p,s)
//   cvterror()          1 when a conversion failed since the last call
// The source type follows the SQLite value: text is char, a blob is a blob,
// a real is a float, an integer is an integer (longint beyond 32 bits), and
// integers marked by asdate / asdatetime are dates / datetimes.  A target's
// null becomes SQL NULL; decimals come back as their text.
#include "host/sqlite/bridge.hpp"
#include "sqlhelp/convert.hpp"

namespace {
using namespace udfkit::sqlite;
using udfkit::sqlhelp::CvtResult;
using udfkit::sqlhelp::CvtSource;

// Fills src from an SQLite value; false for SQL NULL.
bool load_source(sqlite3_value *v, CvtSource &src) {
    switch (sqlite3_value_type(v)) {
    case SQLITE_NULL: return false;
    case SQLITE_INTEGER: {
        const unsigned st = sqlite3_value_subtype(v);
        src.set_integer(sqlite3_value_int64(v), st == kDateSubtype       ? CvtSource::Mark::Date
                                                : st == kDateTimeSubtype ? CvtSource::Mark::Datetime
                                                                         : CvtSource::Mark::None);
        return true;
    }
    case SQLITE_FLOAT: src.set_real(sqlite3_value_double(v)); return true;
    case SQLITE_TEXT: {
        // The text stays owned by SQLite for the whole call.
        const unsigned char *t = sqlite3_value_text(v);
        if (!t) return false;
        src.set_text(reinterpret_cast<const char *>(t));
        return true;
    }
    default:
        src.set_bytes(sqlite3_value_blob(v), static_cast<size_t>(sqlite3_value_bytes(v)));
        return true;
    }
}

void set_result(sqlite3_context *ctx, const CvtResult &r) {
    const int n = static_cast<int>(r.bytes.size());
    switch (r.kind) {
    case CvtResult::Kind::Null: return sqlite3_result_null(ctx);
    case CvtResult::Kind::Text:
        return sqlite3_result_text(ctx, r.bytes.data(), n, SQLITE_TRANSIENT);
    case CvtResult::Kind::Bytes:
        return sqlite3_result_blob(ctx, r.bytes.data(), n, SQLITE_TRANSIENT);
    case CvtResult::Kind::Real: return sqlite3_result_double(ctx, r.real);
    case CvtResult::Kind::Integer: return sqlite3_result_int64(ctx, r.integer);
    case CvtResult::Kind::Date:
    case CvtResult::Kind::Datetime:
        sqlite3_result_int64(ctx, r.integer);
        sqlite3_result_subtype(ctx,
                               r.kind == CvtResult::Kind::Date ? kDateSubtype : kDateTimeSubtype);
        return;
    }
}

void cvt_sql(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        const unsigned char *name = sqlite3_value_text(argv[1]);
        const auto type =
            udfkit::sqlhelp::parse_cvt_target(name ? reinterpret_cast<const char *>(name) : "");
        CvtSource src;
        if (!load_source(argv[0], src)) return sqlite3_result_null(ctx);
        if (!type) return sqlite3_result_error(ctx, "cvt: unknown target type", -1);
        set_result(ctx, udfkit::sqlhelp::convert(src, *type));
    });
}

void cvterror_sql(sqlite3_context *ctx, int, sqlite3_value **) noexcept {
    guarded(ctx, [&] { sqlite3_result_int(ctx, IsConvertionError()); });
}

int register_convert(sqlite3 *db) {
    int rc = sqlite3_create_function(db, "cvt", 2, SQLITE_UTF8 | result_subtype_flag(), nullptr,
                                     cvt_sql, nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_create_function(db, "cvterror", 0, SQLITE_UTF8, nullptr, cvterror_sql, nullptr,
                                     nullptr);
    return rc;
}
const NativeBlock kNatives(register_convert);
}  // namespace
