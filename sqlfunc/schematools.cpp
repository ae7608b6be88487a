// Catalogue introspection: column type names, nullability and attributes,
// read from the host's catalogue tables through ExecuteQuery.
#include <cstdio>
#include <string>

#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {

constexpr size_t kTypeTextMax = 127;
constexpr size_t kAttributeMax = 255;
constexpr size_t kAttributesMax = 4095;
constexpr int32_t kValueCap = 128;

// Rows of the query just run: pops the row and column counts, then hands
// every value to `take` in stack order (row by row, column by column).
// Returns false when the query failed.
template <class Take>
bool read_rows(const HostCallTable *t, const std::string &sql, int per_row, Take take) {
    if (t->ExecuteQuery(sql.c_str()) < 0) return false;
    int32_t rows = 0, columns = 0;
    t->PopInt(&rows);
    t->PopInt(&columns);
    // The statements select per_row columns; should the host answer with
    // more, the extra values are popped too, so the stack is left clean.
    const int32_t width = columns > per_row ? columns : per_row;
    char values[2][kValueCap];
    char extra[kValueCap];
    for (int32_t r = 0; r < rows; ++r) {
        for (int32_t c = 0; c < width; ++c) {
            if (c < per_row)
                udfkit::pop_into(t, values[c]);
            else
                udfkit::pop_into(t, extra);
        }
        take(values);
    }
    return true;
}

// Texts longer than the result's capacity are cut at it.
void push_cut(const HostCallTable *t, std::string &s, size_t max) {
    if (s.size() > max) s.resize(max);
    t->PushString(s.c_str());
}

// Pushes the rows of a catalogue query joined with ";", each row written by
// `row`, cut at max; the empty string when the query fails.
template <class Row>
void push_joined(const HostCallTable *t, const std::string &sql, int per_row, size_t max,
                 Row row) {
    std::string result;
    const bool ok = read_rows(t, sql, per_row, [&](char (&v)[2][kValueCap]) {
        if (result.size() > max) return;  // already past the cut
        if (!result.empty()) result += ';';
        row(result, v);
    });
    if (!ok) result.clear();
    push_cut(t, result, max);
}

// Pops the column number, then the table number under it, and gives the
// statement selecting `columns` of that column's attributes.
std::string attribute_query(const HostCallTable *t, const char *columns) {
    int32_t colno = 0, tabid = 0;
    t->PopInt(&colno);
    t->PopInt(&tabid);
    char sql[128];
    std::snprintf(sql, sizeof sql, "select %s from syscolattr where tabid = %d and colno = %d",
                  columns, tabid, colno);
    return sql;
}

std::string unknown_type(int32_t code) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "? ? ?(%d)", code);
    return buf;
}

// A key holding a single quote is escaped by doubling it, so that it can
// never end the quoted literal of the statement.
std::string quoted(const char *key) {
    std::string out;
    for (const char *p = key; *p; ++p) {
        out += *p;
        if (*p == '\'') out += '\'';
    }
    return out;
}

}  // namespace

extern "C" {

UDFKIT_API void coltype2string(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 26)) return;
    udfkit::guarded([&] {
        int32_t length = 0, type = 0;
        t->PopInt(&length);
        t->PopInt(&type);
        const int32_t code = type & UDF_TYPE_MASK;
        char buf[64];
        std::string text;
        switch (code) {
        case 0: std::snprintf(buf, sizeof buf, "char(%d)", length); text = buf; break;
        case 1: text = "smallint"; break;
        case 2: text = "integer"; break;
        case 3: text = "float"; break;
        case 4: text = "smallfloat"; break;
        case 5:
            std::snprintf(buf, sizeof buf, "decimal(%d,%d)", length >> 8, length & 0xff);
            text = buf;
            break;
        case 6: text = "serial"; break;
        case 7: text = "date"; break;
        case 8: case 13: text = "datetime year to second"; break;
        case 9:
            if (length >= 1) std::snprintf(buf, sizeof buf, "vchar(%d)", length);
            text = length >= 1 ? buf : "vchar";
            break;
        case 10: text = "longint"; break;
        case 11: text = "timestamp"; break;
        case 12:
            if (length >= 1) std::snprintf(buf, sizeof buf, "blob(%d)", length);
            text = length >= 1 ? buf : "blob";
            break;
        default:
            if (code <= 99) {
                text = unknown_type(code);
            } else {
                std::snprintf(buf, sizeof buf, "select typename from systypes where typeid = %d", code);
                // The last row's name wins; no row gives the empty string.
                bool ok = read_rows(t, buf, 1, [&](char (&v)[2][kValueCap]) { text = v[0]; });
                if (!ok) text = unknown_type(code);
            }
            break;
        }
        push_cut(t, text, kTypeTextMax);
    });
}

UDFKIT_API void coltype2null(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                             int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 3)) return;
    int32_t type = 0;
    t->PopInt(&type);
    t->PushString((type & UDF_NOTNULL_BIT) ? "NO" : "YES");
}

UDFKIT_API void colattribute(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                             int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 256)) return;
    udfkit::guarded([&] {
        char key[128];
        udfkit::pop_into(t, key);
        const std::string sql =
            attribute_query(t, "attrvalue") + " and attrkey = '" + quoted(key) + "'";
        push_joined(t, sql, 1, kAttributeMax,
                    [](std::string &out, char (&v)[2][kValueCap]) { out += v[0]; });
    });
}

UDFKIT_API void colattributes(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                              int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 4096)) return;
    udfkit::guarded([&] {
        push_joined(t, attribute_query(t, "attrkey, attrvalue"), 2, kAttributesMax,
                    [](std::string &out, char (&v)[2][kValueCap]) {
                        out += v[0];
                        out += '=';
                        out += v[1];
                    });
    });
}

}  // extern "C"
