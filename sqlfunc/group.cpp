// The group_concat aggregate: called once per row with the row's value and
// the separator on the stack, above the text accumulated for the group.
#include <cstring>

#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {
constexpr int32_t kGroupCap = 1025;
}

extern "C" UDFKIT_API void group_concat(const HostCallTable *t, int32_t nargs,
                                        const ArgDesc *args, int32_t *rtype,
                                        int32_t *rsize, int32_t *aggregate) {
    if (!t) {
        udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, 1024);
        if (aggregate) *aggregate = 1;
        return;
    }
    if (nargs != 2) {
        t->PushString("error");
        return;
    }
    char sep[2], value[kGroupCap], acc[kGroupCap];
    udfkit::pop_into(t, sep);
    udfkit::pop_into(t, value);
    udfkit::pop_into(t, acc);
    if (!acc[0]) {
        t->PushString(value);
    } else if (!value[0]) {
        t->PushString(acc);
    } else {
        // The new row's value goes before what the earlier rows left.
        char out[2 * (kGroupCap - 1) + 2];
        size_t vl = std::strlen(value), sl = std::strlen(sep), al = std::strlen(acc);
        std::memcpy(out, value, vl);
        std::memcpy(out + vl, sep, sl);
        std::memcpy(out + vl + sl, acc, al + 1);
        t->PushString(out);
    }
}
