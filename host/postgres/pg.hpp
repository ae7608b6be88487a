// The PostgreSQL host: a server extension whose bridge implements the host
// call table over the function-call interface (fmgr).
//
// Error discipline: a PostgreSQL error unwinds with longjmp, which must never
// pass a C++ frame that still owns something.  So the code is in two layers:
// - C-like frames (the fmgr entry points, argument reading, result building,
//   the SPI query) call PostgreSQL and may raise errors; they hold no C++
//   object with a destructor;
// - C++ frames (the library call and the slots it calls back) are noexcept,
//   call nothing in PostgreSQL that can raise, and report through a status
//   that the entry point turns into ereport() once they have returned.
#pragma once

extern "C" {
#include "postgres.h"
#include "fmgr.h"
}

#include <cstddef>
#include <cstdint>

#include "udfkit/host.h"

namespace udfkit::pg {

// One argument as the library sees it, read from a Datum.  Texts point into
// the (detoasted) argument and are not NUL-terminated.
struct Arg {
    enum Kind : uint8_t { Null, Int, Real, Text, Bytes, Date, DateTime };
    Kind kind = Null;
    int64_t i = 0;  // Int; Date: day number; DateTime: seconds since 1970
    double d = 0;
    const char *p = nullptr;
    size_t len = 0;
};

// One result the library pushed.  Texts are copied into palloc'd memory
// with room for a varlena header in front (`buf` + VARHDRSZ holds the text).
struct Pushed {
    enum Kind : uint8_t { None, Int, Long, DateTime, Real, Text };
    Kind kind = None;
    int64_t i = 0;
    double d = 0;
    char *buf = nullptr;
    size_t len = 0;
};

enum class Status : uint8_t {
    Ok,
    NoMemory,  // an allocation failed in the library or the bridge
    Refused,   // the result is over the largest value PostgreSQL holds
    PgError,   // a PostgreSQL error caught in a slot, to raise again
};

// One call of a library function: what the entry point hands the bridge and
// what comes back.  Plain data only.
struct Call {
    const Arg *args = nullptr;
    int nargs = 0;
    int32_t rtype = 0, rsize = 0;  // the describe answer
    Pushed results[2];
    int npushed = 0;
    Status status = Status::Ok;
    ErrorData *error = nullptr;  // PgError: the caught error
};

enum class FnKind : uint8_t { Scalar, Aggregate, Two };

// Runs the library function `fn` (describe mode, then run mode) over
// call.args.  Never raises, never throws.
void run_library(void *fn, FnKind kind, Call &call) noexcept;

// Runs `fn(arg)` under PG_TRY.  An error is caught, copied into the current
// call (the first one wins) and false returned; the entry point raises it
// again after the library has returned.
bool pg_guarded(void (*fn)(void *), void *arg) noexcept;

// Copies len bytes into palloc'd memory with a varlena header's room in
// front (null when memory is short; never raises).
char *copy_for_varlena(const char *s, size_t len) noexcept;

// Day numbers of the library (day 1 = 1 January 1810) and datetimes
// (seconds since 1970 UTC) against PostgreSQL's date and timestamptz.
int64_t day_from_pg(int32_t pg_date) noexcept;
bool day_to_pg(int64_t day, int32_t *pg_date) noexcept;  // false: no date
int64_t seconds_from_pg(int64_t pg_timestamp) noexcept;
bool seconds_to_pg(int64_t seconds, int64_t *pg_timestamp) noexcept;

// The fuzzy settings carried to parallel workers as configuration
// variables (settings.cpp).
void define_settings() noexcept;
// Brings the library's settings in line with the variables before a call
// of a function that reads them; `charset` is the character set the call
// names ("UTF-8" when it names none).
void sync_settings(const char *charset, size_t len) noexcept;
// After a setter ran: the variables take the library's new values (C-like:
// may raise).
void store_settings();

// The catalogue query of ExecuteQuery, over SPI in a subtransaction (C-like,
// never raises: a failed statement gives false, an interrupt is kept in the
// current call to raise later).
struct QueryRows {
    int64_t rows = 0;
    int columns = 0;
    char **values = nullptr;  // rows * columns texts (null for SQL NULL)
    bool *integer = nullptr;  // per column: an integer column
};
bool spi_query(const char *sql, QueryRows *out) noexcept;

// The call being run on this backend (null between calls).
Call *current_call() noexcept;

// The entry point of every library function (entry.cpp).
Datum call_entry(FunctionCallInfo fcinfo, int index);

}  // namespace udfkit::pg
