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
// kept for the next row (a memo of the last query, per thread).
#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <string>

#include "fuzzy/fuzzy_internal.hpp"
#include "fuzzy/rank.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {

using udfkit::fuzzy::StdMode;

constexpr size_t kWholeMax = 64;  // bytes of a whole-name string compared
constexpr size_t kWordMax = 32;   // bytes of a word compared
constexpr size_t kQueryWords = 8;
constexpr size_t kTextWords = 16;

constexpr double kOrderCost = 0.1;
constexpr double kWeightStd = 0.5, kWeightPhon = 0.3, kWeightBag = 0.15, kWeightRaw = 0.05;

bool word_byte(unsigned char c) { return c >= 0x80 || std::isalnum(c); }

// A hyphen or apostrophe (ASCII, or U+2019) joining two word bytes: its
// length in bytes, else 0.
size_t joiner(const unsigned char *s, size_t i, size_t len) {
    size_t n = 0;
    if (s[i] == '-' || s[i] == '\'') n = 1;
    else if (i + 2 < len && s[i] == 0xE2 && s[i + 1] == 0x80 && s[i + 2] == 0x99) n = 3;
    if (n == 0 || i == 0 || i + n >= len) return 0;
    return word_byte(s[i - 1]) && word_byte(s[i + n]) ? n : 0;
}

// A string of at most N bytes kept inline (longer appends are cut).
template <size_t N>
struct Small {
    char s[N];
    size_t n = 0;
    void add(const char *p, size_t len) {
        len = std::min(len, N - n);
        std::memcpy(s + n, p, len);
        n += len;
    }
    void word(const char *p, size_t len) {  // a word after a blank, if any
        if (n > 0) add(" ", 1);
        add(p, len);
    }
};
using Whole = Small<kWholeMax>;
using Word = Small<kWordMax>;

// One name read as words: the whole standard spelling (words separated by
// one blank, a hyphen read as a blank, an apostrophe dropped), the
// phonetic keys of the parts in order, the words as written, and the
// parts with their keys.
struct Name {
    Whole whole, phonetic, raw;
    Word parts[kTextWords], keys[kTextWords];
    size_t count = 0, max_parts = 0;
};

void add_part(Name &n, const char *std_word, size_t len) {
    if (len == 0) return;
    len = std::min(len, kWordMax);
    char part[kWordMax + 1], key[udfkit::fuzzy::kKeySize];
    std::memcpy(part, std_word, len);
    part[len] = '\0';
    Phonex(part, key);
    n.whole.word(part, len);
    n.phonetic.word(key, std::strlen(key));
    if (n.count < n.max_parts) {
        n.parts[n.count].add(part, len);
        n.keys[n.count].add(key, std::strlen(key));
        ++n.count;
    }
}

// The standard spelling of one word, split where a hyphen joined it.
void add_word(Name &n, StdMode mode, const char *w, size_t len) {
    char std_word[udfkit::fuzzy::kStdSize];
    const size_t sl = udfkit::fuzzy::make_std(mode, w, std::min<size_t>(len, 200), std_word,
                                              sizeof std_word, nullptr);
    size_t start = 0, out = 0;
    for (size_t i = 0; i < sl; ++i) {
        const char c = std_word[i];
        if (c == '-') {
            add_part(n, std_word + start, out - start);
            start = out;
        } else if (std::isalnum(static_cast<unsigned char>(c))) {
            std_word[out++] = c;
        }
    }
    add_part(n, std_word + start, out - start);
}

void read_name(Name &n, const char *text, size_t len, size_t max_parts) {
    n.max_parts = max_parts;
    const StdMode mode = udfkit::fuzzy::std_mode();
    const auto *s = reinterpret_cast<const unsigned char *>(text);
    for (size_t i = 0; i < len && n.count < max_parts && n.whole.n < kWholeMax;) {
        if (!word_byte(s[i])) {
            ++i;
            continue;
        }
        size_t j = i;
        while (j < len) {
            if (word_byte(s[j])) ++j;
            else if (size_t k = joiner(s, j, len)) j += k;
            else break;
        }
        add_word(n, mode, text + i, j - i);
        n.raw.word(text + i, j - i);
        i = j;
    }
}

// Edit distance against a string of at most 64 bytes prepared once
// (bit-parallel, one machine word per column).
class Prepared {
public:
    Prepared() { std::fill(std::begin(eq_), std::end(eq_), 0); }
    Prepared(const char *p, size_t n) : Prepared() {
        len_ = static_cast<int>(std::min(n, kWholeMax));
        for (int i = 0; i < len_; ++i) eq_[static_cast<unsigned char>(p[i])] |= 1ull << i;
    }
    template <size_t N>
    explicit Prepared(const Small<N> &p) : Prepared(p.s, p.n) {}

    int distance(const char *t, size_t n) const {
        if (len_ == 0) return static_cast<int>(n);
        uint64_t pv = ~0ull, mv = 0;
        const uint64_t last = 1ull << (len_ - 1);
        int score = len_;
        for (size_t i = 0; i < n; ++i) {
            const uint64_t eq = eq_[static_cast<unsigned char>(t[i])];
            const uint64_t xv = eq | mv;
            const uint64_t xh = (((eq & pv) + pv) ^ pv) | eq;
            uint64_t ph = mv | ~(xh | pv);
            uint64_t mh = pv & xh;
            if (ph & last) ++score;
            else if (mh & last) --score;
            ph = (ph << 1) | 1;
            mh <<= 1;
            pv = mh | ~(xv | ph);
            mv = ph & xv;
        }
        return score;
    }
    int length() const { return len_; }

private:
    uint64_t eq_[256];
    int len_ = 0;
};

template <size_t N>
double similarity(const Prepared &q, const Small<N> &t) {
    const size_t longer = std::max<size_t>(static_cast<size_t>(q.length()), t.n);
    if (longer == 0) return 0;
    return 1.0 - static_cast<double>(q.distance(t.s, t.n)) / static_cast<double>(longer);
}

// The query as prepared for many rows, with the bytes and character set
// it was read from.
struct Query {
    std::string text, isocode;
    StdMode mode;
    Name name;
    Prepared whole, phonetic, raw;
    Prepared parts[kQueryWords];
};

const Query &prepare(const char *query, size_t len) {
    thread_local std::unique_ptr<Query> memo;
    const StdMode mode = udfkit::fuzzy::std_mode();
    if (memo && memo->mode == mode && memo->text.size() == len &&
        std::memcmp(memo->text.data(), query, len) == 0 && memo->isocode == IsoCode)
        return *memo;
    auto q = std::make_unique<Query>();
    q->text.assign(query, len);
    q->isocode = IsoCode;
    q->mode = mode;
    read_name(q->name, query, len, kQueryWords);
    q->whole = Prepared(q->name.whole);
    q->phonetic = Prepared(q->name.phonetic);
    q->raw = Prepared(q->name.raw);
    for (size_t i = 0; i < q->name.count; ++i) q->parts[i] = Prepared(q->name.parts[i]);
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
    bool used[kTextWords] = {};
    size_t placed = 0;
    double weight = 0;
    for (size_t i = 0; i < q.name.count; ++i) {
        double best = 0;
        size_t at = t.count;
        for (size_t j = 0; j < t.count; ++j) {
            const double s = similarity(q.parts[i], t.parts[j]);
            if (s > best || (s == best && at < t.count && used[at] && !used[j])) best = s, at = j;
        }
        bag.similarity += best * q.parts[i].length();
        weight += q.parts[i].length();
        if (at < t.count && !used[at]) used[at] = true, bag.order[placed++] = at;
    }
    for (size_t j = 0; j < t.count; ++j)
        if (!used[j]) bag.order[placed++] = j;
    for (size_t j = 0; j < t.count; ++j) bag.in_order &= bag.order[j] == j;
    if (weight > 0) bag.similarity /= weight;
}

// The text's words (or keys) in the bag's order.
Whole reordered(const Word *words, const Bag &bag, size_t count) {
    Whole w;
    for (size_t j = 0; j < count; ++j) w.word(words[bag.order[j]].s, words[bag.order[j]].n);
    return w;
}

}  // namespace

double udfkit::fuzzy::name_rank(const char *query, size_t qlen, const char *text, size_t tlen) {
    const Query &q = prepare(query, qlen);
    if (q.name.count == 0) return 0;
    Name t;
    read_name(t, text, tlen, kTextWords);
    if (t.count == 0) return 0;
    Bag bag;
    match_words(q, t, bag);
    double whole = similarity(q.whole, t.whole), phonetic = similarity(q.phonetic, t.phonetic);
    if (!bag.in_order) {
        whole = std::max(whole, similarity(q.whole, reordered(t.parts, bag, t.count)) - kOrderCost);
        phonetic = std::max(phonetic, similarity(q.phonetic, reordered(t.keys, bag, t.count)) - kOrderCost);
    }
    const double score = kWeightStd * whole + kWeightPhon * phonetic + kWeightBag * bag.similarity +
                         kWeightRaw * similarity(q.raw, t.raw);
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
