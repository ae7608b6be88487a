/*
 * udfkit value conversion.
 *
 * Conversions never fail loudly: a source that cannot be converted gives
 * the target's null, and the problem is recorded in one process-wide flag
 * that the host reads (and clears) with IsConvertionError.  The date and
 * datetime parsers raise the same flag.
 *
 * All state here is process-wide and unlocked: call the conversions from
 * one thread at a time.
 */
#ifndef UDFKIT_CONVERT_H
#define UDFKIT_CONVERT_H

#include <stdint.h>

#include "udfkit/host.h"
#include "udfkit/null.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Records a conversion failure (the flag stays set until read). */
UDFKIT_API void SetConvertionError(void);

/* Returns the flag (0 or 1) and clears it. */
UDFKIT_API int32_t IsConvertionError(void);

#ifdef __cplusplus
}
#endif

#endif
