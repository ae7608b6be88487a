// Scoring a text against the compiled pattern: FuzzySearch, _FuzzySearch.
#include <algorithm>
#include <iterator>
#include <cstdlib>
#include <cstring>

#include "fuzzy/fuzzy_internal.hpp"

namespace {

using namespace udfkit::fuzzy;

// Bytes that cut a text into words.  Tab and double quote are not among
// them.
struct WordDelimiters {
    bool is[256] = {};
    constexpr WordDelimiters() {
        const char list[] = " :,;.-'/\n`*+-/#!?(){}[]=~$<>_";
        for (char c : list)
            if (c) is[static_cast<unsigned char>(c)] = true;
    }
};
constexpr WordDelimiters kDelims;

inline bool delimiter(char c) { return kDelims.is[static_cast<unsigned char>(c)]; }

// The score of distance d for a term: 1 - factor * d / longest, not
// below 0 (the same expression as the search, so the same doubles).
inline double score_of(int32_t d, int32_t longest, int32_t factor) {
    const double s = 1.0 - static_cast<double>(factor * d) / static_cast<double>(longest);
    return s < 0.0 ? 0.0 : s;
}

// The least distance whose score is at most floor (scores fall as the
// distance grows; the distance of the longest length scores 0).
int32_t score_bound(double floor, int32_t longest, int32_t factor) {
    int32_t b = static_cast<int32_t>((1.0 - floor) * longest / factor) + 1;
    b = std::clamp(b, 0, longest);
    while (b > 0 && score_of(b - 1, longest, factor) <= floor) --b;
    while (score_of(b, longest, factor) > floor) ++b;
    return b;
}

// score_bound for one term, remembered by length while the floor stays.
class BoundCache {
public:
    int32_t get(double floor, int32_t longest, int32_t factor) {
        if (longest > kMaxCached) return score_bound(floor, longest, factor);
        if (floor != floor_) {
            floor_ = floor;
            std::fill(std::begin(b_), std::end(b_), -1);
        }
        int32_t &b = b_[longest];
        if (b < 0) b = score_bound(floor, longest, factor);
        return b;
    }

private:
    static constexpr int32_t kMaxCached = 64;
    double floor_ = -1.0;
    int32_t b_[kMaxCached + 1];
};

// Phonex keys of the words already seen in this search.  Prose repeats
// its words, and the key is a pure function of the word (and of the vowel
// table, which a search does not change), so a long text computes most of
// its keys once.  Direct-mapped; a word that collides replaces the slot.
class KeyCache {
public:
    static constexpr size_t kMaxWord = 22;  // longer words are not cached

    // One allocation for the whole search, only for texts long enough to
    // repeat words; without it every key is computed.
    explicit KeyCache(size_t text_len) {
        if (text_len < 4096) return;
        size_t want = std::min<size_t>(4096, text_len / 16);
        while (slots_ < want) slots_ = slots_ ? slots_ * 2 : 256;
        table_ = static_cast<Slot *>(std::calloc(slots_, sizeof(Slot)));
        if (!table_) slots_ = 0;
    }
    ~KeyCache() { std::free(table_); }
    KeyCache(const KeyCache &) = delete;
    KeyCache &operator=(const KeyCache &) = delete;

    // The key of word (n bytes) into key; returns its length.
    int32_t key(const char *word, int32_t n, char *key) {
        if (!table_ || n > static_cast<int32_t>(kMaxWord)) return compute(word, key);
        Slot &s = table_[hash(word, n) & (slots_ - 1)];
        if (s.wlen == n + 1 && std::memcmp(s.word, word, static_cast<size_t>(n)) == 0) {
            std::memcpy(key, s.key, static_cast<size_t>(s.klen) + 1);
            return s.klen;
        }
        const int32_t k = compute(word, key);
        if (k <= static_cast<int32_t>(kMaxWord)) {
            s.wlen = static_cast<uint8_t>(n + 1);
            s.klen = static_cast<uint8_t>(k);
            std::memcpy(s.word, word, static_cast<size_t>(n));
            std::memcpy(s.key, key, static_cast<size_t>(k) + 1);
        }
        return k;
    }

private:
    // A hash of the n bytes (1 to kMaxWord) from at most three loads that
    // may overlap, without a loop.
    static size_t hash(const char *w, int32_t n) {
        uint64_t a, b, c = 0;
        if (n >= 8) {
            std::memcpy(&a, w, 8);
            std::memcpy(&b, w + n - 8, 8);
            if (n > 16) std::memcpy(&c, w + 8, 8);
        } else if (n >= 4) {
            uint32_t x, y;
            std::memcpy(&x, w, 4);
            std::memcpy(&y, w + n - 4, 4);
            a = x;
            b = y;
        } else {
            a = static_cast<unsigned char>(w[0]) | (static_cast<uint64_t>(static_cast<unsigned char>(w[n >> 1])) << 8);
            b = static_cast<unsigned char>(w[n - 1]);
        }
        uint64_t h = (a * 0x9E3779B97F4A7C15ULL) ^ (b * 0xC2B2AE3D27D4EB4FULL) ^
                     (c * 0x165667B19E3779F9ULL) ^ static_cast<uint64_t>(n);
        return static_cast<size_t>(h ^ (h >> 29) ^ (h >> 41));
    }

    struct Slot {
        uint8_t wlen;  // word length + 1; 0 for an empty slot
        uint8_t klen;
        char word[kMaxWord];
        char key[kMaxWord + 1];
    };
    static int32_t compute(const char *word, char *key) {
        key[0] = '\0';
        Phonex(word, key);
        return static_cast<int32_t>(std::strlen(key));
    }
    Slot *table_ = nullptr;
    size_t slots_ = 0;
};

// The fold of the terms' best scores by their operators, clamped to [0, 1].
double fold(const double *best, int nterms) {
    double acc = 0.0;
    int count = 0;
    for (int j = 0; j < nterms; ++j) {
        switch (Recherche[j].op) {
        case TERM_REQUIRED: acc *= best[j]; break;
        case TERM_OPTIONAL: acc += best[j]; ++count; break;
        case TERM_EXCLUDED: acc *= 1.0 - best[j]; break;
        case TERM_PHRASE: acc *= best[j]; break;
        default: break;
        }
    }
    const double r = count > 0 ? acc / count : acc;
    return r < 0.0 ? 0.0 : r > 1.0 ? 1.0 : r;
}

// One search of a text against the compiled table: the terms as it reads
// them (their cutoffs are written back at the end, their best words as
// they are found), the best score of each term and the scores of the
// previous and the current word.
class Scan {
public:
    Scan(int nterms, size_t text_len);
    Scan(const Scan &) = delete;
    Scan &operator=(const Scan &) = delete;

    // The word of wlen bytes at text + off.
    void word(const char *text, size_t off, size_t wlen);
    // Writes the cutoffs back and gives the search's score.
    double finish();

private:
    struct Term {
        int32_t op, length, cutoff, factor;
        bool std;
    };
    static bool any_phonetic(int nterms);
    double floor_of(int j) const;
    bool passed_over(int j, double floor) const;
    double term_score(int j);
    const char *compared(const Term &t, int32_t *len);
    int32_t distance(int j, const char *x, int32_t xlen, double floor, int32_t longest);

    const int nterms_;
    Term terms_[UDFKIT_MAX_TERMS];
    LevPattern pat_[UDFKIT_MAX_TERMS];
    BoundCache bounds_[UDFKIT_MAX_TERMS];
    bool cut_mode_ = true;  // no phrase continuation among the terms
    // Lengths of standard words taken into account: min_len_ < n < max_len_.
    int32_t min_len_ = -1, max_len_ = 255;
    double best_[UDFKIT_MAX_TERMS] = {}, scores_a_[UDFKIT_MAX_TERMS] = {}, scores_b_[UDFKIT_MAX_TERMS] = {};
    double *prev_ = scores_a_, *cur_ = scores_b_;
    const StdMode mode_;
    const UpperTable upper_;
    const PhonetiseurFn phon_;
    KeyCache keys_;
    // The current word: its standard word, of length n_, and its key, of
    // length key_len_ once computed (-1 before).
    char stdw_[kStdSize];
    char key_[kKeySize];
    int32_t n_ = 0, key_len_ = -1;
};

bool Scan::any_phonetic(int nterms) {
    for (int j = 0; j < nterms; ++j)
        if (!Recherche[j].std) return true;
    return false;
}

Scan::Scan(int nterms, size_t text_len)
    : nterms_(nterms),
      mode_(std_mode()),
      phon_(Phonetiseur ? Phonetiseur : Phonex),
      keys_(any_phonetic(nterms) && phon_ == Phonex ? text_len : 0) {
    for (int j = 0; j < nterms; ++j) {
        const SearchTerm &t = Recherche[j];
        if (t.op == TERM_PHRASE) cut_mode_ = false;
        pat_[j].set(t.word, t.length);
        terms_[j] = Term{t.op, t.length, t.cutoff, t.quoted ? 2 : 1, t.std != 0};
    }
    if (nterms == 1) {
        min_len_ = Recherche[0].length / 2;
        max_len_ = (3 * Recherche[0].length) / 2;
    }
}

void Scan::word(const char *text, size_t off, size_t wlen) {
    // A standard word too long for the work buffer could never match
    // (the distance gives up beyond 255 bytes): the word is skipped.
    bool overflow = false;
    const auto n = static_cast<int32_t>(make_std(mode_, text + off, wlen, stdw_, sizeof stdw_, &overflow, &upper_));
    if (overflow || n == 0 || n <= min_len_ || n >= max_len_) return;
    n_ = n;
    key_len_ = -1;
    for (int j = 0; j < nterms_; ++j) {
        const double s = term_score(j);
        if (s > best_[j]) {  // ties keep the earlier word
            best_[j] = s;
            SearchTerm &r = Recherche[j];
            r.position = static_cast<int32_t>(off);
            r.matchLength = static_cast<int32_t>(wlen);
            r.score = s;
        }
        cur_[j] = s;
    }
    std::swap(prev_, cur_);
}

// Words that can change nothing for a term are passed over without a
// distance (and without a phonetic key):
//  - a phrase word after a word that did not continue the phrase scores 0
//    whatever its distance;
//  - with the cut-off, a term whose best distance is 0 scores 0 on every
//    later word and its cutoff stays 0;
//  - without it, a word score that is no better than the floor changes
//    nothing: the floor is the term's best score and, when phrase words
//    follow, theirs too (a phrase word scores at most the score of the word
//    before it for the term before it).  A phrase word itself has floor 0.
//    At floor 1 no score can do better.
double Scan::floor_of(int j) const {
    if (cut_mode_ || terms_[j].op == TERM_PHRASE) return 0.0;
    double floor = best_[j];
    for (int k = j + 1; k < nterms_ && terms_[k].op == TERM_PHRASE; ++k) floor = std::min(floor, best_[k]);
    return floor;
}

bool Scan::passed_over(int j, double floor) const {
    const Term &t = terms_[j];
    if (t.op == TERM_PHRASE && j > 0 && prev_[j - 1] == 0.0) return true;
    return cut_mode_ ? t.cutoff <= 0 : floor >= 1.0;
}

// The score of term j for the current word.
double Scan::term_score(int j) {
    const Term &t = terms_[j];
    const double floor = floor_of(j);
    if (passed_over(j, floor)) return 0.0;
    int32_t xlen;
    const char *x = compared(t, &xlen);
    double s = 0.0;
    if (xlen > 0) {
        const int32_t longest = std::max(t.length, xlen);
        const int32_t d = distance(j, x, xlen, floor, longest) * t.factor;  // quoted terms count double
        // A distance of the longest length or more scores 0 (and the
        // division is spared).
        if (d < longest) s = 1.0 - static_cast<double>(d) / static_cast<double>(longest);
    }
    if (t.op == TERM_PHRASE && j > 0) s *= prev_[j - 1];
    return s;
}

// What the term is compared with: the standard word, or its phonetic key,
// computed once per word for the first term that needs it.
const char *Scan::compared(const Term &t, int32_t *len) {
    if (t.std) {
        *len = n_;
        return stdw_;
    }
    if (key_len_ < 0) {
        if (phon_ == Phonex) {
            key_len_ = keys_.key(stdw_, n_, key_);
        } else {
            key_[0] = '\0';
            phon_(stdw_, key_);
            key_[sizeof key_ - 1] = '\0';
            key_len_ = static_cast<int32_t>(std::strlen(key_));
        }
    }
    *len = key_len_;
    return key_;
}

int32_t Scan::distance(int j, const char *x, int32_t xlen, double floor, int32_t longest) {
    Term &t = terms_[j];
    if (cut_mode_) {
        const int32_t d = pat_[j].distance(x, xlen, t.cutoff, true);
        t.cutoff = std::min(t.cutoff, d);
        return d;
    }
    // Only distances that score above the floor are needed exactly: from
    // the bound on, the distance may give up (its answer is exact below the
    // bound, and any distance at or above it scores no more than the floor;
    // such a word then scores 0 here, which changes nothing either).
    const int32_t bound = bounds_[j].get(floor, longest, t.factor);
    return bound > 0 ? pat_[j].distance(x, xlen, bound, true) : kTooLarge;
}

double Scan::finish() {
    for (int j = 0; j < nterms_; ++j) Recherche[j].cutoff = terms_[j].cutoff;
    return fold(best_, nterms_);
}

}  // namespace

int udfkit::fuzzy::term_count() noexcept {
    int n = 0;
    while (n < UDFKIT_MAX_TERMS && Recherche[n].word) ++n;
    return n;
}

extern "C" {

UDFKIT_API double _FuzzySearch(const char *text, int32_t length) {
    const int nterms = term_count();
    if (nterms == 0 || !text || length <= 0) return 0.0;
    // The text ends at its first NUL byte, if one comes before length.
    const size_t end = strnlen(text, static_cast<size_t>(length));
    Scan scan(nterms, end);
    for (size_t i = 0; i < end;) {
        while (i < end && delimiter(text[i])) ++i;
        if (i >= end) break;
        const size_t off = i;
        while (i < end && !delimiter(text[i])) ++i;
        scan.word(text, off, i - off);
    }
    return scan.finish();
}

UDFKIT_API double FuzzySearch(const char *pattern, const char *text) {
    BuildRecherche(pattern);
    for (SearchTerm &t : Recherche) {
        if (!t.word) break;
        t.cutoff = 255;
        t.position = -1;
    }
    if (!text) return 0.0;
    const size_t n = std::strlen(text);
    return _FuzzySearch(text, n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n));
}

}  // extern "C"
