// The result limit a host sets before a call, and the mark a function sets
// when it refuses to build a result over that limit.
#include "sqlfunc/hostcall.hpp"

namespace {
thread_local int64_t t_limit = 0;
thread_local int32_t t_refused = 0;
}  // namespace

namespace udfkit {

bool result_fits(uint64_t bytes) noexcept {
    if (t_limit > 0 && bytes > static_cast<uint64_t>(t_limit)) {
        t_refused = 1;
        return false;
    }
    return true;
}

uint64_t result_limit() noexcept {
    return t_limit > 0 ? static_cast<uint64_t>(t_limit) : UINT64_MAX;
}

}  // namespace udfkit

extern "C" {

UDFKIT_API void udfkit_set_result_limit(int64_t max_bytes) {
    t_limit = max_bytes > 0 ? max_bytes : 0;
    t_refused = 0;
}

UDFKIT_API int32_t udfkit_result_refused(void) { return t_refused; }

}
