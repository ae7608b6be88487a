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

// A pass reads in (terminated) and writes out, one step at a time: at
// in[i], a rule that matches writes its replacement and moves past what it
// matched; otherwise the byte is copied.  Conditions on neighbours look at
// in only.  Reading in[i + k] for k up to 3 is safe: a match stops at the
// terminator, and the buffers have slack behind it.
struct Cursor {
    const char *in;
    char *out;
    size_t i = 0, o = 0;

    void put(char c) { out[o++] = c; }
    void copy() { out[o++] = in[i++]; }
};

inline __attribute__((always_inline)) void step1(Cursor &k) {  // Y, H, PH
    const char *in = k.in;
    const char c = in[k.i];
    if (c == 'Y') { k.put('I'); ++k.i; }
    else if (c == 'H') {
        const char p = k.i ? in[k.i - 1] : '\0';
        if (p == 'C' || p == 'P' || p == 'S') k.put('H');
        ++k.i;
    } else if (c == 'P' && in[k.i + 1] == 'H') { k.put('F'); k.i += 2; }
    else k.copy();
}

inline __attribute__((always_inline)) void step2(Cursor &k) {  // GAN GAM GAIN GAIM -> K...
    const char *in = k.in + k.i;
    if (in[0] == 'G' && in[1] == 'A') {
        const char c2 = in[2];
        if (c2 == 'N' || c2 == 'M') {
            k.put('K'); k.put('A'); k.put(c2); k.i += 3;
            return;
        }
        if (c2 == 'I' && (in[3] == 'N' || in[3] == 'M')) {
            k.put('K'); k.put('A'); k.put('I'); k.put(in[3]); k.i += 4;
            return;
        }
    }
    k.copy();
}

// AIN AIM EIN EIM followed by a vowel -> YN.
inline __attribute__((always_inline)) void step3(Cursor &k) {
    const char *in = k.in + k.i;
    if ((in[0] == 'A' || in[0] == 'E') && in[1] == 'I' && (in[2] == 'N' || in[2] == 'M') && vowel(in[3])) {
        k.put('Y'); k.put('N'); k.i += 3;
    } else {
        k.copy();
    }
}

inline __attribute__((always_inline)) void step4(Cursor &k) {  // EAU, EIN/EIM, OUA, AIN/AIM
    const char *in = k.in + k.i;
    const char c = in[0], c1 = in[1];
    if (c == 'E') {
        if (c1 == 'A' && in[2] == 'U') { k.put('O'); k.i += 3; return; }
        if (c1 == 'I' && (in[2] == 'N' || in[2] == 'M')) { k.put('4'); k.i += 3; return; }
    } else if (c == 'O') {
        if (c1 == 'U' && in[2] == 'A') { k.put('2'); k.i += 3; return; }
    } else if (c == 'A') {
        if (c1 == 'I' && (in[2] == 'N' || in[2] == 'M')) { k.put('4'); k.i += 3; return; }
    }
    k.copy();
}

inline __attribute__((always_inline)) void step5(Cursor &k) {  // AI, EI, ER, ESS, ET
    const char *in = k.in + k.i;
    const char c = in[0], c1 = in[1];
    if (c == 'A' && c1 == 'I') { k.put('Y'); k.i += 2; return; }
    if (c == 'E') {
        if (c1 == 'I') { k.put('Y'); k.i += 2; return; }
        if (c1 == 'R') { k.put('Y'); k.put('R'); k.i += 2; return; }
        if (c1 == 'S' && in[2] == 'S') { k.put('Y'); k.put('S'); k.put('S'); k.i += 3; return; }
        if (c1 == 'T') { k.put('Y'); k.put('T'); k.i += 2; return; }
    }
    k.copy();
}

// AN AM EN EM -> 1 and IN -> 4 when no vowel-like character follows;
// ON -> 6 always.
inline __attribute__((always_inline)) void step6(Cursor &k) {
    const char *in = k.in + k.i;
    const char c = in[0], c1 = in[1];
    if ((c == 'A' || c == 'E') && (c1 == 'N' || c1 == 'M') && !vowel_like(in[2])) {
        k.put('1'); k.i += 2; return;
    }
    if (c == 'I' && c1 == 'N' && !vowel_like(in[2])) { k.put('4'); k.i += 2; return; }
    if (c == 'O' && c1 == 'N') { k.put('6'); k.i += 2; return; }
    k.copy();
}

inline __attribute__((always_inline)) void step7(Cursor &k) {  // S between vowel-likes -> Z
    const char *in = k.in;
    const size_t i = k.i;
    if (in[i] == 'S' && i > 0 && vowel_like(in[i - 1]) && vowel_like(in[i + 1])) {
        k.put('Z'); ++k.i;
    } else {
        k.copy();
    }
}

inline __attribute__((always_inline)) void step8(Cursor &k) {  // OE, OI/OY, OU, EU, AU
    const char *in = k.in + k.i;
    const char c = in[0], c1 = in[1];
    if (c == 'O') {
        if (c1 == 'E') { k.put('E'); k.i += 2; return; }
        if (c1 == 'I' || c1 == 'Y') { k.put('2'); k.i += 2; return; }
        if (c1 == 'U') { k.put('3'); k.i += 2; return; }
    } else if (c == 'E' && c1 == 'U') { k.put('E'); k.i += 2; return; }
    else if (c == 'A' && c1 == 'U') { k.put('O'); k.i += 2; return; }
    k.copy();
}

inline __attribute__((always_inline)) void step9(Cursor &k) {  // CH, SCH, SC, SH, SS
    const char *in = k.in + k.i;
    const char c = in[0], c1 = in[1];
    if (c == 'C' && c1 == 'H') { k.put('5'); k.i += 2; return; }
    if (c == 'S') {
        if (c1 == 'C') {
            if (in[2] == 'H') { k.put('5'); k.i += 3; }
            else { k.put('S'); k.i += 2; }
            return;
        }
        if (c1 == 'H') { k.put('5'); k.i += 2; return; }
        if (c1 == 'S') { k.put('S'); k.i += 2; return; }
    }
    k.copy();
}

inline __attribute__((always_inline)) void step10(Cursor &k) {  // C before E or I -> S
    const char *in = k.in + k.i;
    if (in[0] == 'C' && (in[1] == 'E' || in[1] == 'I')) {
        k.put('S'); ++k.i;
    } else {
        k.copy();
    }
}

inline __attribute__((always_inline)) void step11(Cursor &k) {  // QU, Q, GU, GA, GO, GY, C
    const char *in = k.in + k.i;
    const char c = in[0], c1 = in[1];
    if (c == 'Q') {
        k.put('K');
        k.i += c1 == 'U' ? 2 : 1;
        return;
    }
    if (c == 'G') {
        if (c1 == 'U') { k.put('K'); k.i += 2; return; }
        if (c1 == 'A' || c1 == 'O' || c1 == 'Y') { k.put('K'); k.put(c1); k.i += 2; return; }
    }
    if (c == 'C') { k.put('K'); ++k.i; return; }
    k.copy();
}

using Step = void (*)(Cursor &);

// A pass over the whole of in; returns the length written.
template <Step S>
size_t pass(const char *in, char *out) {
    Cursor k{in, out};
    while (in[k.i]) S(k);
    return k.o;
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
    Step step;
    uint32_t needs[6];  // the pass may apply if any of these is present whole
    uint32_t writes;    // letters the pass may write
};

constexpr PassRule kPasses[] = {
    {pass<step1>, step1, {L("Y"), L("H")}, L("IF")},
    {pass<step2>, step2, {L("GAN"), L("GAM")}, L("K")},
    {pass<step3>, step3, {L("AIN"), L("AIM"), L("EIN"), L("EIM")}, L("YN")},
    {pass<step4>, step4, {L("EAU"), L("EIN"), L("EIM"), L("OUA"), L("AIN"), L("AIM")}, L("O")},
    {pass<step5>, step5, {L("AI"), L("EI"), L("ER"), L("ES"), L("ET")}, L("Y")},
    {pass<step6>, step6, {L("AN"), L("AM"), L("EN"), L("EM"), L("IN"), L("ON")}, 0},
    {pass<step7>, step7, {L("S")}, L("Z")},
    {pass<step8>, step8, {L("OE"), L("OI"), L("OY"), L("OU"), L("EU"), L("AU")}, L("EO")},
    {pass<step9>, step9, {L("CH"), L("S")}, L("S")},
    {pass<step10>, step10, {L("CE"), L("CI")}, L("S")},
    {pass<step11>, step11, {L("Q"), L("GU"), L("GA"), L("GO"), L("GY"), L("C")}, L("K")},
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
// The line in Chunks registers of 16 bytes (the Work buffer holds 64 and
// more); bits from n on are cleared.
template <int Chunks>
struct Bytes {
    __m128i v[Chunks];
    uint64_t valid;
    Bytes(const char *s, size_t n) : valid((uint64_t{1} << n) - 1) {
        for (int k = 0; k < Chunks; ++k) v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 16 * k));
    }
    uint64_t at(char c) const {
        const __m128i cv = _mm_set1_epi8(c);
        uint64_t m = 0;
#pragma GCC unroll 4
        for (int k = 0; k < Chunks; ++k)
            m |= static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v[k], cv))))
                 << (16 * k);
        return m & valid;
    }
};
#else
template <int Chunks>
struct Bytes {
    const char *s;
    size_t n;
    uint64_t at(char c) const {
        uint64_t m = 0;
        for (size_t i = 0; i < n; ++i) m |= static_cast<uint64_t>(s[i] == c) << i;
        return m;
    }
};
#endif

template <int Chunks>
Where locate_in(const char *s, size_t n) {
    const Bytes<Chunks> b{s, n};
    return {b.at('A'), b.at('C'), b.at('E'), b.at('G'), b.at('H'), b.at('I'), b.at('M'), b.at('N'), b.at('O'),
            b.at('P'), b.at('Q'), b.at('R'), b.at('S'), b.at('T'), b.at('U'), b.at('Y'), s, n};
}

Where locate(const char *s, size_t n) {
    return n < 16 ? locate_in<1>(s, n) : n < 32 ? locate_in<2>(s, n) : locate_in<4>(s, n);
}

// Copies n bytes, 16 at a time when the buffers have the slack.
inline void copy_run(char *to, const char *from, size_t n) {
#if defined(__SSE2__)
    for (size_t k = 0; k < n; k += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to + k),
                         _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + k)));
#else
    std::memcpy(to, from, n);
#endif
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

// One pass over a line of n < 64 bytes (in Work buffers), stepping only
// at the places it may act (bits of at) and copying the runs between
// them: up to the first place every byte is copied, as the whole pass
// would, and a place the step before moved past is skipped, as it would.
size_t pass_at(Step step, const char *in, size_t n, uint64_t at, char *out) {
    Cursor k{in, out};
    while (at) {
        const auto p = static_cast<size_t>(__builtin_ctzll(at));
        copy_run(out + k.o, in + k.i, p - k.i);
        k.o += p - k.i;
        k.i = p;
        step(k);
        at &= ~((uint64_t{1} << k.i) - 1);  // k.i <= n < 64
    }
    copy_run(out + k.o, in + k.i, n - k.i);
    return k.o + n - k.i;
}

// Pass P onward over the line in *in (the other buffer in *to), each
// only where it may act; the passes are unrolled so that each test has a
// branch of its own.
template <size_t P>
void located_from(char *&in, char *&to, size_t &n, const Where &w) {
    if constexpr (P < std::size(kPasses)) {
        if (const uint64_t at = kDetect[P](w)) {
            n = pass_at(kPasses[P].step, in, n, at, to);
            to[n] = '\0';
            std::swap(in, to);
            located_from<P + 1>(in, to, n, locate(in, n));
        } else {
            located_from<P + 1>(in, to, n, w);
        }
    }
}

// run_passes for a terminated line of n < 64 bytes already in a: only the
// passes that find a place to act run, and only there.
char *run_located(size_t *n, Work &a, Work &b) {
    char *in = a.b, *to = b.b;
    located_from<0>(in, to, *n, locate(in, *n));
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
    if (n >= 64) {  // a line that long takes the word's way
        n = std::min(n, kMaxIn);
        const char *in = run_passes(words, &n, a, b);
        size_t o = 0;
        for (size_t i = 0; i < n && o < 64; ++i) {
            if (in[i] == ' ' && o > 0 && silent_end(out[o - 1])) --o;
            out[o++] = in[i];
        }
        if (o > 0 && silent_end(out[o - 1])) --o;
        return o;
    }
    copy_run(a.b, words, 64);
    a.b[n] = '\0';
    const char *in = run_located(&n, a, b);
    char *to = in == a.b ? b.b : a.b;
    // The silent endings: a T or X before a blank or at the end.
    uint64_t silent = 0;
    if (n > 0) {
        const Bytes<4> l{in, n};
        silent = (l.at('T') | l.at('X')) & (l.at(' ') >> 1 | uint64_t{1} << (n - 1));
    }
    size_t o = 0, i = 0;
    for (; silent; silent &= silent - 1) {
        const auto p = static_cast<size_t>(__builtin_ctzll(silent));
        copy_run(to + o, in + i, p - i);
        o += p - i;
        i = p + 1;
    }
    copy_run(to + o, in + i, n - i);
    copy_run(out, to, 64);
    return o + n - i;
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
