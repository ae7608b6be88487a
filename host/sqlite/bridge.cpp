// The SQLite bridge: the host call table on top of SQLite values.
//
// Choices this host makes where the calling convention leaves them open:
// - the stack of a call is its SQL arguments (the last one on top), above
//   them the values an ExecuteQuery stacked, beneath them the text an
//   aggregate has accumulated;
// - SQL NULL pops as the null of the asked type: INT32_MIN for PopInt and
//   PopDate, INT64_MIN for PopLong, the all-ones double for PopDouble, the
//   empty string for PopString; texts pop as numbers the way SQLite
//   converts them, and integers outside 32 bits are clamped by PopInt;
// - a pop from an empty stack gives the same null values;
// - PeekType(-k) describes the k-th value from the top, other positions
//   the value at that depth from the bottom (-1 if there is none);
// - Matches is SQLite's GLOB (*, ?, [...], [^...]);
// - a result equal to the null of the declared result type becomes SQL
//   NULL: the empty string for every type, INT16_MIN for smallint,
//   INT32_MIN for integer, serial and date (and day 0), INT64_MIN for the
//   64-bit types, the all-ones double for float;
// - results beyond the first of a scalar function are dropped.
// The library keeps process-wide state and expects its functions one at a
// time: every call holds one process-wide (recursive) lock.
#include "host/sqlite/bridge.hpp"

SQLITE_EXTENSION_INIT1

#include "udfkit/sqlfunc.h"

#include <dlfcn.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace udfkit::sqlite {

namespace {

NativeBlock *g_natives = nullptr;

// One row of the library's function table.
struct FunctionRow {
    const char *name;  // SQL name, also the library's exported symbol
    int min_args;
    int max_args;  // -1: any number
    int kind;      // UDFKIT_KIND_*
    int state;     // UDFKIT_STATE_*
    const char *column1;  // two-result functions: the names of the results
    const char *column2;
    // Only a function of its arguments alone may be deterministic to SQLite.
    bool deterministic() const { return state == UDFKIT_STATE_NONE; }
};

#define UDFKIT_ROW(name, min, max, kind, state, c1, c2) {#name, min, max, kind, state, c1, c2},
constexpr FunctionRow kFunctions[] = {UDFKIT_ALL_SQLFUNCS(UDFKIT_ROW)};
#undef UDFKIT_ROW

// ------------------------------------------------------------ values

struct Item {
    enum Kind { Null, Int, Real, Text } kind = Null;
    int64_t i = 0;
    double d = 0;
    std::string s;
    unsigned subtype = 0;
};

int32_t clamp32(int64_t v) {
    return v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v);
}

double all_ones_double() {
    uint64_t bits = ~0ull;
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

bool is_all_ones(double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof d);
    return bits == ~0ull;
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

// ------------------------------------------------------------ one call

struct CallState {
    sqlite3_context *ctx = nullptr;  // Direct mode: results go straight here
    sqlite3 *db = nullptr;
    sqlite3_value **argv = nullptr;
    int args_left = 0;
    std::vector<Item> above;  // stacked by ExecuteQuery; back() is the top
    Item below;
    bool below_present = false;
    int32_t rtype = 0, rsize = 0;
    bool collect = false;
    std::vector<Item> results;  // Collect mode
    int pushed = 0;
};

thread_local CallState *g_call = nullptr;
thread_local HostValueDesc g_desc;

// A popped value: either an SQLite value or an owned item; neither means
// the stack was empty.
struct Popped {
    sqlite3_value *v = nullptr;
    Item item;
    bool empty = true;
};

Popped pop_value() {
    Popped p;
    CallState *c = g_call;
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
    if (is_all_ones(d))
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

// Direct mode sets the first result at once; Collect mode keeps them all.
template <class MakeItem, class EmitDirect>
void push_result(MakeItem make, EmitDirect direct) {
    CallState *c = g_call;
    if (!c) return;
    if (c->collect) {
        c->results.push_back(make());
    } else if (c->pushed == 0 && c->ctx) {
        direct(c->ctx, c->rtype);
    }
    ++c->pushed;
}

// ------------------------------------------------------------ the slots

const HostValueDesc *slot_peek_type(int32_t position) {
    g_desc.type = -1;
    CallState *c = g_call;
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
                [&](sqlite3_context *ctx, int32_t rt) { emit_int(ctx, v, rt, 0); });
}
void slot_push_long(int64_t v) {
    push_result([&] { Item it; it.kind = Item::Int; it.i = v; return it; },
                [&](sqlite3_context *ctx, int32_t rt) { emit_int(ctx, v, rt, 0); });
}
void slot_push_datetime(int64_t v) {
    push_result(
        [&] { Item it; it.kind = Item::Int; it.i = v; it.subtype = kDateTimeSubtype; return it; },
        [&](sqlite3_context *ctx, int32_t rt) { emit_int(ctx, v, rt, kDateTimeSubtype); });
}
void slot_push_double(double v) {
    push_result([&] { Item it; it.kind = Item::Real; it.d = v; return it; },
                [&](sqlite3_context *ctx, int32_t) { emit_double(ctx, v); });
}
void slot_push_string(const char *s) {
    push_result([&] { Item it; it.kind = Item::Text; it.s = s ? s : ""; return it; },
                [&](sqlite3_context *ctx, int32_t rt) { emit_string(ctx, s, rt); });
}

void slot_pop_int(int32_t *out) {
    Popped p = pop_value();
    *out = popped_null(p) ? INT32_MIN : clamp32(popped_int64(p));
}
void slot_pop_long(int64_t *out) {
    Popped p = pop_value();
    *out = popped_null(p) ? INT64_MIN : popped_int64(p);
}
void slot_pop_date(int32_t *out) { slot_pop_int(out); }
void slot_pop_double(double *out) {
    Popped p = pop_value();
    if (popped_null(p))
        *out = all_ones_double();
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
    const char *data = "";
    size_t len = 0;
    std::string owned;
    if (!popped_null(p)) {
        if (p.v) {
            text_of(p.v, data, len);
        } else {
            owned = item_text(p.item);
            data = owned.data();
            len = owned.size();
        }
    }
    size_t n = len < static_cast<size_t>(cap - 1) ? len : static_cast<size_t>(cap - 1);
    std::memcpy(buf, data, n);
    buf[n] = '\0';
}
int32_t slot_peek_string_length() {
    CallState *c = g_call;
    size_t len = 0;
    if (c) {
        if (!c->above.empty()) {
            len = item_text(c->above.back()).size();
        } else if (c->args_left > 0) {
            sqlite3_value *v = c->argv[c->args_left - 1];
            if (sqlite3_value_type(v) != SQLITE_NULL) {
                const char *d;
                text_of(v, d, len);
            }
        } else if (c->below_present) {
            len = item_text(c->below).size();
        }
    }
    return len >= INT32_MAX ? INT32_MAX : static_cast<int32_t>(len + 1);
}
int32_t slot_matches(const char *pattern, const char *text) {
    return sqlite3_strglob(pattern ? pattern : "", text ? text : "") == 0 ? 1 : 0;
}
int32_t slot_execute_query(const char *sql) {
    CallState *c = g_call;
    if (!c || !c->db || !sql) return -1;
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(c->db, sql, -1, &st, nullptr) != SQLITE_OK || !st) {
        sqlite3_finalize(st);
        return -1;
    }
    const int cols = sqlite3_column_count(st);
    std::vector<Item> values;
    int64_t rows = 0;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        ++rows;
        for (int i = 0; i < cols; ++i) {
            Item it;
            if (sqlite3_column_type(st, i) == SQLITE_INTEGER) {
                it.kind = Item::Int;
                it.i = sqlite3_column_int64(st, i);
            } else {
                it.kind = Item::Text;
                const unsigned char *t = sqlite3_column_text(st, i);
                if (t) it.s.assign(reinterpret_cast<const char *>(t), sqlite3_column_bytes(st, i));
            }
            values.push_back(std::move(it));
        }
    }
    sqlite3_finalize(st);
    if (rc != SQLITE_DONE) return -1;
    // From the top: row count, column count, then the first row's first
    // column onwards, so the values are stacked last first.
    for (size_t i = values.size(); i-- > 0;) c->above.push_back(std::move(values[i]));
    Item n;
    n.kind = Item::Int;
    n.i = cols;
    c->above.push_back(n);
    n.i = rows;
    c->above.push_back(n);
    return 0;
}

HostCallTable make_table() {
    HostCallTable t{};
    t.PeekType = slot_peek_type;
    t.PushInt = slot_push_int;
    t.PushLong = slot_push_long;
    t.PushDateTime = slot_push_datetime;
    t.PushDouble = slot_push_double;
    t.PushString = slot_push_string;
    t.PopInt = slot_pop_int;
    t.PopLong = slot_pop_long;
    t.PopDouble = slot_pop_double;
    t.PopDate = slot_pop_date;
    t.PopString = slot_pop_string;
    t.PeekStringLength = slot_peek_string_length;
    t.Matches = slot_matches;
    t.ExecuteQuery = slot_execute_query;
    return t;
}
const HostCallTable g_table = make_table();

// ------------------------------------------------------------ running

struct Resolved {
    const FunctionRow *row;
    void *fn;
};

ArgDesc describe_arg(sqlite3_value *v) {
    ArgDesc a{code_of(v), 0, 0};
    switch (a.type) {
    case UDF_T_CHAR:
    case UDF_T_BLOB:
        a.size = sqlite3_value_type(v) == SQLITE_NULL ? 0 : clamp32(sqlite3_value_bytes(v));
        break;
    case UDF_T_INTEGER: case UDF_T_DATE: a.size = 4; a.value = clamp32(sqlite3_value_int64(v)); break;
    case UDF_T_LONGINT: case UDF_T_DATETIME: a.size = 8; a.value = clamp32(sqlite3_value_int64(v)); break;
    case UDF_T_FLOAT: a.size = 8; break;
    default: break;
    }
    return a;
}

// Describes, then runs one call with `state` as the current call.
void run(const Resolved &r, CallState &state, int argc, sqlite3_value **argv) {
    ArgDesc small[8];
    std::vector<ArgDesc> large;
    ArgDesc *descs = small;
    if (argc > 8) {
        large.resize(argc);
        descs = large.data();
    }
    for (int i = 0; i < argc; ++i) descs[i] = describe_arg(argv[i]);
    state.argv = argv;
    state.args_left = argc;

    LibraryLock lock(library_lock());
    CallState *saved = g_call;
    g_call = &state;
    if (r.row->kind == UDFKIT_KIND_AGGREGATE) {
        auto f = reinterpret_cast<udfkit_sqlaggregate>(r.fn);
        f(nullptr, argc, argc ? descs : nullptr, &state.rtype, &state.rsize, nullptr);
        f(&g_table, argc, argc ? descs : nullptr, &state.rtype, &state.rsize, nullptr);
    } else {
        auto f = reinterpret_cast<udfkit_sqlfunc>(r.fn);
        f(nullptr, argc, argc ? descs : nullptr, &state.rtype, &state.rsize);
        f(&g_table, argc, argc ? descs : nullptr, &state.rtype, &state.rsize);
    }
    g_call = saved;
}

void scalar_entry(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    const auto *r = static_cast<const Resolved *>(sqlite3_user_data(ctx));
    if (argc < r->row->min_args) {  // variadic functions still have a minimum
        char msg[128];
        sqlite3_snprintf(sizeof msg, msg, "wrong number of arguments to function %s()", r->row->name);
        sqlite3_result_error(ctx, msg, -1);
        return;
    }
    try {
        CallState state;
        state.ctx = ctx;
        state.db = sqlite3_context_db_handle(ctx);
        run(*r, state, argc, argv);
    } catch (...) {
        sqlite3_result_error_nomem(ctx);
    }
}

// group_concat: the accumulated text lives in the aggregate context.
struct AggState {
    std::string *acc;
};

void aggregate_step(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    const auto *r = static_cast<const Resolved *>(sqlite3_user_data(ctx));
    auto *a = static_cast<AggState *>(sqlite3_aggregate_context(ctx, sizeof(AggState)));
    if (!a) {
        sqlite3_result_error_nomem(ctx);
        return;
    }
    try {
        if (!a->acc) a->acc = new std::string;
        CallState state;
        state.db = sqlite3_context_db_handle(ctx);
        state.collect = true;
        state.below.kind = Item::Text;
        state.below.s = *a->acc;
        state.below_present = true;
        run(*r, state, argc, argv);
        if (!state.results.empty()) *a->acc = item_text(state.results.front());
    } catch (...) {
        sqlite3_result_error_nomem(ctx);
    }
}

void aggregate_final(sqlite3_context *ctx) {
    auto *a = static_cast<AggState *>(sqlite3_aggregate_context(ctx, 0));
    if (!a || !a->acc) {
        sqlite3_result_null(ctx);
        return;
    }
    emit_string(ctx, a->acc->c_str(), UDF_T_CHAR);
    delete a->acc;
    a->acc = nullptr;
}

// ------------------------------------------------------------ table-valued

struct Vtab {
    sqlite3_vtab base;
    const Resolved *fn;
    sqlite3 *db;
};

struct Cursor {
    sqlite3_vtab_cursor base;
    std::vector<Item> results;
    std::vector<sqlite3_value *> args;
    int32_t rtype = 0;
    bool eof = true;
};

int vt_connect(sqlite3 *db, void *aux, int, const char *const *, sqlite3_vtab **out, char **) {
    const auto *r = static_cast<const Resolved *>(aux);
    std::string schema = "CREATE TABLE x(\"";
    schema += r->row->column1 ? r->row->column1 : "value";
    schema += "\",\"";
    schema += r->row->column2 ? r->row->column2 : "value2";
    schema += "\"";
    for (int i = 0; i < r->row->max_args; ++i) schema += ",arg" + std::to_string(i + 1) + " HIDDEN";
    schema += ")";
    int rc = sqlite3_declare_vtab(db, schema.c_str());
    if (rc != SQLITE_OK) return rc;
    auto *v = static_cast<Vtab *>(sqlite3_malloc(sizeof(Vtab)));
    if (!v) return SQLITE_NOMEM;
    std::memset(v, 0, sizeof *v);
    v->fn = r;
    v->db = db;
    *out = &v->base;
    return SQLITE_OK;
}

int vt_disconnect(sqlite3_vtab *vt) {
    sqlite3_free(vt);
    return SQLITE_OK;
}

int vt_best_index(sqlite3_vtab *vt, sqlite3_index_info *info) {
    const auto *v = reinterpret_cast<Vtab *>(vt);
    const int nargs = v->fn->row->max_args;
    int seen = 0;
    for (int i = 0; i < info->nConstraint; ++i) {
        const auto &c = info->aConstraint[i];
        if (c.iColumn < 2 || c.op != SQLITE_INDEX_CONSTRAINT_EQ) continue;
        if (!c.usable) return SQLITE_CONSTRAINT;
        const int k = c.iColumn - 2;
        if (k >= nargs) continue;
        info->aConstraintUsage[i].argvIndex = k + 1;
        info->aConstraintUsage[i].omit = 1;
        seen |= 1 << k;
    }
    if (seen != (1 << nargs) - 1) return SQLITE_CONSTRAINT;  // every argument is required
    info->idxNum = nargs;
    info->estimatedCost = 1;
    info->estimatedRows = 1;
    return SQLITE_OK;
}

void free_args(Cursor *c) {
    for (sqlite3_value *v : c->args) sqlite3_value_free(v);
    c->args.clear();
}

int vt_open(sqlite3_vtab *, sqlite3_vtab_cursor **out) {
    auto *c = new (std::nothrow) Cursor();
    if (!c) return SQLITE_NOMEM;
    *out = &c->base;
    return SQLITE_OK;
}

int vt_close(sqlite3_vtab_cursor *cur) {
    auto *c = reinterpret_cast<Cursor *>(cur);
    free_args(c);
    delete c;
    return SQLITE_OK;
}

int vt_filter(sqlite3_vtab_cursor *cur, int idx_num, const char *, int argc, sqlite3_value **argv) {
    auto *c = reinterpret_cast<Cursor *>(cur);
    const auto *v = reinterpret_cast<Vtab *>(cur->pVtab);
    free_args(c);
    c->results.clear();
    try {
        for (int i = 0; i < argc; ++i) c->args.push_back(sqlite3_value_dup(argv[i]));
        CallState state;
        state.db = v->db;
        state.collect = true;
        run(*v->fn, state, argc, c->args.data());
        c->results = std::move(state.results);
        c->rtype = state.rtype;
    } catch (...) {
        return SQLITE_NOMEM;
    }
    c->eof = c->results.empty();  // a function that pushed nothing gives no row
    return SQLITE_OK;
}

int vt_next(sqlite3_vtab_cursor *cur) {
    reinterpret_cast<Cursor *>(cur)->eof = true;
    return SQLITE_OK;
}

int vt_eof(sqlite3_vtab_cursor *cur) { return reinterpret_cast<Cursor *>(cur)->eof; }

int vt_column(sqlite3_vtab_cursor *cur, sqlite3_context *ctx, int i) {
    auto *c = reinterpret_cast<Cursor *>(cur);
    if (i < 2) {
        if (static_cast<size_t>(i) < c->results.size())
            emit_item(ctx, c->results[i], c->rtype);
        else
            sqlite3_result_null(ctx);
    } else if (static_cast<size_t>(i - 2) < c->args.size()) {
        sqlite3_result_value(ctx, c->args[i - 2]);
    }
    return SQLITE_OK;
}

int vt_rowid(sqlite3_vtab_cursor *, sqlite3_int64 *rowid) {
    *rowid = 1;
    return SQLITE_OK;
}

sqlite3_module make_module() {
    sqlite3_module m{};
    m.iVersion = 0;
    m.xCreate = nullptr;  // eponymous only: the function name is the table
    m.xConnect = vt_connect;
    m.xBestIndex = vt_best_index;
    m.xDisconnect = vt_disconnect;
    m.xDestroy = vt_disconnect;
    m.xOpen = vt_open;
    m.xClose = vt_close;
    m.xFilter = vt_filter;
    m.xNext = vt_next;
    m.xEof = vt_eof;
    m.xColumn = vt_column;
    m.xRowid = vt_rowid;
    return m;
}
const sqlite3_module g_module = make_module();

// ------------------------------------------------------------ loading

std::vector<Resolved> *g_resolved = nullptr;
std::string g_load_error;

void *library_handle() {
    // The bridge is linked against the library, so it is loaded already;
    // lookups go through its handle so that its names win over any other
    // object's (the C library has its own `basename`).
    void *h = dlopen("libudfkit.so.0", RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (!h) h = dlopen("libudfkit.so.0", RTLD_NOW | RTLD_LOCAL);
    return h;
}

bool resolve_all() {
    static std::once_flag once;
    std::call_once(once, [] {
        void *h = library_handle();
        if (!h) {
            g_load_error = std::string("udfkit: cannot open libudfkit.so.0: ") + dlerror();
            return;
        }
        auto *list = new std::vector<Resolved>;
        for (const FunctionRow &row : kFunctions) {
            void *fn = dlsym(h, row.name);
            if (!fn) {
                g_load_error = std::string("udfkit: the library has no function ") + row.name;
                delete list;
                return;
            }
            list->push_back({&row, fn});
        }
        g_resolved = list;
        // Date settings are fixed once per process, before any date work.
        if (auto init = reinterpret_cast<void (*)(void)>(dlsym(h, "_date_init"))) init();
    });
    return g_resolved != nullptr;
}

int register_row(sqlite3 *db, const Resolved &r) {
    const FunctionRow &row = *r.row;
    int flags = SQLITE_UTF8;
    if (row.deterministic()) flags |= SQLITE_DETERMINISTIC;
#ifdef SQLITE_SUBTYPE
    flags |= SQLITE_SUBTYPE;
#endif
    flags |= result_subtype_flag();
    void *user = const_cast<Resolved *>(&r);
    switch (row.kind) {
    case UDFKIT_KIND_TWO:
        return sqlite3_create_module(db, row.name, &g_module, user);
    case UDFKIT_KIND_AGGREGATE:
        for (int n = row.min_args; n <= row.max_args; ++n) {
            int rc = sqlite3_create_function(db, row.name, n, flags, user, nullptr,
                                             aggregate_step, aggregate_final);
            if (rc != SQLITE_OK) return rc;
        }
        return SQLITE_OK;
    case UDFKIT_KIND_SCALAR:
        if (row.max_args < 0)
            return sqlite3_create_function(db, row.name, -1, flags, user, scalar_entry, nullptr,
                                           nullptr);
        for (int n = row.min_args; n <= row.max_args; ++n) {
            int rc = sqlite3_create_function(db, row.name, n, flags, user, scalar_entry, nullptr,
                                             nullptr);
            if (rc != SQLITE_OK) return rc;
        }
        return SQLITE_OK;
    }
    return SQLITE_ERROR;
}

}  // namespace

NativeBlock::NativeBlock(NativeRegistrar r) : registrar(r), next(g_natives) { g_natives = this; }

std::recursive_mutex &library_lock() {
    static std::recursive_mutex lock;
    return lock;
}

int result_subtype_flag() {
#ifdef SQLITE_RESULT_SUBTYPE
    return SQLITE_RESULT_SUBTYPE;
#else
    return 0;
#endif
}

}  // namespace udfkit::sqlite

using namespace udfkit::sqlite;

extern "C" __attribute__((visibility("default"))) int
sqlite3_udfkitsqlite_init(sqlite3 *db, char **errmsg, const sqlite3_api_routines *api) {
    SQLITE_EXTENSION_INIT2(api);
    if (!resolve_all()) {
        if (errmsg) *errmsg = sqlite3_mprintf("%s", g_load_error.c_str());
        return SQLITE_ERROR;
    }
    for (const Resolved &r : *g_resolved) {
        int rc = register_row(db, r);
        if (rc != SQLITE_OK) {
            if (errmsg) *errmsg = sqlite3_mprintf("udfkit: cannot register %s", r.row->name);
            return rc;
        }
    }
    for (NativeBlock *b = g_natives; b; b = b->next) {
        int rc = b->registrar(db);
        if (rc != SQLITE_OK) {
            if (errmsg) *errmsg = sqlite3_mprintf("udfkit: cannot register native functions");
            return rc;
        }
    }
    return SQLITE_OK;
}

extern "C" __attribute__((visibility("default"))) int
sqlite3_extension_init(sqlite3 *db, char **errmsg, const sqlite3_api_routines *api) {
    return sqlite3_udfkitsqlite_init(db, errmsg, api);
}
