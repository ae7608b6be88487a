// The search against a plain transcription of its algorithm, on random
// patterns and texts: the scores, and every term's position, length, score
// and cutoff, must be the same to the bit.  The search skips work that
// cannot change its outcome; this test is what keeps those shortcuts honest.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "udfkit/fuzzy.h"

namespace {

struct TermResult {
    int32_t cutoff, position, matchLength;
    double score;
};

bool delimiter(char c) { return c && std::strchr(" :,;.-'/\n`*+#!?(){}[]=~$<>_", c) != nullptr; }

// Scores text against the compiled table the slow way, writing the
// per-search fields into out (the table itself is left alone).
double reference(const std::string &text, std::vector<TermResult> &out) {
    int n = 0;
    while (n < UDFKIT_MAX_TERMS && Recherche[n].word) ++n;
    out.assign(n, TermResult{255, -1, 0, 0.0});
    if (n == 0) return 0.0;
    bool cut_mode = true;
    for (int j = 0; j < n; ++j)
        if (Recherche[j].op == TERM_PHRASE) cut_mode = false;
    int lo = -1, hi = 255;
    if (n == 1) {
        lo = Recherche[0].length / 2;
        hi = 3 * Recherche[0].length / 2;
    }
    std::vector<double> best(n, 0.0), prev(n, 0.0), cur(n, 0.0);
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && delimiter(text[i])) ++i;
        if (i >= text.size()) break;
        size_t off = i;
        while (i < text.size() && !delimiter(text[i])) ++i;
        std::string w = text.substr(off, i - off);
        char stdw[UDFKIT_STDMOT_SIZE], key[UDFKIT_PHONKEY_SIZE];
        MakeStdMot(w.c_str(), stdw);
        int len = (int)std::strlen(stdw);
        if (len == 0 || len <= lo || len >= hi) continue;
        Phonetiseur(stdw, key);
        for (int j = 0; j < n; ++j) {
            const SearchTerm &t = Recherche[j];
            const char *x = t.std ? stdw : key;
            int xl = (int)std::strlen(x);
            double s = 0;
            if (xl > 0) {
                int d;
                if (cut_mode) {
                    d = LevDistCutOff(x, t.word, out[j].cutoff);
                    out[j].cutoff = std::min(out[j].cutoff, d);
                } else {
                    d = LevDist(x, t.word);
                }
                if (t.quoted) d *= 2;
                s = 1 - (double)d / (double)std::max(t.length, xl);
                if (s < 0) s = 0;
            }
            if (t.op == TERM_PHRASE && j > 0) s *= prev[j - 1];
            if (s > best[j]) {
                best[j] = s;
                out[j].position = (int32_t)off;
                out[j].matchLength = (int32_t)w.size();
                out[j].score = s;
            }
            cur[j] = s;
        }
        prev = cur;
    }
    double a = 0;
    int count = 0;
    for (int j = 0; j < n; ++j) {
        switch (Recherche[j].op) {
        case TERM_OPTIONAL: a += best[j]; ++count; break;
        case TERM_EXCLUDED: a *= 1 - best[j]; break;
        default: a *= best[j]; break;
        }
    }
    double r = count ? a / count : a;
    return std::clamp(r, 0.0, 1.0);
}

TEST(FuzzyReference, RandomPatternsAndTexts) {
    const char *vocab[] = {"dupont", "dupond", "Dupont", "jean", "Jean", "martin", "martine",
                           "paris", "Paris", "rue", "de", "la", "paix", "Paix", "fichier",
                           "fichiers", "ficher", "option", "options", "ligne", "commande",
                           "caf\xc3\xa9", "cafe", "\xc3\x89lan", "2024", "2042", "st.louis",
                           "philippe", "filipe", "a", "b", "xyz", "chanson", "chansons",
                           "maison", "maisons", "saison", "quatre", "queue", "eau", "seaux"};
    const char *seps[] = {" ", " ", " ", ", ", ". ", "-", "'", "\n", " (", ") "};
    const char *pat_seps[] = {" ", " ", " +", " -", ",", " '", "' ", " \"", "\" ", "'"};
    std::mt19937 rng(20261123);
    auto pick = [&](auto &arr) { return std::string(arr[rng() % (sizeof arr / sizeof arr[0])]); };
    std::strcpy(IsoCode, "UTF-8");
    const int kCases = 20000;
    int failures = 0;
    for (int c = 0; c < kCases && failures < 5; ++c) {
        Phonetiseur = rng() % 4 ? Phonex : PhonexNone;
        std::string pattern, text;
        int nt = 1 + rng() % 6;
        if (rng() % 3 == 0) pattern = pick(pat_seps).substr(1);
        for (int k = 0; k < nt; ++k) pattern += (k ? pick(pat_seps) : "") + pick(vocab);
        // Some texts are long enough for the search to remember keys.
        int nw = c % 40 == 0 ? 600 + rng() % 600 : rng() % 30;
        for (int k = 0; k < nw; ++k) text += pick(vocab) + pick(seps);
        // Compile afresh so that the table follows this case's phonetics.
        BuildRecherche("");
        double got = FuzzySearch(pattern.c_str(), text.c_str());
        std::vector<TermResult> want;
        double expect = reference(text, want);
        bool same = std::memcmp(&got, &expect, sizeof got) == 0;
        for (size_t j = 0; j < want.size(); ++j) {
            const SearchTerm &t = Recherche[j];
            same = same && t.position == want[j].position && t.cutoff == want[j].cutoff;
            if (want[j].position >= 0)
                same = same && t.matchLength == want[j].matchLength && t.score == want[j].score;
        }
        if (!same) {
            ++failures;
            ADD_FAILURE() << "pattern [" << pattern << "] text [" << text << "]: " << got << " vs "
                          << expect;
        }
    }
    Phonetiseur = Phonex;
    BuildRecherche("");
}

}  // namespace
