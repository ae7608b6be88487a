// MD5 digest: the RFC 1321 test suite, padding boundaries, incremental
// feeding and the 64-bit bit count.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "udfkit/md5.h"

namespace {

std::string hex(const unsigned char d[16]) {
    char out[33];
    for (int i = 0; i < 16; ++i) std::snprintf(out + 2 * i, 3, "%02x", d[i]);
    return out;
}

const unsigned char *bytes(const std::string &s) {
    return reinterpret_cast<const unsigned char *>(s.data());
}

// One call, or pieces of the given sizes (cycled) when sizes is not empty.
std::string digest(const std::string &s, const std::vector<uint32_t> &sizes = {}) {
    unsigned char d[16];
    if (sizes.empty()) {
        EXPECT_EQ(QXMD5(bytes(s), uint32_t(s.size()), d), d);
        return hex(d);
    }
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    for (size_t at = 0, k = 0; at < s.size();) {
        const uint32_t n = uint32_t(std::min<size_t>(sizes[k++ % sizes.size()], s.size() - at));
        QXMD5Update(&ctx, bytes(s) + at, n);
        at += n;
    }
    QXMD5Final(d, &ctx);
    return hex(d);
}

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = char((i * 7 + 3) & 0xff);
    return s;
}

TEST(Md5, Rfc1321SuiteAndPaddingBoundaries) {
    const struct { std::string input; const char *digest; } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"}, {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        // Digests from an independent implementation.
        {pattern(55), "52c0e574e1198de5fe3f8f11440dcb1b"}, {pattern(56), "46c9907fc908ee68b1e7b8e71286a518"},
        {pattern(63), "a62f6d59e837867693f042f5b8f5a236"}, {pattern(64), "7160b8fb5e9e4023d549c3971fbaeead"},
        {pattern(1u << 20), "d8a469bb35fb5fad7156842ba2242434"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(digest(c.input), c.digest) << c.input.size() << " bytes";
        for (const auto &sp : std::vector<std::vector<uint32_t>>{{1}, {63}, {0, 7, 0, 129}, {55, 9}})
            EXPECT_EQ(digest(c.input, sp), c.digest) << c.input.size() << " bytes, piece " << sp[0];
    }
}

TEST(Md5, BitCountCarriesIntoHighWord) {
    QXMD5_CTX ctx;
    QXMD5Init(&ctx);
    ctx.count[0] = 0xfffffff8u;  // one byte short of 2^32 bits
    QXMD5Update(&ctx, bytes("xy"), 2);
    EXPECT_EQ(ctx.count[0], 8u);
    EXPECT_EQ(ctx.count[1], 1u);
}

}  // namespace
