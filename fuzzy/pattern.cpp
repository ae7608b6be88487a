// Compilation of a search pattern into the term table Recherche, cached by
// the pattern's bytes.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fuzzy/fuzzy_internal.hpp"

extern "C" {
UDFKIT_API SearchTerm Recherche[UDFKIT_MAX_TERMS] = {};
UDFKIT_API char *Aiguille = nullptr;
UDFKIT_API int32_t Sza = 0;
}

namespace {

using namespace udfkit::fuzzy;

inline bool pattern_delimiter(char c) {
    return c == ' ' || c == '+' || c == '-' || c == ',' || c == '"' || c == '\'';
}
inline bool quote(char c) { return c == '"' || c == '\''; }

bool has_full_stop(const char *tok, size_t n) { return std::memchr(tok, '.', n) != nullptr; }

bool digits_only(const char *tok, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (tok[i] < '0' || tok[i] > '9') return false;
    return true;
}

void clear_table() {
    std::free(Aiguille);
    Aiguille = nullptr;
    Sza = 0;
    for (SearchTerm &t : Recherche) {
        if (!t.word) break;
        std::free(t.word);
        t.word = nullptr;
    }
}

// The pattern is cut into tokens by offsets, in place: nothing is shared
// with any other splitting code.  Advances *i past the next token and
// gives its offset and length; false when no token is left.
bool next_token(const char *pattern, size_t len, size_t *i, size_t *off, size_t *tlen) {
    size_t k = *i;
    while (k < len && pattern_delimiter(pattern[k])) ++k;
    if (k >= len) return false;
    *off = k;
    while (k < len && !pattern_delimiter(pattern[k])) ++k;
    *tlen = k - *off;
    *i = k;
    return true;
}

// The states that run across the tokens of a pattern: the quote byte of
// the open quoted run (0 when none) and the operator in force.
struct Tokens {
    char quote_open = 0;
    int32_t current_op = TERM_OPTIONAL;

    // Whether the token at off (preceded by the byte before) is quoted.
    // Only the byte right before a token counts: a quote byte there closes
    // the open run or opens one.
    bool quoted(size_t off, char before) {
        if (off == 0) return false;  // nothing before it: no run can be open
        if (quote_open && before == quote_open) {
            quote_open = 0;
            return false;
        }
        if (quote(before)) {
            quote_open = before;
            return true;
        }
        return quote_open != 0;
    }

    // The operator of a kept term; a quote byte before it flips the
    // operator in force between optional and phrase continuation.
    int32_t op(size_t off, char before) {
        if (off == 0) return TERM_OPTIONAL;
        switch (before) {
        case '+': return TERM_REQUIRED;
        case '-': return TERM_EXCLUDED;
        case ',': return TERM_OPTIONAL;
        case ' ': return current_op;
        default: {  // a quote byte
            const int32_t op = current_op;
            current_op = current_op == TERM_PHRASE ? TERM_OPTIONAL : TERM_PHRASE;
            return op;
        }
        }
    }
};

// The word a token is compared by: its standard word (into stdw), or its
// phonetic key (into key) when the token may be phonetic and the key is
// longer than 4 bytes.  *is_std tells which.
const char *term_word(const char *tok, size_t tlen, bool may_be_phonetic, char (&stdw)[kStdSize],
                      char (&key)[kKeySize], int32_t *is_std) {
    // Tokens whose standard word would not fit the work buffer are cut to
    // it: such a term still counts, but never matches (the distance gives
    // up on words beyond 255 bytes).
    make_std(std_mode(), tok, tlen, stdw, sizeof stdw, nullptr);
    *is_std = 1;
    if (!may_be_phonetic || has_full_stop(tok, tlen) || digits_only(tok, tlen)) return stdw;
    key[0] = '\0';
    PhonetiseurFn ph = Phonetiseur ? Phonetiseur : Phonex;
    ph(stdw, key);
    key[sizeof key - 1] = '\0';
    if (std::strlen(key) <= 4) return stdw;
    *is_std = 0;
    return key;
}

// Stores a term in record j; false when its word cannot be allocated.
bool store_term(int j, const char *word, int32_t op, int32_t is_std, bool quoted) {
    SearchTerm &t = Recherche[j];
    const size_t wlen = std::strlen(word);
    t.word = static_cast<char *>(std::malloc(wlen + 1));
    if (!t.word) return false;
    std::memcpy(t.word, word, wlen + 1);
    t.length = static_cast<int32_t>(wlen);
    t.op = op;
    t.std = is_std;
    t.quoted = quoted ? 1 : 0;
    return true;
}

// Keeps the pattern's bytes as the cache key of the table.
void remember(const char *pattern, size_t plen) {
    Aiguille = static_cast<char *>(std::malloc(plen > 0 ? plen : 1));
    if (Aiguille) {
        std::memcpy(Aiguille, pattern, plen);
        Sza = static_cast<int32_t>(plen);
    } else {
        clear_table();  // out of memory: no cache, and no table it would not match
    }
}

}  // namespace

extern "C" UDFKIT_API void BuildRecherche(const char *pattern) {
    if (!pattern) pattern = "";
    const size_t plen = std::strlen(pattern);
    const size_t len = std::min<size_t>(plen, INT32_MAX);
    if (static_cast<int32_t>(len) == Sza && (len == 0 || (Aiguille && std::memcmp(pattern, Aiguille, len) == 0)))
        return;
    clear_table();

    char stdw[kStdSize];
    char key[kKeySize];
    Tokens state;
    int nterms = 0;
    size_t i = 0, off = 0, tlen = 0;
    while (nterms < UDFKIT_MAX_TERMS && next_token(pattern, len, &i, &off, &tlen)) {
        const char before = off > 0 ? pattern[off - 1] : '\0';
        const bool quoted = state.quoted(off, before);
        int32_t is_std;  // quoted terms are compared by their standard words
        const char *word = term_word(pattern + off, tlen, !quoted, stdw, key, &is_std);
        if (is_std && stdw[0] == '\0') continue;  // dropped: no record, no operator change
        const int32_t op = state.op(off, before);
        if (!store_term(nterms, word, op, is_std, quoted)) break;  // out of memory: the table ends here
        ++nterms;
    }
    if (nterms < UDFKIT_MAX_TERMS) Recherche[nterms].word = nullptr;
    remember(pattern, len);
}
