/*
 * udfkit text quality: how much a text looks like ordinary French prose,
 * judged by its letter frequencies and its letter-pair (digram)
 * frequencies against built-in reference statistics.
 *
 * Both scores lie in [0, 1]: 1 when the text's distribution equals the
 * reference, falling towards 0 as it departs from it; a text without
 * letters (or, for digrams, without a known letter pair) scores 0.
 *
 * text is NUL-terminated.  When charset is not empty the text is first
 * converted from charset to ASCII (characters without an ASCII form are
 * dropped); if that conversion fails the text's own bytes are counted.
 * caseless non-zero folds lower case into upper case.
 *
 * CpuDigramQuality keeps its working counts in process-wide tables: the
 * host must not run two digram scores at the same time.
 */
#ifndef UDFKIT_QUALITY_H
#define UDFKIT_QUALITY_H

#include <stdint.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Letter-frequency score. */
UDFKIT_API double CpuFreqQuality(const char *text, const char *charset, int32_t caseless);

/* Letter-pair score. */
UDFKIT_API double CpuDigramQuality(const char *text, const char *charset, int32_t caseless);

#ifdef __cplusplus
}
#endif

#endif
