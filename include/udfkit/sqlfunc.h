/*
 * The SQL-callable functions of udfkit, all of the form udfkit_sqlfunc
 * (group_concat: udfkit_sqlaggregate).  A host usually looks them up by
 * name in the loaded library; this header lets a C or C++ program call
 * them directly.
 *
 * Note: `basename` here is the library's SQL function, not the C library's
 * path function; do not include <libgen.h> (or GNU <string.h> basename) in
 * the same translation unit.
 */
#ifndef UDFKIT_SQLFUNC_H
#define UDFKIT_SQLFUNC_H

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* X(name) for every scalar SQL-callable function, in family order. */
#define UDFKIT_SCALAR_SQLFUNCS(X)                                            \
    X(capitalize) X(upper) X(lower) X(basename) X(lastchars) X(strpos)     \
    X(valascii) X(strreplace) X(merge) X(concat) X(champ)                  \
    X(charcolumn) X(vcharcolumn) X(datecolumn) X(datetimecolumn)           \
    X(intcolumn) X(minx) X(maxx) X(list_matches) X(format)                 \
    X(fuzzysearch) X(fuzzyhighlight) X(fuzzyexcerpt) X(fuzzysetphonex)     \
    X(fuzzysetisocode) X(fuzzysetspans) X(freqquality) X(digramquality)    \
    X(textquality) X(convert) X(jsonlib_createparser)                      \
    X(jsonlib_freeparser) X(jsonlib_extractobject) X(jsonlib_getvalue)     \
    X(jsonlib_getkey) X(jsonlib_getvalue4key) X(jsonlib_getobject)         \
    X(jsonlib_getkeyvalue) X(jsonlib_next) X(coltype2string)               \
    X(coltype2null) X(colattribute) X(colattributes) X(anonymize_first)    \
    X(anonymize_last) X(anonymize_letter) X(anonymize_nss)                 \
    X(anonymize_email)

#define UDFKIT_DECLARE_SQLFUNC(name)                                         \
    UDFKIT_API void name(const HostCallTable *table, int32_t nargs,         \
                         const ArgDesc *args, int32_t *result_type,         \
                         int32_t *result_size);
UDFKIT_SCALAR_SQLFUNCS(UDFKIT_DECLARE_SQLFUNC)
#undef UDFKIT_DECLARE_SQLFUNC

/* The aggregate. */
UDFKIT_API void group_concat(const HostCallTable *table, int32_t nargs,
                             const ArgDesc *args, int32_t *result_type,
                             int32_t *result_size, int32_t *aggregate);

#ifdef __cplusplus
}
#endif

#endif
