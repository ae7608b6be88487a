// Edit distance: LevDist and LevDistCutOff.
//
// Both give the result of the two-row dynamic programme (rows over the bytes
// of s1, cells over the positions of s2).  A whole row is computed at once
// as bit vectors of the differences between neighbouring cells (Myers'
// bit-parallel method in Hyyro's formulation for the global distance): in
// one machine word when s2 holds at most 64 bytes, otherwise in blocks of
// 64 positions that pass the difference at their last cell on to the next
// block, like the carry of an addition.  LevDistCutOff on two words of up to
// 16 bytes, with a bound the cut-off rule cannot reach, computes the plain
// distance with the shorter word driving the rows and the longer one in an
// SSE register.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
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
// The short-word path is built twice (see LevDistCutOff): its helpers are
// always inlined so that each entry is compiled whole for its target.
#define ALWAYS_INLINE inline __attribute__((always_inline))

// The 1 to 16 bytes of s in a register, read without going past the
// string's terminator and, from 3 bytes on, without a branch on the
// length.  Bytes 0..n-1 of the result are those of s; the bytes after
// them are whatever the loads left there, which is harmless: in the bit
// vectors below no bit depends on a higher one, and only bits 0..n-1 are
// read.
ALWAYS_INLINE __m128i load_short(const char *s, int32_t n) {
    uint64_t lo, hi;
    if (n >= 3) {
        // Low half: s[0..4) and the 4 bytes ending at byte 8, or at the
        // end when that comes first (the two overlap on equal bytes).
        // High half: s[n-8..n) moved down to start at byte 8; below 8
        // bytes it repeats bytes of s that then lie past byte n-1.  A
        // 3-byte string is read as its 3 bytes and the terminator.
        const int32_t d = n - 8, neg = d >> 31;  // neg: -1 below 8 bytes
        const int32_t t1 = 4 + (d & neg), t3 = n - 4;
        const int32_t o1 = t1 & ~(t1 >> 31), o2 = d & ~neg, o3 = t3 & ~(t3 >> 31);
        uint32_t w0, w1, w2, w3;
        std::memcpy(&w0, s, 4);
        std::memcpy(&w1, s + o1, 4);
        std::memcpy(&w2, s + o2, 4);
        std::memcpy(&w3, s + o3, 4);
        lo = w0 | static_cast<uint64_t>(w1) << (8 * o1);
        hi = (w2 | static_cast<uint64_t>(w3) << 32) >> ((8 * (16 - n)) & 63);
    } else {
        const uint64_t a = static_cast<unsigned char>(s[0]);
        const uint64_t c = static_cast<unsigned char>(s[n - 1]);
        lo = a | (c << (8 * (n - 1)));
        hi = 0;
    }
    return _mm_set_epi64x(static_cast<int64_t>(hi), static_cast<int64_t>(lo));
}

// All 16 bytes c: one broadcast with AVX2; otherwise a multiply and one
// shuffle, where the plain SSE2 form takes two unpacks and a shuffle.
template <bool Avx2>
ALWAYS_INLINE __m128i repeat_byte(char c) {
    if constexpr (Avx2) return _mm_set1_epi8(c);
    const uint32_t four = static_cast<unsigned char>(c) * 0x01010101u;
    return _mm_shuffle_epi32(_mm_cvtsi32_si128(static_cast<int>(four)), 0);
}

// The last row of the programme for a (la >= 1 bytes) against the lb
// bytes (1 <= lb <= 16) held in v: rows over a, bit vectors over v.  Bit
// j-1 of pv (of ~nmv) says that cell j of the row exceeds (is below) cell
// j-1; bits from lb on mean nothing.
struct LastRow {
    uint32_t pv, nmv;
};

template <bool Avx2>
ALWAYS_INLINE LastRow last_row(__m128i v, const char *a, int32_t la, int32_t lb) {
    uint32_t pv = (uint32_t{1} << lb) - 1, nmv = ~uint32_t{0};
    for (int32_t i = 0; i < la; ++i) {
        const uint32_t m = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, repeat_byte<Avx2>(a[i]))));
        // The row update of run_bits, rearranged so that the chain from
        // pv to the next pv and mv is seven operations: what does not
        // depend on the sum is formed beside it.  With xv, ph, mh the
        // vertical match and horizontal differences and X = xh << 1:
        //   pv' = (mh << 1) | (~xv & ~(ph << 1 | 1))
        //       = (X & (K | pv << 1)) | (K & pv << 1),  K = ~xv & ~mv << 1
        //   ~mv' = ~(xv & (ph << 1 | 1)) = (X & C & ~mv << 1) ^ ~C,  C = xv & ~(pv << 1)
        // the second because pv and mv never share a bit.
        const uint32_t nxv = nmv & ~m;
        const uint32_t q = nmv << 1;
        const uint32_t k = nxv & q;
        const uint32_t p2 = pv << 1;
        const uint32_t nc = nxv | p2;
        const uint32_t x = ((((m & pv) + pv) ^ pv) | m) << 1;
        pv = (x & (k | p2)) | (k & p2);
        nmv = (x & (q & ~nc)) ^ nc;
    }
    return {pv, nmv};
}

// Cell j (0 <= j <= 16) of a last row whose cell 0 is la: la + the rises
// - the falls among cells 1..j, both counted at once as the rises and the
// cells that do not fall, less j.
ALWAYS_INLINE int32_t cell(LastRow r, int32_t la, int32_t j) {
    const uint32_t low = (uint32_t{1} << j) - 1;
    uint32_t x = (r.pv & low) | ((r.nmv & low) << 16);
    x = x - ((x >> 1) & 0x55555555u);
    x = (x & 0x33333333u) + ((x >> 2) & 0x33333333u);
    x = (x + (x >> 4)) & 0x0F0F0F0Fu;
    return la - j + static_cast<int32_t>((x * 0x01010101u) >> 24);
}

// The distance of a and b, both of 1 to 16 bytes, without cut-off; the
// last cell is read from the last row rather than followed row by row.
template <bool Avx2>
ALWAYS_INLINE int32_t rows_in_register(__m128i v, const char *a, int32_t la, int32_t lb) {
    return cell(last_row<Avx2>(v, a, la, lb), la, lb);
}

// Byte k of the result is 0xFF when bit k of x (k < 16) is set.
ALWAYS_INLINE __m128i bits_to_bytes(uint32_t x) {
    const __m128i bit = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128);
    __m128i t = _mm_cvtsi32_si128(static_cast<int>(x));
    t = _mm_unpacklo_epi8(t, t);   // x0 x0 x1 x1 ...
    t = _mm_unpacklo_epi16(t, t);  // x0 x4 times, x1 4 times
    t = _mm_unpacklo_epi32(t, t);  // x0 8 times, x1 8 times
    return _mm_cmpeq_epi8(_mm_and_si128(t, bit), bit);
}

// Cells 1..16 of a last row, less its cell 0: byte k is cell k + 1 - cell
// 0 (bits from lb on make the bytes from lb on meaningless).  The changes
// (+1 where a cell rises, -1 where it falls) summed in four doubling
// steps.
ALWAYS_INLINE __m128i row_cells(LastRow r) {
    __m128i s = _mm_sub_epi8(bits_to_bytes(~r.nmv), bits_to_bytes(r.pv));
    s = _mm_add_epi8(s, _mm_slli_si128(s, 1));
    s = _mm_add_epi8(s, _mm_slli_si128(s, 2));
    s = _mm_add_epi8(s, _mm_slli_si128(s, 4));
    return _mm_add_epi8(s, _mm_slli_si128(s, 8));
}

// LevDistCutOff of a and b (1 to 16 bytes each, 1 <= cut <= la, lengths
// less than cut apart).  The least of cells 1..lb never goes down from
// one row to the next once the row number is at least cut, and before
// that cell 1 (at most the row number) is below cut; so some row is all
// at or above cut exactly when the last one is.  Only the last row is
// tested, once, without a branch.
template <bool Avx2>
ALWAYS_INLINE int32_t cut_off_in_register(const char *a, int32_t la, const char *b, int32_t lb, int32_t cut) {
    const __m128i cells = row_cells(last_row<Avx2>(load_short(b, lb), a, la, lb));
    alignas(16) int8_t byte[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(byte), cells);
    const int32_t d = la + byte[lb - 1];
    // (cut - la is in -15 .. 0: cut is at most la, which is at most 16)
    const __m128i below = _mm_cmplt_epi8(cells, _mm_set1_epi8(static_cast<char>(cut - la)));
    const uint32_t below_mask = static_cast<uint32_t>(_mm_movemask_epi8(below)) & ((uint32_t{1} << lb) - 1);
    const int32_t fires = static_cast<int32_t>(below_mask == 0);
    return d ^ ((d ^ kTooLarge) & -fires);
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

constexpr int kMaxWords = (kMaxLen + 63) / 64;

// For 4 cells whose rises and falls are the 4 low bits of p and of m
// (index p | m << 4): the change from the cell before them to the last,
// and the lowest of the 4 relative to the cell before them.
struct NibbleWalk {
    int8_t sum[256] = {}, low[256] = {};
    constexpr NibbleWalk() {
        for (int i = 0; i < 256; ++i) {
            int v = 0, lowest = 4;
            for (int k = 0; k < 4; ++k) {
                v += ((i >> k) & 1) - ((i >> (k + 4)) & 1);
                lowest = std::min(lowest, v);
            }
            sum[i] = static_cast<int8_t>(v);
            low[i] = static_cast<int8_t>(lowest);
        }
    }
};
constexpr NibbleWalk kNibbles;

// Whether some cell of a block falls below cut: the cell before the block
// holds start, bit k of p (m) says that cell k + 1 of the block rises
// (falls); bits past the block's last cell are clear.
bool block_dips_below(int32_t start, uint64_t p, uint64_t m, int32_t cut) {
    int32_t v = start;
    for (; p | m; p >>= 4, m >>= 4) {
        const unsigned i = static_cast<unsigned>((p & 15) | ((m & 15) << 4));
        if (v + kNibbles.low[i] < cut) return true;
        v += kNibbles.sum[i];
    }
    return false;
}

// The cut-off test on row i of a string in blocks: every cell 1..l2 at or
// above cut?  end[b] is the cell at the last position of block b.
bool row_at_or_above(int32_t i, int32_t cut, int32_t l2, int nwords, const uint64_t *pv,
                     const uint64_t *mv, const int32_t *end) {
    for (int b = 0; b < nwords; ++b)
        if (end[b] < cut) return false;
    // Only cells with |i - j| < cut can be below cut (a cell is at least
    // the difference of its prefix lengths), and in a block whose cells
    // cannot fall far enough from either end none is.
    const int32_t lo = std::max(1, i - cut + 1), hi = std::min(l2, i + cut - 1);
    for (int b = (lo - 1) / 64; lo <= hi && b <= (hi - 1) / 64; ++b) {
        const uint64_t valid = low_bits(std::min(64, l2 - 64 * b));
        const uint64_t p = pv[b] & valid, m = mv[b] & valid;
        const int32_t start = b > 0 ? end[b - 1] : i;
        if (start - ones(m) >= cut || end[b] - ones(p) >= cut) continue;
        if (block_dips_below(start, p, m, cut)) return false;
    }
    return true;
}

}  // namespace

namespace udfkit::fuzzy {

LevPattern::~LevPattern() { std::free(table_); }

void LevPattern::set(const char *s2, int32_t l2) noexcept {
    s2_ = s2;
    l2_ = l2;
    blocks_ = l2 <= 64 ? (l2 + 15) / 16 : 0;
    words_ = 0;
    std::free(table_);
    table_ = nullptr;
    if (l2 <= 64) {
        std::memset(buf_, 0, static_cast<size_t>(blocks_) * 16);
        std::memcpy(buf_, s2, static_cast<size_t>(l2));
    } else if (l2 <= kMaxLen) {
        set_long();
    }
}

// The match table of a string of 65 to 255 bytes: one row of match
// vectors per distinct byte, so that its size follows the string.
void LevPattern::set_long() noexcept {
    unsigned char row[256] = {};
    int rows = 1;
    for (int32_t j = 0; j < l2_; ++j) {
        unsigned char &r = row[static_cast<unsigned char>(s2_[j])];
        if (r == 0) r = static_cast<unsigned char>(rows++);
    }
    const int nw = (l2_ + 63) / 64;
    void *mem = std::calloc(1, 256 + sizeof(uint64_t) * static_cast<size_t>(rows * nw));
    if (!mem) return;  // distance() falls back to the two-row programme
    table_ = static_cast<unsigned char *>(mem);
    std::memcpy(table_, row, sizeof row);
    uint64_t *vec = reinterpret_cast<uint64_t *>(table_ + 256);
    for (int32_t j = 0; j < l2_; ++j)
        vec[row[static_cast<unsigned char>(s2_[j])] * nw + j / 64] |= uint64_t{1} << (j % 64);
    words_ = nw;
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

// The distance of s1 (l1 >= 1 bytes) and a prepared string of 65 to 255
// bytes, in blocks of 64 positions.  Block b passes to block b + 1 how its
// last cell changed from the row before (+1, 0 or -1), as cell 0 passes +1
// to block 0; end[b] follows that cell.  With use_cut, returns kTooLarge
// after the first row whose cells 1..l2 are all at or above cut.
int32_t LevPattern::words(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept {
    const int nw = words_;
    const uint64_t *vec = reinterpret_cast<const uint64_t *>(table_ + 256);
    const uint64_t top = uint64_t{1} << ((l2_ - 1) % 64);  // last cell of the last block
    uint64_t pv[kMaxWords], mv[kMaxWords];
    int32_t end[kMaxWords];
    for (int b = 0; b < nw; ++b) {  // row 0 is 0, 1, ..., l2
        pv[b] = ~uint64_t{0};
        mv[b] = 0;
        end[b] = std::min(64 * (b + 1), l2_);
    }
    for (int32_t i = 1; i <= l1; ++i) {
        const uint64_t *eq = vec + table_[static_cast<unsigned char>(s1[i - 1])] * nw;
        int32_t in = 1;  // the change of the cell before the block
        for (int b = 0; b < nw; ++b) {
            // A fall coming in lets the first cell follow it as a match
            // would; a rise or a fall enters the shifted differences.
            const uint64_t rise_in = static_cast<uint64_t>(in > 0), fall_in = static_cast<uint64_t>(in < 0);
            const uint64_t xv = eq[b] | mv[b];
            const uint64_t m = eq[b] | fall_in;
            const uint64_t xh = (((m & pv[b]) + pv[b]) ^ pv[b]) | m;
            const uint64_t ph = mv[b] | ~(xh | pv[b]);
            const uint64_t mh = pv[b] & xh;
            const uint64_t last = b == nw - 1 ? top : uint64_t{1} << 63;
            in = static_cast<int32_t>((ph & last) != 0) - static_cast<int32_t>((mh & last) != 0);
            end[b] += in;
            const uint64_t phs = (ph << 1) | rise_in, mhs = (mh << 1) | fall_in;
            pv[b] = mhs | ~(xv | phs);
            mv[b] = phs & xv;
        }
        // Cell 1 is at most i and the last cell is end[nw - 1]: most rows
        // are settled without looking further.
        if (use_cut && i >= cut && end[nw - 1] >= cut && row_at_or_above(i, cut, l2_, nw, pv, mv, end))
            return kTooLarge;
    }
    return end[nw - 1];
}

int32_t LevPattern::distance(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept {
    if (l1 == 0) return l2_;
    if (l2_ == 0) return l1;
    if (l1 > kMaxLen || l2_ > kMaxLen) return kTooLarge;
    if (use_cut && (l1 > l2_ ? l1 - l2_ : l2_ - l1) >= cut) return kTooLarge;
    if (l2_ <= 64) return bits(s1, l1, cut, use_cut);
    if (table_) return words(s1, l1, cut, use_cut);
    return lev_two_rows(s1, l1, s2_, l2_, cut, use_cut);
}

// LevDistCutOff when the rule may fire (or the strings are long): rows
// over s1, the cut-off tested after each.
static __attribute__((noinline)) int32_t with_cut_off(const char *s1, int32_t l1, const char *s2, int32_t l2,
                                                      int32_t cut) noexcept {
#if defined(__SSE2__)
    if (l2 <= 16) {  // the usual word: the second string fits one register
        const __m128i v = load_short(s2, l2);
        auto match = [v](char c) -> uint64_t {
            return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(c))));
        };
        return run_bits(match, s1, l1, l2, cut, true);
    }
#endif
    LevPattern p;
    p.set(s2, l2);
    return p.distance(s1, l1, cut, true);
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

#if defined(__SSE2__)
namespace {

// LevDistCutOff of two words of 1 to 16 bytes, lengths less than cut apart.
template <bool Avx2>
ALWAYS_INLINE int32_t short_words(const char *s1, int32_t l1, const char *s2, int32_t l2, int32_t cut) {
    // Every cell of row i is at most its cell 1, at most i, so when cut
    // is above l1 no row can be all at or above it and the result is the
    // plain distance.  That one is symmetric: the shorter string drives
    // the rows (one step each) and the longer one sits in the register,
    // picked by selects rather than a branch the lengths would make
    // unpredictable.
    if (cut > l1) {
        const uintptr_t a = reinterpret_cast<uintptr_t>(s1), b = reinterpret_cast<uintptr_t>(s2);
        const uintptr_t swap = -static_cast<uintptr_t>(l1 >= l2);  // all ones or zero
        const char *held = reinterpret_cast<const char *>(b ^ ((a ^ b) & swap));
        const char *rows = reinterpret_cast<const char *>(a ^ ((a ^ b) & swap));
        const int32_t lmask = static_cast<int32_t>(swap);
        const int32_t lh = l2 ^ ((l1 ^ l2) & lmask), lr = l1 ^ ((l1 ^ l2) & lmask);
        return rows_in_register<Avx2>(load_short(held, lh), rows, lr, lh);
    }
    return cut_off_in_register<Avx2>(s1, l1, s2, l2, cut);
}

// The same for any x86-64, and for processors with AVX2 and BMI2, where
// three-operand forms, and-not and one-instruction broadcasts shorten
// each row.  The choice is made once, from what the processor reports.
__attribute__((noinline)) int32_t short_words_base(const char *s1, int32_t l1, const char *s2, int32_t l2,
                                                   int32_t cut) {
    return short_words<false>(s1, l1, s2, l2, cut);
}

#if defined(__x86_64__)
__attribute__((noinline, target("avx2,bmi,bmi2,popcnt"))) int32_t short_words_avx2(
    const char *s1, int32_t l1, const char *s2, int32_t l2, int32_t cut) {
    return short_words<true>(s1, l1, s2, l2, cut);
}

bool has_avx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
           __builtin_cpu_supports("popcnt");
}
#endif

}  // namespace
#endif

namespace udfkit::fuzzy {
// (false until the library's initialisers have run: a call before that
// takes the build for any x86-64)
#if defined(__SSE2__) && defined(__x86_64__)
bool lev_avx2 = has_avx2();
#else
bool lev_avx2 = false;
#endif
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
    // The rows are left to functions of their own, so that the words that
    // stop here take no more than the lengths.
#if defined(__SSE2__)
    if (l1 <= 16 && l2 <= 16) {
#if defined(__x86_64__)
        if (udfkit::fuzzy::lev_avx2) return short_words_avx2(s1, l1, s2, l2, cut);
#endif
        return short_words_base(s1, l1, s2, l2, cut);
    }
#endif
    return udfkit::fuzzy::with_cut_off(s1, l1, s2, l2, cut);
}

}  // extern "C"
