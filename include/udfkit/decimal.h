/*
 * udfkit fixed-point decimals.
 *
 * A Decimal holds up to 16 base-100 digits (32 decimal digits) and an
 * exponent in base 100:
 *
 *     value = sign * 0.d0 d1 d2 ... (base 100) * 100^dec_exp
 *
 * Normal form: when dec_ndgts > 0 neither the first nor the last counted
 * digit is 0; zero is dec_ndgts 0, dec_exp 0, dec_pos 1; null is dec_pos -1
 * (the library's null constructors also write dec_exp 0 and dec_ndgts 0).
 * Digits beyond dec_ndgts are 0 in every non-null value the library builds.
 *
 * Packed column form (_stdecimal / _lddecimal): `len` bytes, a header byte
 * (0x00 for null, 0x80 + dec_exp + 64 for positive values and zero, its
 * complement for negative values) followed by len - 1 digit bytes,
 * base-100 complemented for negative values.  Fields of the same length
 * compare with memcmp in value order.
 *
 * Functions that return a status return 0 or one of the DEC_E* codes below.
 * Functions sharing library buffers (decefcvt, _dectoasc, decimal_dump) and
 * the double conversion cache (_deccvdbl) must not run on several threads
 * at once; the others only touch their arguments.
 */
#ifndef UDFKIT_DECIMAL_H
#define UDFKIT_DECIMAL_H

#include <stdint.h>
#include <stdio.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

#define DEC_MAXDGTS 16   /* base-100 digits of a Decimal */
#define DEC_MAXEXP 63    /* largest dec_exp */
#define DEC_MINEXP (-64) /* smallest dec_exp */

/* Result codes. */
#define DEC_OK 0
#define DEC_EOVERFLOW (-1200)  /* exponent above 63; clamped to 63 */
#define DEC_EUNDERFLOW (-1201) /* exponent below -64; clamped to -64 */
#define DEC_EBADTEXT (-1213)   /* text that is not a number */
#define DEC_EBADEXP (-1216)    /* exponent in text above 999 */
#define DEC_EROUNDPOS (-1)     /* DecimalRound: rounding place beyond digit 16 */
#define DEC_ENULL (-2)         /* deccmp: an operand is null */

typedef struct Decimal {
    int16_t dec_exp;   /* exponent in base 100, -64 .. 63 */
    int16_t dec_pos;   /* 1 positive (and zero), 0 negative, -1 null */
    int16_t dec_ndgts; /* significant base-100 digits, 0 .. 16 */
    uint8_t dec_digits[DEC_MAXDGTS]; /* 0 .. 99 each, most significant first */
} Decimal;

/* The hook DecVerify calls on a corrupt record (its result is ignored). */
typedef int32_t (*DecAbortHook)(const char *where, int32_t line);

/* Packed storage.  Both always return 0. */
UDFKIT_API int32_t _stdecimal(const Decimal *dec, unsigned char *buf, int32_t len);
UDFKIT_API int32_t _lddecimal(const unsigned char *buf, int32_t len, Decimal *dec);
/* Flips the sign; returns the new dec_pos. */
UDFKIT_API int32_t DecimalNeg(Decimal *dec);

/* Machine numbers.  All return 0; the most negative integer is the null
 * integer and maps to and from the null Decimal. */
UDFKIT_API int32_t _deccvint(int32_t value, Decimal *out);
UDFKIT_API int32_t _deccvlong(long value, Decimal *out);
UDFKIT_API int32_t _deccvlong64(int64_t value, Decimal *out);
UDFKIT_API int32_t _dectoint(const Decimal *dec, int32_t *out);
UDFKIT_API int32_t _dectolong(const Decimal *dec, long *out);
UDFKIT_API int32_t _dectolong64(const Decimal *dec, int64_t *out);
/* Note the argument order: the record comes first.  Returns 0, or
 * DEC_EOVERFLOW for a double beyond the Decimal range (out gets the
 * exponent clamped to 63, as the arithmetic does) and for an infinity or a
 * NaN (out is then null).  Magnitudes below 1e-16 convert to zero. */
UDFKIT_API int32_t _deccvdbl(Decimal *out, double value);
UDFKIT_API int32_t _dectodbl(const Decimal *dec, double *out);

/* Arithmetic and comparison. */
UDFKIT_API int32_t _decadd(const Decimal *a, const Decimal *b, Decimal *result);
/* size = precision * 256 + scale.  Returns 0 or DEC_EROUNDPOS. */
UDFKIT_API int32_t DecimalRound(Decimal *value, int32_t size);
/* -2 when an operand is null, else -1, 0 or 1. */
UDFKIT_API int32_t deccmp(const Decimal *a, const Decimal *b);
/* -1, 0 or 1; a null built by the library compares as zero. */
UDFKIT_API int32_t DecimalCompare(const Decimal *a, const Decimal *b);

/* Text.  _dectoasc writes exactly len characters, blank padded, no NUL.
 * decefcvt returns a library buffer valid until the next call. */
UDFKIT_API int32_t _deccvasc(const char *text, int32_t length, Decimal *out);
UDFKIT_API int32_t _dectoasc(const Decimal *dec, char *field, int32_t len, int32_t right);
UDFKIT_API char *decefcvt(const Decimal *dec, int32_t ndigit, int *decpt, int *sign,
                          int32_t fflag);

/* Diagnostics. */
UDFKIT_API int32_t decimal_dump(FILE *stream, const Decimal *dec);
UDFKIT_API void DecVerify(const char *where, int32_t line, const Decimal *dec);
UDFKIT_API void DecSetAbort(DecAbortHook hook);
UDFKIT_API int32_t DumpDouble(const char *label, double value);

#ifdef __cplusplus
}
#endif

#endif
