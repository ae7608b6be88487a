// The SQLite host: a loadable extension whose bridge implements the host
// call table on top of SQLite.  Each SQL-callable function of the library
// is one row of a table; families add their rows with a RowBlock in a file
// of their own.  Functions that work on SQLite values directly (beyond the
// host interface) register themselves with a NativeBlock.
#pragma once

#include <sqlite3ext.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>

#include "udfkit/host.h"

SQLITE_EXTENSION_INIT3

namespace udfkit::sqlite {

enum class Kind {
    Scalar,     // one result: a scalar SQL function
    Aggregate,  // the aggregate protocol (group_concat)
    Table2,     // two results: a table-valued function of one row, two columns
};

struct FunctionRow {
    const char *name;  // SQL name, also the library's exported symbol
    int min_args;
    int max_args;  // -1: any number
    Kind kind = Kind::Scalar;
    bool deterministic = true;
    const char *column1 = nullptr;  // Table2: names of the two result columns
    const char *column2 = nullptr;
};

struct RowBlock {
    RowBlock(const FunctionRow *rows, size_t count);
    const FunctionRow *rows;
    size_t count;
    RowBlock *next;
};

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

// Runs one call into the library from an SQLite callback: under the
// library lock, with any C++ exception turned into SQLite's error (out of
// memory for an allocation failure) so that none ever reaches SQLite.
template <class F>
void guarded(sqlite3_context *ctx, F &&body) noexcept {
    try {
        LibraryLock lock(library_lock());
        body();
    } catch (const std::bad_alloc &) {
        sqlite3_result_error_nomem(ctx);
    } catch (...) {
        sqlite3_result_error(ctx, "udfkit: internal error", -1);
    }
}

}  // namespace udfkit::sqlite
