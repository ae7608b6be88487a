/*
 * udfkit MD5 message digest (RFC 1321), incremental and one-shot.
 *
 *   QXMD5_CTX ctx;
 *   unsigned char digest[16];
 *   QXMD5Init(&ctx);
 *   QXMD5Update(&ctx, data, len);      any number of times, any lengths
 *   QXMD5Final(digest, &ctx);          the context is zeroed afterwards
 *
 * or QXMD5(data, len, digest).  The digest is the raw 16 bytes.
 */
#ifndef UDFKIT_MD5_H
#define UDFKIT_MD5_H

#include <stdint.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The digest context, owned by the caller. */
typedef struct QXMD5_CTX {
    uint32_t state[4];        /* chaining values A, B, C, D */
    uint32_t count[2];        /* bits processed, modulo 2^64, low word first */
    unsigned char buffer[64]; /* input not yet processed (partial block) */
} QXMD5_CTX;

UDFKIT_API void QXMD5Init(QXMD5_CTX *context);
UDFKIT_API void QXMD5Update(QXMD5_CTX *context, const unsigned char *input,
                            uint32_t length);
UDFKIT_API void QXMD5Final(unsigned char digest[16], QXMD5_CTX *context);
/* Init, Update over the whole input and Final; returns digest. */
UDFKIT_API unsigned char *QXMD5(const unsigned char *input, uint32_t length,
                                unsigned char *digest);

#ifdef __cplusplus
}
#endif

#endif
