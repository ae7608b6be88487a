// list_matches: the share of the items of a delimited list that match a
// pattern, by the host's own pattern matching.
#include <cstring>

#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

extern "C" UDFKIT_API void list_matches(const HostCallTable *t, int32_t nargs,
                                        const ArgDesc *args, int32_t *rtype,
                                        int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    udfkit::guarded([&] {
        char pattern[1024], delims[100];
        udfkit::pop_into(t, pattern);
        udfkit::pop_into(t, delims);
        udfkit::PoppedText list(t);
        long tokens = 0, matches = 0;
        char *save = nullptr;
        for (char *tok = strtok_r(list.data(), delims, &save); tok;
             tok = strtok_r(nullptr, delims, &save)) {
            ++tokens;
            matches += t->Matches(pattern, tok);
        }
        t->PushDouble(tokens ? static_cast<double>(matches) / static_cast<double>(tokens) : 0.0);
    });
}
