// The function table, with each row's library function.
#include "host/postgres/rows.hpp"

#include <cstring>

namespace udfkit::pg {

namespace {
template <class F>
void *address(F *f) {
    return reinterpret_cast<void *>(f);
}
}  // namespace

// Aggregates have the longer signature; the casts pick the library's
// function over any C library function of the same name (basename).
#define UDFKIT_PG_FN_UDFKIT_KIND_SCALAR(name) address(static_cast<udfkit_sqlfunc>(&::name))
#define UDFKIT_PG_FN_UDFKIT_KIND_TWO(name) address(static_cast<udfkit_sqlfunc>(&::name))
#define UDFKIT_PG_FN_UDFKIT_KIND_AGGREGATE(name) address(static_cast<udfkit_sqlaggregate>(&::name))
#define UDFKIT_PG_ROW(name, min_args, max_args, kind, state, c1, c2) \
    {#name, min_args, max_args, kind, state, c1, c2, UDFKIT_PG_FN_##kind(name)},
const FnRow kFnRows[kFnCount] = {UDFKIT_ALL_SQLFUNCS(UDFKIT_PG_ROW)};
#undef UDFKIT_PG_ROW

const FnRow *find_row(const char *name) noexcept {
    for (const FnRow &r : kFnRows)
        if (std::strcmp(r.name, name) == 0) return &r;
    return nullptr;
}

}  // namespace udfkit::pg
