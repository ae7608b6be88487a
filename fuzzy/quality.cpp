// Text quality: letter and letter-pair frequency scores against the
// reference statistics, and the SQL functions freqquality, digramquality
// and textquality.
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

// Lookup structures of one digram table, fixed by its keys: the slot index
// (slot[key % 2231] = the last row with that residue, 0 for a slot no row
// reaches, which names the sentinel whose key 0 matches no letter pair) and,
// for keys whose slot names another row, the answer of a scan of the table
// for the first row with the key, computed once here instead of per pair.
struct DigramIndex {
    uint16_t slot[kDigramSlots];
    int16_t first_row[65536];  // -1: no row has the key

    DigramIndex(const DigramEntry *table, int rows) {
        std::memset(slot, 0, sizeof slot);
        for (int i = 0; i < rows; ++i) slot[table[i].key % kDigramSlots] = static_cast<uint16_t>(i);
        for (auto &r : first_row) r = -1;
        for (int i = rows - 1; i >= 0; --i) first_row[table[i].key] = static_cast<int16_t>(i);
    }

    int lookup(const DigramEntry *table, unsigned key) const {
        int row = slot[key % kDigramSlots];
        if (table[row].key == key) return row;
        return first_row[key];
    }
};

const DigramIndex &index_of(bool caseless) {
    static const DigramIndex lower(FreqDigram, kDigramRows);
    static const DigramIndex upper(FreqUpperDigram, kUpperDigramRows);
    return caseless ? upper : lower;
}

double score_of_distance(double d) { return 1.0 - std::fmin(1.0, std::sqrt(d)); }

}  // namespace

extern "C" {

UDFKIT_API double CpuFreqQuality(const char *text, const char *charset, int32_t caseless) {
    double expected[256];
    for (int c = 0; c < 256; ++c) expected[c] = Frequences[c] / static_cast<double>(kLetterTotal);
    if (caseless) fold_case(expected);

    CountedBytes bytes(text, charset);
    uint64_t count[256] = {};
    const unsigned char *p = bytes.data();
    for (size_t i = 0, n = bytes.size(); i < n; ++i) ++count[p[i]];

    uint64_t letters = 0;
    for (int c = 0; c < 256; ++c)
        if (is_letter(static_cast<unsigned char>(c))) letters += count[c];
    if (letters == 0) return 0.0;

    double observed[256];
    for (int c = 0; c < 256; ++c)
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
    for (int i = 0; i < rows; ++i) table[i].count = 0;
    const DigramIndex &index = index_of(caseless != 0);

    CountedBytes bytes(text, charset);
    if (bytes.size() < 2) return 0.0;

    // A row's count and the pair total are 32-bit: past INT32_MAX pairs
    // (a text of over 2 GiB) the rest of the text is not counted.
    const unsigned char *p = bytes.data();
    const size_t last = bytes.size() - 1;
    int32_t pairs = 0;
    for (size_t i = 0; i < last && pairs < INT32_MAX; ++i) {
        unsigned a = p[i], b = p[i + 1];
        if (!is_letter(static_cast<unsigned char>(a)) || !is_letter(static_cast<unsigned char>(b)))
            continue;
        if (caseless) {
            a = static_cast<unsigned char>(std::toupper(static_cast<int>(a)));
            b = static_cast<unsigned char>(std::toupper(static_cast<int>(b)));
        }
        int row = index.lookup(table, a * 256 + b);
        if (row < 0) continue;
        ++table[row].count;
        ++pairs;
    }
    if (pairs == 0) return 0.0;

    for (int i = 0; i < rows; ++i)
        table[i].observed = table[i].count / static_cast<double>(pairs);
    double d = 0;
    for (int i = 0; i < rows; ++i)
        if (table[i].count != 0) d += std::fabs(table[i].expected - table[i].observed);
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
        charset[0] = '\0';
        t->PopString(charset, kCharsetCap);
        charset[kCharsetCap - 1] = '\0';
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
