// Scalar and aggregate functions: each call is described, then run with
// the bridge's call table.  The library keeps process-wide state and
// expects its functions one at a time: every call runs inside the guard,
// which holds one process-wide (recursive) lock.
#include <string>
#include <vector>

#include "host/sqlite/call.hpp"

namespace udfkit::sqlite {

namespace {

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

}  // namespace

void run(const Resolved &r, CallState &state, int argc, sqlite3_value **argv) {
    ArgDesc small[8];
    std::vector<ArgDesc> large;
    ArgDesc *descs = small;
    if (argc > 8) {
        large.resize(argc);
        descs = large.data();
    }
    for (int i = 0; i < argc; ++i) descs[i] = describe_arg(argv[i]);
    const ArgDesc *args = argc ? descs : nullptr;
    state.argv = argv;
    state.args_left = argc;
    state.bytes = r.bytes;

    // The library refuses to build a result SQLite would refuse.
    const int64_t limit = state.db ? sqlite3_limit(state.db, SQLITE_LIMIT_LENGTH, -1) : 0;
    CallScope scope(state);
    udfkit_set_result_limit(limit);
    if (r.row->kind == UDFKIT_KIND_AGGREGATE) {
        auto f = reinterpret_cast<udfkit_sqlaggregate>(r.fn);
        f(nullptr, argc, args, &state.rtype, &state.rsize, nullptr);
        f(&call_table(), argc, args, &state.rtype, &state.rsize, nullptr);
    } else {
        auto f = reinterpret_cast<udfkit_sqlfunc>(r.fn);
        f(nullptr, argc, args, &state.rtype, &state.rsize);
        f(&call_table(), argc, args, &state.rtype, &state.rsize);
    }
    // A function that refuses its result pushes none.
    state.refused = state.pushed == 0 && udfkit_result_refused() != 0;
    if (state.refused) udfkit_set_result_limit(limit);  // a call this one runs in starts clean
}

void scalar_entry(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept {
    const auto *r = static_cast<const Resolved *>(sqlite3_user_data(ctx));
    if (argc < r->row->min_args) {  // variadic functions still have a minimum
        char msg[128];
        sqlite3_snprintf(sizeof msg, msg, "wrong number of arguments to function %s()", r->row->name);
        return sqlite3_result_error(ctx, msg, -1);
    }
    guarded(ctx, [&] {
        CallState state;
        state.ctx = ctx;
        state.db = sqlite3_context_db_handle(ctx);
        run(*r, state, argc, argv);
        if (state.refused) sqlite3_result_error_toobig(ctx);
    });
}

// group_concat: the accumulated text lives in the aggregate context.
struct AggState {
    std::string *acc;
};

void aggregate_step(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept {
    const auto *r = static_cast<const Resolved *>(sqlite3_user_data(ctx));
    auto *a = static_cast<AggState *>(sqlite3_aggregate_context(ctx, sizeof(AggState)));
    if (!a) return sqlite3_result_error_nomem(ctx);
    guarded(ctx, [&] {
        if (!a->acc) a->acc = new std::string;
        CallState state;
        state.db = sqlite3_context_db_handle(ctx);
        state.collect = true;
        state.below.kind = Item::Text;
        state.below.s = *a->acc;
        state.below_present = true;
        run(*r, state, argc, argv);
        if (state.refused) return sqlite3_result_error_toobig(ctx);
        if (!state.results.empty()) *a->acc = item_text(state.results.front());
    });
}

void aggregate_final(sqlite3_context *ctx) noexcept {
    const auto *r = static_cast<const Resolved *>(sqlite3_user_data(ctx));
    auto *a = static_cast<AggState *>(sqlite3_aggregate_context(ctx, 0));
    if (!a || !a->acc) return sqlite3_result_null(ctx);
    emit_string(ctx, a->acc->c_str(), r->bytes);
    delete a->acc;
    a->acc = nullptr;
}

}  // namespace udfkit::sqlite
