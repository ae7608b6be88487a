/*
 * udfkit null values.
 *
 * There is no separate null flag: every SQL type keeps its null as one
 * reserved value of its own storage.  SqlVar is the typed value record
 * through which the host hands a value of any type to the library; VChar
 * is the storage of vchar and blob values.
 *
 *   code  type               null
 *   0     char               empty text (first byte NUL)
 *   1     smallint           -32768
 *   2,6   integer, serial    INT32_MIN
 *   3     float              all 64 bits set
 *   4     smallfloat         none
 *   5     decimal            dec_pos -1
 *   7     date               INT32_MIN (day 0 also counts as null)
 *   8     datetime, 32-bit   INT32_MIN
 *   9,12  vchar, blob        vc_len 0
 *   10,11 longint, timestamp INT64_MIN
 *   13    datetime, 64-bit   INT64_MIN
 *   >13   user types         none
 */
#ifndef UDFKIT_NULL_H
#define UDFKIT_NULL_H

#include <stdint.h>

#include "udfkit/decimal.h"
#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A value of any SQL type; the caller owns the record and its storage. */
typedef struct SqlVar {
    uint16_t var_type; /* SQL type code (udfkit_sqltype); above 13: user type */
    uint16_t var_size; /* decimal: precision * 256 + scale; float: 8 */
    void *var_data;    /* the value's storage */
} SqlVar;

/* Storage of a vchar or blob: vc_len bytes at vc_data (malloc'ed, owned by
 * the record, no terminator required).  vc_len 0 is the null/empty value,
 * and vc_data must then not be read. */
typedef struct VChar {
    int32_t vc_len;
    char *vc_data;
} VChar;

/* Sets the value behind var_data to the null of var_type (a vchar or blob
 * releases its bytes first; smallfloat and user types are left as is). */
UDFKIT_API void _nullvar(SqlVar *var);

/* 1 when the value counts as null for var_type, else 0. */
UDFKIT_API int32_t _is_null_var(const SqlVar *var);

/* 1 when all 8 bytes of the double are 0xFF (the float null), else 0. */
UDFKIT_API int32_t _is_nulld(const double *value);

/* Makes a decimal null: dec_exp 0, dec_pos -1, dec_ndgts 0 (the digits are
 * left as they were). */
UDFKIT_API void snulldec(Decimal *dec);

/* Empties a vchar: frees vc_data and sets vc_len 0, unless already empty. */
UDFKIT_API void snullvchar(VChar *vc);

#ifdef __cplusplus
}
#endif

#endif
