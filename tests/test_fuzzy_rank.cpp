// fuzzyrank: closer spellings rank strictly higher, the query is plain
// words, and no input breaks it.
#include <gtest/gtest.h>

#include <string>

#include "host/testhost.hpp"
#include "udfkit/sqlfunc.h"

namespace {
using namespace udfkit::test;

double rank(const std::string &q, const std::string &t, const char *charset = nullptr) {
    TestHost h;
    std::vector<Value> args = {S(q), S(t)};
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
        {"philippe gauthier", {"Philippe Gauthier", "Philippe Gautier", "Filippe Gauthier", "Philippe Garnier",
                               "Paul Gauthier"}},
        {"o'neil", {"O'Neil", "O'Neill", "Neil", "Oneida"}},
        {"rousseau", {"Rousseau", "Rousso", "Roussel", "Renaud"}},
    };
    for (const auto &c : cases)
        for (size_t i = 1; i < c.rows.size(); ++i)
            EXPECT_GT(rank(c.query, c.rows[i - 1]), rank(c.query, c.rows[i]))
                << c.query << ": " << c.rows[i - 1] << " vs " << c.rows[i];
}

TEST(FuzzyRank, TheQueryIsPlainWords) {
    // A hyphen or a plus is no operator: nothing is excluded or required.
    EXPECT_DOUBLE_EQ(rank("Jean-Noël Dupont", "Jean-Noël Dupont"), 1.0);
    EXPECT_GT(rank("-dupont +jean", "Jean Dupont"), 0.5);
    EXPECT_DOUBLE_EQ(rank("\"Dupont\"", "Dupont"), rank("Dupont", "Dupont"));
}

TEST(FuzzyRank, CharacterSetOfTheArguments) {
    // Read as ISO-8859-1, the byte 0xEB is a folded e; read as UTF-8 it is
    // no character at all.
    EXPECT_DOUBLE_EQ(rank("No\xEBl", "No\xEBl", "ISO-8859-1"), 1.0);
    EXPECT_GT(rank("noel", "Jean No\xEBl", "ISO-8859-1"), rank("noel", "Jean No\xEBl"));
}

TEST(FuzzyRank, BadInputGivesAScore) {
    const std::string mb(1 << 20, 'a');
    std::string words;
    while (words.size() < (1u << 20)) words += "dupont jean-noël ";
    struct Case { std::string query, text; bool zero; } cases[] = {
        {"", "Jean Dupont", true},
        {"   ", "Jean Dupont", true},
        {"-- ' , ;", "Jean Dupont", true},
        {"jean", "", true},
        {"jean", "!!! ---", true},
        {mb, "Jean Dupont", false},
        {"jean dupont", mb, false},
        {"jean dupont", words, false},
        {words, words, false},
        {"\xC3\x28\xFF\xFE jean", "\x80\x80 Jean \xE2\x82", false},
    };
    for (const auto &c : cases) {
        const double d = rank(c.query, c.text);
        if (c.zero) {
            EXPECT_EQ(d, 0.0) << c.query << " / " << c.text;
        }
    }
}

}  // namespace
