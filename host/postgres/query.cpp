// PostgreSQL calls made from inside a library call, where an error must not
// unwind through the library's frames: each runs under PG_TRY, and an error
// is either kept in the current call, to be raised again by the entry point
// once the library has returned, or (a failed catalogue statement) turned
// into a failure status.  Every function here is C-like (see pg.hpp).
extern "C" {
#include "postgres.h"

#include "access/xact.h"
#include "catalog/pg_type.h"
#include "executor/spi.h"
#include "utils/memutils.h"
#include "utils/resowner.h"
}

#include "host/postgres/pg.hpp"

namespace udfkit::pg {

namespace {

// Keeps a caught error in the current call; the first one wins.
void keep_error(ErrorData *e) {
    Call *c = current_call();
    if (c && c->status != Status::PgError) {
        c->status = Status::PgError;
        c->error = e;
    } else {
        FreeErrorData(e);
    }
}

// Errors that end the statement whatever the library would make of a
// failed query.
bool must_end_statement(const ErrorData *e) {
    return e->sqlerrcode == ERRCODE_QUERY_CANCELED || e->sqlerrcode == ERRCODE_OUT_OF_MEMORY ||
           e->elevel > ERROR;
}

bool integer_type(Oid t) { return t == INT2OID || t == INT4OID || t == INT8OID; }

// Runs the statement read-only and copies its rows into `into`.
void run_statement(const char *sql, MemoryContext into, QueryRows *out) {
    if (SPI_connect() != SPI_OK_CONNECT) elog(ERROR, "udfkit: SPI_connect failed");
    const int rc = SPI_execute(sql, true, 0);
    if (rc < 0) {
        out->rows = -1;
    } else if (SPI_tuptable) {
        SPITupleTable *tt = SPI_tuptable;
        const int cols = tt->tupdesc->natts;
        const uint64 rows = SPI_processed;
        out->columns = cols;
        out->integer = static_cast<bool *>(MemoryContextAllocZero(into, sizeof(bool) * (cols + 1)));
        for (int j = 0; j < cols; ++j) out->integer[j] = integer_type(SPI_gettypeid(tt->tupdesc, j + 1));
        out->values = static_cast<char **>(
            MemoryContextAllocHuge(into, sizeof(char *) * (rows * static_cast<uint64>(cols) + 1)));
        for (uint64 r = 0; r < rows; ++r) {
            for (int j = 0; j < cols; ++j) {
                char *v = SPI_getvalue(tt->vals[r], tt->tupdesc, j + 1);
                out->values[r * cols + j] = v ? MemoryContextStrdup(into, v) : nullptr;
            }
        }
        out->rows = static_cast<int64_t>(rows);
    }
    SPI_finish();
}

void begin_subtransaction(void *) { BeginInternalSubTransaction(nullptr); }

}  // namespace

bool pg_guarded(void (*fn)(void *), void *arg) noexcept {
    MemoryContext ctx = CurrentMemoryContext;
    volatile bool ok = true;
    PG_TRY();
    {
        fn(arg);
    }
    PG_CATCH();
    {
        if (!current_call()) PG_RE_THROW();
        MemoryContextSwitchTo(ctx);
        ErrorData *e = CopyErrorData();
        FlushErrorState();
        keep_error(e);
        ok = false;
    }
    PG_END_TRY();
    return ok;
}

bool spi_query(const char *sql, QueryRows *out) noexcept {
    // Subtransactions are not allowed in parallel mode; the catalogue
    // functions are declared parallel unsafe, so this is a safety net.
    if (IsInParallelMode()) return false;
    MemoryContext caller = CurrentMemoryContext;
    ResourceOwner owner = CurrentResourceOwner;
    if (!pg_guarded(begin_subtransaction, nullptr)) return false;
    MemoryContextSwitchTo(caller);
    volatile bool ok = false;
    PG_TRY();
    {
        run_statement(sql, caller, out);
        ReleaseCurrentSubTransaction();
        MemoryContextSwitchTo(caller);
        CurrentResourceOwner = owner;
        ok = out->rows >= 0;
    }
    PG_CATCH();
    {
        MemoryContextSwitchTo(caller);
        ErrorData *e = CopyErrorData();
        FlushErrorState();
        RollbackAndReleaseCurrentSubTransaction();
        MemoryContextSwitchTo(caller);
        CurrentResourceOwner = owner;
        if (must_end_statement(e))
            keep_error(e);
        else
            FreeErrorData(e);  // a statement that fails: the library's fallback
    }
    PG_END_TRY();
    return ok;
}

}  // namespace udfkit::pg
