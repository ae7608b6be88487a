// Phonex keys, long words, edit distances and the search, against plain
// references.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "fuzzy/fuzzy_internal.hpp"
#include "host/testhost.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

std::string key(const std::string &w) {
    char out[UDFKIT_STDMOT_SIZE];
    std::memset(out, 'Z', sizeof out);
    EXPECT_EQ(Phonex(w.c_str(), out), out);
    return out;
}

TEST(Phonex, Keys) {
    const char *cases[][2] = {
        {"PHILIPPE", "FILIPPE"}, {"THOMAS", "TOMAS"},   {"MARTIN", "MART4"},  {"HENRI", "1RI"},
        {"CHAT", "5A"},          {"CHANT", "51"},       {"SCHEMA", "5EMA"},   {"ROSE", "ROZE"},
        {"SOUS", "S3S"},         {"QUEUE", "KEE"},      {"GUY", "KI"},        {"CECI", "SESI"},
        {"EAU", "O"},            {"SEAUX", "SO"},       {"OUATE", "2TE"},     {"PAIN", "P4"},
        {"PEINE", "PYNE"},       {"AIMER", "YNYR"},     {"MAISON", "MYS6"},   {"BONBON", "B6B6"},
        {"ONE", "6E"},           {"CAMION", "KAMI6"},   {"DUPONT", "DUP6"},   {"ROBERT", "ROBYR"},
        {"ANNE", "1NE"},         {"VINCENT", "V4K1"},   {"GANT", "K1"},       {"GAIN", "K4"},
        {"GAMBADE", "K1BADE"},   {"GAIMAT", "KYNA"},    {"TEXT", "TEX"},      {"XT", "X"},
        {"T", ""},               {"", ""},              {"EAIN", "E4"},       {"HACHE", "A5E"},
        {"QATAR", "KATAR"},      {"SCIE", "SIE"},       {"ESSAI", "YSY"},     {"SHAH", "5A"},
        {"DUPOND", "DUP6D"},     {"DURAND", "DUR1D"},   {"LEFEBVRE", "LEFEBVRE"},
    };
    for (const auto &c : cases) EXPECT_EQ(key(c[0]), c[1]) << c[0];
}

// Long words are cut to fit the output buffer; nothing is written past it.
TEST(Phonex, LongWordsStayInTheBuffer) {
    const std::string w(1000, 'B');
    char out[3][UDFKIT_STDMOT_SIZE + 16];
    std::memset(out, 'Z', sizeof out);
    MakeStdMot(w.c_str(), out[0]);
    Phonex(w.c_str(), out[1]);
    PhonexNone(w.c_str(), out[2]);
    const size_t want[] = {UDFKIT_STDMOT_SIZE - 1, 270, UDFKIT_STDMOT_SIZE - 1};  // Phonex cuts first
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(std::strlen(out[k]), want[k]) << k;
        EXPECT_EQ(out[k][UDFKIT_STDMOT_SIZE], 'Z') << k;
    }
}

TEST(Phonex, SetPhonexSwitchesTheFunction) {
    TestHost h;
    char out[UDFKIT_STDMOT_SIZE];
    EXPECT_TRUE(h.call(fuzzysetphonex, {I(0)}).exact(0));
    EXPECT_STREQ(Phonetiseur("PHILIPPE", out), "PHILIPPE");
    EXPECT_TRUE(h.call(fuzzysetphonex, {I(7)}).exact(0));
    EXPECT_EQ(Phonetiseur, Phonex);
}

// Known distances, the cut-off rule among them (fuzz/fuzz_levdist.cpp
// compares generated strings with the two-row programme).
TEST(LevDist, Examples) {
    const std::string w256(256, 'A'), a70(70, 'A'), b65(65, 'B');
    struct {
        const char *a, *b;
        int32_t cut;  // -1: LevDist
        int32_t want;
    } cases[] = {
        {"", "ABC", -1, 3},           {"FLAW", "LAWN", -1, 2},
        {"DUPOND", "DUPONT", 255, 1}, {"AB", "BA", 2, 2},
        {"XYZ", "ABC", 1, 1000000},   {"HABITE", "DUPONT", 1, 1000000},
        {w256.c_str(), w256.c_str(), -1, 1000000},
        {a70.c_str(), b65.c_str(), 70, 1000000},  // the last row is the first at the cut
        {a70.c_str(), b65.c_str(), 71, 70},
    };
    for (const auto &c : cases) {
        int32_t got = c.cut < 0 ? LevDist(c.a, c.b) : LevDistCutOff(c.a, c.b, c.cut);
        EXPECT_EQ(got, c.want) << c.a << " / " << c.b << " cut " << c.cut;
    }
}

// ---------------------------------------------------------------- the search
// The search against a plain transcription of its algorithm: scores and
// every term's position, length, score and cutoff the same to the bit (this
// keeps the search's shortcuts honest; known scores hold the transcription
// to account).

struct TermResult {
    int32_t cutoff, position, matchLength;
    double score;
};

bool delimiter(char c) { return c && std::strchr(" :,;.-'/\n`*+#!?(){}[]=~$<>_", c) != nullptr; }

// One term against one word of the text, given as its standard form and
// its key; cutoff is the term's best distance so far.
double term_score(const SearchTerm &t, const char *stdw, const char *key, bool cut_mode, int32_t &cutoff) {
    const char *x = t.std ? stdw : key;
    const int xl = (int)std::strlen(x);
    if (xl == 0) return 0;
    int d = cut_mode ? LevDistCutOff(x, t.word, cutoff) : LevDist(x, t.word);
    if (cut_mode) cutoff = std::min(cutoff, d);
    if (t.quoted) d *= 2;
    return std::max(0.0, 1 - (double)d / (double)std::max(t.length, xl));
}

// Scores text against the compiled table the slow way, writing the
// per-search fields into out (the table itself is left alone).
double reference(const std::string &text, std::vector<TermResult> &out) {
    int n = 0;
    while (n < UDFKIT_MAX_TERMS && Recherche[n].word) ++n;
    out.assign(n, TermResult{255, -1, 0, 0.0});
    const bool cut_mode = std::none_of(Recherche, Recherche + n, [](auto &t) { return t.op == TERM_PHRASE; });
    // A single term only meets words of half to one and a half its length.
    const int lo = n == 1 ? Recherche[0].length / 2 : -1, hi = n == 1 ? 3 * Recherche[0].length / 2 : 255;
    std::vector<double> prev(n, 0.0), cur(n, 0.0);
    for (size_t i = 0, off; n > 0 && i < text.size();) {
        while (i < text.size() && delimiter(text[i])) ++i;
        for (off = i; i < text.size() && !delimiter(text[i]);) ++i;
        if (off == i) break;
        const std::string w = text.substr(off, i - off);
        char stdw[UDFKIT_STDMOT_SIZE], key[UDFKIT_PHONKEY_SIZE];
        MakeStdMot(w.c_str(), stdw);
        const int len = (int)std::strlen(stdw);
        if (len == 0 || len <= lo || len >= hi) continue;
        Phonetiseur(stdw, key);
        for (int j = 0; j < n; ++j) {
            double s = term_score(Recherche[j], stdw, key, cut_mode, out[j].cutoff);
            if (Recherche[j].op == TERM_PHRASE && j > 0) s *= prev[j - 1];
            if (s > out[j].score) out[j] = {out[j].cutoff, (int32_t)off, (int32_t)w.size(), s};
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

// Searches text for pattern, compiled afresh under the phonetics in force,
// and runs the transcription on the same table: true when both agree to
// the bit.
bool agree(const std::string &pattern, const std::string &text, double *score) {
    BuildRecherche("");
    *score = FuzzySearch(pattern.c_str(), text.c_str());
    std::vector<TermResult> want;
    const double expect = reference(text, want);
    bool same = std::memcmp(score, &expect, sizeof expect) == 0;
    for (size_t j = 0; j < want.size(); ++j) {
        const SearchTerm &t = Recherche[j];
        const TermResult &w = want[j];
        same = same && t.position == w.position && t.cutoff == w.cutoff &&
               (w.position < 0 || (t.matchLength == w.matchLength && t.score == w.score));
    }
    return same;
}

// 1 - 1/3 and (3 - 1)/3 differ in the last bit: the score is the former.
TEST(FuzzyReference, KnownScores) {
    struct {
        const char *pattern, *text;
        double want;
        int position;  // of the first term
    } cases[] = {
        {"dupont", "M. Dupond habite ici", 1 - 1.0 / 6, 3},
        {"123", "124", 1 - 1.0 / 3, 0},
        {"jean +dupont", "Jean Dupond", 1 - 1.0 / 6, 0},
        {"+dupont jean", "Jean Dupond", 1.0, 5},
        {"+dupont", "Dupont", 0.0, 0},
        {"martin -paris", "Martine de Paris", 0.0, 0},
        {"'rue de la paix'", "12 rue de la Paix, Paris", 1.0, 3},
        {"'rue de la paix'", "la paix de la rue", 0.0, 14},
        {"'dupond'", "Dupont", 1 - 2.0 / 6, 0},
        {"dupont", "Dupont et Dupont", 1.0, 0},  // the first exact match keeps the position
        {"a", "a b a", 0.0, -1},                 // a one-byte term never matches
        {"dupont", " .,;", 0.0, -1},
        {" ,+", "Dupont", 0.0, 0},  // no term
    };
    std::strcpy(IsoCode, "UTF-8");
    for (const auto &c : cases) {
        double got = -1;
        EXPECT_TRUE(agree(c.pattern, c.text, &got)) << c.pattern << " / " << c.text;
        EXPECT_EQ(got, c.want) << c.pattern << " / " << c.text;
        if (Recherche[0].word) {
            EXPECT_EQ(Recherche[0].position, c.position) << c.pattern << " / " << c.text;
        }
    }
    BuildRecherche("");
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
    int failures = 0;
    for (int c = 0; c < 20000 && failures < 5; ++c) {
        Phonetiseur = rng() % 4 ? Phonex : PhonexNone;
        std::string pattern, text;
        if (rng() % 3 == 0) pattern = pick(pat_seps).substr(1);
        for (int k = 0, nt = 1 + rng() % 6; k < nt; ++k) pattern += (k ? pick(pat_seps) : "") + pick(vocab);
        // Some texts are long enough for the search to remember keys.
        for (int k = 0, nw = c % 40 == 0 ? 600 + rng() % 600 : rng() % 30; k < nw; ++k)
            text += pick(vocab) + pick(seps);
        double score;
        if (agree(pattern, text, &score)) continue;
        ++failures;
        ADD_FAILURE() << "pattern [" << pattern << "] text [" << text << "]: " << score;
    }
    Phonetiseur = Phonex;
    BuildRecherche("");
}

}  // namespace
