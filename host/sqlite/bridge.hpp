// The SQLite host: a loadable extension whose bridge implements the host
// call table on top of SQLite.  It registers every row of the library's
// function table (udfkit/sqlfunc.h).  Functions that work on SQLite values
// directly (beyond the host interface) register themselves with a
// NativeBlock.
#pragma once

#include <sqlite3ext.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <type_traits>

#include "udfkit/host.h"

SQLITE_EXTENSION_INIT3

namespace udfkit::sqlite {

using NativeRegistrar = int (*)(sqlite3 *db);
struct NativeBlock {
    explicit NativeBlock(NativeRegistrar registrar);
    NativeRegistrar registrar;
    NativeBlock *next;
};

// Subtypes that mark an integer as a date (day number) or a datetime
// (seconds since 1970) when it is passed straight into a library function.
constexpr unsigned kDateSubtype = 'D';
constexpr unsigned kDateTimeSubtype = 'T';

// The library's process-wide state is unlocked: every call into it, from
// the bridge or from a native function, holds this one (recursive) lock.
std::recursive_mutex &library_lock();
using LibraryLock = std::lock_guard<std::recursive_mutex>;

// Function flags for natives that set a result subtype.
int result_subtype_flag();

}  // namespace udfkit::sqlite

namespace udfkit::sqlite {

// The one guard of every SQLite callback that may throw: runs `body` under
// the library lock and turns any C++ exception into an SQLite result code
// (SQLITE_NOMEM for an allocation failure), so that none ever reaches
// SQLite.  Returns what `body` returns, or SQLITE_OK for a void body.
template <class F>
int guard(F &&body) noexcept {
    try {
        LibraryLock lock(library_lock());
        if constexpr (std::is_void_v<std::invoke_result_t<F>>) {
            body();
            return SQLITE_OK;
        } else {
            return body();
        }
    } catch (const std::bad_alloc &) {
        return SQLITE_NOMEM;
    } catch (...) {
        return SQLITE_ERROR;
    }
}

// The guard for a function callback: a failure becomes the call's error.
template <class F>
void guarded(sqlite3_context *ctx, F &&body) noexcept {
    const int rc = guard(body);
    if (rc == SQLITE_NOMEM)
        sqlite3_result_error_nomem(ctx);
    else if (rc != SQLITE_OK)
        sqlite3_result_error(ctx, "udfkit: internal error", -1);
}

}  // namespace udfkit::sqlite
