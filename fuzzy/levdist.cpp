// Edit distance: LevDist and LevDistCutOff.
//
// Both give the result of the two-row dynamic programme (rows over the bytes
// of s1, cells over the positions of s2).  When s2 holds at most 64 bytes,
// a whole row is computed at once as bit vectors of the differences between
// neighbouring cells (Myers' bit-parallel method in Hyyro's formulation for
// the global distance); longer strings take the two-row programme itself.
#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "fuzzy/fuzzy_internal.hpp"

namespace {

using udfkit::fuzzy::kTooLarge;
using udfkit::fuzzy::LevPattern;
constexpr int32_t kMaxLen = 255;

#if defined(__SSE2__)
// The 1 to 16 bytes of s in a register, zeros after them.  Two loads that
// may overlap cover every length without a loop and without reading past
// the string.
inline __m128i load_short(const char *s, int32_t n) {
    using u128 = unsigned __int128;
    u128 v;
    if (n >= 8) {
        uint64_t lo, hi;
        std::memcpy(&lo, s, 8);
        std::memcpy(&hi, s + n - 8, 8);
        v = static_cast<u128>(lo) | (static_cast<u128>(hi) << (8 * (n - 8)));
    } else if (n >= 4) {
        uint32_t lo, hi;
        std::memcpy(&lo, s, 4);
        std::memcpy(&hi, s + n - 4, 4);
        v = static_cast<u128>(lo | (static_cast<uint64_t>(hi) << (8 * (n - 4))));
    } else {
        const uint64_t a = static_cast<unsigned char>(s[0]);
        const uint64_t b = static_cast<unsigned char>(s[n >> 1]);
        const uint64_t c = static_cast<unsigned char>(s[n - 1]);
        v = static_cast<u128>(a | (b << (8 * (n >> 1))) | (c << (8 * (n - 1))));
    }
    return _mm_set_epi64x(static_cast<int64_t>(static_cast<uint64_t>(v >> 64)),
                          static_cast<int64_t>(static_cast<uint64_t>(v)));
}
#endif

// Bits set in x (the library is built for any x86-64, where the compiler's
// builtin becomes a library call).
inline int32_t ones(uint64_t x) {
    x = x - ((x >> 1) & 0x5555555555555555ULL);
    x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
    return static_cast<int32_t>((x * 0x0101010101010101ULL) >> 56);
}

inline uint64_t low_bits(int32_t n) {  // bits 0 .. n-1
    return n >= 64 ? ~uint64_t{0} : (uint64_t{1} << n) - 1;
}

}  // namespace

namespace udfkit::fuzzy {

void LevPattern::set(const char *s2, int32_t l2) noexcept {
    s2_ = s2;
    l2_ = l2;
    blocks_ = l2 <= 64 ? (l2 + 15) / 16 : 0;
    if (l2 <= 64) {
        std::memset(buf_, 0, static_cast<size_t>(blocks_) * 16);
        std::memcpy(buf_, s2, static_cast<size_t>(l2));
    }
}

// Bit j of match(c) is set when s2[j] == c.  c is never NUL (it comes from
// a terminated string) and the padding is NUL, so padding never matches.
uint64_t LevPattern::match(char c) const noexcept {
#if defined(__SSE2__)
    const __m128i cv = _mm_set1_epi8(c);
    if (blocks_ == 1)
        return static_cast<uint32_t>(_mm_movemask_epi8(
            _mm_cmpeq_epi8(_mm_load_si128(reinterpret_cast<const __m128i *>(buf_)), cv)));
    uint64_t m = 0;
    for (int b = 0; b < blocks_; ++b) {
        const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i *>(buf_ + 16 * b));
        m |= static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cv))))
             << (16 * b);
    }
    return m;
#else
    uint64_t m = 0;
    for (int j = 0; j < l2_; ++j)
        if (buf_[j] == c) m |= uint64_t{1} << j;
    return m;
#endif
}

// The distance of s1 (l1 >= 1 bytes) and s2 (1 <= l2 <= 64 bytes).  With
// use_cut, returns kTooLarge after the first row whose cells 1..l2 are all
// at or above cut.
template <class Match>
inline __attribute__((always_inline)) int32_t run_bits(const Match &match, const char *s1, int32_t l1,
                                                       int32_t l2, int32_t cut, bool use_cut) {
    const uint64_t last = uint64_t{1} << (l2 - 1);
    // Bit j-1 of pv (mv): cell j of the row exceeds (is below) cell j-1.
    // Row 0 is 0, 1, ..., l2.
    uint64_t pv = low_bits(l2), mv = 0;
    int32_t score = l2;  // cell l2 of the current row
    for (int32_t i = 1; i <= l1; ++i) {
        const uint64_t m = match(s1[i - 1]);
        // The complements are taken where they do not lengthen the chain
        // of operations from one row to the next: nph is ~ph, and
        // ~((ph << 1) | 1) is nph << 1.
        const uint64_t xv = m | mv;
        const uint64_t nxv = ~m & ~mv;
        const uint64_t xh = (((m & pv) + pv) ^ pv) | m;
        const uint64_t nph = (xh | pv) & ~mv;
        const uint64_t mh = pv & xh;
        score += static_cast<int32_t>((nph & last) == 0) - static_cast<int32_t>((mh & last) != 0);
        // Cell 0 of every row is one more than in the row before.
        pv = (mh << 1) | (nxv & (nph << 1));
        mv = ((~nph << 1) | 1) & xv;

        // Cut-off: every cell 1..l2 of row i at or above cut?  Cell 1 is
        // at most i and cell l2 is score, so most rows are settled at
        // once.  Otherwise only cells with |i - j| < cut can be below cut
        // (a cell is at least the difference of its prefix lengths).
        if (!use_cut || i < cut || score < cut) continue;
        const int32_t lo = std::max(1, i - cut + 1);
        const int32_t hi = std::min(l2, i + cut - 1);
        bool below = false;
        if (lo <= hi) {
            int32_t v = i + ones(pv & low_bits(lo)) - ones(mv & low_bits(lo));  // cell lo
            for (int32_t j = lo;; ++j) {
                if (v < cut) {
                    below = true;
                    break;
                }
                if (j == hi) break;
                v += static_cast<int32_t>((pv >> j) & 1) - static_cast<int32_t>((mv >> j) & 1);
            }
        }
        if (!below) return kTooLarge;
    }
    return score;
}

int32_t LevPattern::bits(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept {
#if defined(__SSE2__)
    if (blocks_ == 1) {
        const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i *>(buf_));
        auto one = [v](char c) -> uint64_t {
            return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(c))));
        };
        return run_bits(one, s1, l1, l2_, cut, use_cut);
    }
#endif
    return run_bits([this](char c) { return match(c); }, s1, l1, l2_, cut, use_cut);
}

int32_t LevPattern::distance(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept {
    if (l1 == 0) return l2_;
    if (l2_ == 0) return l1;
    if (l1 > kMaxLen || l2_ > kMaxLen) return kTooLarge;
    if (use_cut && (l1 > l2_ ? l1 - l2_ : l2_ - l1) >= cut) return kTooLarge;
    if (l2_ <= 64) return bits(s1, l1, cut, use_cut);
    return lev_two_rows(s1, l1, s2_, l2_, cut, use_cut);
}

int32_t lev_two_rows(const char *s1, int32_t l1, const char *s2, int32_t l2, int32_t cut,
                     bool use_cut) noexcept {
    int32_t rows[2][kMaxLen + 1];
    int32_t *prev = rows[0], *cur = rows[1];
    for (int32_t j = 0; j <= l2; ++j) prev[j] = j;
    for (int32_t i = 1; i <= l1; ++i) {
        const char a = s1[i - 1];
        cur[0] = prev[0] + 1;
        int32_t row_min = INT32_MAX;
        for (int32_t j = 1; j <= l2; ++j) {
            int32_t v = prev[j - 1] + (a == s2[j - 1] ? 0 : 1);
            v = std::min(v, prev[j] + 1);
            v = std::min(v, cur[j - 1] + 1);
            cur[j] = v;
            row_min = std::min(row_min, v);
        }
        if (use_cut && row_min >= cut) return kTooLarge;
        std::swap(prev, cur);
    }
    return prev[l2];
}

}  // namespace udfkit::fuzzy

extern "C" {

UDFKIT_API int32_t LevDist(const char *s1, const char *s2) {
    const size_t n1 = std::strlen(s1), n2 = std::strlen(s2);
    // Lengths past the limit only need to be known as such, except when the
    // other string is empty and the length is the answer.
    if (n1 == 0 || n2 == 0) return static_cast<int32_t>(n1 + n2);
    if (n1 > kMaxLen || n2 > kMaxLen) return kTooLarge;
    const int32_t l1 = static_cast<int32_t>(n1), l2 = static_cast<int32_t>(n2);
    // Without a cut-off the distance is symmetric: the shorter string can
    // always be the prepared one.
    LevPattern p;
    if (l2 > 64 && l1 <= 64) {
        p.set(s1, l1);
        return p.distance(s2, l2, 0, false);
    }
    p.set(s2, l2);
    return p.distance(s1, l1, 0, false);
}

UDFKIT_API int32_t LevDistCutOff(const char *s1, const char *s2, int32_t cut) {
    const size_t n1 = std::strlen(s1), n2 = std::strlen(s2);
    if (n1 == 0 || n2 == 0) return static_cast<int32_t>(n1 + n2);
    if (n1 > kMaxLen || n2 > kMaxLen) return kTooLarge;
    const int32_t l1 = static_cast<int32_t>(n1), l2 = static_cast<int32_t>(n2);
    if ((l1 > l2 ? l1 - l2 : l2 - l1) >= cut) return kTooLarge;
#if defined(__SSE2__)
    if (l2 <= 16) {  // the usual word: the second string fits one register
        const __m128i v = load_short(s2, l2);
        auto match = [v](char c) -> uint64_t {
            return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(c))));
        };
        return udfkit::fuzzy::run_bits(match, s1, l1, l2, cut, true);
    }
#endif
    LevPattern p;
    p.set(s2, l2);
    return p.distance(s1, l1, cut, true);
}

}  // extern "C"
