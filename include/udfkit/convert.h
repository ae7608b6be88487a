/*
 * udfkit value conversion.
 *
 * Every cvt_ function takes a value of any SQL type (codes 0 to 13) as an
 * SqlVar and returns it as the target type.  A null source gives the
 * target's null (see udfkit/null.h); smallfloat (4) and user types (above
 * 13) always give the null.
 *
 * Conversions never fail loudly: a source that cannot be converted gives
 * the target's null, and the problem is recorded in one process-wide flag
 * that the host reads (and clears) with IsConvertionError.  The date and
 * datetime parsers raise the same flag.  Text that does not start like a
 * number (after blanks) converts to a number's null without the flag;
 * text that starts like one gives the number read so far.
 *
 * Integer targets wrap to their width; an overflow is reported only to the
 * hook installed with SetConvertionOverflowHook, when there is one.
 *
 * Texts returned by cvt_char live in library areas and stay valid until the
 * next conversion.  The VChar written by cvt_vchar / cvt_blob belongs to the
 * caller, who frees vc_data with free() whenever it is not null (even when
 * vc_len is 0).
 *
 * All state here is process-wide and unlocked: call the conversions from
 * one thread at a time.
 */
#ifndef UDFKIT_CONVERT_H
#define UDFKIT_CONVERT_H

#include <stdint.h>

#include "udfkit/decimal.h"
#include "udfkit/host.h"
#include "udfkit/null.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Records a conversion failure (the flag stays set until read). */
UDFKIT_API void SetConvertionError(void);

/* Returns the flag (0 or 1) and clears it. */
UDFKIT_API int32_t IsConvertionError(void);

/* Called when a value does not fit an integer (target_type 2) or smallint
 * (target_type 1) target; the conversion then goes on and wraps. */
typedef void (*ConvertionOverflowHook)(SqlVar *source, int32_t target_type);

/* Installs the overflow hook; null switches the range tests off. */
UDFKIT_API void SetConvertionOverflowHook(ConvertionOverflowHook hook);

/* Kept for the host's interface; does nothing. */
UDFKIT_API void ReportConvertions(void);

/* Text of the value: the source's own text for char, otherwise a library
 * area valid until the next conversion.  A decimal source with var_size 0
 * is printed with precision 16, scale 255, and var_size is set to 0x10FF. */
UDFKIT_API char *cvt_char(SqlVar *source);

/* The value as a vchar or blob written into *out (what *out held before is
 * not released). */
UDFKIT_API void cvt_vchar(SqlVar *source, VChar *out);
UDFKIT_API void cvt_blob(SqlVar *source, VChar *out);

/* Numbers.  A float moves 0.0001 away from zero before it is truncated to
 * an integer target. */
UDFKIT_API double cvt_double(SqlVar *source);
UDFKIT_API int32_t cvt_int(SqlVar *source);
UDFKIT_API int16_t cvt_short(SqlVar *source);
UDFKIT_API int64_t cvt_long64(SqlVar *source);

/* Day number (udfkit/date.h Date) and seconds since 1970 (DateTime). */
UDFKIT_API int32_t cvt_date(SqlVar *source);
UDFKIT_API int64_t cvt_dtime(SqlVar *source);

/* The value as a decimal; returns the status of the decimal conversion
 * (0, or a DEC_E* code).  cvt_decimal_prec rounds text, float and decimal
 * sources to size (precision * 256 + scale) and returns DecimalRound's
 * status for them. */
UDFKIT_API int32_t cvt_decimal(SqlVar *source, Decimal *out);
UDFKIT_API int32_t cvt_decimal_prec(SqlVar *source, Decimal *out, int32_t size);

/* The double moved 0.0001 away from zero, then truncated toward zero. */
UDFKIT_API int32_t _Dbl2Int(double value);

#ifdef __cplusplus
}
#endif

#endif
