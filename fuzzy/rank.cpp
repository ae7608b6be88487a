// fuzzyrank: how close a text (a customer's name) is to a query, in [0, 1],
// for ranking rows: `order by fuzzyrank(:q, name) desc`.
//
// Unlike fuzzysearch, the query is plain words: hyphens and apostrophes
// inside a word belong to it (Jean-Noël, O'Neil) and no character is an
// operator.  Each name is read as three lines of at most 64 bytes: its
// standard spelling (upper case, accents folded, words and the parts of
// hyphenated words separated by one blank, apostrophes dropped), the
// phonetic keys of those words, and its words as written.  The score mixes
//   - the similarity (1 - edit distance / longer length) of the spellings:
//     order, missing words and total distance count;
//   - that of the phonetic keys: respellings such as ph/f, eau/o or a final
//     t/d cost little;
//   - the share of the query's words that the text holds as they are, so
//     that of two names equally far the one sharing a word ranks higher;
//   - the similarity of the words as written (case, accents, hyphens): of
//     two names equally close otherwise, the one spelt exactly so wins, so
//     ties are rare.
// The similarities are also taken with the query's words turned round (its
// last word first, and its first word last), less kOrderCost, so that a
// name written surname first still ranks above one that lacks a word.
// The phonetic keys serve names spelt roughly alike: they count in full
// from a spelling similarity of kPhoneticFull, not at all below
// kPhoneticFrom (the spelling stands in for them there, and the keys of
// such a row are not computed), in proportion between.  Most rows of a
// search are far from the query, and a key costs more than the rest of
// the row.
// The query's prepared form is kept for the next row (a memo of the last
// query, per thread); each row is read in one pass over its bytes, without
// allocation.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "fuzzy/fuzzy_internal.hpp"
#include "fuzzy/rank.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {

using udfkit::fuzzy::StdMode;
using udfkit::fuzzy::UpperTable;

constexpr size_t kLineMax = 64;  // bytes of each line compared
constexpr size_t kMaxWords = 16;  // words of the query that can be turned round

constexpr double kOrderCost = 0.15;
constexpr double kWeightStd = 0.6, kWeightPhon = 0.3, kWeightWords = 0.05, kWeightRaw = 0.05;
constexpr double kPhoneticFrom = 0.4, kPhoneticFull = 0.6;

// ASCII letters and digits; every byte from 0x80 on is also part of a word.
struct ByteClass {
    bool alnum[256] = {}, word[256] = {};
    constexpr ByteClass() {
        for (int c = 0; c < 256; ++c) {
            alnum[c] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
            word[c] = alnum[c] || c >= 0x80;
        }
    }
};
constexpr ByteClass kBytes;

// A hyphen or apostrophe between two word bytes joins them into one word.
// (A typographic apostrophe needs no rule: its bytes are word bytes.)
bool joins(const unsigned char *s, size_t i, size_t len) {
    return (s[i] == '-' || s[i] == '\'') && i > 0 && i + 1 < len && kBytes.word[s[i - 1]] &&
           kBytes.word[s[i + 1]];
}

// A line of at most kLineMax bytes; the bytes after it are zero.
struct Line {
    char s[kLineMax] = {};
    size_t n = 0;
};

// One name read: its standard, phonetic and raw lines, and (for the query)
// where each word begins in the standard line.
struct Name {
    Line spelling, phonetic, raw;
    uint8_t starts[kMaxWords];
    size_t words = 0;
};

// How a row's bytes are folded: the character set's mode and the case
// table, both taken once per query.
struct Folding {
    StdMode mode;
    const UpperTable *upper;
};

// Writes the standard line: a blank falls due at the end of a word or
// part and is written before the next byte, when both fit.  Fits: the
// text is no longer than a line, so neither can overflow (each byte and
// blank written comes from a byte of the text).
template <bool Fits = false>
class Spelling {
public:
    Spelling(Name &n, bool starts) : n_(n), starts_(starts) {}

    bool full() const { return full_; }
    void gap() { gap_ = n_.spelling.n > 0; }
    void word() { word_ = true; }
    // A standard byte of a word: a hyphen ends a part, other bytes that
    // are not letters or digits are dropped.
    void byte(unsigned char c) {
        if (c == '-') gap();
        else if (kBytes.alnum[c]) put(static_cast<char>(c));
    }

private:
    void put(char c) {
        Line &l = n_.spelling;
        if (!Fits && l.n + gap_ >= kLineMax) {
            full_ = true;
            return;
        }
        if (gap_) l.s[l.n++] = ' ';
        gap_ = false;
        if (word_ && starts_ && n_.words < kMaxWords) n_.starts[n_.words++] = static_cast<uint8_t>(l.n);
        word_ = false;
        l.s[l.n++] = c;
    }

    Name &n_;
    bool starts_, gap_ = false, word_ = false, full_ = false;
};

// Writes the raw line: the words as written, one blank between them.
template <bool Fits = false>
class Raw {
public:
    explicit Raw(Line &l) : l_(l) {}
    void word() { gap_ = l_.n > 0; }
    void put(char c) {
        if (!Fits && l_.n + gap_ >= kLineMax) return;
        if (gap_) l_.s[l_.n++] = ' ';
        gap_ = false;
        l_.s[l_.n++] = c;
    }

private:
    Line &l_;
    bool gap_ = false;
};

// Reads a name word by word, each word's standard spelling made by
// make_std (the character sets converted through iconv).
void read_words(Name &n, const Folding &f, const unsigned char *s, size_t len, bool starts) {
    Spelling<> sp(n, starts);
    Raw<> raw(n.raw);
    for (size_t i = 0; i < len && !sp.full();) {
        if (!kBytes.word[s[i]]) {
            ++i;
            continue;
        }
        size_t j = i + 1;
        while (j < len) {
            if (kBytes.word[s[j]] || joins(s, j, len)) ++j;
            else break;
        }
        char out[udfkit::fuzzy::kStdSize];
        const size_t n_out = udfkit::fuzzy::make_std(f.mode, reinterpret_cast<const char *>(s + i),
                                                     std::min<size_t>(j - i, 200), out, sizeof out, nullptr, f.upper);
        sp.word();
        for (size_t k = 0; k < n_out; ++k) sp.byte(static_cast<unsigned char>(out[k]));
        sp.gap();
        raw.word();
        for (size_t k = i; k < j; ++k) raw.put(static_cast<char>(s[k]));
        i = j;
    }
}

// Reads the standard and raw lines of a name (and where its words begin
// in the standard line) in one pass over its bytes.  A word is a run of
// letters, digits and bytes from 0x80 on, hyphens and apostrophes between
// two of them included; its standard spelling is make_std's for UTF-8 and
// ISO-8859-1 text.
template <bool Fits>
void read_bytes(Name &n, const Folding &f, const unsigned char *s, size_t len, bool starts) {
    Spelling<Fits> sp(n, starts);
    Raw<Fits> raw(n.raw);
    bool in_word = false;
    for (size_t i = 0; i < len; ++i) {
        const unsigned char c = s[i];
        if (!kBytes.word[c]) {
            if (joins(s, i, len)) {
                raw.put(static_cast<char>(c));
                if (c == '-') sp.gap();
            } else if (in_word) {
                sp.gap();
                in_word = false;
            }
            continue;
        }
        if (!in_word) {
            if (sp.full()) break;
            in_word = true;
            sp.word();
            raw.word();
        }
        raw.put(static_cast<char>(c));
        if (c < 0x80) {
            sp.byte(f.upper->up[c]);
        } else if (f.mode == StdMode::Latin1) {
            sp.byte(udfkit::fuzzy::kLatin1Fold.letter[c]);
        } else if (c == 0xC3 && i + 1 < len && s[i + 1] >= 0x80) {
            raw.put(static_cast<char>(s[++i]));
            sp.byte(udfkit::fuzzy::kUtf8Fold.letter[s[i]]);
        }
    }
}

void read_name(Name &n, const Folding &f, const char *text, size_t len, bool starts) {
    const auto *s = reinterpret_cast<const unsigned char *>(text);
    if (f.mode == StdMode::Translit) read_words(n, f, s, len, starts);
    else if (len <= kLineMax) read_bytes<true>(n, f, s, len, starts);
    else read_bytes<false>(n, f, s, len, starts);
}

void add_keys(Name &n) {
    n.phonetic.n = udfkit::fuzzy::phonex_words(n.spelling.s, n.spelling.n, n.phonetic.s);
}

// Two machine words side by side.
using v2 = uint64_t __attribute__((vector_size(16)));

inline uint64_t low_bits(size_t n) { return n >= 64 ? ~0ull : (1ull << n) - 1; }

// Bits set in each half of x (the library is built for any x86-64, where
// the compiler's builtin becomes a library call).
inline v2 ones(v2 x) {
    x = x - ((x >> 1) & 0x5555555555555555ULL);
    x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
#if defined(__SSE2__)
    return (v2)_mm_sad_epu8((__m128i)x, _mm_setzero_si128());
#else
    return (x * 0x0101010101010101ULL) >> 56;
#endif
}

// Two strings of the same length (at most 64 bytes) prepared for edit
// distances against many lines: for each byte value, where each string
// holds it (bit i for byte i), side by side.
struct Pair {
    v2 eq[256];
    size_t len = 0;

    void set(const Line &a, const Line &b) {
        std::memset(eq, 0, sizeof eq);
        len = std::min(a.n, b.n);
        for (size_t i = 0; i < len; ++i) {
            eq[static_cast<unsigned char>(a.s[i])][0] |= 1ull << i;
            eq[static_cast<unsigned char>(b.s[i])][1] |= 1ull << i;
        }
    }
};

// The rows of the bit-parallel edit distance of a Pair's two strings
// against one line, one row per byte of the line (Hyyro's formulation,
// rearranged so that the chain from one row to the next is seven
// operations; nmv is ~mv).
struct Rows {
    v2 pv, nmv;

    Rows() = default;
    explicit Rows(size_t m) : pv(v2{low_bits(m), low_bits(m)}), nmv(v2{~0ull, ~0ull}) {}
    void step(v2 m) {
        const v2 nxv = nmv & ~m;
        const v2 q = nmv << 1;
        const v2 k = nxv & q;
        const v2 p2 = pv << 1;
        const v2 nc = nxv | p2;
        const v2 x = ((((m & pv) + pv) ^ pv) | m) << 1;
        pv = (x & (k | p2)) | (k & p2);
        nmv = (x & (q & ~nc)) ^ nc;
    }
    // After a line of n bytes: the similarity of each string to it, 0
    // when both are empty.  The last cell is cell 0 (n) plus the rises
    // less the falls.
    void similarities(size_t m, size_t n, double *out) const {
        const uint64_t low = low_bits(m);
        const v2 d = ones(pv & low) + ones(nmv & low);
        const size_t longer = std::max(m, n);
        for (int k = 0; k < 2; ++k) {
            const double dist = static_cast<double>(n) - static_cast<double>(m) + static_cast<double>(d[k]);
            out[k] = longer == 0 ? 0.0 : 1.0 - dist / static_cast<double>(longer);
        }
    }
};

// The similarities of S lines each to N pairs of strings, all rows run
// side by side so that their chains of operations overlap: first the rows
// every line has, then the rest of the longer lines.  sim[s] gets the 2N
// similarities of line s in the pairs' order.
template <size_t S, size_t N>
void similarities(const Pair *const (&p)[S][N], const Line *const (&t)[S], double (&sim)[S][2 * N]) {
    Rows rows[S][N];
    size_t common = kLineMax;
    for (size_t s = 0; s < S; ++s) {
        for (size_t k = 0; k < N; ++k) rows[s][k] = Rows(p[s][k]->len);
        common = std::min(common, t[s]->n);
    }
    for (size_t i = 0; i < common; ++i) {
#pragma GCC unroll 4
        for (size_t s = 0; s < S; ++s)
#pragma GCC unroll 4
            for (size_t k = 0; k < N; ++k) rows[s][k].step(p[s][k]->eq[static_cast<unsigned char>(t[s]->s[i])]);
    }
    for (size_t s = 0; s < S; ++s) {
        for (size_t i = common; i < t[s]->n; ++i)
            for (size_t k = 0; k < N; ++k) rows[s][k].step(p[s][k]->eq[static_cast<unsigned char>(t[s]->s[i])]);
        for (size_t k = 0; k < N; ++k) rows[s][k].similarities(p[s][k]->len, t[s]->n, sim[s] + 2 * k);
    }
}

// The line with the word beginning at `at` and the words after it put
// first (at is 0, or a word's start, after a blank).
Line turned(const Line &l, size_t at) {
    Line r;
    if (at == 0) return l;
    std::memcpy(r.s, l.s + at, l.n - at);
    r.s[l.n - at] = ' ';
    std::memcpy(r.s + l.n - at + 1, l.s, at - 1);
    r.n = l.n;
    return r;
}

// Where the words begin in a line whose words are those of the standard
// line (the phonetic line: one key per part, the same blanks): the start
// of the word that begins at `at` in the standard line.
size_t same_word(const Line &from, const Line &to, size_t at) {
    size_t blanks = 0;
    for (size_t i = 0; i < at; ++i) blanks += from.s[i] == ' ';
    for (size_t i = 0; i < to.n && blanks > 0; ++i)
        if (to.s[i] == ' ' && --blanks == 0) return i + 1;
    return 0;
}

// The query as prepared for many rows, with the bytes and character set
// it was read from.  For each of its lines, the pair (as read, last word
// first) and, for three words or more, (first word last, the same).
struct Query {
    std::string text;
    char isocode[UDFKIT_ISOCODE_SIZE];
    StdMode mode;
    UpperTable upper;
    Name name;
    bool three = false;
    Pair spelling[2], phonetic[2], raw[2];
    // The words of the standard line (hyphenated words in parts).
    uint8_t word_at[kMaxWords], word_len[kMaxWords];
    size_t words = 0, letters = 0;
};

void split_words(Query &q) {
    const Line &l = q.name.spelling;
    size_t start = 0;
    for (size_t i = 0; i <= l.n && q.words < kMaxWords; ++i) {
        if (i < l.n && l.s[i] != ' ') continue;
        q.word_at[q.words] = static_cast<uint8_t>(start);
        q.word_len[q.words++] = static_cast<uint8_t>(i - start);
        q.letters += i - start;
        start = i + 1;
    }
}

// The share of the query's letters that lie in words the text holds as
// they are (each word of either side matched once).
double shared_words(const Query &q, const Line &t) {
    bool used[kMaxWords] = {};
    size_t found = 0, start = 0;
    for (size_t i = 0; i <= t.n; ++i) {
        if (i < t.n && t.s[i] != ' ') continue;
        const size_t len = i - start;
        for (size_t k = 0; k < q.words; ++k) {
            if (used[k] || q.word_len[k] != len ||
                std::memcmp(q.name.spelling.s + q.word_at[k], t.s + start, len) != 0)
                continue;
            used[k] = true;
            found += len;
            break;
        }
        start = i + 1;
    }
    return q.letters == 0 ? 0.0 : static_cast<double>(found) / static_cast<double>(q.letters);
}

// The pairs of one line of the query; first and last are where its first
// word ends and its last word begins (0 for one word).
void prepare_line(Pair (&p)[2], const Line &l, size_t first, size_t last) {
    p[0].set(l, turned(l, last));
    const Line second = turned(l, first);
    p[1].set(second, second);
}

// The raw line's word starts: its words are separated by one blank each.
size_t raw_word(const Line &raw, size_t nth) {
    for (size_t i = 0; i < raw.n; ++i)
        if (raw.s[i] == ' ' && --nth == 0) return i + 1;
    return 0;
}

const Query &prepare(const char *query, size_t len) {
    thread_local std::unique_ptr<Query> memo;
    if (memo && memo->text.size() == len && std::memcmp(memo->text.data(), query, len) == 0 &&
        std::strcmp(memo->isocode, IsoCode) == 0)
        return *memo;
    memo.reset();
    auto q = std::make_unique<Query>();
    q->text.assign(query, len);
    std::memcpy(q->isocode, IsoCode, sizeof q->isocode);
    q->isocode[sizeof q->isocode - 1] = '\0';
    q->mode = udfkit::fuzzy::std_mode();
    Name &n = q->name;
    read_name(n, Folding{q->mode, &q->upper}, query, len, true);
    add_keys(n);
    const size_t words = n.words;
    const size_t first = words > 1 ? n.starts[1] : 0, last = words > 1 ? n.starts[words - 1] : 0;
    q->three = words > 2;
    prepare_line(q->spelling, n.spelling, first, last);
    prepare_line(q->phonetic, n.phonetic, same_word(n.spelling, n.phonetic, first),
                 same_word(n.spelling, n.phonetic, last));
    // The raw line has one word per query word that has a spelling, and
    // maybe more (words of no letter): turned at its own second and last.
    size_t raw_words = 1;
    for (size_t i = 0; i < n.raw.n; ++i) raw_words += n.raw.s[i] == ' ';
    prepare_line(q->raw, n.raw, raw_words > 1 ? raw_word(n.raw, 1) : 0,
                 raw_words > 1 ? raw_word(n.raw, raw_words - 1) : 0);
    split_words(*q);
    memo = std::move(q);
    return *memo;
}

// The best of a line's similarities: as read, or turned less the cost.
double best(const double *s, bool three) {
    double b = std::max(s[0], s[1] - kOrderCost);
    if (three) b = std::max(b, s[2] - kOrderCost);
    return b;
}

// The similarities of the text's spelling and raw lines to the query's.
void spelling_and_raw(const Query &q, const Name &t, double &spelling, double &raw) {
    if (q.three) {
        double s[2][4];
        similarities({{&q.spelling[0], &q.spelling[1]}, {&q.raw[0], &q.raw[1]}}, {&t.spelling, &t.raw}, s);
        spelling = best(s[0], true), raw = best(s[1], true);
    } else {
        double s[2][2];
        similarities({{&q.spelling[0]}, {&q.raw[0]}}, {&t.spelling, &t.raw}, s);
        spelling = best(s[0], false), raw = best(s[1], false);
    }
}

// The phonetic similarity as it counts, given the spelling's.
double phonetic(const Query &q, Name &t, double spelling) {
    if (spelling <= kPhoneticFrom) return spelling;
    add_keys(t);
    double p;
    if (q.three) {
        double s[1][4];
        similarities({{&q.phonetic[0], &q.phonetic[1]}}, {&t.phonetic}, s);
        p = best(s[0], true);
    } else {
        double s[1][2];
        similarities({{&q.phonetic[0]}}, {&t.phonetic}, s);
        p = best(s[0], false);
    }
    const double weight = std::min(1.0, (spelling - kPhoneticFrom) / (kPhoneticFull - kPhoneticFrom));
    return spelling + weight * (p - spelling);
}

}  // namespace

double udfkit::fuzzy::name_rank(const char *query, size_t qlen, const char *text, size_t tlen) {
    const Query &q = prepare(query, qlen);
    if (q.name.spelling.n == 0) return 0;
    Name t;
    read_name(t, Folding{q.mode, &q.upper}, text, tlen, false);
    if (t.spelling.n == 0) return 0;
    double spelling, raw;
    spelling_and_raw(q, t, spelling, raw);
    const double score = kWeightStd * spelling + kWeightPhon * phonetic(q, t, spelling) +
                         kWeightWords * shared_words(q, t.spelling) + kWeightRaw * raw;
    return std::clamp(score, 0.0, 1.0);
}

extern "C" {

// fuzzyrank(query, text [, charset]): a float in [0, 1]; 0 when the query
// or the text has no word.
UDFKIT_API void fuzzyrank(const HostCallTable *t, int32_t nargs, const ArgDesc *, int32_t *rtype,
                          int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    udfkit::guarded([&] {
        if (nargs >= 3) {
            udfkit::pop_into(t, IsoCode);
        } else {
            std::strcpy(IsoCode, "UTF-8");
        }
        udfkit::PoppedText text(t);
        udfkit::PoppedText query(t);
        t->PushDouble(udfkit::fuzzy::name_rank(query.c_str(), query.length(), text.c_str(), text.length()));
    });
}

}  // extern "C"
