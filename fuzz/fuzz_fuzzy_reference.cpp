// The search against a plain transcription of its algorithm: the score and
// every term's position, length, score and cutoff the same to the bit,
// under both phonetic settings.  This keeps the search's shortcuts honest
// (words passed over, distances given up at a bound, keys remembered in
// long texts); the unit tests hold the known scores.
// Input: byte 0 chooses the character set (bit 0: ISO-8859-1, otherwise
// UTF-8); then the pattern, a NUL, the text (later NULs are dropped).
// Bytes 0x80 + k for k below the vocabulary's size stand for word k, the
// next as many for word k and a blank; the other bytes stand for
// themselves.  So a readable seed is a search as written, and a few high
// bytes make a text of near misses.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzzy/fuzzy_internal.hpp"
#include "udfkit/fuzzy.h"

namespace {

const char *const kVocab[] = {"dupont", "dupond", "Dupont", "jean", "Jean", "martin", "martine",
                              "paris", "Paris", "rue", "de", "la", "paix", "Paix", "fichier",
                              "fichiers", "ficher", "option", "options", "ligne", "commande",
                              "caf\xc3\xa9", "cafe", "\xc3\x89lan", "2024", "2042", "st.louis",
                              "philippe", "filipe", "a", "b", "xyz", "chanson", "chansons",
                              "maison", "maisons", "saison", "quatre", "queue", "eau", "seaux"};
constexpr unsigned kWords = sizeof kVocab / sizeof kVocab[0];

struct TermResult {
    int32_t cutoff, position, matchLength;
    double score;
};

bool delimiter(char c) { return c && std::strchr(" :,;.-'/\n`*+#!?(){}[]=~$<>_", c) != nullptr; }

// One term against one word of the text, given as its standard form and
// its key; cutoff is the term's best distance so far.
double term_score(const SearchTerm &t, const char *stdw, const char *key, bool cut_mode, int32_t &cutoff) {
    const char *x = t.std ? stdw : key;
    const int xl = static_cast<int>(std::strlen(x));
    if (xl == 0) return 0;
    int d = cut_mode ? LevDistCutOff(x, t.word, cutoff) : LevDist(x, t.word);
    if (cut_mode) cutoff = std::min(cutoff, d);
    if (t.quoted) d *= 2;
    return std::max(0.0, 1 - static_cast<double>(d) / static_cast<double>(std::max(t.length, xl)));
}

// Scores text against the compiled table the slow way, writing the
// per-search fields into out (the table itself is left alone).
double reference(const std::string &text, std::vector<TermResult> &out) {
    int n = 0;
    while (n < UDFKIT_MAX_TERMS && Recherche[n].word) ++n;
    out.assign(static_cast<size_t>(n), TermResult{255, -1, 0, 0.0});
    const bool cut_mode = std::none_of(Recherche, Recherche + n, [](auto &t) { return t.op == TERM_PHRASE; });
    // A single term only meets words of half to one and a half its length.
    const int lo = n == 1 ? Recherche[0].length / 2 : -1, hi = n == 1 ? 3 * Recherche[0].length / 2 : 255;
    std::vector<double> prev(static_cast<size_t>(n), 0.0), cur(static_cast<size_t>(n), 0.0);
    for (size_t i = 0, off; n > 0 && i < text.size();) {
        while (i < text.size() && delimiter(text[i])) ++i;
        for (off = i; i < text.size() && !delimiter(text[i]);) ++i;
        if (off == i) break;
        const std::string w = text.substr(off, i - off);
        // A word whose standard form does not fit the work buffer is
        // skipped, as the search skips it.
        char stdw[UDFKIT_STDMOT_SIZE], key[UDFKIT_PHONKEY_SIZE];
        bool over = false;
        const int len = static_cast<int>(udfkit::fuzzy::make_std(udfkit::fuzzy::std_mode(), w.data(), w.size(),
                                                                   stdw, sizeof stdw, &over));
        if (over || len == 0 || len <= lo || len >= hi) continue;
        Phonetiseur(stdw, key);
        for (size_t j = 0; j < static_cast<size_t>(n); ++j) {
            double s = term_score(Recherche[j], stdw, key, cut_mode, out[j].cutoff);
            if (Recherche[j].op == TERM_PHRASE && j > 0) s *= prev[j - 1];
            if (s > out[j].score) out[j] = {out[j].cutoff, static_cast<int32_t>(off), static_cast<int32_t>(w.size()), s};
            cur[j] = s;
        }
        prev = cur;
    }
    // Optional terms are averaged; the others multiply what comes before.
    double a = 0;
    int count = 0;
    for (int j = 0; j < n; ++j) {
        if (Recherche[j].op == TERM_OPTIONAL) a += out[j].score, ++count;
        else a *= Recherche[j].op == TERM_EXCLUDED ? 1 - out[j].score : out[j].score;
    }
    return std::clamp(count ? a / count : a, 0.0, 1.0);
}

[[noreturn]] void fail(const std::string &pattern, const std::string &text, double got, double want, int term) {
    std::fprintf(stderr, "search and transcription differ (%s, %s, term %d): %.17g, want %.17g\n",
                 Phonetiseur == Phonex ? "Phonex" : "no phonetics", IsoCode, term, got, want);
    std::fprintf(stderr, "pattern [%s]\ntext [%s]\n", pattern.c_str(), text.c_str());
    std::abort();
}

// Searches text for pattern, compiled afresh under the phonetics in force,
// and runs the transcription on the same table: both must agree to the bit.
void check(const std::string &pattern, const std::string &text) {
    BuildRecherche("");
    const double score = FuzzySearch(pattern.c_str(), text.c_str());
    std::vector<TermResult> want;
    const double expect = reference(text, want);
    if (std::memcmp(&score, &expect, sizeof expect) != 0) fail(pattern, text, score, expect, -1);
    for (size_t j = 0; j < want.size(); ++j) {
        const SearchTerm &t = Recherche[j];
        const TermResult &w = want[j];
        if (t.position != w.position || t.cutoff != w.cutoff ||
            (w.position >= 0 && (t.matchLength != w.matchLength || t.score != w.score)))
            fail(pattern, text, t.score, w.score, static_cast<int>(j));
    }
}

// The pattern and the text the input stands for.
void decode(const uint8_t *data, size_t size, std::string &pattern, std::string &text) {
    std::string *to = &pattern;
    for (size_t i = 0; i < size; ++i) {
        const unsigned b = data[i], k = b - 0x80;
        if (b == 0) {
            to = &text;  // the text ends at its first NUL: later ones are dropped
        } else if (b >= 0x80 && k < 2 * kWords) {
            *to += kVocab[k % kWords];
            if (k >= kWords) *to += ' ';
        } else {
            *to += static_cast<char>(b);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    std::string pattern, text;
    decode(data + 1, size - 1, pattern, text);
    std::strcpy(IsoCode, data[0] & 1 ? "ISO-8859-1" : "UTF-8");
    for (PhonetiseurFn ph : {Phonex, PhonexNone}) {
        Phonetiseur = ph;
        check(pattern, text);
    }
    Phonetiseur = Phonex;
    std::strcpy(IsoCode, "UTF-8");
    BuildRecherche("");
    return 0;
}
