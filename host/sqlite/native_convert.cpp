// The library's type conversions from SQL:
//   cvt(value, target)  value converted as the host engine converts it;
//                       target: char, vchar, blob, float, integer, smallint,
//                       longint, date, datetime, decimal or decimal(p,s)
//   cvterror()          1 when a conversion failed since the last call
// The source type follows the SQLite value: text is char, a blob is a blob,
// a real is a float, an integer is an integer (longint beyond 32 bits), and
// integers marked by asdate / asdatetime are dates / datetimes.  A target's
// null becomes SQL NULL; decimals come back as their text.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "host/sqlite/bridge.hpp"
#include "udfkit/convert.h"

namespace {
using namespace udfkit::sqlite;

// The conversions keep process-wide areas: every call holds the library lock.

struct Source {
    SqlVar var{};
    int32_t i32 = 0;
    int64_t i64 = 0;
    double dbl = 0;
    VChar vc{0, nullptr};
};

// Fills src from an SQLite value; false for SQL NULL.
bool load_source(sqlite3_value *v, Source &src) {
    switch (sqlite3_value_type(v)) {
    case SQLITE_NULL: return false;
    case SQLITE_INTEGER: {
        src.i64 = sqlite3_value_int64(v);
        const unsigned st = sqlite3_value_subtype(v);
        if (st == kDateSubtype || (st != kDateTimeSubtype && src.i64 >= INT32_MIN && src.i64 <= INT32_MAX)) {
            src.i32 = static_cast<int32_t>(src.i64);
            src.var = {static_cast<uint16_t>(st == kDateSubtype ? UDF_T_DATE : UDF_T_INTEGER), 0, &src.i32};
        } else {
            src.var = {static_cast<uint16_t>(st == kDateTimeSubtype ? UDF_T_DATETIME : UDF_T_LONGINT), 0,
                       &src.i64};
        }
        return true;
    }
    case SQLITE_FLOAT:
        src.dbl = sqlite3_value_double(v);
        src.var = {UDF_T_FLOAT, 8, &src.dbl};
        return true;
    case SQLITE_TEXT:
        // The text stays owned by SQLite for the whole call.
        src.var = {UDF_T_CHAR, 0, const_cast<unsigned char *>(sqlite3_value_text(v))};
        return src.var.var_data != nullptr;
    default:
        src.vc.vc_len = sqlite3_value_bytes(v);
        src.vc.vc_data = static_cast<char *>(const_cast<void *>(sqlite3_value_blob(v)));
        src.var = {UDF_T_BLOB, 0, &src.vc};
        return true;
    }
}

// "decimal(p,s)" -> p * 256 + s; "decimal" -> 0.  -1 when malformed.
int32_t decimal_size(const std::string &t) {
    if (t == "decimal") return 0;
    int p = 0, s = 0;
    char close = 0;
    if (std::sscanf(t.c_str(), "decimal(%d,%d%c", &p, &s, &close) == 3 && close == ')' &&
        p >= 1 && p <= 32 && s >= 0 && s <= p)
        return p * 256 + s;
    if (std::sscanf(t.c_str(), "decimal(%d%c", &p, &close) == 2 && close == ')' && p >= 1 && p <= 32)
        return p * 256;
    return -1;
}

void result_text(sqlite3_context *ctx, const char *text, size_t len) {
    while (len > 0 && text[len - 1] == ' ') --len;  // decimal fields are blank padded
    if (len == 0)
        sqlite3_result_null(ctx);
    else
        sqlite3_result_text(ctx, text, static_cast<int>(len), SQLITE_TRANSIENT);
}

void result_marked(sqlite3_context *ctx, int64_t v, bool null, unsigned subtype) {
    if (null) {
        sqlite3_result_null(ctx);
        return;
    }
    sqlite3_result_int64(ctx, v);
    if (subtype) sqlite3_result_subtype(ctx, subtype);
}

void cvt_sql(sqlite3_context *ctx, int, sqlite3_value **argv) {
    const unsigned char *raw = sqlite3_value_text(argv[1]);
    std::string target = raw ? reinterpret_cast<const char *>(raw) : "";
    for (char &c : target) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    target.erase(std::remove(target.begin(), target.end(), ' '), target.end());

    LibraryLock lock(library_lock());
    Source src;
    if (!load_source(argv[0], src)) {
        sqlite3_result_null(ctx);
        return;
    }
    SqlVar *v = &src.var;
    if (target == "char") {
        const char *t = cvt_char(v);
        result_text(ctx, t, std::strlen(t));
    } else if (target == "vchar" || target == "blob") {
        VChar out{0, nullptr};
        (target == "vchar" ? cvt_vchar : cvt_blob)(v, &out);
        if (out.vc_len == 0)
            sqlite3_result_null(ctx);
        else if (target == "vchar")
            sqlite3_result_text(ctx, out.vc_data, out.vc_len, SQLITE_TRANSIENT);
        else
            sqlite3_result_blob(ctx, out.vc_data, out.vc_len, SQLITE_TRANSIENT);
        std::free(out.vc_data);
    } else if (target == "float") {
        const double d = cvt_double(v);
        if (_is_nulld(&d))
            sqlite3_result_null(ctx);
        else
            sqlite3_result_double(ctx, d);
    } else if (target == "integer" || target == "int") {
        const int32_t x = cvt_int(v);
        result_marked(ctx, x, x == INT32_MIN, 0);
    } else if (target == "smallint") {
        const int16_t x = cvt_short(v);
        result_marked(ctx, x, x == INT16_MIN, 0);
    } else if (target == "longint") {
        const int64_t x = cvt_long64(v);
        result_marked(ctx, x, x == INT64_MIN, 0);
    } else if (target == "date") {
        const int32_t x = cvt_date(v);
        result_marked(ctx, x, x == INT32_MIN || x == 0, kDateSubtype);
    } else if (target == "datetime") {
        const int64_t x = cvt_dtime(v);
        result_marked(ctx, x, x == INT64_MIN, kDateTimeSubtype);
    } else if (const int32_t size = decimal_size(target); size >= 0) {
        Decimal d;
        if (size == 0)
            cvt_decimal(v, &d);
        else
            cvt_decimal_prec(v, &d, size);
        SqlVar dv{UDF_T_DECIMAL, static_cast<uint16_t>(size), &d};
        const char *t = cvt_char(&dv);
        size_t len = std::strlen(t);
        while (len > 0 && t[len - 1] == ' ') --len;
        if (size == 0 && std::memchr(t, '.', len)) {
            // Without a scale every fraction digit is printed: drop the
            // zeros at the end, and the point if nothing is left after it.
            while (len > 0 && t[len - 1] == '0') --len;
            if (len > 0 && t[len - 1] == '.') --len;
        }
        result_text(ctx, t, len);
    } else {
        sqlite3_result_error(ctx, "cvt: unknown target type", -1);
    }
}

void cvterror_sql(sqlite3_context *ctx, int, sqlite3_value **) {
    LibraryLock lock(library_lock());
    sqlite3_result_int(ctx, IsConvertionError());
}

int register_convert(sqlite3 *db) {
    int rc = sqlite3_create_function(db, "cvt", 2, SQLITE_UTF8 | result_subtype_flag(), nullptr,
                                     cvt_sql, nullptr, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_create_function(db, "cvterror", 0, SQLITE_UTF8, nullptr, cvterror_sql,
                                     nullptr, nullptr);
    return rc;
}
const NativeBlock kNatives(register_convert);
}  // namespace
