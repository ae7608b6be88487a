// Compilation of a search pattern into the term table Recherche, cached by
// the pattern's bytes.
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

}  // namespace

extern "C" UDFKIT_API void BuildRecherche(const char *pattern) {
    if (!pattern) pattern = "";
    const size_t plen = std::strlen(pattern);
    const int32_t len = plen > INT32_MAX ? INT32_MAX : static_cast<int32_t>(plen);
    if (len == Sza && (len == 0 || (Aiguille && std::memcmp(pattern, Aiguille, len) == 0))) return;
    clear_table();

    const StdMode mode = std_mode();
    char stdw[kStdSize];
    char key[kKeySize];
    char quote_open = 0;  // the quote byte of the open run, 0 when none
    int32_t current_op = TERM_OPTIONAL;
    int nterms = 0;

    // The pattern is tokenised in place by offsets: nothing is shared with
    // any other splitting code.
    size_t i = 0;
    while (i < static_cast<size_t>(len) && nterms < UDFKIT_MAX_TERMS) {
        while (i < static_cast<size_t>(len) && pattern_delimiter(pattern[i])) ++i;
        if (i >= static_cast<size_t>(len)) break;
        const size_t off = i;
        while (i < static_cast<size_t>(len) && !pattern_delimiter(pattern[i])) ++i;
        const char *tok = pattern + off;
        const size_t tlen = i - off;
        const char before = off > 0 ? pattern[off - 1] : '\0';

        bool quoted = false, std_term = false;
        if (off == 0) {
            quoted = false;  // nothing before it: no run can be open
        } else if (quote_open && before == quote_open) {
            quote_open = 0;
        } else if (quote(before)) {
            quote_open = before;
            quoted = true;
            std_term = true;
        } else {
            quoted = quote_open != 0;
        }
        // Tokens whose standard word would not fit the work buffer are cut
        // to it: such a term still counts, but never matches (the distance
        // gives up on words beyond 255 bytes).
        make_std(mode, tok, tlen, stdw, sizeof stdw, nullptr);
        const char *word = stdw;
        int32_t is_std = 1;
        if (!std_term && !quoted && !has_full_stop(tok, tlen) && !digits_only(tok, tlen)) {
            key[0] = '\0';
            PhonetiseurFn ph = Phonetiseur ? Phonetiseur : Phonex;
            ph(stdw, key);
            key[sizeof key - 1] = '\0';
            if (std::strlen(key) > 4) {
                word = key;
                is_std = 0;
            }
        }
        if (is_std && stdw[0] == '\0') continue;  // dropped: no record, no operator change

        int32_t op;
        if (off == 0) {
            op = TERM_OPTIONAL;
        } else if (before == '+') {
            op = TERM_REQUIRED;
        } else if (before == '-') {
            op = TERM_EXCLUDED;
        } else if (before == ',') {
            op = TERM_OPTIONAL;
        } else if (before == ' ') {
            op = current_op;
        } else {  // a quote byte
            op = current_op;
            current_op = current_op == TERM_PHRASE ? TERM_OPTIONAL : TERM_PHRASE;
        }

        SearchTerm &t = Recherche[nterms];
        const size_t wlen = std::strlen(word);
        t.word = static_cast<char *>(std::malloc(wlen + 1));
        if (!t.word) break;  // out of memory: the table ends here
        std::memcpy(t.word, word, wlen + 1);
        t.length = static_cast<int32_t>(wlen);
        t.op = op;
        t.std = is_std;
        t.quoted = quoted ? 1 : 0;
        ++nterms;
    }
    if (nterms < UDFKIT_MAX_TERMS) Recherche[nterms].word = nullptr;

    Aiguille = static_cast<char *>(std::malloc(plen > 0 ? plen : 1));
    if (Aiguille) {
        std::memcpy(Aiguille, pattern, plen);
        Sza = len;
    } else {
        clear_table();  // out of memory: no cache, and no table it would not match
    }
}
