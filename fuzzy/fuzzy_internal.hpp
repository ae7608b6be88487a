// Internal pieces of the fuzzy search shared by its source files; nothing
// here is exported.
#pragma once

#include <cstddef>
#include <cstdint>

#include "udfkit/fuzzy.h"

namespace udfkit::fuzzy {

// How MakeStdMot folds a word, chosen from IsoCode.
enum class StdMode { Utf8, Latin1, Translit };

// The mode IsoCode selects right now.
StdMode std_mode() noexcept;

// Second byte after 0xC3 -> letter, for the UTF-8 mode (0: nothing).
struct Utf8Fold {
    unsigned char letter[256] = {};
    constexpr Utf8Fold() {
        letter[0x89] = 'E';
        letter[0xA0] = letter[0xA2] = letter[0xA4] = 'A';
        letter[0xA7] = 'C';
        letter[0xA8] = letter[0xA9] = letter[0xAA] = letter[0xAB] = 'E';
        letter[0xAE] = letter[0xAF] = 'I';
        letter[0xB4] = letter[0xB6] = 'O';
        letter[0xB9] = letter[0xBB] = letter[0xBC] = 'U';
    }
};
inline constexpr Utf8Fold kUtf8Fold;

// Byte -> letter for the ISO-8859-1 mode, bytes >= 0x80 only (0: dropped).
struct Latin1Fold {
    unsigned char letter[256] = {};
    constexpr Latin1Fold() {
        for (int c = 0xC0; c <= 0xC5; ++c) letter[c] = 'A';
        for (int c = 0xE0; c <= 0xE4; ++c) letter[c] = 'A';
        letter[0xC7] = letter[0xE7] = 'C';
        for (int c = 0xC8; c <= 0xCB; ++c) letter[c] = 'E';
        for (int c = 0xE8; c <= 0xEB; ++c) letter[c] = 'E';
        letter[0xD1] = letter[0xF1] = 'N';
        for (int c = 0xD2; c <= 0xD6; ++c) letter[c] = 'O';
        letter[0xF0] = 'O';
        for (int c = 0xF2; c <= 0xF6; ++c) letter[c] = 'O';
        letter[0xEE] = letter[0xEF] = 'I';
        for (int c = 0xF9; c <= 0xFC; ++c) letter[c] = 'U';
    }
};
inline constexpr Latin1Fold kLatin1Fold;

// toupper of the bytes below 0x80 under the current locale, taken once
// for the many words of a search.
struct UpperTable {
    unsigned char up[128];
    UpperTable() noexcept;
};

// Standard word of the len bytes at word (which need not be terminated)
// into out, whose capacity is cap bytes (terminator included, cap >= 1).
// Returns the length written; when the standard word would not fit, the
// output is cut to cap - 1 bytes and *overflow is set.  Without a table,
// toupper is asked for every byte.
size_t make_std(StdMode mode, const char *word, size_t len, char *out, size_t cap,
                bool *overflow, const UpperTable *upper = nullptr) noexcept;

// The plain two-row edit distance with the cut-off rule (cut <= 0 with
// no_cut set disables the rule).  Used for strings the bit-parallel code
// cannot hold, and as the reference the fast code is measured against.
int32_t lev_two_rows(const char *s1, int32_t l1, const char *s2, int32_t l2, int32_t cut,
                     bool use_cut) noexcept;

// The second string of an edit distance, prepared once for many first
// strings (a search compares every word of a text with the same term).
// Up to 64 bytes it is held as is; longer strings (up to the 255-byte
// limit) get a table of match vectors, one 64-bit word per 64 positions
// for each distinct byte, on the heap.
class LevPattern {
public:
    LevPattern() = default;
    ~LevPattern();
    LevPattern(const LevPattern &) = delete;
    LevPattern &operator=(const LevPattern &) = delete;

    // s2 must stay valid while the object is used.
    void set(const char *s2, int32_t l2) noexcept;
    // LevDist (use_cut false) or LevDistCutOff (use_cut true) of s1, of
    // length l1, and the prepared string.
    int32_t distance(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept;

private:
    int32_t bits(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept;
    int32_t words(const char *s1, int32_t l1, int32_t cut, bool use_cut) const noexcept;
    uint64_t match(char c) const noexcept;
    void set_long() noexcept;
    alignas(16) char buf_[64];  // the first 64 bytes of s2, zero-padded
    const char *s2_ = nullptr;
    int32_t l2_ = 0;
    int blocks_ = 0;  // 16-byte blocks of buf_ in use
    int words_ = 0;   // 64-bit words per match vector of a long string
    // Long strings: 256 row numbers by byte, then the rows of words_
    // match vectors (row 0: no match); null when the table could not be
    // made, and the two-row programme is used instead.
    unsigned char *table_ = nullptr;
};

// The Phonex keys of the blank-separated words of words[0, n), n <= 64,
// each followed by the blank that followed its word, into out; returns
// the length written.  words and out span 64 bytes each, whatever n.
// Equal to the keys of the words one by one while the vowel table leaves
// the blank out.
size_t phonex_words(const char *words, size_t n, char *out) noexcept;

// The number of terms in Recherche: up to the first null word.
int term_count() noexcept;

// Whether LevDistCutOff takes the build of its short-word path for AVX2
// and BMI2: set at load when the processor has them (tests clear it to
// check the build for any x86-64).
extern bool lev_avx2;

constexpr int32_t kTooLarge = UDFKIT_DISTANCE_TOO_LARGE;
constexpr size_t kStdSize = UDFKIT_STDMOT_SIZE;
constexpr size_t kKeySize = UDFKIT_PHONKEY_SIZE;

}  // namespace udfkit::fuzzy
