/*
 * The SQL-callable functions of udfkit, all of the form udfkit_sqlfunc
 * (group_concat: udfkit_sqlaggregate).  A host usually looks them up by
 * name in the loaded library; this header lets a C or C++ program call
 * them directly, and gives every host the one table it registers from.
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

/* How a host calls a function. */
#define UDFKIT_KIND_SCALAR 0    /* one result per call */
#define UDFKIT_KIND_AGGREGATE 1 /* the aggregate protocol (group_concat) */
#define UDFKIT_KIND_TWO 2       /* two results: one row of two named columns */

/* What a result depends on besides the arguments (the date settings read
 * at start-up count as part of the process, not as state). */
#define UDFKIT_STATE_NONE 0      /* the arguments alone: deterministic */
#define UDFKIT_STATE_READS 1     /* settings that the set* functions change */
#define UDFKIT_STATE_WRITES 2    /* changes those settings, results none */
#define UDFKIT_STATE_SESSION 3   /* the JSON parser table of this process */
#define UDFKIT_STATE_CATALOGUE 4 /* queries the host's catalogue tables */

/*
 * The one table of SQL-callable functions:
 *   X(name, min_args, max_args, kind, state, column1, column2)
 * max_args -1: any number.  column1 and column2 name the two results of
 * a two-result function (0 otherwise).  Adding a function means adding a
 * row here; every host registers from this table and the export test
 * checks the shared object against it.
 */
#define UDFKIT_SQLFUNCS(X)                                                       \
    X(capitalize, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)             \
    X(upper, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                  \
    X(lower, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                  \
    X(basename, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)               \
    X(lastchars, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)              \
    X(strpos, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                 \
    X(valascii, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)               \
    X(strreplace, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)             \
    X(merge, 0, -1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                 \
    X(concat, 0, -1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                \
    X(champ, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                  \
    X(group_concat, 2, 2, UDFKIT_KIND_AGGREGATE, UDFKIT_STATE_NONE, 0, 0)        \
    X(charcolumn, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)             \
    X(vcharcolumn, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)            \
    X(datecolumn, 0, 0, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)             \
    X(datetimecolumn, 0, 0, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)         \
    X(intcolumn, 0, 0, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)              \
    X(minx, 1, -1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                  \
    X(maxx, 1, -1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                  \
    X(list_matches, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)           \
    X(format, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                 \
    X(fuzzysearch, 2, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_READS, 0, 0)           \
    X(fuzzyhighlight, 2, 4, UDFKIT_KIND_SCALAR, UDFKIT_STATE_READS, 0, 0)        \
    X(fuzzyexcerpt, 4, 6, UDFKIT_KIND_SCALAR, UDFKIT_STATE_READS, 0, 0)          \
    X(fuzzysetphonex, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_WRITES, 0, 0)       \
    X(fuzzysetisocode, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_WRITES, 0, 0)      \
    X(fuzzysetspans, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_WRITES, 0, 0)        \
    X(freqquality, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)            \
    X(digramquality, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)          \
    X(textquality, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)            \
    X(convert, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)                \
    X(jsonlib_createparser, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_SESSION, 0, 0) \
    X(jsonlib_freeparser, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_SESSION, 0, 0)  \
    X(jsonlib_extractobject, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_SESSION, 0, 0) \
    X(jsonlib_getvalue, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_SESSION, 0, 0)    \
    X(jsonlib_getkey, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_SESSION, 0, 0)      \
    X(jsonlib_getvalue4key, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_SESSION, 0, 0) \
    X(jsonlib_getobject, 1, 1, UDFKIT_KIND_TWO, UDFKIT_STATE_SESSION, "kind", "handle") \
    X(jsonlib_getkeyvalue, 1, 1, UDFKIT_KIND_TWO, UDFKIT_STATE_SESSION, "key", "value") \
    X(jsonlib_next, 1, 1, UDFKIT_KIND_TWO, UDFKIT_STATE_SESSION, "kind", "handle") \
    X(coltype2string, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_CATALOGUE, 0, 0)    \
    X(coltype2null, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)           \
    X(colattribute, 3, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_CATALOGUE, 0, 0)      \
    X(colattributes, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_CATALOGUE, 0, 0)     \
    X(anonymize_first, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)        \
    X(anonymize_last, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)         \
    X(anonymize_letter, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)       \
    X(anonymize_nss, 2, 2, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)          \
    X(anonymize_email, 1, 1, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)

/* Functions beyond the library's required set, in the same form. */
#define UDFKIT_EXTRA_SQLFUNCS(X)                                                 \
    X(fuzzyrank, 2, 3, UDFKIT_KIND_SCALAR, UDFKIT_STATE_NONE, 0, 0)

/* Every SQL-callable function: what a host registers. */
#define UDFKIT_ALL_SQLFUNCS(X) UDFKIT_SQLFUNCS(X) UDFKIT_EXTRA_SQLFUNCS(X)

/* Functions whose text result is bytes in a character set the call names,
 * not always UTF-8: a host hands such a result back as bytes (BLOB, bytea)
 * when it is not valid UTF-8. */
#define UDFKIT_BYTE_RESULTS(X) X(convert)

#define UDFKIT_DECLARE_SQLFUNC(name, min_args, max_args, kind, state, c1, c2) \
    UDFKIT_API void name(const HostCallTable *table, int32_t nargs,           \
                         const ArgDesc *args, int32_t *result_type,           \
                         int32_t *result_size UDFKIT_AGGREGATE_TAIL_##kind);
#define UDFKIT_AGGREGATE_TAIL_UDFKIT_KIND_SCALAR
#define UDFKIT_AGGREGATE_TAIL_UDFKIT_KIND_TWO
#define UDFKIT_AGGREGATE_TAIL_UDFKIT_KIND_AGGREGATE , int32_t *aggregate
UDFKIT_ALL_SQLFUNCS(UDFKIT_DECLARE_SQLFUNC)
#undef UDFKIT_DECLARE_SQLFUNC

#ifdef __cplusplus
}
#endif

#endif
