// MD5 message digest (RFC 1321): the incremental interface (Init, Update,
// Final), a one-shot call, and the block compression function.
#include <cstdint>
#include <cstring>

#include "udfkit/md5.h"

namespace {

const unsigned char kPadding[64] = {0x80};

inline uint32_t load_le32(const unsigned char *p) noexcept {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    return v;
}

inline void store_le32(unsigned char *p, uint32_t v) noexcept {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    std::memcpy(p, &v, sizeof v);
}

inline uint32_t rotl(uint32_t x, int s) noexcept { return (x << s) | (x >> (32 - s)); }

// The four rounds.  F and G are written so that the term depending on the
// newest chaining value (b) comes last: G's two halves never overlap, so
// they are added rather than or-ed, letting the (c, d) half start early.
// The third round's function b ^ c ^ d is given whole (MD5_HT): two steps
// in a row share the xor of the two values neither of them changes.
#define MD5_F(a, b, c, d, x, s, t)                                  \
    a += (x) + (t) + ((d) ^ ((b) & ((c) ^ (d))));                   \
    a = rotl(a, s) + (b)
#define MD5_G(a, b, c, d, x, s, t)                                  \
    a += (x) + (t) + ((c) & ~(d));                                  \
    a += (b) & (d);                                                 \
    a = rotl(a, s) + (b)
#define MD5_HT(a, b, h, x, s, t)                                    \
    a += (x) + (t) + (h);                                           \
    a = rotl(a, s) + (b)
#define MD5_I(a, b, c, d, x, s, t)                                  \
    a += (x) + (t) + ((c) ^ ((b) | ~(d)));                          \
    a = rotl(a, s) + (b)

// The rounds are written out step by step (the rotations and constants
// differ at each step) and always inlined into the block loop.
#define MD5_ROUND inline __attribute__((always_inline))

// Round 1: sixteen steps.
MD5_ROUND void md5_round1(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, const uint32_t *x) {
    MD5_F(a, b, c, d, x[0], 7, 0xd76aa478u);
    MD5_F(d, a, b, c, x[1], 12, 0xe8c7b756u);
    MD5_F(c, d, a, b, x[2], 17, 0x242070dbu);
    MD5_F(b, c, d, a, x[3], 22, 0xc1bdceeeu);
    MD5_F(a, b, c, d, x[4], 7, 0xf57c0fafu);
    MD5_F(d, a, b, c, x[5], 12, 0x4787c62au);
    MD5_F(c, d, a, b, x[6], 17, 0xa8304613u);
    MD5_F(b, c, d, a, x[7], 22, 0xfd469501u);
    MD5_F(a, b, c, d, x[8], 7, 0x698098d8u);
    MD5_F(d, a, b, c, x[9], 12, 0x8b44f7afu);
    MD5_F(c, d, a, b, x[10], 17, 0xffff5bb1u);
    MD5_F(b, c, d, a, x[11], 22, 0x895cd7beu);
    MD5_F(a, b, c, d, x[12], 7, 0x6b901122u);
    MD5_F(d, a, b, c, x[13], 12, 0xfd987193u);
    MD5_F(c, d, a, b, x[14], 17, 0xa679438eu);
    MD5_F(b, c, d, a, x[15], 22, 0x49b40821u);
}

// Round 2: sixteen steps.
MD5_ROUND void md5_round2(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, const uint32_t *x) {
    MD5_G(a, b, c, d, x[1], 5, 0xf61e2562u);
    MD5_G(d, a, b, c, x[6], 9, 0xc040b340u);
    MD5_G(c, d, a, b, x[11], 14, 0x265e5a51u);
    MD5_G(b, c, d, a, x[0], 20, 0xe9b6c7aau);
    MD5_G(a, b, c, d, x[5], 5, 0xd62f105du);
    MD5_G(d, a, b, c, x[10], 9, 0x02441453u);
    MD5_G(c, d, a, b, x[15], 14, 0xd8a1e681u);
    MD5_G(b, c, d, a, x[4], 20, 0xe7d3fbc8u);
    MD5_G(a, b, c, d, x[9], 5, 0x21e1cde6u);
    MD5_G(d, a, b, c, x[14], 9, 0xc33707d6u);
    MD5_G(c, d, a, b, x[3], 14, 0xf4d50d87u);
    MD5_G(b, c, d, a, x[8], 20, 0x455a14edu);
    MD5_G(a, b, c, d, x[13], 5, 0xa9e3e905u);
    MD5_G(d, a, b, c, x[2], 9, 0xfcefa3f8u);
    MD5_G(c, d, a, b, x[7], 14, 0x676f02d9u);
    MD5_G(b, c, d, a, x[12], 20, 0x8d2a4c8au);
}

// Round 3: sixteen steps; one xor serves two of them.
MD5_ROUND void md5_round3(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, const uint32_t *x) {
    uint32_t hx;  // shared by two steps
    hx = b ^ c;
    MD5_HT(a, b, hx ^ d, x[5], 4, 0xfffa3942u);
    MD5_HT(d, a, hx ^ a, x[8], 11, 0x8771f681u);
    hx = d ^ a;
    MD5_HT(c, d, hx ^ b, x[11], 16, 0x6d9d6122u);
    MD5_HT(b, c, hx ^ c, x[14], 23, 0xfde5380cu);
    hx = b ^ c;
    MD5_HT(a, b, hx ^ d, x[1], 4, 0xa4beea44u);
    MD5_HT(d, a, hx ^ a, x[4], 11, 0x4bdecfa9u);
    hx = d ^ a;
    MD5_HT(c, d, hx ^ b, x[7], 16, 0xf6bb4b60u);
    MD5_HT(b, c, hx ^ c, x[10], 23, 0xbebfbc70u);
    hx = b ^ c;
    MD5_HT(a, b, hx ^ d, x[13], 4, 0x289b7ec6u);
    MD5_HT(d, a, hx ^ a, x[0], 11, 0xeaa127fau);
    hx = d ^ a;
    MD5_HT(c, d, hx ^ b, x[3], 16, 0xd4ef3085u);
    MD5_HT(b, c, hx ^ c, x[6], 23, 0x04881d05u);
    hx = b ^ c;
    MD5_HT(a, b, hx ^ d, x[9], 4, 0xd9d4d039u);
    MD5_HT(d, a, hx ^ a, x[12], 11, 0xe6db99e5u);
    hx = d ^ a;
    MD5_HT(c, d, hx ^ b, x[15], 16, 0x1fa27cf8u);
    MD5_HT(b, c, hx ^ c, x[2], 23, 0xc4ac5665u);
}

// Round 4: sixteen steps.
MD5_ROUND void md5_round4(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, const uint32_t *x) {
    MD5_I(a, b, c, d, x[0], 6, 0xf4292244u);
    MD5_I(d, a, b, c, x[7], 10, 0x432aff97u);
    MD5_I(c, d, a, b, x[14], 15, 0xab9423a7u);
    MD5_I(b, c, d, a, x[5], 21, 0xfc93a039u);
    MD5_I(a, b, c, d, x[12], 6, 0x655b59c3u);
    MD5_I(d, a, b, c, x[3], 10, 0x8f0ccc92u);
    MD5_I(c, d, a, b, x[10], 15, 0xffeff47du);
    MD5_I(b, c, d, a, x[1], 21, 0x85845dd1u);
    MD5_I(a, b, c, d, x[8], 6, 0x6fa87e4fu);
    MD5_I(d, a, b, c, x[15], 10, 0xfe2ce6e0u);
    MD5_I(c, d, a, b, x[6], 15, 0xa3014314u);
    MD5_I(b, c, d, a, x[13], 21, 0x4e0811a1u);
    MD5_I(a, b, c, d, x[4], 6, 0xf7537e82u);
    MD5_I(d, a, b, c, x[11], 10, 0xbd3af235u);
    MD5_I(c, d, a, b, x[2], 15, 0x2ad7d2bbu);
    MD5_I(b, c, d, a, x[9], 21, 0xeb86d391u);
}

// Compresses n consecutive 64-byte blocks into state, keeping the chaining
// values in registers between blocks.
void md5_blocks(uint32_t state[4], const unsigned char *p, size_t n) noexcept {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; n > 0; --n, p += 64) {
        uint32_t x[16];
        for (int i = 0; i < 16; ++i) x[i] = load_le32(p + 4 * i);
        const uint32_t aa = a, bb = b, cc = c, dd = d;
        md5_round1(a, b, c, d, x);
        md5_round2(a, b, c, d, x);
        md5_round3(a, b, c, d, x);
        md5_round4(a, b, c, d, x);
        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

#undef MD5_F
#undef MD5_G
#undef MD5_HT
#undef MD5_I
#undef MD5_ROUND

}  // namespace

namespace udfkit {

// The compression of one 64-byte block (16 little-endian words) into state.
void MD5Transform(uint32_t state[4], const unsigned char block[64]) noexcept {
    md5_blocks(state, block, 1);
}

}  // namespace udfkit

extern "C" {

UDFKIT_API void QXMD5Init(QXMD5_CTX *ctx) {
    ctx->count[0] = ctx->count[1] = 0;
    ctx->state[0] = 0x67452301u;
    ctx->state[1] = 0xefcdab89u;
    ctx->state[2] = 0x98badcfeu;
    ctx->state[3] = 0x10325476u;
}

UDFKIT_API void QXMD5Update(QXMD5_CTX *ctx, const unsigned char *input, uint32_t len) {
    uint32_t used = (ctx->count[0] >> 3) & 0x3f;
    const uint32_t low = ctx->count[0] + (len << 3);
    if (low < ctx->count[0]) ++ctx->count[1];
    ctx->count[0] = low;
    ctx->count[1] += len >> 29;
    if (len == 0) return;

    uint32_t i = 0;
    const uint32_t room = 64 - used;
    if (len >= room) {
        std::memcpy(ctx->buffer + used, input, room);
        udfkit::MD5Transform(ctx->state, ctx->buffer);
        i = room;
        const uint32_t whole = (len - i) / 64;
        md5_blocks(ctx->state, input + i, whole);
        i += whole * 64;
        used = 0;
    }
    std::memcpy(ctx->buffer + used, input + i, len - i);
}

UDFKIT_API void QXMD5Final(unsigned char digest[16], QXMD5_CTX *ctx) {
    unsigned char bits[8];
    store_le32(bits, ctx->count[0]);
    store_le32(bits + 4, ctx->count[1]);
    const uint32_t used = (ctx->count[0] >> 3) & 0x3f;
    const uint32_t pad = used < 56 ? 56 - used : 120 - used;
    QXMD5Update(ctx, kPadding, pad);
    QXMD5Update(ctx, bits, 8);
    for (int i = 0; i < 4; ++i) store_le32(digest + 4 * i, ctx->state[i]);
    // Nothing of the message may stay behind in the caller's record.
    std::memset(ctx, 0, sizeof *ctx);
    __asm__ __volatile__("" : : "r"(ctx) : "memory");  // keep the clearing
}

UDFKIT_API unsigned char *QXMD5(const unsigned char *input, uint32_t len,
                                unsigned char *digest) {
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    QXMD5Update(&ctx, input, len);
    QXMD5Final(digest, &ctx);
    return digest;
}

}  // extern "C"
