// fuzzyrank: how close a text (a customer's name) is to a query, in [0, 1],
// for ranking rows: `order by fuzzyrank(:q, name) desc`.
//
// Unlike fuzzysearch, the query is plain words: hyphens and apostrophes
// inside a word belong to it (Jean-Noël, O'Neil) and no character is an
// operator.  The score mixes four similarities, each 1 - distance / longer
// length:
//   - the standard spellings (upper case, accents folded) of the whole
//     names, words in order: order, missing words and total distance count;
//   - the phonetic keys of the words, in order: respellings such as ph/f,
//     eau/o or a final t/d cost little;
//   - the best match of each query word among the text's words, in any
//     order;
//   - the words as written (case and accents): of two names equally close
//     otherwise, the one spelt exactly so wins, so ties are rare.
// The first two are also taken with the text's words put in the query's
// order, less kOrderCost, so a name written surname first still ranks
// above one that lacks a word.
// Bounds (a name is short; any text is accepted): the first 64 bytes of
// each whole-name string, the first 16 words of the text and 8 of the
// query, the first 32 bytes of each word.  The query's prepared form is
// kept for the next row (a memo of the last query, per thread); each row
// is read in one pass over its bytes, without allocation.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "fuzzy/fuzzy_internal.hpp"
#include "fuzzy/rank.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {

using udfkit::fuzzy::StdMode;
using udfkit::fuzzy::UpperTable;

constexpr size_t kWholeMax = 64;  // bytes of a whole-name string compared
constexpr size_t kWordMax = 32;   // bytes of a word compared
constexpr size_t kQueryWords = 8;
constexpr size_t kTextWords = 16;

constexpr double kOrderCost = 0.1;
constexpr double kWeightStd = 0.5, kWeightPhon = 0.3, kWeightBag = 0.15, kWeightRaw = 0.05;

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

// A hyphen or apostrophe (ASCII, or U+2019) joining two word bytes: its
// length in bytes, else 0.
size_t joiner(const unsigned char *s, size_t i, size_t len) {
    size_t n = 0;
    if (s[i] == '-' || s[i] == '\'') n = 1;
    else if (i + 2 < len && s[i] == 0xE2 && s[i + 1] == 0x80 && s[i + 2] == 0x99) n = 3;
    if (n == 0 || i == 0 || i + n >= len) return 0;
    return kBytes.word[s[i - 1]] && kBytes.word[s[i + n]] ? n : 0;
}

// A string of at most kWholeMax bytes.
struct Line {
    char s[kWholeMax] = {};
    size_t n = 0;
};

// One name read as words: the whole standard spelling (words separated by
// one blank, a hyphen read as a blank, an apostrophe dropped) with its
// first parts, the phonetic keys of the parts in the same layout, and the
// words as written.
struct Name {
    Line whole, phonetic, raw;
    uint8_t part_at[kTextWords], part_len[kTextWords];  // in whole
    uint8_t key_at[kTextWords], key_len[kTextWords];    // in phonetic
    size_t count = 0;
};

// How a row's bytes are folded: the character set's mode and the case
// table, both taken once per query.
struct Folding {
    StdMode mode;
    const UpperTable *upper;
};

// Builds the standard spelling of a name byte by byte: a part opens with
// its first byte (after a blank when it is not the first), and takes at
// most kWordMax bytes.
class StdWriter {
public:
    StdWriter(Name &n, size_t max_parts) : n_(n), max_parts_(max_parts) {}

    bool full() const { return n_.whole.n >= kWholeMax || n_.count >= max_parts_; }
    void put(char c) {
        Line &w = n_.whole;
        if (len_ == 0) {
            if (w.n > 0) {
                if (w.n + 1 >= kWholeMax) return;
                w.s[w.n++] = ' ';
            }
            at_ = w.n;
        } else if (len_ >= kWordMax || w.n >= kWholeMax) {
            return;
        }
        w.s[w.n++] = c;
        ++len_;
    }
    void end_part() {
        if (len_ == 0) return;
        if (n_.count < max_parts_) {
            n_.part_at[n_.count] = static_cast<uint8_t>(at_);
            n_.part_len[n_.count] = static_cast<uint8_t>(len_);
            ++n_.count;
        }
        len_ = 0;
    }

private:
    Name &n_;
    size_t max_parts_, at_ = 0, len_ = 0;
};

// A standard byte of a word: a hyphen ends a part, other bytes that are
// not letters or digits are dropped.
void std_byte(StdWriter &w, unsigned char c) {
    if (c == '-') w.end_part();
    else if (kBytes.alnum[c]) w.put(static_cast<char>(c));
}

// The standard spelling of one word (as make_std gives it) into w.
void std_word(StdWriter &w, const Folding &f, const unsigned char *s, size_t len) {
    len = std::min<size_t>(len, 200);
    if (f.mode == StdMode::Translit) {
        char out[udfkit::fuzzy::kStdSize];
        const size_t n = udfkit::fuzzy::make_std(f.mode, reinterpret_cast<const char *>(s), len, out,
                                                 sizeof out, nullptr, f.upper);
        for (size_t i = 0; i < n; ++i) std_byte(w, static_cast<unsigned char>(out[i]));
    } else if (f.mode == StdMode::Latin1) {
        for (size_t i = 0; i < len; ++i)
            std_byte(w, s[i] < 0x80 ? f.upper->up[s[i]] : udfkit::fuzzy::kLatin1Fold.letter[s[i]]);
    } else {
        for (size_t i = 0; i < len; ++i) {
            const unsigned char c = s[i];
            if (c < 0x80) {
                std_byte(w, f.upper->up[c]);
            } else if (c == 0xC3) {
                if (i + 1 >= len) break;  // a lone lead byte ends the word
                std_byte(w, udfkit::fuzzy::kUtf8Fold.letter[s[++i]]);
            }
        }
    }
    w.end_part();
}

void add_raw(Line &raw, const char *s, size_t len) {
    if (raw.n > 0 && raw.n < kWholeMax) raw.s[raw.n++] = ' ';
    len = std::min(len, kWholeMax - raw.n);
    std::memcpy(raw.s + raw.n, s, len);
    raw.n += len;
}

// The phonetic line of the whole spelling and where each part's key lies.
void add_keys(Name &n) {
    char keys[kWholeMax];
    n.phonetic.n = udfkit::fuzzy::phonex_words(n.whole.s, n.whole.n, keys);
    std::memcpy(n.phonetic.s, keys, n.phonetic.n);
    size_t part = 0, start = 0;
    for (size_t i = 0; i <= n.phonetic.n && part < n.count; ++i) {
        if (i < n.phonetic.n && keys[i] != ' ') continue;
        n.key_at[part] = static_cast<uint8_t>(start);
        n.key_len[part] = static_cast<uint8_t>(i - start);
        ++part;
        start = i + 1;
    }
    for (; part < n.count; ++part) n.key_at[part] = n.key_len[part] = 0;
}

void read_name(Name &n, const Folding &f, const char *text, size_t len, size_t max_parts) {
    StdWriter w(n, max_parts);
    const auto *s = reinterpret_cast<const unsigned char *>(text);
    for (size_t i = 0; i < len && !w.full();) {
        if (!kBytes.word[s[i]]) {
            ++i;
            continue;
        }
        size_t j = i;
        while (j < len) {
            if (kBytes.word[s[j]]) ++j;
            else if (size_t k = joiner(s, j, len)) j += k;
            else break;
        }
        std_word(w, f, s + i, j - i);
        add_raw(n.raw, text + i, j - i);
        i = j;
    }
    add_keys(n);
}

// A string of at most 64 bytes prepared for edit distances: the match
// vector of each byte value (bit i set where the string holds it).
struct Prepared {
    uint64_t eq[256] = {};
    int len = 0;

    void set(const Line &l) {
        len = static_cast<int>(l.n);
        for (int i = 0; i < len; ++i) eq[static_cast<unsigned char>(l.s[i])] |= 1ull << i;
    }
};

// Bits set in x (the library is built for any x86-64, where the compiler's
// builtin becomes a library call).
inline int ones(uint64_t x) {
    x = x - ((x >> 1) & 0x5555555555555555ULL);
    x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
    return static_cast<int>((x * 0x0101010101010101ULL) >> 56);
}

inline uint64_t low_bits(int n) { return n >= 64 ? ~0ull : (1ull << n) - 1; }

// One edit distance of a batch: a prepared string against a line.
struct Pair {
    const Prepared *p;
    const Line *t;
};

// The similarities (1 - distance / longer length, 0 when both are empty)
// of K pairs, their bit-parallel rows run side by side so that the chains
// of operations overlap: each pair's rows stop at its line's end (later
// rows keep its state; the line's bytes past its end are zero).
template <size_t K>
void similarities(const Pair (&r)[K], double (&out)[K]) {
    uint64_t pv[K], mv[K];
    size_t longest = 0;
    for (size_t k = 0; k < K; ++k) {
        pv[k] = ~0ull;
        mv[k] = 0;
        longest = std::max(longest, r[k].t->n);
    }
    for (size_t i = 0; i < longest; ++i) {
#pragma GCC unroll 8
        for (size_t k = 0; k < K; ++k) {
            const uint64_t eq = r[k].p->eq[static_cast<unsigned char>(r[k].t->s[i])];
            const uint64_t xv = eq | mv[k];
            const uint64_t xh = (((eq & pv[k]) + pv[k]) ^ pv[k]) | eq;
            const uint64_t ph = ((mv[k] | ~(xh | pv[k])) << 1) | 1;
            const uint64_t mh = (pv[k] & xh) << 1;
            const uint64_t keep = -static_cast<uint64_t>(i >= r[k].t->n);
            pv[k] = ((mh | ~(xv | ph)) & ~keep) | (pv[k] & keep);
            mv[k] = ((ph & xv) & ~keep) | (mv[k] & keep);
        }
    }
    // The last cell: cell 0 (the line's length) + the rises - the falls.
    for (size_t k = 0; k < K; ++k) {
        const int m = r[k].p->len, n = static_cast<int>(r[k].t->n);
        const uint64_t low = low_bits(m);
        const int d = n + ones(pv[k] & low) - ones(mv[k] & low);
        const int longer = std::max(m, n);
        out[k] = longer == 0 ? 0.0 : 1.0 - static_cast<double>(d) / static_cast<double>(longer);
    }
}

// Several words of at most 32 bytes side by side in one machine word, lane
// k on bits at[k] .. at[k] + len[k] - 1, so that one pass over a text word
// gives its edit distance to each: the same bit-parallel rows, with the
// addition's carry kept inside each lane and each lane's cell 0 growing by
// one per row.
struct Lanes {
    uint64_t eq[256] = {};
    uint64_t bottom = 0, top = 0;  // the lowest and highest bit of each lane
    uint8_t at[kQueryWords], len[kQueryWords], word[kQueryWords];
    size_t count = 0, bits = 0;

    bool add(const char *w, size_t n, size_t index) {
        if (bits + n > 64) return false;
        for (size_t i = 0; i < n; ++i) eq[static_cast<unsigned char>(w[i])] |= 1ull << (bits + i);
        bottom |= 1ull << bits;
        top |= 1ull << (bits + n - 1);
        at[count] = static_cast<uint8_t>(bits);
        len[count] = static_cast<uint8_t>(n);
        word[count++] = static_cast<uint8_t>(index);
        bits += n;
        return true;
    }

    // The distance of t (n >= 1 bytes) to the word of each lane, into d
    // by the words' index.
    void distances(const char *t, size_t n, int *d) const {
        uint64_t pv = ~0ull, mv = 0;
        const uint64_t low = ~top;
        for (size_t i = 0; i < n; ++i) {
            const uint64_t m = eq[static_cast<unsigned char>(t[i])];
            const uint64_t xv = m | mv;
            const uint64_t x = m & pv;
            const uint64_t sum = ((x & low) + (pv & low)) ^ ((x ^ pv) & top);
            const uint64_t xh = (sum ^ pv) | m;
            const uint64_t ph = ((mv | ~(xh | pv)) << 1) | bottom;
            const uint64_t mh = ((pv & xh) << 1) & ~bottom;
            pv = mh | ~(xv | ph);
            mv = ph & xv;
        }
        // The last cell of a lane: cell 0 (n) + its rises - its falls.
        for (size_t k = 0; k < count; ++k) {
            const uint64_t lane = (1ull << len[k]) - 1;
            const uint64_t p = (pv >> at[k]) & lane, nm = ~(mv >> at[k]) & lane;
            d[word[k]] = static_cast<int>(n) - len[k] + ones(p | nm << 32);
        }
    }
};

// The query as prepared for many rows, with the bytes and character set
// it was read from.
struct Query {
    std::string text;
    char isocode[UDFKIT_ISOCODE_SIZE];
    StdMode mode;
    UpperTable upper;
    Name name;
    Prepared whole, phonetic, raw;
    Lanes lanes[4];  // the words, packed; 8 words of 32 bytes fill 4
    size_t groups = 0;
    int length[kQueryWords];
};

void pack_words(Query &q) {
    for (size_t i = 0; i < q.name.count; ++i) {
        const char *w = q.name.whole.s + q.name.part_at[i];
        const size_t n = q.name.part_len[i];
        q.length[i] = static_cast<int>(n);
        if (q.groups == 0 || !q.lanes[q.groups - 1].add(w, n, i)) q.lanes[q.groups++].add(w, n, i);
    }
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
    read_name(q->name, Folding{q->mode, &q->upper}, query, len, kQueryWords);
    q->whole.set(q->name.whole);
    q->phonetic.set(q->name.phonetic);
    q->raw.set(q->name.raw);
    pack_words(*q);
    memo = std::move(q);
    return *memo;
}

// Each query word's best match among the text's words: the match's
// similarity, weighted by the query word's length, and the order of the
// text's words that follows the query's (unmatched words last).
struct Bag {
    double similarity = 0;
    size_t order[kTextWords];
    bool in_order = true;
};

void match_words(const Query &q, const Name &t, Bag &bag) {
    int dist[kTextWords][kQueryWords];
    for (size_t j = 0; j < t.count; ++j)
        for (size_t g = 0; g < q.groups; ++g)
            q.lanes[g].distances(t.whole.s + t.part_at[j], t.part_len[j], dist[j]);
    bool used[kTextWords] = {};
    size_t placed = 0;
    double weight = 0;
    for (size_t i = 0; i < q.name.count; ++i) {
        double best = 0;
        size_t at = t.count;
        for (size_t j = 0; j < t.count; ++j) {
            const int longer = std::max<int>(q.length[i], t.part_len[j]);
            const double s = 1.0 - static_cast<double>(dist[j][i]) / static_cast<double>(longer);
            if (s > best || (s == best && at < t.count && used[at] && !used[j])) best = s, at = j;
        }
        bag.similarity += best * q.length[i];
        weight += q.length[i];
        if (at < t.count && !used[at]) used[at] = true, bag.order[placed++] = at;
    }
    for (size_t j = 0; j < t.count; ++j)
        if (!used[j]) bag.order[placed++] = j;
    for (size_t j = 0; j < t.count; ++j) bag.in_order &= bag.order[j] == j;
    if (weight > 0) bag.similarity /= weight;
}

// The text's words (at[], len[] in from) in the bag's order.
Line reordered(const char *from, const uint8_t *at, const uint8_t *len, const Bag &bag, size_t count) {
    Line w;
    for (size_t j = 0; j < count; ++j) {
        const size_t k = bag.order[j];
        if (w.n > 0) w.s[w.n++] = ' ';
        std::memcpy(w.s + w.n, from + at[k], len[k]);
        w.n += len[k];
    }
    return w;
}

}  // namespace

double udfkit::fuzzy::name_rank(const char *query, size_t qlen, const char *text, size_t tlen) {
    const Query &q = prepare(query, qlen);
    if (q.name.count == 0) return 0;
    Name t;
    read_name(t, Folding{q.mode, &q.upper}, text, tlen, kTextWords);
    if (t.count == 0) return 0;
    Bag bag;
    match_words(q, t, bag);
    double whole, phonetic, raw;
    if (bag.in_order) {
        double s[3];
        similarities({Pair{&q.whole, &t.whole}, Pair{&q.phonetic, &t.phonetic}, Pair{&q.raw, &t.raw}}, s);
        whole = s[0], phonetic = s[1], raw = s[2];
    } else {
        const Line rw = reordered(t.whole.s, t.part_at, t.part_len, bag, t.count);
        const Line rp = reordered(t.phonetic.s, t.key_at, t.key_len, bag, t.count);
        double s[5];
        similarities({Pair{&q.whole, &t.whole}, Pair{&q.phonetic, &t.phonetic}, Pair{&q.raw, &t.raw},
                      Pair{&q.whole, &rw}, Pair{&q.phonetic, &rp}},
                     s);
        whole = std::max(s[0], s[3] - kOrderCost), phonetic = std::max(s[1], s[4] - kOrderCost), raw = s[2];
    }
    const double score =
        kWeightStd * whole + kWeightPhon * phonetic + kWeightBag * bag.similarity + kWeightRaw * raw;
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
