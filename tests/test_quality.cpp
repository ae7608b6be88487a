// Text quality scores: the scores against the reference statistics, their
// relations, and the SQL functions through the test host and SQLite.
#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <string>

#include "fuzzy/quality.hpp"
#include "host/testhost.hpp"
#include "tests/sqlite_fixture.hpp"
#include "udfkit/quality.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;
using namespace udfkit::quality;

namespace {

constexpr const char *kFrench = "Le petit chat est sur le toit de la maison";
constexpr const char *kPangram = "The quick brown fox jumps over the lazy dog";

std::string upper(std::string s) {
    for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// Scores of the two reference sentences, within 0.02 of the values the
// reference corpus gives.
TEST(QualityScores, ReferenceSentences) {
    const struct { const char *text; double freq, freq_caseless, digram, digram_caseless; } cases[] = {
        {kFrench, 0.31, 0.35, 0.126, 0.132},
        {kPangram, 0.107, 0.163, 0.037, 0.040},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_NEAR(CpuFreqQuality(c.text, "", 0), c.freq, 0.02);
        EXPECT_NEAR(CpuFreqQuality(c.text, "", 1), c.freq_caseless, 0.02);
        EXPECT_NEAR(CpuDigramQuality(c.text, "", 0), c.digram, 0.02);
        EXPECT_NEAR(CpuDigramQuality(c.text, "", 1), c.digram_caseless, 0.02);
    }
}

TEST(QualityScores, TextsThatScoreZero) {
    const struct { std::string text; int caseless; bool freq_zero; } cases[] = {  // digram always 0
        {"", 1, true},       {"12 + 7 = 19 !", 1, true}, {"\xc3\xa9\xc3\xa0", 0, true},  // no ASCII letter
        {"e", 0, true},      {"E", 1, true},             // one letter: one byte
        {"a b c d", 0, false},                           // letters but no pair
        {"AO AO", 0, false},                             // a pair the reference never shows
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("'" + c.text + "' caseless " + std::to_string(c.caseless));
        if (c.freq_zero) {
            EXPECT_EQ(CpuFreqQuality(c.text.c_str(), "", c.caseless), 0.0);
        }
        EXPECT_EQ(CpuDigramQuality(c.text.c_str(), "", c.caseless), 0.0);
    }
}

// Scores worked out by hand from the reference values.
TEST(QualityScores, WorkedOutDistances) {
    const double de = 2792961 / 99119456.0, DE = 2881337 / 99119456.0;
    const struct { const char *text; int caseless; double digram; } cases[] = {
        // One counted pair: observed 1, so D = 1 - expected.
        {"de de, de!", 0, 1 - std::sqrt(1 - de)},
        {"dE", 1, 1 - std::sqrt(1 - DE)},
        // "de" and "es" once each: D = (0.5 - e_de) + (0.5 - e_es).
        {"des", 0, 1 - std::sqrt(1 - de - 2665625 / 99119456.0)},
    };
    for (const auto &c : cases)
        EXPECT_NEAR(CpuDigramQuality(c.text, "", c.caseless), c.digram, 1e-12) << c.text;
}

// Every row of both tables is found, whichever rows share its index slot:
// a text of that one pair scores 1 - sqrt(1 - expected).
TEST(QualityScores, EveryReferencePairIsFound) {
    const struct { const DigramEntry *rows; size_t count; bool upper_only; } tables[] = {
        {FreqDigram, std::size(FreqDigram), false}, {FreqUpperDigram, std::size(FreqUpperDigram), true}};
    for (const auto &t : tables) {
        for (size_t i = 1; i < t.count; ++i) {
            char text[3] = {static_cast<char>(t.rows[i].key >> 8),
                            static_cast<char>(t.rows[i].key & 0xff), 0};
            if (t.upper_only) text[1] = static_cast<char>(std::tolower(text[1]));
            const double want = 1 - std::sqrt(1 - t.rows[i].expected);
            ASSERT_DOUBLE_EQ(CpuDigramQuality(text, "", t.upper_only), want) << text;
        }
    }
}

TEST(QualityScores, CaseFoldingAndConversion) {
    for (const char *t : {kFrench, "Zzz ZZZ zzz"}) {
        SCOPED_TRACE(t);
        std::string low = t;
        for (char &c : low) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        // Caseless scores do not see case at all.
        EXPECT_DOUBLE_EQ(CpuFreqQuality(upper(t).c_str(), "", 1), CpuFreqQuality(low.c_str(), "", 1));
        EXPECT_DOUBLE_EQ(CpuDigramQuality(upper(t).c_str(), "", 1), CpuDigramQuality(low.c_str(), "", 1));
        // A character set iconv does not know counts the text's own bytes.
        EXPECT_EQ(CpuFreqQuality(t, "NO-SUCH-CHARSET", 0), CpuFreqQuality(t, "", 0));
        EXPECT_EQ(CpuDigramQuality(t, "NO-SUCH-CHARSET", 1), CpuDigramQuality(t, "", 1));
    }
    // Case-sensitive scores do: capitals are rare in the reference.
    EXPECT_GT(CpuFreqQuality(kFrench, "", 0), CpuFreqQuality(upper(kFrench).c_str(), "", 0));
    // A known character set is converted first: "de" in EBCDIC.
    EXPECT_EQ(CpuDigramQuality("\x84\x85", "EBCDIC-US", 0), CpuDigramQuality("de", "", 0));
    EXPECT_EQ(CpuDigramQuality("\x84\x85", "", 0), 0.0);
}

TEST(QualityScores, WorkingCountsDoNotCarryOver) {
    const double first = CpuDigramQuality(kFrench, "", 0);
    CpuDigramQuality(kPangram, "", 0);
    CpuDigramQuality("", "", 0);  // returns before counting
    CpuDigramQuality("xyz", "", 1);
    EXPECT_EQ(CpuDigramQuality(kFrench, "", 0), first);
}

// The SQL functions pass their arguments on (textquality, the mean of
// the other two: the quality fuzz target).
TEST(QualitySql, GiveTheRuntimesScores) {
    const struct { const char *text, *charset; int caseless; } cases[] = {
        {kFrench, "", 7}, {"\x84\x85\x40\x81", "EBCDIC-US", 0}};  // "de a" in EBCDIC
    for (const auto &c : cases) {
        TestHost h;
        const std::vector<Value> args = {S(c.text), S(c.charset), I(c.caseless)};
        EXPECT_EQ(h.call(freqquality, args).result().d, CpuFreqQuality(c.text, c.charset, c.caseless));
        EXPECT_EQ(h.call(digramquality, args).result().d, CpuDigramQuality(c.text, c.charset, c.caseless));
    }
}

TEST(QualitySql, ThroughSqlite) {
    SqliteDb db;
    EXPECT_EQ(db.one("select textquality(s, '', 1) = (freqquality(s, '', 1) + digramquality(s, '', 1)) / 2 "
                     "from (select 'Bonjour tout le monde' as s)"),
              "i:1");
    EXPECT_EQ(db.one("select digramquality(null, null, null)"), "r:0");
}

}  // namespace
