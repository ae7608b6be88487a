// MD5 digest: the RFC 1321 test suite, padding boundaries, incremental
// feeding, the 64-bit bit count and the clearing of the context.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "udfkit/md5.h"

namespace {

std::string hex(const unsigned char d[16]) {
    char out[33];
    for (int i = 0; i < 16; ++i) std::snprintf(out + 2 * i, 3, "%02x", d[i]);
    return out;
}

std::string one_shot(const std::string &s) {
    unsigned char d[16];
    unsigned char *r = QXMD5(reinterpret_cast<const unsigned char *>(s.data()),
                             static_cast<uint32_t>(s.size()), d);
    EXPECT_EQ(r, d);
    return hex(d);
}

// Feeds s in pieces of the given sizes, cycling through them.
std::string in_pieces(const std::string &s, const std::vector<uint32_t> &sizes) {
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    size_t at = 0, k = 0;
    while (at < s.size()) {
        uint32_t n = sizes[k++ % sizes.size()];
        if (n > s.size() - at) n = static_cast<uint32_t>(s.size() - at);
        QXMD5Update(&ctx, reinterpret_cast<const unsigned char *>(s.data() + at), n);
        at += n;
    }
    unsigned char d[16];
    QXMD5Final(d, &ctx);
    return hex(d);
}

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + 3) & 0xff);
    return s;
}

TEST(Md5, Rfc1321Suite) {
    const struct {
        const char *input, *digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(one_shot(c.input), c.digest) << '"' << c.input << '"';
        EXPECT_EQ(in_pieces(c.input, {1}), c.digest) << '"' << c.input << "\" byte by byte";
    }
}

// Lengths around the one-block and two-block padding cases; digests from
// an independent implementation.
TEST(Md5, PaddingBoundaries) {
    const struct {
        size_t n;
        const char *digest;
    } cases[] = {
        {55, "52c0e574e1198de5fe3f8f11440dcb1b"},  {56, "46c9907fc908ee68b1e7b8e71286a518"},
        {57, "1c805dd236c35cab25fcb1bc73802c51"},  {63, "a62f6d59e837867693f042f5b8f5a236"},
        {64, "7160b8fb5e9e4023d549c3971fbaeead"},  {65, "70bd662e7aefbda85a0f7244167b7897"},
        {119, "e84905d4214f4d1ca56c2cdcc152b143"}, {120, "e3eb5a6c8669ea01a8c185b8abc8a5dc"},
        {127, "acce2474d6cc8302120d09c818d17ef7"}, {128, "10b2da1a82f16d99a81a7203fe9f02cb"},
        {1u << 20, "d8a469bb35fb5fad7156842ba2242434"},
    };
    for (const auto &c : cases) EXPECT_EQ(one_shot(pattern(c.n)), c.digest) << c.n << " bytes";
}

TEST(Md5, PiecesOfAnySizeGiveTheSameDigest) {
    const std::string s = pattern(1000);
    const std::string whole = one_shot(s);
    const std::vector<std::vector<uint32_t>> splits = {
        {1}, {3}, {63}, {64}, {65}, {0, 7, 0, 129}, {55, 9}, {200, 1, 64},
    };
    for (const auto &sp : splits) EXPECT_EQ(in_pieces(s, sp), whole) << "first piece " << sp[0];
}

TEST(Md5, BitCountCarriesIntoHighWord) {
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    ctx.count[0] = 0xfffffff8u;  // one byte short of 2^32 bits
    const unsigned char b[2] = {'x', 'y'};
    QXMD5Update(&ctx, b, 2);
    EXPECT_EQ(ctx.count[0], 8u);
    EXPECT_EQ(ctx.count[1], 1u);
}

TEST(Md5, FinalZeroesTheContext) {
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    const std::string s = pattern(100);
    QXMD5Update(&ctx, reinterpret_cast<const unsigned char *>(s.data()), 100);
    unsigned char d[16];
    QXMD5Final(d, &ctx);
    const unsigned char *p = reinterpret_cast<const unsigned char *>(&ctx);
    for (size_t i = 0; i < sizeof ctx; ++i) ASSERT_EQ(p[i], 0) << "byte " << i;
}

TEST(Md5, ContextLayout) {
    EXPECT_EQ(sizeof(QXMD5_CTX), 88u);
    EXPECT_EQ(offsetof(QXMD5_CTX, count), 16u);
    EXPECT_EQ(offsetof(QXMD5_CTX, buffer), 24u);
}

}  // namespace
