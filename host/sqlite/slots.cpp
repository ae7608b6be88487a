// The host call table on top of SQLite values.
//
// Choices this host makes where the calling convention leaves them open:
// - the stack of a call is its SQL arguments (the last one on top), above
//   them the values an ExecuteQuery stacked, beneath them the text an
//   aggregate has accumulated;
// - SQL NULL pops as the null of the asked type: INT32_MIN for PopInt and
//   PopDate, INT64_MIN for PopLong, the all-ones double for PopDouble, the
//   empty string for PopString; texts pop as numbers the way SQLite
//   converts them, and integers outside 32 bits are clamped by PopInt;
// - a real pops as text in plain decimal notation, the shortest that reads
//   back to the same double; PopString never ends a text inside a UTF-8
//   character, except a one-character pop (capacity 2), which takes a byte;
// - a pop from an empty stack gives the same null values;
// - PeekType(-k) describes the k-th value from the top, other positions
//   the value at that depth from the bottom (-1 if there is none);
// - Matches is SQLite's GLOB (*, ?, [...], [^...]);
// - a result equal to the null of the declared result type becomes SQL
//   NULL: the empty string for every type, INT16_MIN for smallint,
//   INT32_MIN for integer, serial and date (and day 0), INT64_MIN for the
//   64-bit types, the all-ones double for float;
// - a text result loses a UTF-8 character cut at either end, and goes back
//   as a BLOB when it is still not UTF-8 (so does a result in another
//   character set, which is left whole);
// - results beyond the first of a scalar function are dropped.
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "host/sqlite/call.hpp"
#include "runtime/null_traits.hpp"
#include "sqlhelp/call_table.hpp"
#include "sqlhelp/text.hpp"

namespace udfkit::sqlite {

namespace {

HostValueDesc g_desc;  // what PeekType answers (under the library lock)

// Direct mode sets the first result at once; Collect mode keeps them all.
template <class MakeItem, class EmitDirect>
void push_result(MakeItem make, EmitDirect direct) {
    CallState *c = current_call();
    if (!c) return;
    if (c->collect) {
        c->results.push_back(make());
    } else if (c->pushed == 0 && c->ctx) {
        direct(c->ctx, *c);
    }
    ++c->pushed;
}

// ------------------------------------------------------------ the slots

const HostValueDesc *slot_peek_type(int32_t position) {
    g_desc.type = -1;
    CallState *c = current_call();
    if (!c) return &g_desc;
    const int64_t n_above = static_cast<int64_t>(c->above.size());
    const int64_t n_below = c->below_present ? 1 : 0;
    const int64_t total = n_above + c->args_left + n_below;
    int64_t from_top = position < 0 ? -static_cast<int64_t>(position) - 1 : total - 1 - position;
    if (from_top < 0 || from_top >= total) return &g_desc;
    if (from_top < n_above)
        g_desc.type = code_of(c->above[n_above - 1 - from_top]);
    else if (from_top < n_above + c->args_left)
        g_desc.type = code_of(c->argv[c->args_left - 1 - (from_top - n_above)]);
    else
        g_desc.type = code_of(c->below);
    return &g_desc;
}

void slot_push_int(int32_t v) {
    push_result([&] { Item it; it.kind = Item::Int; it.i = v; return it; },
                [&](sqlite3_context *ctx, const CallState &c) { emit_int(ctx, v, c.rtype, 0); });
}
void slot_push_long(int64_t v) {
    push_result([&] { Item it; it.kind = Item::Int; it.i = v; return it; },
                [&](sqlite3_context *ctx, const CallState &c) { emit_int(ctx, v, c.rtype, 0); });
}
void slot_push_datetime(int64_t v) {
    push_result(
        [&] { Item it; it.kind = Item::Int; it.i = v; it.subtype = kDateTimeSubtype; return it; },
        [&](sqlite3_context *ctx, const CallState &c) { emit_int(ctx, v, c.rtype, kDateTimeSubtype); });
}
void slot_push_double(double v) {
    push_result([&] { Item it; it.kind = Item::Real; it.d = v; return it; },
                [&](sqlite3_context *ctx, const CallState &) { emit_double(ctx, v); });
}
void slot_push_string(const char *s) {
    push_result([&] { Item it; it.kind = Item::Text; it.s = s ? s : ""; return it; },
                [&](sqlite3_context *ctx, const CallState &c) { emit_string(ctx, s, c.bytes); });
}

void slot_pop_int(int32_t *out) {
    Popped p = pop_value();
    *out = popped_null(p) ? nulls::kInteger : clamp32(popped_int64(p));
}
void slot_pop_long(int64_t *out) {
    Popped p = pop_value();
    *out = popped_null(p) ? nulls::kLong : popped_int64(p);
}
void slot_pop_date(int32_t *out) { slot_pop_int(out); }
void slot_pop_double(double *out) {
    Popped p = pop_value();
    if (popped_null(p))
        *out = nulls::float_null();
    else if (p.v)
        *out = sqlite3_value_double(p.v);
    else if (p.item.kind == Item::Real)
        *out = p.item.d;
    else if (p.item.kind == Item::Int)
        *out = static_cast<double>(p.item.i);
    else
        *out = std::strtod(p.item.s.c_str(), nullptr);
}
void slot_pop_string(char *buf, int32_t cap) {
    Popped p = pop_value();
    if (cap <= 0) return;  // no room even for the terminator: nothing written
    ValueText t;
    if (p.v)
        text_of(p.v, t);
    else
        text_of(p.item, t);
    const size_t n = sqlhelp::pop_length(t.data, t.len, cap);
    std::memcpy(buf, t.data, n);
    buf[n] = '\0';
}
int32_t slot_peek_string_length() {
    ValueText t;
    if (CallState *c = current_call()) {
        if (!c->above.empty())
            text_of(c->above.back(), t);
        else if (c->args_left > 0)
            text_of(c->argv[c->args_left - 1], t);
        else if (c->below_present)
            text_of(c->below, t);
    }
    return t.len >= INT32_MAX ? INT32_MAX : static_cast<int32_t>(t.len + 1);
}
int32_t slot_matches(const char *pattern, const char *text) {
    return sqlite3_strglob(pattern ? pattern : "", text ? text : "") == 0 ? 1 : 0;
}
struct StatementCloser {
    void operator()(sqlite3_stmt *st) const noexcept { sqlite3_finalize(st); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

// A column of a result row as the library pops it: integers as integers,
// anything else as text.
Item column_item(sqlite3_stmt *st, int i) {
    Item it;
    switch (sqlite3_column_type(st, i)) {
    case SQLITE_INTEGER:
        it.kind = Item::Int;
        it.i = sqlite3_column_int64(st, i);
        break;
    case SQLITE_FLOAT:
        it.kind = Item::Text;
        it.s = item_text(Item{Item::Real, 0, sqlite3_column_double(st, i), {}, 0});
        break;
    default: {
        it.kind = Item::Text;
        const unsigned char *t = sqlite3_column_text(st, i);
        if (t) it.s.assign(reinterpret_cast<const char *>(t), sqlite3_column_bytes(st, i));
    }
    }
    return it;
}

// Runs a statement and stacks its answer; false when it failed.
bool stack_query(CallState &c, const char *sql) {
    sqlite3_stmt *raw = nullptr;
    const int prepared = sqlite3_prepare_v2(c.db, sql, -1, &raw, nullptr);
    Statement st(raw);
    if (prepared != SQLITE_OK || !st) return false;
    const int cols = sqlite3_column_count(st.get());
    std::vector<Item> values;
    int64_t rows = 0;
    int rc;
    while ((rc = sqlite3_step(st.get())) == SQLITE_ROW) {
        ++rows;
        for (int i = 0; i < cols; ++i) values.push_back(column_item(st.get(), i));
    }
    if (rc != SQLITE_DONE) return false;
    // From the top: row count, column count, then the first row's first
    // column onwards, so the values are stacked last first.
    for (size_t i = values.size(); i-- > 0;) c.above.push_back(std::move(values[i]));
    c.above.push_back(Item{Item::Int, cols, 0, {}, 0});
    c.above.push_back(Item{Item::Int, rows, 0, {}, 0});
    return true;
}

int32_t slot_execute_query(const char *sql) {
    CallState *c = current_call();
    if (!c || !c->db || !sql) return -1;
    // A statement may call a function that queries again (a catalogue
    // table that is a view over the catalogue functions): bounded.
    sqlhelp::QueryDepth depth;
    if (!depth.entered()) return -1;
    const size_t depth_before = c->above.size();
    try {
        if (stack_query(*c, sql)) return 0;
    } catch (const std::bad_alloc &) {
        // fails like any other query: nothing left on the stack
    }
    c->above.resize(depth_before);
    return -1;
}

HostCallTable make_table() {
    HostCallTable t{};
    UDFKIT_FILL_CALL_TABLE(t);
    return t;
}
const HostCallTable g_table = make_table();

}  // namespace

const HostCallTable &call_table() { return g_table; }

}  // namespace udfkit::sqlite
