// Phonex keys, long words, edit distances and the search on known cases
// (fuzz/fuzz_levdist.cpp and fuzz/fuzz_fuzzy_reference.cpp compare the
// distances and the search with plain references).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

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
// Known scores and the position of the first term's best word, to the bit.
// fuzz/fuzz_fuzzy_reference.cpp compares the search with a plain
// transcription of its algorithm, these cases among its seeds.
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
        BuildRecherche("");
        const double got = FuzzySearch(c.pattern, c.text);
        EXPECT_EQ(got, c.want) << c.pattern << " / " << c.text;
        if (Recherche[0].word) {
            EXPECT_EQ(Recherche[0].position, c.position) << c.pattern << " / " << c.text;
        }
    }
    BuildRecherche("");
}

}  // namespace
