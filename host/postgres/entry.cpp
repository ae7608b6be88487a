// The fmgr entry points of the library's SQL functions: one C symbol per
// row of the function table (udfkit_pg_<name>), all running call_entry.
// These frames are C-like (see pg.hpp): they read the arguments, hand them
// to the bridge, raise what the bridge reports and build the result.
extern "C" {
#include "postgres.h"

#include "access/htup_details.h"
#include "catalog/pg_proc.h"
#include "catalog/pg_type.h"
#include "funcapi.h"
#include "mb/pg_wchar.h"
#include "utils/array.h"
#include "utils/lsyscache.h"
#include "utils/syscache.h"
}

#include <cstring>

#include "host/postgres/convert.hpp"
#include "host/postgres/pg.hpp"
#include "host/postgres/rows.hpp"

namespace udfkit::pg {

namespace {

// What one call expression needs, worked out at its first call and kept in
// fn_extra for the next rows.
struct FnCache {
    const FnRow *row;
    FnKind kind;
    Out out;              // the result type
    TupleDesc tupdesc;    // Out::Record
    Out cols[2];          // Out::Record: the two columns
    int charset_arg;      // the argument named charset, -1 when none
    bool spread_last;     // the last argument is an array of arguments
    int ndecl;
    Oid types[FUNC_MAX_ARGS];
    In in[FUNC_MAX_ARGS];
    Arg *args;            // per-call records, reused
    int cap;
};

FnKind kind_of(const FnRow &r) {
    if (r.kind == UDFKIT_KIND_AGGREGATE) return FnKind::Aggregate;
    return r.kind == UDFKIT_KIND_TWO ? FnKind::Two : FnKind::Scalar;
}

// The position of the argument named charset, from the catalogue.
int find_charset_arg(Oid fn_oid) {
    HeapTuple tup = SearchSysCache1(PROCOID, ObjectIdGetDatum(fn_oid));
    if (!HeapTupleIsValid(tup)) return -1;
    Oid *types;
    char **names;
    char *modes;
    const int n = get_func_arg_info(tup, &types, &names, &modes);
    int found = -1;
    for (int i = 0; names && i < n; ++i)
        if (names[i] && std::strcmp(names[i], "charset") == 0) found = i;
    ReleaseSysCache(tup);
    return found;
}

void describe_result(FunctionCallInfo fcinfo, FnCache *c) {
    Oid rettype;
    TupleDesc desc;
    if (get_call_result_type(fcinfo, &rettype, &desc) == TYPEFUNC_COMPOSITE) {
        MemoryContext old = MemoryContextSwitchTo(fcinfo->flinfo->fn_mcxt);
        c->tupdesc = BlessTupleDesc(CreateTupleDescCopy(desc));
        MemoryContextSwitchTo(old);
        c->out = Out::Record;
        for (int i = 0; i < 2 && i < c->tupdesc->natts; ++i)
            c->cols[i] = out_class(TupleDescAttr(c->tupdesc, i)->atttypid);
    } else {
        c->out = out_class(rettype);
    }
}

FnCache *cache_for(FunctionCallInfo fcinfo, int index) {
    FmgrInfo *fl = fcinfo->flinfo;
    if (fl->fn_extra) return static_cast<FnCache *>(fl->fn_extra);
    if (GetDatabaseEncoding() != PG_UTF8)
        ereport(ERROR, (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                        errmsg("udfkit needs a database in UTF8 encoding")));
    auto *c = static_cast<FnCache *>(MemoryContextAllocZero(fl->fn_mcxt, sizeof(FnCache)));
    c->row = &kFnRows[index];
    c->kind = kind_of(*c->row);
    Oid *decl;
    int ndecl;
    get_func_signature(fl->fn_oid, &decl, &ndecl);
    c->ndecl = PG_NARGS();
    for (int i = 0; i < c->ndecl; ++i) {
        Oid t = get_fn_expr_argtype(fl, i);  // resolves "any"
        if (!OidIsValid(t)) t = i < ndecl ? decl[i] : TEXTOID;
        c->types[i] = t;
        c->in[i] = in_class(t);
    }
    // A variadic array parameter, or VARIADIC written before an array
    // given to a variadic "any": its elements are the arguments.
    c->spread_last = c->ndecl > 0 && (get_fn_expr_variadic(fl) ||
                                      (ndecl > 0 && type_is_array(decl[ndecl - 1]) &&
                                       c->ndecl == ndecl && type_is_array(c->types[c->ndecl - 1])));
    c->charset_arg = find_charset_arg(fl->fn_oid);
    describe_result(fcinfo, c);
    fl->fn_extra = c;
    return c;
}

Arg *arg_slots(FunctionCallInfo fcinfo, FnCache *c, int n) {
    if (n > c->cap) {
        const int cap = n < 8 ? 8 : n;
        c->args = static_cast<Arg *>(
            MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof(Arg) * static_cast<size_t>(cap)));
        c->cap = cap;
    }
    return c->args;
}

// Reads the arguments into c->args; returns their number.
int read_args(FunctionCallInfo fcinfo, FnCache *c) {
    const int fixed = c->spread_last ? c->ndecl - 1 : c->ndecl;
    ArrayType *arr = nullptr;
    Datum *elems = nullptr;
    bool *nulls = nullptr;
    int nelems = 0;
    if (c->spread_last && !PG_ARGISNULL(fixed)) {
        arr = PG_GETARG_ARRAYTYPE_P(fixed);
        int16 elmlen;
        bool elmbyval;
        char elmalign;
        get_typlenbyvalalign(ARR_ELEMTYPE(arr), &elmlen, &elmbyval, &elmalign);
        deconstruct_array(arr, ARR_ELEMTYPE(arr), elmlen, elmbyval, elmalign, &elems, &nulls,
                          &nelems);
    }
    Arg *args = arg_slots(fcinfo, c, fixed + nelems);
    for (int i = 0; i < fixed; ++i) {
        args[i] = Arg{};
        if (!PG_ARGISNULL(i)) read_datum(PG_GETARG_DATUM(i), c->in[i], c->types[i], args[i]);
    }
    if (arr) {
        const Oid et = ARR_ELEMTYPE(arr);
        const In ec = in_class(et);
        for (int k = 0; k < nelems; ++k) {
            args[fixed + k] = Arg{};
            if (!nulls[k]) read_datum(elems[k], ec, et, args[fixed + k]);
        }
    }
    return fixed + nelems;
}

// The character set a fuzzy call names: its charset argument, or UTF-8.
void call_charset(const FnCache *c, const Arg *args, int n, const char **cs, size_t *len) {
    *cs = "UTF-8";
    *len = 5;
    if (c->charset_arg < 0 || c->charset_arg >= n) return;
    const Arg &a = args[c->charset_arg];
    *cs = a.kind == Arg::Text ? a.p : "";
    *len = a.kind == Arg::Text ? a.len : 0;
}

void raise_failure(const Call &call, const char *name) {
    switch (call.status) {
    case Status::Ok: return;
    case Status::PgError: ReThrowError(call.error);
    case Status::NoMemory:
        ereport(ERROR, (errcode(ERRCODE_OUT_OF_MEMORY),
                        errmsg("udfkit: out of memory in %s()", name)));
    case Status::Refused:
        ereport(ERROR, (errcode(ERRCODE_PROGRAM_LIMIT_EXCEEDED),
                        errmsg("udfkit: the result of %s() would be longer than the largest "
                               "value PostgreSQL holds (1 GB)", name)));
    }
}

Datum record_result(FunctionCallInfo fcinfo, const FnCache *c, const Call &call) {
    if (call.npushed == 0) PG_RETURN_NULL();  // a failing call gives no row
    Datum values[2] = {0, 0};
    bool isnull[2] = {true, true};
    for (int i = 0; i < 2 && i < call.npushed; ++i)
        values[i] = result_datum(call.results[i], call.rtype, c->cols[i], &isnull[i], c->row->name);
    HeapTuple tuple = heap_form_tuple(c->tupdesc, values, isnull);
    return HeapTupleGetDatum(tuple);
}

}  // namespace

Datum call_entry(FunctionCallInfo fcinfo, int index) {
    FnCache *c = cache_for(fcinfo, index);
    const int n = read_args(fcinfo, c);
    Call call;
    call.args = c->args;
    call.nargs = n;
    const int state = c->row->state;
    if (state == UDFKIT_STATE_READS || state == UDFKIT_STATE_WRITES) {
        const char *cs = nullptr;
        size_t len = 0;
        if (state == UDFKIT_STATE_READS) call_charset(c, c->args, n, &cs, &len);
        sync_settings(cs, len);
    }
    run_library(c->row->fn, c->kind, call);
    raise_failure(call, c->row->name);
    if (state == UDFKIT_STATE_WRITES) store_settings();
    if (c->out == Out::Void) PG_RETURN_VOID();
    if (c->out == Out::Record) return record_result(fcinfo, c, call);
    bool isnull = true;
    const Datum d = call.npushed > 0
                        ? result_datum(call.results[0], call.rtype, c->out, &isnull, c->row->name)
                        : Datum(0);
    if (isnull) PG_RETURN_NULL();
    return d;
}

}  // namespace udfkit::pg

// ------------------------------------------------------------ the symbols

extern "C" {
PG_MODULE_MAGIC;

#define UDFKIT_PG_ENTRY(name, min_args, max_args, kind, state, c1, c2) \
    PG_FUNCTION_INFO_V1(udfkit_pg_##name);                                \
    Datum udfkit_pg_##name(PG_FUNCTION_ARGS) {                            \
        return udfkit::pg::call_entry(fcinfo, udfkit::pg::k_##name);      \
    }
UDFKIT_ALL_SQLFUNCS(UDFKIT_PG_ENTRY)
#undef UDFKIT_PG_ENTRY
}
