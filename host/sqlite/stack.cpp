// The value stack of a call: SQLite arguments and values the bridge owns,
// how they read as numbers and text, and how results go back to SQLite.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/sqlite/call.hpp"
#include "runtime/null_traits.hpp"

namespace udfkit::sqlite {

namespace {

thread_local CallState *g_call = nullptr;

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

CallState *current_call() { return g_call; }

CallScope::CallScope(CallState &state) : saved_(g_call) { g_call = &state; }
CallScope::~CallScope() { g_call = saved_; }

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
    switch (p.item.kind) {
    case Item::Int: return p.item.i;
    case Item::Real: {
        double d = p.item.d;
        if (!(d == d)) return 0;
        if (d >= 9.2233720368547758e18) return INT64_MAX;
        if (d <= -9.2233720368547758e18) return INT64_MIN;
        return static_cast<int64_t>(d);
    }
    default: return std::strtoll(p.item.s.c_str(), nullptr, 10);
    }
}

// The text of a stacked value, without popping it.
void text_of(sqlite3_value *v, const char *&data, size_t &len) {
    if (sqlite3_value_type(v) == SQLITE_BLOB) {
        const void *b = sqlite3_value_blob(v);
        data = static_cast<const char *>(b ? b : "");
    } else {
        const unsigned char *t = sqlite3_value_text(v);
        data = reinterpret_cast<const char *>(t ? t : (const unsigned char *)"");
    }
    len = static_cast<size_t>(sqlite3_value_bytes(v));
}

std::string item_text(const Item &it) {
    char buf[64];
    switch (it.kind) {
    case Item::Int: std::snprintf(buf, sizeof buf, "%" PRId64, it.i); return buf;
    case Item::Real: sqlite3_snprintf(sizeof buf, buf, "%!.15g", it.d); return buf;
    case Item::Text: return it.s;
    default: return {};
    }
}

// ------------------------------------------------------------ results

void emit_string(sqlite3_context *ctx, const char *s, int32_t rtype) {
    if (!s || !*s)
        sqlite3_result_null(ctx);
    else
        sqlite3_result_text(ctx, s, -1, SQLITE_TRANSIENT);
}

void emit_int(sqlite3_context *ctx, int64_t v, int32_t rtype, unsigned subtype) {
    bool null = false;
    switch (rtype) {
    case UDF_T_SMALLINT: null = static_cast<int16_t>(v) == INT16_MIN; break;
    case UDF_T_INTEGER: case UDF_T_SERIAL: case UDF_T_DATETIME32: null = v == INT32_MIN; break;
    case UDF_T_DATE: null = v == INT32_MIN || v == 0; subtype = kDateSubtype; break;
    case UDF_T_LONGINT: case UDF_T_TIMESTAMP: case UDF_T_DATETIME: null = v == INT64_MIN; break;
    default: break;
    }
    if (subtype == kDateTimeSubtype && v == INT64_MIN) null = true;
    if (null) {
        sqlite3_result_null(ctx);
        return;
    }
    sqlite3_result_int64(ctx, v);
    if (subtype) sqlite3_result_subtype(ctx, subtype);
}

void emit_double(sqlite3_context *ctx, double d) {
    if (nulls::is_float_null(d))
        sqlite3_result_null(ctx);
    else
        sqlite3_result_double(ctx, d);
}

void emit_item(sqlite3_context *ctx, const Item &it, int32_t rtype) {
    switch (it.kind) {
    case Item::Null: sqlite3_result_null(ctx); break;
    case Item::Int: emit_int(ctx, it.i, rtype, it.subtype); break;
    case Item::Real: emit_double(ctx, it.d); break;
    case Item::Text: emit_string(ctx, it.s.c_str(), rtype); break;
    }
}

}  // namespace udfkit::sqlite
