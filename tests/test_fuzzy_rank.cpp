// fuzzyrank: closer spellings rank strictly higher, the query is plain
// words, and no input breaks it.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "fuzzy/fuzzy_internal.hpp"
#include "host/testhost.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/sqlfunc.h"

namespace {
using namespace udfkit::test;

// The one result of fuzzyrank, checked to lie in [0, 1].
double rank(const Value &q, const Value &t, const char *charset = nullptr) {
    TestHost h;
    std::vector<Value> args = {q, t};
    if (charset) args.push_back(S(charset));
    Outcome o = h.call(fuzzyrank, args);
    EXPECT_TRUE(o.exact(1)) << q << " / " << t;
    const double d = o.pushed.empty() ? -1 : o.result().d;
    EXPECT_GE(d, 0.0);
    EXPECT_LE(d, 1.0);
    return d;
}

TEST(FuzzyRank, CloserSpellingRanksStrictlyHigher) {
    // For each query: rows from the closest to the loosest.
    struct Case { const char *query; std::vector<const char *> rows; } cases[] = {
        {"jean dupont", {"Jean Dupont", "Jean Dupond", "Dupont Jean", "Jeanne Dupond", "Jean", "Paul Durand"}},
        {"Jean-Noël Martin", {"Jean-Noël Martin", "Jean Noël Martin", "Jean-Noel Martan", "Noël Martin",
                              "Jean Martin"}},
        {"philippe gauthier", {"Philippe Gauthier", "Philippe Gautier", "Filippe Gauthier", "Philippe Gaulier",
                               "Philippe Garnier", "Paul Gauthier"}},
        // Turned round either way, a hyphenated or a two-word part kept whole.
        {"martin jean-noël", {"Martin Jean-Noël", "Jean-Noël Martin", "Jean Noël Martin", "Jean-Noël Marin",
                              "Noël Martin"}},
        {"de la fontaine jean", {"De La Fontaine Jean", "Jean de La Fontaine", "La Fontaine Jean",
                                 "Jeanne de La Fontaine", "Jean Lafontaine", "Jean Fontaine"}},
        {"jean de la fontaine", {"Jean de La Fontaine", "De La Fontaine Jean", "Jean Lafontaine", "Jean Fontaine",
                                 "La Fontaine Jean de"}},
        {"o'neil", {"O'Neil", "O'Neill", "Neil", "Oneida"}},
        {"rousseau", {"Rousseau", "Rousso", "Roussel", "Renaud"}},
    };
    for (const auto &c : cases)
        for (size_t i = 1; i < c.rows.size(); ++i)
            EXPECT_GT(rank(S(c.query), S(c.rows[i - 1])), rank(S(c.query), S(c.rows[i])))
                << c.query << ": " << c.rows[i - 1] << " vs " << c.rows[i];
}

TEST(FuzzyRank, PlainWordsInTheArgumentsCharacterSet) {
    // A hyphen or a plus is no operator: nothing is excluded or required.
    EXPECT_DOUBLE_EQ(rank(S("Jean-Noël Dupont"), S("Jean-Noël Dupont")), 1.0);
    EXPECT_GT(rank(S("-dupont +jean"), S("Jean Dupont")), 0.5);
    EXPECT_DOUBLE_EQ(rank(S("\"Dupont\""), S("Dupont")), rank(S("Dupont"), S("Dupont")));
    // Read as ISO-8859-1, the byte 0xEB is a folded e; read as UTF-8 it is
    // no character at all.
    EXPECT_DOUBLE_EQ(rank(S("No\xEBl"), S("No\xEBl"), "ISO-8859-1"), 1.0);
    EXPECT_GT(rank(S("noel"), S("Jean No\xEBl"), "ISO-8859-1"), rank(S("noel"), S("Jean No\xEBl")));
}

// The query read for one row is kept for the next: a query that starts like
// the one before, or the same bytes in another character set, is read anew.
TEST(FuzzyRank, AScoreDoesNotDependOnTheQueryBefore) {
    struct Call { const char *query, *charset; } calls[] = {
        {"jean", nullptr}, {"jean no\xEBl", nullptr}, {"jean", nullptr}, {"jean noel", "ISO-8859-1"},
        {"jean noel", nullptr}, {"jean no", nullptr}, {"", nullptr}, {"jean", "ISO-8859-1"},
    };
    const char *text = "Jean No\xEBl";  // NOEL in ISO-8859-1, NOL in UTF-8
    std::vector<double> first;
    for (const auto &c : calls) first.push_back(rank(S(c.query), S(text), c.charset));
    for (size_t i = std::size(calls); i-- > 0;)
        EXPECT_DOUBLE_EQ(rank(S(calls[i].query), S(text), calls[i].charset), first[i]) << calls[i].query;
    EXPECT_LT(first[0], first[1]);
    EXPECT_GT(first[3], first[4]);
}

// Empty and NULL inputs score 0; huge ones still give a score (arbitrary
// bytes and character sets: the fuzzy fuzz target).
TEST(FuzzyRank, BadInputGivesAScore) {
    const std::string mb(1 << 20, 'a');
    std::string words;
    while (words.size() < (1u << 20)) words += "dupont jean-noël ";
    const Value null = Value::null();
    struct Case { Value query, text; bool zero; } cases[] = {
        {S("-- ' , ;"), S("Jean Dupont"), true},
        {S("jean"), S("!!! ---"), true},
        {null, S("Jean Dupont"), true},
        {S("jean"), null, true},
        {S(mb), S("Jean Dupont"), false},
        {S("jean dupont"), S(mb), false},
        {S(words), S(words), false},
    };
    for (const auto &c : cases) {
        const double d = rank(c.query, c.text);
        EXPECT_TRUE(!c.zero || d == 0.0) << c.query << " / " << c.text << ": " << d;
    }
}

// The keys of a line of words in one run equal the words' keys one by one,
// on lines dense in the letters the rules read (and in the digits some
// rules write), up to the longest line a name gives.
TEST(FuzzyRank, LineKeysEqualWordKeys) {
    const char letters[] = "AEIOUYHCPSGNMQRTXZB1234";
    std::mt19937 rng(7);
    for (int round = 0; round < 20000; ++round) {
        std::string line, want;
        const size_t limit = round % 2 ? 64 : 1 + rng() % 20;
        while (line.size() < limit) {
            std::string w(1 + rng() % 9, ' ');
            for (char &c : w) c = letters[rng() % (sizeof letters - 1)];
            if (line.size() + w.size() + !line.empty() > limit) break;
            char key[UDFKIT_PHONKEY_SIZE];
            Phonex(w.c_str(), key);
            line += (line.empty() ? "" : " ") + w;
            want += (want.empty() && line == w ? "" : " ") + std::string(key);
        }
        char in[64] = {}, out[64];
        line.copy(in, sizeof in);
        const size_t n = udfkit::fuzzy::phonex_words(in, line.size(), out);
        ASSERT_EQ(std::string(out, n), want) << line;
    }
}

}  // namespace
