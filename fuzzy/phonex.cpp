// The Phonex phonetic key, the vowel classes it reads, the phonetic
// function in force and the SQL function that switches it.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "fuzzy/fuzzy_internal.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {

// The vowel classes of TabVoyelle.
struct VowelTable {
    unsigned char t[256] = {};
    constexpr VowelTable() {
        for (unsigned char c : {'A', 'E', 'I', 'O', 'U'}) t[c] = 1;
        for (unsigned char c : {'1', '2', '3', '4'}) t[c] = 2;
    }
};

// Longest word the rewrite takes: the work buffer holds a NUL before the
// word, the word and its terminator in 272 bytes.
constexpr size_t kMaxIn = 270;

// Work buffer: the word and its terminator.  Every rule that looks ahead
// does so only past letters it has matched, so no pass reads beyond the
// terminator; the character before position 0 is never read.
struct Work {
    char b[kMaxIn + 2];
};

inline bool vowel(char c) { return TabVoyelle[static_cast<unsigned char>(c)] == 1; }
inline bool vowel_like(char c) { return TabVoyelle[static_cast<unsigned char>(c)] != 0; }

// Each pass reads in (terminated) and writes out; it returns the length
// written.  Conditions on neighbours look at in only.  Reading in[i + k]
// for k up to 3 is safe: a match stops at the terminator, and the buffers
// have slack behind it.

size_t pass1(const char *in, char *out) {  // Y, H, PH
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i];
        if (c == 'Y') { out[o++] = 'I'; ++i; }
        else if (c == 'H') {
            char p = i ? in[i - 1] : '\0';
            if (p == 'C' || p == 'P' || p == 'S') out[o++] = 'H';
            ++i;
        } else if (c == 'P' && in[i + 1] == 'H') { out[o++] = 'F'; i += 2; }
        else { out[o++] = c; ++i; }
    }
    return o;
}

size_t pass2(const char *in, char *out) {  // GAN GAM GAIN GAIM -> K...
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        if (in[i] == 'G' && in[i + 1] == 'A') {
            char c2 = in[i + 2];
            if (c2 == 'N' || c2 == 'M') {
                out[o++] = 'K'; out[o++] = 'A'; out[o++] = c2; i += 3;
                continue;
            }
            if (c2 == 'I' && (in[i + 3] == 'N' || in[i + 3] == 'M')) {
                out[o++] = 'K'; out[o++] = 'A'; out[o++] = 'I'; out[o++] = in[i + 3]; i += 4;
                continue;
            }
        }
        out[o++] = in[i++];
    }
    return o;
}

// AIN AIM EIN EIM followed by a vowel -> YN.
size_t pass3(const char *in, char *out) {
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i];
        if ((c == 'A' || c == 'E') && in[i + 1] == 'I' && (in[i + 2] == 'N' || in[i + 2] == 'M') &&
            vowel(in[i + 3])) {
            out[o++] = 'Y'; out[o++] = 'N'; i += 3;
        } else {
            out[o++] = c; ++i;
        }
    }
    return o;
}

size_t pass4(const char *in, char *out) {  // EAU, EIN/EIM, OUA, AIN/AIM
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i], c1 = in[i + 1];
        if (c == 'E') {
            if (c1 == 'A' && in[i + 2] == 'U') { out[o++] = 'O'; i += 3; continue; }
            if (c1 == 'I' && (in[i + 2] == 'N' || in[i + 2] == 'M')) { out[o++] = '4'; i += 3; continue; }
        } else if (c == 'O') {
            if (c1 == 'U' && in[i + 2] == 'A') { out[o++] = '2'; i += 3; continue; }
        } else if (c == 'A') {
            if (c1 == 'I' && (in[i + 2] == 'N' || in[i + 2] == 'M')) { out[o++] = '4'; i += 3; continue; }
        }
        out[o++] = c; ++i;
    }
    return o;
}

size_t pass5(const char *in, char *out) {  // AI, EI, ER, ESS, ET
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i], c1 = in[i + 1];
        if (c == 'A' && c1 == 'I') { out[o++] = 'Y'; i += 2; continue; }
        if (c == 'E') {
            if (c1 == 'I') { out[o++] = 'Y'; i += 2; continue; }
            if (c1 == 'R') { out[o++] = 'Y'; out[o++] = 'R'; i += 2; continue; }
            if (c1 == 'S' && in[i + 2] == 'S') { out[o++] = 'Y'; out[o++] = 'S'; out[o++] = 'S'; i += 3; continue; }
            if (c1 == 'T') { out[o++] = 'Y'; out[o++] = 'T'; i += 2; continue; }
        }
        out[o++] = c; ++i;
    }
    return o;
}

// AN AM EN EM -> 1 and IN -> 4 when no vowel-like character follows;
// ON -> 6 always.
size_t pass6(const char *in, char *out) {
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i], c1 = in[i + 1];
        if ((c == 'A' || c == 'E') && (c1 == 'N' || c1 == 'M') && !vowel_like(in[i + 2])) {
            out[o++] = '1'; i += 2; continue;
        }
        if (c == 'I' && c1 == 'N' && !vowel_like(in[i + 2])) { out[o++] = '4'; i += 2; continue; }
        if (c == 'O' && c1 == 'N') { out[o++] = '6'; i += 2; continue; }
        out[o++] = c; ++i;
    }
    return o;
}

size_t pass7(const char *in, char *out) {  // S between vowel-likes -> Z
    size_t o = 0;
    for (size_t i = 0; in[i]; ++i) {
        char c = in[i];
        if (c == 'S' && i > 0 && vowel_like(in[i - 1]) && vowel_like(in[i + 1])) c = 'Z';
        out[o++] = c;
    }
    return o;
}

size_t pass8(const char *in, char *out) {  // OE, OI/OY, OU, EU, AU
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i], c1 = in[i + 1];
        if (c == 'O') {
            if (c1 == 'E') { out[o++] = 'E'; i += 2; continue; }
            if (c1 == 'I' || c1 == 'Y') { out[o++] = '2'; i += 2; continue; }
            if (c1 == 'U') { out[o++] = '3'; i += 2; continue; }
        } else if (c == 'E' && c1 == 'U') { out[o++] = 'E'; i += 2; continue; }
        else if (c == 'A' && c1 == 'U') { out[o++] = 'O'; i += 2; continue; }
        out[o++] = c; ++i;
    }
    return o;
}

size_t pass9(const char *in, char *out) {  // CH, SCH, SC, SH, SS
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i], c1 = in[i + 1];
        if (c == 'C' && c1 == 'H') { out[o++] = '5'; i += 2; continue; }
        if (c == 'S') {
            if (c1 == 'C') {
                if (in[i + 2] == 'H') { out[o++] = '5'; i += 3; }
                else { out[o++] = 'S'; i += 2; }
                continue;
            }
            if (c1 == 'H') { out[o++] = '5'; i += 2; continue; }
            if (c1 == 'S') { out[o++] = 'S'; i += 2; continue; }
        }
        out[o++] = c; ++i;
    }
    return o;
}

size_t pass10(const char *in, char *out) {  // C before E or I -> S
    size_t o = 0;
    for (size_t i = 0; in[i]; ++i) {
        char c = in[i];
        if (c == 'C' && (in[i + 1] == 'E' || in[i + 1] == 'I')) c = 'S';
        out[o++] = c;
    }
    return o;
}

size_t pass11(const char *in, char *out) {  // QU, Q, GU, GA, GO, GY, C
    size_t o = 0;
    for (size_t i = 0; in[i];) {
        char c = in[i], c1 = in[i + 1];
        if (c == 'Q') {
            out[o++] = 'K';
            i += c1 == 'U' ? 2 : 1;
            continue;
        }
        if (c == 'G') {
            if (c1 == 'U') { out[o++] = 'K'; i += 2; continue; }
            if (c1 == 'A' || c1 == 'O' || c1 == 'Y') { out[o++] = 'K'; out[o++] = c1; i += 2; continue; }
        }
        if (c == 'C') { out[o++] = 'K'; ++i; continue; }
        out[o++] = c; ++i;
    }
    return o;
}

using Pass = size_t (*)(const char *, char *);

// A pass can change a word only if the word holds all the letters of one
// of its rules; others copy it unchanged and are skipped.  Letters are the
// bits of a mask (A = bit 0); a pass that runs may bring in the letters it
// writes, so those join the mask (which only ever grows: it is a superset
// of the letters present, never missing one).
constexpr uint32_t L(const char *letters) {
    uint32_t m = 0;
    for (const char *p = letters; *p; ++p) m |= uint32_t{1} << (*p - 'A');
    return m;
}

struct PassRule {
    Pass run;
    uint32_t needs[6];  // the pass may apply if any of these is present whole
    uint32_t writes;    // letters the pass may write
};

constexpr PassRule kPasses[] = {
    {pass1, {L("Y"), L("H")}, L("IF")},
    {pass2, {L("GAN"), L("GAM")}, L("K")},
    {pass3, {L("AIN"), L("AIM"), L("EIN"), L("EIM")}, L("YN")},
    {pass4, {L("EAU"), L("EIN"), L("EIM"), L("OUA"), L("AIN"), L("AIM")}, L("O")},
    {pass5, {L("AI"), L("EI"), L("ER"), L("ES"), L("ET")}, L("Y")},
    {pass6, {L("AN"), L("AM"), L("EN"), L("EM"), L("IN"), L("ON")}, 0},
    {pass7, {L("S")}, L("Z")},
    {pass8, {L("OE"), L("OI"), L("OY"), L("OU"), L("EU"), L("AU")}, L("EO")},
    {pass9, {L("CH"), L("S")}, L("S")},
    {pass10, {L("CE"), L("CI")}, L("S")},
    {pass11, {L("Q"), L("GU"), L("GA"), L("GO"), L("GY"), L("C")}, L("K")},
};

inline bool may_apply(const PassRule &p, uint32_t present) {
    for (uint32_t need : p.needs)
        if (need && (present & need) == need) return true;
    return false;
}

inline uint32_t letter_bit(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? uint32_t{1} << (c - 'A') : 0;
}

// Copies the n bytes of word (n <= kMaxIn) into a, terminated, and runs
// the passes that may apply; returns the buffer holding the result (a or
// b) and sets *n to its length.
char *run_passes(const char *word, size_t *n, Work &a, Work &b) {
    uint32_t present = 0;
    for (size_t i = 0; i < *n; ++i) {
        a.b[i] = word[i];
        present |= letter_bit(static_cast<unsigned char>(word[i]));
    }
    a.b[*n] = '\0';
    char *in = a.b, *to = b.b;
    for (const PassRule &p : kPasses) {
        if (!may_apply(p, present)) continue;
        *n = p.run(in, to);
        to[*n] = '\0';
        std::swap(in, to);
        present |= p.writes;
    }
    return in;
}

// Where the letters the rules read stand in a line of fewer than 64
// bytes (s, terminated): bit i of a letter's mask for byte i.
struct Where {
    uint64_t A, C, E, G, H, I, M, N, O, P, Q, R, S, T, U, Y;
    const char *s;
    size_t n;

    // The vowel-like bytes, the terminator included.
    uint64_t vowels() const {
        uint64_t v = 0;
        for (size_t i = 0; i <= n; ++i)
            v |= static_cast<uint64_t>(TabVoyelle[static_cast<unsigned char>(s[i])] != 0) << i;
        return v;
    }
};

#if defined(__SSE2__)
// The line is read 16 bytes at a time; the Work buffer holds 64 at least,
// and bits from n on are cleared.
Where locate(const char *s, size_t n) {
    const size_t chunks = n / 16 + 1;
    __m128i v[4];
    for (size_t k = 0; k < chunks; ++k) v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 16 * k));
    const uint64_t valid = (uint64_t{1} << n) - 1;
    auto at = [&](char c) {
        const __m128i cv = _mm_set1_epi8(c);
        uint64_t m = 0;
        for (size_t k = 0; k < chunks; ++k)
            m |= static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v[k], cv))))
                 << (16 * k);
        return m & valid;
    };
#else
Where locate(const char *s, size_t n) {
    auto at = [s, n](char c) {
        uint64_t m = 0;
        for (size_t i = 0; i < n; ++i) m |= static_cast<uint64_t>(s[i] == c) << i;
        return m;
    };
#endif
    return {at('A'), at('C'), at('E'), at('G'), at('H'), at('I'), at('M'), at('N'), at('O'),
            at('P'), at('Q'), at('R'), at('S'), at('T'), at('U'), at('Y'), s, n};
}

// For each pass, the places where one of its rules may fire (ignoring
// the vowel conditions, so a superset): when there is none, the pass
// would copy the line unchanged.  X >> k at bit i tests byte i + k,
// X << 1 tests byte i - 1.
using Detect = uint64_t (*)(const Where &);
constexpr Detect kDetect[] = {
    [](const Where &w) { return w.Y | (w.H & ~((w.C | w.P | w.S) << 1)) | (w.P & w.H >> 1); },
    [](const Where &w) { return w.G & w.A >> 1 & (w.N | w.M | w.I) >> 2; },
    [](const Where &w) { return (w.A | w.E) & w.I >> 1 & (w.N | w.M) >> 2; },
    [](const Where &w) {
        return (w.E & w.A >> 1 & w.U >> 2) | ((w.E | w.A) & w.I >> 1 & (w.N | w.M) >> 2) |
               (w.O & w.U >> 1 & w.A >> 2);
    },
    [](const Where &w) { return (w.A & w.I >> 1) | (w.E & (w.I | w.R | w.S | w.T) >> 1); },
    [](const Where &w) { return ((w.A | w.E) & (w.N | w.M) >> 1) | ((w.I | w.O) & w.N >> 1); },
    [](const Where &w) {
        if (!w.S) return uint64_t{0};
        const uint64_t v = w.vowels();
        return w.S & v << 1 & v >> 1;
    },
    [](const Where &w) { return (w.O & (w.E | w.I | w.Y | w.U) >> 1) | ((w.E | w.A) & w.U >> 1); },
    [](const Where &w) { return (w.C & w.H >> 1) | (w.S & (w.C | w.H | w.S) >> 1); },
    [](const Where &w) { return w.C & (w.E | w.I) >> 1; },
    [](const Where &w) { return w.Q | w.C | (w.G & (w.U | w.A | w.O | w.Y) >> 1); },
};
static_assert(std::size(kDetect) == std::size(kPasses));

// run_passes for a terminated line of n < 64 bytes already in a: only the
// passes that find a place to act run.
char *run_located(size_t *n, Work &a, Work &b) {
    char *in = a.b, *to = b.b;
    Where w = locate(in, *n);
    for (size_t p = 0; p < std::size(kPasses); ++p) {
        if (!kDetect[p](w)) continue;
        *n = kPasses[p].run(in, to);
        to[*n] = '\0';
        std::swap(in, to);
        w = locate(in, *n);
    }
    return in;
}

inline bool silent_end(char c) { return c == 'T' || c == 'X'; }

}  // namespace

namespace udfkit::fuzzy {

// No rule reads or writes across a blank (the blank is no letter and no
// vowel), so the passes run once over the whole line; only the silent
// ending is dropped word by word.
size_t phonex_words(const char *words, size_t n, char *out) noexcept {
    Work a, b;
    const char *in;
    if (n < 64) {
        std::memcpy(a.b, words, n);
        a.b[n] = '\0';
        in = run_located(&n, a, b);
    } else {
        n = std::min(n, kMaxIn);
        in = run_passes(words, &n, a, b);
    }
    size_t o = 0;
    for (size_t i = 0; i < n; ++i) {
        if (in[i] == ' ' && o > 0 && silent_end(out[o - 1])) --o;
        out[o++] = in[i];
    }
    if (o > 0 && silent_end(out[o - 1])) --o;
    return o;
}

}  // namespace udfkit::fuzzy

extern "C" {

UDFKIT_API unsigned char TabVoyelle[256] = {};
UDFKIT_API PhonetiseurFn Phonetiseur = Phonex;

UDFKIT_API char *Phonex(const char *word, char *out) {
    if (!out) return out;
    if (!word) {
        out[0] = '\0';
        return out;
    }
    Work a, b;
    // Words longer than the work buffer are cut: they can never match
    // anything, the distance gives up beyond 255 bytes.
    size_t n = strnlen(word, kMaxIn);
    const char *in = run_passes(word, &n, a, b);
    if (n > 0 && silent_end(in[n - 1])) --n;
    std::memcpy(out, in, n);
    out[n] = '\0';
    return out;
}

UDFKIT_API char *PhonexNone(const char *word, char *out) {
    if (!out) return out;
    size_t n = word ? strnlen(word, udfkit::fuzzy::kStdSize - 1) : 0;
    if (n) std::memcpy(out, word, n);
    out[n] = '\0';
    return out;
}

UDFKIT_API void fuzzysetphonex(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 0)) return;
    int32_t flag = 0;
    t->PopInt(&flag);
    Phonetiseur = flag ? Phonex : PhonexNone;
}

}  // extern "C"

namespace {
// TabVoyelle is filled when the library loads, so that every key, even one
// computed before any search (by a host calling Phonex directly), sees the
// vowels.
const bool kVowelsAtLoad = [] {
    static constexpr VowelTable kTable;
    std::memcpy(TabVoyelle, kTable.t, sizeof TabVoyelle);
    return true;
}();
}  // namespace
