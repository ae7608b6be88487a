// Text quality: letter and letter-pair frequency scores against the
// reference statistics, and the SQL functions freqquality, digramquality
// and textquality.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzzy/quality.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/quality.h"
#include "udfkit/sqlfunc.h"

using udfkit::guarded;
using udfkit::PoppedText;
using namespace udfkit::quality;

namespace {

constexpr int32_t kCharsetCap = 128;

inline bool is_letter(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The bytes a score counts: the text converted from charset to ASCII when
// charset is given and the conversion succeeds, else the text itself.
class CountedBytes {
public:
    CountedBytes(const char *text, const char *charset) {
        if (!text) text = "";
        bytes_ = text;
        if (charset && *charset) {
            converted_ = Iconv(text, -1, charset, "ASCII//IGNORE");
            if (converted_) bytes_ = converted_;
        }
        length_ = std::strlen(bytes_);
    }
    ~CountedBytes() { std::free(converted_); }
    CountedBytes(const CountedBytes &) = delete;
    CountedBytes &operator=(const CountedBytes &) = delete;

    const unsigned char *data() const { return reinterpret_cast<const unsigned char *>(bytes_); }
    size_t size() const { return length_; }

private:
    const char *bytes_ = nullptr;
    char *converted_ = nullptr;
    size_t length_ = 0;
};

// Adds every lower-case letter's value to its upper-case letter's and
// clears its own.
void fold_case(double (&v)[256]) {
    for (int c = 'a'; c <= 'z'; ++c) {
        v[c - 'a' + 'A'] += v[c];
        v[c] = 0;
    }
}

constexpr int kLetters = 52;
constexpr int kClasses = kLetters + 1;  // the letters, then "no letter"

// Position of an ASCII letter in "A..Za..z", -1 for any other byte.
constexpr int letter_index(int c) {
    return c >= 'A' && c <= 'Z' ? c - 'A' : c >= 'a' && c <= 'z' ? 26 + c - 'a' : -1;
}

// The row of one digram table that each pair of byte classes names; a pair
// in no row, or with a non-letter class, names `rows` (one past the table),
// a bin that is thrown away.  It is built once per table by the table's
// lookup rule: an index of 2231 slots, slot[key % 2231] = i for each row i
// in table order (a later row overwrites an earlier one; a slot that no row
// reaches holds 0, the sentinel, whose key 0 is no letter pair); the row in
// the key's slot when its key matches, otherwise the first row with the key
// in a scan of the table.  Scoring then costs one load per byte, whatever
// the text: a text of pairs the reference lacks never scans.
struct PairRows {
    uint16_t row[kClasses * kClasses];

    PairRows(const DigramEntry *table, int rows) {
        uint16_t slot[kDigramSlots] = {};
        for (int i = 0; i < rows; ++i) slot[table[i].key % kDigramSlots] = static_cast<uint16_t>(i);
        for (uint16_t &r : row) r = static_cast<uint16_t>(rows);
        for (int a = 0; a < 256; ++a) {
            for (int b = 0; b < 256; ++b) {
                if (letter_index(a) < 0 || letter_index(b) < 0) continue;
                const unsigned key = static_cast<unsigned>(a * 256 + b);
                int found = slot[key % kDigramSlots];
                if (table[found].key != key) {
                    found = rows;
                    for (int i = 0; i < rows && found == rows; ++i)
                        if (table[i].key == key) found = i;
                }
                row[letter_index(a) * kClasses + letter_index(b)] = static_cast<uint16_t>(found);
            }
        }
    }
};

const PairRows &pair_rows(bool caseless) {
    static const PairRows lower(FreqDigram, kDigramRows);
    static const PairRows upper(FreqUpperDigram, kUpperDigramRows);
    return caseless ? upper : lower;
}

double score_of_distance(double d) { return 1.0 - std::fmin(1.0, std::sqrt(d)); }

}  // namespace

extern "C" {

UDFKIT_API double CpuFreqQuality(const char *text, const char *charset, int32_t caseless) {
    // Expected distribution, as is and folded: the reference never changes.
    struct Expected {
        double plain[256], folded[256];
        Expected() {
            for (int c = 0; c < 256; ++c)
                plain[c] = folded[c] = Frequences[c] / static_cast<double>(kLetterTotal);
            fold_case(folded);
        }
    };
    static const Expected reference;
    const double *expected = caseless ? reference.folded : reference.plain;

    CountedBytes bytes(text, charset);
    uint64_t count[256] = {};
    const unsigned char *p = bytes.data();
    for (size_t i = 0, n = bytes.size(); i < n; ++i) ++count[p[i]];

    uint64_t letters = 0;
    for (int c = 0; c < 256; ++c)
        if (is_letter(static_cast<unsigned char>(c))) letters += count[c];
    if (letters == 0) return 0.0;

    // Only the letters' observed shares take part in the distance.
    double observed[256] = {};
    for (int c = 0; c < 256; ++c)
        if (is_letter(static_cast<unsigned char>(c)))
            observed[c] = static_cast<double>(count[c]) / static_cast<double>(letters);
    if (caseless) fold_case(observed);

    double d = 0;
    for (int c = 0; c < 256; ++c)
        if (is_letter(static_cast<unsigned char>(c))) d += std::fabs(expected[c] - observed[c]);
    return score_of_distance(d);
}

UDFKIT_API double CpuDigramQuality(const char *text, const char *charset, int32_t caseless) {
    DigramEntry *table = caseless ? FreqUpperDigram : FreqDigram;
    const int rows = caseless ? kUpperDigramRows : kDigramRows;
    const PairRows &pairs_of = pair_rows(caseless != 0);

    CountedBytes bytes(text, charset);
    if (bytes.size() < 2) {
        for (int i = 0; i < rows; ++i) table[i].count = 0;
        return 0.0;
    }

    // The class of each byte: its letter, the letter of its upper-case form
    // (C library toupper) when caseless, or "no letter" for every other
    // byte and for a letter whose upper-case form is no ASCII letter (such
    // a pair's key matches no row).
    uint8_t cls[256];
    for (int c = 0; c < 256; ++c) {
        int k = letter_index(c);
        if (k >= 0 && caseless) k = letter_index(std::toupper(c));
        cls[c] = static_cast<uint8_t>(k >= 0 ? k : kLetters);
    }

    // Counts per row, plus the discard bin.  Counts are 32-bit: of a text
    // longer than 2 GiB only the first INT32_MAX pairs are counted.
    uint32_t bins[kDigramRows + 1] = {};
    const unsigned char *p = bytes.data();
    const size_t n = std::min<size_t>(bytes.size(), static_cast<size_t>(INT32_MAX) + 1);
    unsigned prev = cls[p[0]];
    for (size_t i = 1; i < n; ++i) {
        const unsigned cur = cls[p[i]];
        ++bins[pairs_of.row[prev * kClasses + cur]];
        prev = cur;
    }
    // Every pair lands in a row or in the discard bin.
    const auto pairs = static_cast<int32_t>((n - 1) - bins[rows]);

    // One pass over the table: its working count, and when pairs were
    // counted, observed = count / pairs (0 exactly where count is 0) and the
    // distance over the rows the text has.
    double d = 0;
    for (int i = 0; i < rows; ++i) {
        DigramEntry &r = table[i];
        r.count = static_cast<int32_t>(bins[i]);
        if (pairs == 0) continue;
        if (r.count == 0) {
            r.observed = 0.0;
            continue;
        }
        r.observed = r.count / static_cast<double>(pairs);
        d += std::fabs(r.expected - r.observed);
    }
    if (pairs == 0) return 0.0;
    return score_of_distance(d);
}

}  // extern "C"

namespace {

// The three SQL functions pop (text, charset, caseless) the same way.
template <double (*Score)(const char *, const char *, int32_t)>
void quality_call(const HostCallTable *t, int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    guarded([&] {
        int32_t caseless = 0;
        t->PopInt(&caseless);
        char charset[kCharsetCap];
        udfkit::pop_into(t, charset);
        PoppedText text(t);
        t->PushDouble(Score(text.c_str(), charset, caseless));
    });
}

double mean_quality(const char *text, const char *charset, int32_t caseless) {
    return (CpuFreqQuality(text, charset, caseless) + CpuDigramQuality(text, charset, caseless)) *
           0.5;
}

}  // namespace

extern "C" {

UDFKIT_API void freqquality(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                            int32_t *rtype, int32_t *rsize) {
    quality_call<CpuFreqQuality>(t, rtype, rsize);
}

UDFKIT_API void digramquality(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                              int32_t *rtype, int32_t *rsize) {
    quality_call<CpuDigramQuality>(t, rtype, rsize);
}

UDFKIT_API void textquality(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                            int32_t *rtype, int32_t *rsize) {
    quality_call<mean_quality>(t, rtype, rsize);
}

}  // extern "C"
