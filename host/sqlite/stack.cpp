// The value stack of a call: SQLite arguments and values the bridge owns,
// how they read as numbers and text, and how results go back to SQLite.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/sqlite/call.hpp"
#include "runtime/null_traits.hpp"
#include "sqlhelp/text.hpp"

namespace udfkit::sqlite {

namespace {

}  // namespace

int32_t clamp32(int64_t v) {
    return v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v);
}

int16_t code_of(sqlite3_value *v) {
    switch (sqlite3_value_type(v)) {
    case SQLITE_INTEGER: {
        unsigned st = sqlite3_value_subtype(v);
        if (st == kDateSubtype) return UDF_T_DATE;
        if (st == kDateTimeSubtype) return UDF_T_DATETIME;
        int64_t i = sqlite3_value_int64(v);
        return (i >= INT32_MIN && i <= INT32_MAX) ? UDF_T_INTEGER : UDF_T_LONGINT;
    }
    case SQLITE_FLOAT: return UDF_T_FLOAT;
    case SQLITE_BLOB: return UDF_T_BLOB;
    default: return UDF_T_CHAR;
    }
}

int16_t code_of(const Item &it) {
    switch (it.kind) {
    case Item::Int:
        if (it.subtype == kDateSubtype) return UDF_T_DATE;
        if (it.subtype == kDateTimeSubtype) return UDF_T_DATETIME;
        return (it.i >= INT32_MIN && it.i <= INT32_MAX) ? UDF_T_INTEGER : UDF_T_LONGINT;
    case Item::Real: return UDF_T_FLOAT;
    default: return UDF_T_CHAR;
    }
}

constinit CallState *g_current_call = nullptr;

Popped pop_value() {
    Popped p;
    CallState *c = current_call();
    if (!c) return p;
    if (!c->above.empty()) {
        p.item = std::move(c->above.back());
        c->above.pop_back();
        p.empty = false;
    } else if (c->args_left > 0) {
        p.v = c->argv[--c->args_left];
        p.empty = false;
    } else if (c->below_present) {
        p.item = std::move(c->below);
        c->below_present = false;
        p.empty = false;
    }
    return p;
}

bool popped_null(const Popped &p) {
    if (p.empty) return true;
    if (p.v) return sqlite3_value_type(p.v) == SQLITE_NULL;
    return p.item.kind == Item::Null;
}

int64_t popped_int64(const Popped &p) {
    if (p.v) return sqlite3_value_int64(p.v);
    // Stacked items are integers or texts (a query's reals come as text).
    if (p.item.kind == Item::Int) return p.item.i;
    return std::strtoll(item_text(p.item).c_str(), nullptr, 10);
}

void text_of(sqlite3_value *v, ValueText &out) {
    switch (sqlite3_value_type(v)) {
    case SQLITE_NULL: break;
    case SQLITE_FLOAT: out.set_real(sqlite3_value_double(v)); break;
    case SQLITE_BLOB: {
        const void *b = sqlite3_value_blob(v);
        out.data = static_cast<const char *>(b ? b : "");
        out.len = static_cast<size_t>(sqlite3_value_bytes(v));
        break;
    }
    default: {
        const unsigned char *t = sqlite3_value_text(v);
        out.data = reinterpret_cast<const char *>(t ? t : (const unsigned char *)"");
        out.len = static_cast<size_t>(sqlite3_value_bytes(v));
    }
    }
}

void text_of(const Item &it, ValueText &out) {
    switch (it.kind) {
    case Item::Null: break;
    case Item::Real: out.set_real(it.d); break;
    case Item::Int:
        out.len = static_cast<size_t>(
            std::snprintf(out.scratch, sizeof out.scratch, "%" PRId64, it.i));
        out.data = out.scratch;
        break;
    case Item::Text:
        out.data = it.s.data();
        out.len = it.s.size();
        break;
    }
}

void ValueText::set_real(double d) {
    len = sqlhelp::real_to_text(d, scratch);
    data = scratch;
}

std::string item_text(const Item &it) {
    ValueText t;
    text_of(it, t);
    return std::string(t.data, t.len);
}

// ------------------------------------------------------------ results

void emit_string(sqlite3_context *ctx, const char *s, bool bytes) {
    if (nulls::is_text_null(s)) return sqlite3_result_null(ctx);
    size_t len = std::strlen(s);
    // A result in another character set stays as it is; any other text
    // loses a character cut at either end (none when both ends are ASCII).
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    if (!bytes && (u[0] >= 0x80 || u[len - 1] >= 0x80)) sqlhelp::utf8_trim_ends(s, len);
    if (len == 0) return sqlite3_result_null(ctx);
    const int n = static_cast<int>(std::min<size_t>(len, INT32_MAX));
    if (sqlhelp::utf8_valid(s, len))
        sqlite3_result_text(ctx, s, n, SQLITE_TRANSIENT);
    else
        sqlite3_result_blob(ctx, s, n, SQLITE_TRANSIENT);
}

void emit_int(sqlite3_context *ctx, int64_t v, int32_t rtype, unsigned subtype) {
    if (rtype == UDF_T_DATE) subtype = kDateSubtype;
    if (nulls::is_int_null(v, rtype) || (subtype == kDateTimeSubtype && v == nulls::kLong))
        return sqlite3_result_null(ctx);
    sqlite3_result_int64(ctx, v);
    if (subtype) sqlite3_result_subtype(ctx, subtype);
}

void emit_double(sqlite3_context *ctx, double d) {
    if (nulls::is_float_null(d))
        sqlite3_result_null(ctx);
    else
        sqlite3_result_double(ctx, d);
}

void emit_item(sqlite3_context *ctx, const Item &it, int32_t rtype, bool bytes) {
    switch (it.kind) {
    case Item::Null: sqlite3_result_null(ctx); break;
    case Item::Int: emit_int(ctx, it.i, rtype, it.subtype); break;
    case Item::Real: emit_double(ctx, it.d); break;
    case Item::Text: emit_string(ctx, it.s.c_str(), bytes); break;
    }
}

}  // namespace udfkit::sqlite
