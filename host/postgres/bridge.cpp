// The PostgreSQL bridge: the host call table over the arguments of one fmgr
// call.  Choices this host makes where the calling convention leaves them
// open (the same as the SQLite host's):
// - the stack of a call is its SQL arguments (the last one on top) and,
//   above them, the values an ExecuteQuery stacked; an aggregate's state is
//   its first argument, so it lies beneath the others;
// - SQL NULL pops as the null of the asked type: INT32_MIN for PopInt and
//   PopDate, INT64_MIN for PopLong, the all-ones double for PopDouble, the
//   empty string for PopString; a pop from an empty stack gives the same;
// - texts pop as numbers the way strtoll/strtod read them, floats pop as
//   text in plain decimal notation, dates as their text under DBDATE,
//   datetimes as local "date hh:mm:ss"; PopInt clamps to 32 bits;
// - PopString cuts a long text at a character boundary (fewer bytes than
//   the capacity allows rather than half a character), except that a pop
//   of one character (capacity 2) gets one byte;
// - PeekType(-k) describes the k-th value from the top, other positions
//   the value at that depth from the bottom (-1 if there is none);
// - Matches is PostgreSQL's LIKE (% and _, backslash escapes) under the C
//   collation;
// - ExecuteQuery runs on the calling session through SPI (spi_query).
// The library functions run one at a time: a backend is one thread.
extern "C" {
#include "postgres.h"

#include "catalog/pg_collation_d.h"
#include "utils/builtins.h"
#include "utils/memutils.h"
}

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/postgres/pg.hpp"
#include "runtime/null_traits.hpp"
#include "sqlhelp/call_table.hpp"
#include "sqlhelp/date.hpp"
#include "sqlhelp/text.hpp"

namespace udfkit::pg {

namespace {

// A value stacked by ExecuteQuery.
struct Item {
    bool integer = false;
    int64_t i = 0;
    std::string s;
};

struct CallState {
    Call *call = nullptr;
    int args_left = 0;
    std::vector<Item> above;  // back() is the top
};

CallState *g_state = nullptr;
HostValueDesc g_desc;

int32_t clamp32(int64_t v) {
    return v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v);
}

int64_t double_to_64(double d) {
    if (std::isnan(d)) return 0;
    if (d >= 9.2233720368547758e18) return INT64_MAX;
    if (d <= -9.2233720368547758e18) return INT64_MIN;
    return static_cast<int64_t>(d);
}

int16_t code_of(const Arg &a) {
    switch (a.kind) {
    case Arg::Int: return (a.i >= INT32_MIN && a.i <= INT32_MAX) ? UDF_T_INTEGER : UDF_T_LONGINT;
    case Arg::Real: return UDF_T_FLOAT;
    case Arg::Bytes: return UDF_T_BLOB;
    case Arg::Date: return UDF_T_DATE;
    case Arg::DateTime: return UDF_T_DATETIME;
    default: return UDF_T_CHAR;
    }
}

int16_t code_of(const Item &it) {
    if (!it.integer) return UDF_T_CHAR;
    return (it.i >= INT32_MIN && it.i <= INT32_MAX) ? UDF_T_INTEGER : UDF_T_LONGINT;
}

// ------------------------------------------------------------ popping

// The value on top, without popping: an argument, a stacked item or none.
struct Top {
    const Arg *arg = nullptr;
    const Item *item = nullptr;
};

Top peek_top() {
    Top t;
    CallState *st = g_state;
    if (!st) return t;
    if (!st->above.empty())
        t.item = &st->above.back();
    else if (st->args_left > 0)
        t.arg = &st->call->args[st->args_left - 1];
    return t;
}

void drop_top() {
    CallState *st = g_state;
    if (!st) return;
    if (!st->above.empty())
        st->above.pop_back();
    else if (st->args_left > 0)
        --st->args_left;
}

bool top_null(const Top &t) { return !t.item && (!t.arg || t.arg->kind == Arg::Null); }

int64_t top_int64(const Top &t) {
    if (t.item) return t.item->integer ? t.item->i : std::strtoll(t.item->s.c_str(), nullptr, 10);
    const Arg &a = *t.arg;
    switch (a.kind) {
    case Arg::Real: return double_to_64(a.d);
    case Arg::Text:
    case Arg::Bytes: {
        char buf[64];
        const size_t n = a.len < sizeof buf - 1 ? a.len : sizeof buf - 1;
        std::memcpy(buf, a.p, n);
        buf[n] = '\0';
        return std::strtoll(buf, nullptr, 10);
    }
    default: return a.i;
    }
}

double top_double(const Top &t) {
    if (t.item) return t.item->integer ? static_cast<double>(t.item->i) : std::strtod(t.item->s.c_str(), nullptr);
    const Arg &a = *t.arg;
    switch (a.kind) {
    case Arg::Real: return a.d;
    case Arg::Text:
    case Arg::Bytes: {
        std::string s(a.p, a.len);
        return std::strtod(s.c_str(), nullptr);
    }
    default: return static_cast<double>(a.i);
    }
}

// The text a value pops as.  Texts and bytes are not copied: `owned`
// receives the text of the other kinds.
void top_text(const Top &t, std::string &owned, const char *&data, size_t &len) {
    data = "";
    len = 0;
    if (top_null(t)) return;
    if (t.item) {
        if (!t.item->integer) {
            data = t.item->s.data();
            len = t.item->s.size();
            return;
        }
        owned = std::to_string(t.item->i);
    } else {
        const Arg &a = *t.arg;
        switch (a.kind) {
        case Arg::Text:
        case Arg::Bytes:
            data = a.p;
            len = a.len;
            return;
        case Arg::Int: owned = std::to_string(a.i); break;
        case Arg::Real: {
            char buf[sqlhelp::kRealTextMax];
            owned.assign(buf, sqlhelp::real_to_text(a.d, buf));
            break;
        }
        case Arg::Date: owned = sqlhelp::date_text(static_cast<Date>(a.i)).value_or(""); break;
        case Arg::DateTime: owned = sqlhelp::datetime_text(a.i).value_or(""); break;
        default: break;
        }
    }
    data = owned.data();
    len = owned.size();
}

void note_no_memory() {
    if (g_state && g_state->call->status == Status::Ok) g_state->call->status = Status::NoMemory;
}

// ------------------------------------------------------------ pushing

Pushed *next_result() {
    CallState *st = g_state;
    if (!st) return nullptr;
    Call &c = *st->call;
    const int n = c.npushed++;
    return n < 2 ? &c.results[n] : nullptr;  // results beyond the second are dropped
}

void push_number(Pushed::Kind kind, int64_t i, double d) {
    if (Pushed *p = next_result()) {
        p->kind = kind;
        p->i = i;
        p->d = d;
    }
}

// ------------------------------------------------------------ the slots

const HostValueDesc *slot_peek_type(int32_t position) {
    g_desc.type = -1;
    CallState *st = g_state;
    if (!st) return &g_desc;
    const int64_t n_above = static_cast<int64_t>(st->above.size());
    const int64_t total = n_above + st->args_left;
    const int64_t from_top =
        position < 0 ? -static_cast<int64_t>(position) - 1 : total - 1 - position;
    if (from_top < 0 || from_top >= total) return &g_desc;
    if (from_top < n_above)
        g_desc.type = code_of(st->above[n_above - 1 - from_top]);
    else
        g_desc.type = code_of(st->call->args[st->args_left - 1 - (from_top - n_above)]);
    return &g_desc;
}

void slot_push_int(int32_t v) { push_number(Pushed::Int, v, 0); }
void slot_push_long(int64_t v) { push_number(Pushed::Long, v, 0); }
void slot_push_datetime(int64_t v) { push_number(Pushed::DateTime, v, 0); }
void slot_push_double(double v) { push_number(Pushed::Real, 0, v); }

void slot_push_string(const char *s) {
    Pushed *p = next_result();
    if (!p) return;
    const size_t len = s ? std::strlen(s) : 0;
    if (len > MaxAllocSize - VARHDRSZ - 1) {  // more than a text holds
        if (g_state->call->status == Status::Ok) g_state->call->status = Status::Refused;
        return;
    }
    char *buf = copy_for_varlena(s ? s : "", len);
    if (!buf) {
        note_no_memory();
        return;
    }
    p->kind = Pushed::Text;
    p->buf = buf;
    p->len = len;
}

void slot_pop_int(int32_t *out) {
    const Top t = peek_top();
    *out = top_null(t) ? nulls::kInteger : clamp32(top_int64(t));
    drop_top();
}

// A date is its day number, popped as an integer.
void slot_pop_date(int32_t *out) { slot_pop_int(out); }

void slot_pop_long(int64_t *out) {
    const Top t = peek_top();
    *out = top_null(t) ? nulls::kLong : top_int64(t);
    drop_top();
}

void slot_pop_double(double *out) {
    const Top t = peek_top();
    try {
        *out = top_null(t) ? nulls::float_null() : top_double(t);
    } catch (...) {
        *out = nulls::float_null();
        note_no_memory();
    }
    drop_top();
}

void slot_pop_string(char *buf, int32_t cap) {
    const Top t = peek_top();
    try {
        if (cap > 0) {
            std::string owned;
            const char *data;
            size_t len;
            top_text(t, owned, data, len);
            const size_t n = sqlhelp::pop_length(data, len, cap);
            std::memcpy(buf, data, n);
            buf[n] = '\0';
        }
    } catch (...) {
        buf[0] = '\0';
        note_no_memory();
    }
    drop_top();
}

int32_t slot_peek_string_length() {
    const Top t = peek_top();
    size_t len = 0;
    try {
        std::string owned;
        const char *data;
        top_text(t, owned, data, len);
    } catch (...) {
        note_no_memory();
    }
    return len >= INT32_MAX ? INT32_MAX : static_cast<int32_t>(len + 1);
}

struct LikeArgs {
    const char *pattern, *text;
    bool matched;
};

void run_like(void *p) {
    auto *a = static_cast<LikeArgs *>(p);
    text *t = cstring_to_text(a->text);
    text *pat = cstring_to_text(a->pattern);
    a->matched = DatumGetBool(DirectFunctionCall2Coll(
        textlike, C_COLLATION_OID, PointerGetDatum(t), PointerGetDatum(pat)));
    pfree(t);
    pfree(pat);
}

int32_t slot_matches(const char *pattern, const char *text) {
    // After a caught error the call fails anyway: run nothing more.
    if (g_state && g_state->call->status == Status::PgError) return 0;
    LikeArgs a{pattern ? pattern : "", text ? text : "", false};
    return pg_guarded(run_like, &a) && a.matched ? 1 : 0;
}

// Stacks the rows of a query: from the top, the row count, the column
// count, then the first row's first column onwards.
void stack_rows(CallState &st, const QueryRows &q) {
    const size_t n = static_cast<size_t>(q.rows) * static_cast<size_t>(q.columns);
    st.above.reserve(st.above.size() + n + 2);
    for (size_t k = n; k-- > 0;) {
        Item it;
        const char *v = q.values[k];
        const int col = static_cast<int>(k % static_cast<size_t>(q.columns));
        if (v && q.integer[col]) {
            it.integer = true;
            it.i = std::strtoll(v, nullptr, 10);
        } else if (v) {
            it.s = v;
        }
        st.above.push_back(std::move(it));
    }
    Item count;
    count.integer = true;
    count.i = q.columns;
    st.above.push_back(count);
    count.i = q.rows;
    st.above.push_back(count);
}

int32_t slot_execute_query(const char *sql) {
    CallState *st = g_state;
    if (!st || !sql || st->call->status == Status::PgError) return -1;
    sqlhelp::QueryDepth depth;
    if (!depth.entered()) return -1;  // a catalogue view calling back into us, too deep
    QueryRows rows;
    if (!spi_query(sql, &rows)) return -1;
    try {
        stack_rows(*st, rows);
    } catch (...) {
        note_no_memory();
        return -1;
    }
    return 0;
}

HostCallTable make_table() {
    HostCallTable t{};
    UDFKIT_FILL_CALL_TABLE(t);
    return t;
}
const HostCallTable g_table = make_table();

ArgDesc describe_arg(const Arg &a) {
    ArgDesc d{code_of(a), 0, 0};
    switch (a.kind) {
    case Arg::Text:
    case Arg::Bytes: d.size = clamp32(static_cast<int64_t>(a.len)); break;
    case Arg::Int: d.size = d.type == UDF_T_INTEGER ? 4 : 8; d.value = clamp32(a.i); break;
    case Arg::Date: d.size = 4; d.value = clamp32(a.i); break;
    case Arg::Real:
    case Arg::DateTime: d.size = 8; break;
    default: break;
    }
    return d;
}

void invoke(void *fn, FnKind kind, Call &call, const ArgDesc *descs) {
    const int n = call.nargs;
    const ArgDesc *d = n ? descs : nullptr;
    if (kind == FnKind::Aggregate) {
        // The state is the first argument: the library sees the others.
        auto f = reinterpret_cast<udfkit_sqlaggregate>(fn);
        f(nullptr, n - 1, n > 1 ? d + 1 : nullptr, &call.rtype, &call.rsize, nullptr);
        f(&g_table, n - 1, n > 1 ? d + 1 : nullptr, &call.rtype, &call.rsize, nullptr);
    } else {
        auto f = reinterpret_cast<udfkit_sqlfunc>(fn);
        f(nullptr, n, d, &call.rtype, &call.rsize);
        f(&g_table, n, d, &call.rtype, &call.rsize);
    }
}

}  // namespace

Call *current_call() noexcept { return g_state ? g_state->call : nullptr; }

char *copy_for_varlena(const char *s, size_t len) noexcept {
    if (len > MaxAllocSize - VARHDRSZ) return nullptr;
    auto *buf = static_cast<char *>(palloc_extended(VARHDRSZ + len, MCXT_ALLOC_NO_OOM));
    if (buf) std::memcpy(buf + VARHDRSZ, s, len);
    return buf;
}

void run_library(void *fn, FnKind kind, Call &call) noexcept {
    CallState *saved = g_state;
    try {
        CallState st;
        st.call = &call;
        st.args_left = call.nargs;
        ArgDesc small[8];
        std::vector<ArgDesc> large;
        ArgDesc *descs = small;
        if (call.nargs > 8) {
            large.resize(static_cast<size_t>(call.nargs));
            descs = large.data();
        }
        for (int i = 0; i < call.nargs; ++i) descs[i] = describe_arg(call.args[i]);
        // The largest text PostgreSQL holds; the functions whose results can
        // outgrow their arguments refuse beyond it instead of building them.
        udfkit_set_result_limit(static_cast<int64_t>(MaxAllocSize - VARHDRSZ - 1));
        g_state = &st;
        invoke(fn, kind, call, descs);
        g_state = saved;
        if (udfkit_result_refused() && call.status == Status::Ok) call.status = Status::Refused;
    } catch (...) {
        g_state = saved;
        if (call.status == Status::Ok) call.status = Status::NoMemory;
    }
}

}  // namespace udfkit::pg
