// The library's SQL-callable functions as this host sees them: one row per
// row of the library's function table, in the same order.
#pragma once

#include <cstdint>

#include "udfkit/sqlfunc.h"

namespace udfkit::pg {

struct FnRow {
    const char *name;
    int min_args;
    int max_args;  // -1: any number
    int kind;      // UDFKIT_KIND_*
    int state;     // UDFKIT_STATE_*
    const char *column1, *column2;
    void *fn;  // the library function
};

#define UDFKIT_PG_INDEX(name, min_args, max_args, kind, state, c1, c2) k_##name,
enum FnIndex { UDFKIT_ALL_SQLFUNCS(UDFKIT_PG_INDEX) kFnCount };
#undef UDFKIT_PG_INDEX

extern const FnRow kFnRows[kFnCount];

// The row of a name, or null.
const FnRow *find_row(const char *name) noexcept;

}  // namespace udfkit::pg
