// Text quality scores: the reference tables' shape, the scores' relations,
// the SQL functions through the test host and through SQLite.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>
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

bool is_letter(int c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool is_upper(int c) { return c >= 'A' && c <= 'Z'; }

uint16_t key(const char *pair) {
    return static_cast<uint16_t>(static_cast<unsigned char>(pair[0]) * 256 +
                                 static_cast<unsigned char>(pair[1]));
}

struct Table {
    const char *name;
    const DigramEntry *rows;
    size_t count;
    size_t expected_count;
    bool upper_only;
    std::vector<std::pair<const char *, uint32_t>> telling;  // pair, count; in row order from 1
};

std::vector<Table> tables() {
    return {
        {"FreqDigram", FreqDigram, sizeof FreqDigram / sizeof FreqDigram[0], 2231, false,
         {{"de", 2792961}, {"es", 2665625}, {"on", 2203740}, {"en", 2010893}, {"nt", 1945886}}},
        {"FreqUpperDigram", FreqUpperDigram, sizeof FreqUpperDigram / sizeof FreqUpperDigram[0],
         671, true,
         {{"DE", 2881337}, {"ES", 2686702}, {"LE", 2265751}, {"ON", 2220799}, {"EN", 2043582}}},
    };
}

TEST(QualityTables, DigramTablesHaveTheirShape) {
    for (const Table &t : tables()) {
        SCOPED_TRACE(t.name);
        ASSERT_EQ(t.count, t.expected_count);
        const DigramEntry &s = t.rows[0];
        EXPECT_TRUE(s.key == 0 && s.corpusCount == 0 && s.expected == 0);
        uint64_t total = 0;
        std::set<uint16_t> keys;
        for (size_t i = 1; i < t.count; ++i) {
            const DigramEntry &r = t.rows[i];
            total += r.corpusCount;
            EXPECT_TRUE(keys.insert(r.key).second) << "duplicate key at row " << i;
            int a = r.key >> 8, b = r.key & 0xff;
            EXPECT_TRUE(t.upper_only ? is_upper(a) && is_upper(b) : is_letter(a) && is_letter(b))
                << "row " << i;
            EXPECT_GE(r.corpusCount, 1u) << "row " << i;
            if (i > 1) {
                EXPECT_LE(r.corpusCount, t.rows[i - 1].corpusCount) << "row " << i;
            }
            EXPECT_EQ(r.expected, r.corpusCount / 99119456.0) << "row " << i;
        }
        EXPECT_EQ(total, 99119456u);
        for (size_t i = 0; i < t.telling.size(); ++i) {
            EXPECT_EQ(t.rows[i + 1].key, key(t.telling[i].first)) << t.telling[i].first;
            EXPECT_EQ(t.rows[i + 1].corpusCount, t.telling[i].second) << t.telling[i].first;
        }
        const DigramEntry &rarest = t.rows[t.count - 1];
        EXPECT_EQ(rarest.corpusCount, 1u);
        EXPECT_NEAR(rarest.expected, 1.0088836645754e-08, 1e-20);
    }
    EXPECT_NEAR(FreqDigram[1].expected, 0.028177727286962, 1e-15);
    EXPECT_NEAR(FreqUpperDigram[1].expected, 0.029069338314367, 1e-15);
}

TEST(QualityTables, ByteCounts) {
    uint64_t letters = 0;
    for (int c = 0; c < 256; ++c)
        if (is_letter(c)) letters += Frequences[c];
    EXPECT_EQ(letters, 83339029u);
    const struct {
        unsigned char c;
        uint32_t count;
    } telling[] = {{'e', 11736764}, {'a', 6849164}, {'i', 6284376}, {'r', 6216277},
                   {'n', 6157907},  {'s', 5944357}, {'t', 5508913}, {'E', 224885},
                   {'L', 538217},   {'w', 189252},  {' ', 18363812}};
    for (const auto &t : telling) EXPECT_EQ(Frequences[t.c], t.count) << t.c;
}

// Scores of the two reference sentences, within 0.02 of the values the
// reference corpus gives.
TEST(QualityScores, ReferenceSentences) {
    const struct {
        const char *text;
        double freq, freq_caseless, digram, digram_caseless;
    } cases[] = {
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
    // French prose looks more like the reference than English does.
    EXPECT_GT(CpuFreqQuality(kFrench, "", 0), CpuFreqQuality(kPangram, "", 0));
    EXPECT_GT(CpuDigramQuality(kFrench, "", 0), CpuDigramQuality(kPangram, "", 0));
}

// A letter pair of neither table.
std::string absent_pair() {
    for (int a = 'A'; a <= 'z'; ++a)
        for (int b = 'A'; b <= 'z'; ++b) {
            if (!is_letter(a) || !is_letter(b)) continue;
            uint16_t k = static_cast<uint16_t>(a * 256 + b);
            bool found = false;
            for (const DigramEntry &r : FreqDigram) found = found || r.key == k;
            if (!found) return std::string{static_cast<char>(a), static_cast<char>(b)};
        }
    return "";
}

TEST(QualityScores, TextsThatScoreZero) {
    const std::string absent = absent_pair();
    ASSERT_EQ(absent.size(), 2u);
    const struct {
        std::string text;
        int caseless;
        bool freq_zero, digram_zero;  // false: not checked
    } cases[] = {
        {"", 0, true, true},
        {"", 1, true, true},
        {"0123456789", 0, true, true},
        {"12 + 7 = 19 !", 1, true, true},
        {"\xc3\xa9\xc3\xa0", 0, true, true},  // no ASCII letter
        {"e", 0, true, true},                   // one letter: distance near 2; one byte
        {"E", 1, true, true},
        {"a b c d", 0, false, true},            // letters but no pair
        {absent, 0, false, true},               // a pair the reference never shows
        {absent + " " + absent, 0, false, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("'" + c.text + "' caseless " + std::to_string(c.caseless));
        double f = CpuFreqQuality(c.text.c_str(), "", c.caseless);
        double d = CpuDigramQuality(c.text.c_str(), "", c.caseless);
        if (c.freq_zero) {
            EXPECT_EQ(f, 0.0);
        }
        if (c.digram_zero) {
            EXPECT_EQ(d, 0.0);
        }
    }
}

// Scores worked out by hand from the reference values.
TEST(QualityScores, WorkedOutDistances) {
    const double de = 2792961 / 99119456.0, DE = 2881337 / 99119456.0;
    const struct {
        const char *text;
        int caseless;
        double digram;
    } cases[] = {
        // One counted pair: observed 1, so D = 1 - expected.
        {"de", 0, 1 - std::sqrt(1 - de)},
        {"de de, de!", 0, 1 - std::sqrt(1 - de)},
        {"De", 1, 1 - std::sqrt(1 - DE)},
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
    for (const Table &t : tables()) {
        SCOPED_TRACE(t.name);
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
    const char *texts[] = {kFrench, kPangram, "Zzz ZZZ zzz", "ab"};
    for (const char *t : texts) {
        SCOPED_TRACE(t);
        std::string up = t, low = t;
        for (char &c : up) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        for (char &c : low) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        // Caseless scores do not see case at all.
        EXPECT_DOUBLE_EQ(CpuFreqQuality(up.c_str(), "", 1), CpuFreqQuality(low.c_str(), "", 1));
        EXPECT_DOUBLE_EQ(CpuDigramQuality(up.c_str(), "", 1), CpuDigramQuality(low.c_str(), "", 1));
        // A character set iconv does not know counts the text's own bytes.
        EXPECT_EQ(CpuFreqQuality(t, "NO-SUCH-CHARSET", 0), CpuFreqQuality(t, "", 0));
        EXPECT_EQ(CpuDigramQuality(t, "NO-SUCH-CHARSET", 1), CpuDigramQuality(t, "", 1));
    }
    // Case-sensitive scores do: capitals are rare in the reference.
    std::string shouted = kFrench;
    for (char &c : shouted) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_GT(CpuFreqQuality(kFrench, "", 0), CpuFreqQuality(shouted.c_str(), "", 0));
    EXPECT_DOUBLE_EQ(CpuFreqQuality(kFrench, "", 1), CpuFreqQuality(shouted.c_str(), "", 1));
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

TEST(QualityScores, LongAndGarbledTextsStayInRange) {
    std::mt19937 rng(7);
    std::string noise(3 << 20, '\0');
    for (char &c : noise) c = static_cast<char>(1 + rng() % 255);
    std::string prose;
    while (prose.size() < (2u << 20)) prose += std::string(kFrench) + ". ";
    for (const std::string *t : {&noise, &prose}) {
        for (int caseless : {0, 1}) {
            for (double s : {CpuFreqQuality(t->c_str(), "", caseless),
                             CpuDigramQuality(t->c_str(), "", caseless),
                             CpuDigramQuality(t->c_str(), "UTF-8", caseless)}) {
                EXPECT_GE(s, 0.0);
                EXPECT_LE(s, 1.0);
            }
        }
    }
    // Repeating a text changes no frequency.
    EXPECT_NEAR(CpuFreqQuality(prose.c_str(), "", 0),
                CpuFreqQuality((std::string(kFrench) + ". ").c_str(), "", 0), 1e-9);
}

TEST(QualitySql, DescribeAndPops) {
    const struct {
        const char *name;
        udfkit_sqlfunc fn;
    } fns[] = {{"freqquality", freqquality}, {"digramquality", digramquality},
               {"textquality", textquality}};
    for (const auto &f : fns) {
        SCOPED_TRACE(f.name);
        TestHost h;
        Describe d = h.describe(f.fn, {arg(UDF_T_VCHAR, 100), arg(UDF_T_CHAR, 10), arg(UDF_T_INTEGER, 4)});
        EXPECT_EQ(d.type, UDF_T_FLOAT);
        EXPECT_EQ(d.size, 8);
        EXPECT_FALSE(d.touched_host);
        Outcome o = h.call(f.fn, {S(kFrench), S(""), I(1)});
        EXPECT_TRUE(o.exact(1));
        EXPECT_EQ(o.result().kind, Value::Double);
    }
}

TEST(QualitySql, TextQualityIsTheMean) {
    const struct {
        std::string text, charset;
        int caseless;
    } cases[] = {
        {kFrench, "", 0}, {kFrench, "", 7}, {kPangram, "UTF-8", 1},
        {"caf\xc3\xa9 cr\xc3\xa8me", "UTF-8", 0}, {"\x84\x85\x40\x81", "EBCDIC-US", 0},
        {"e", "", 0}, {"", "", 1}, {std::string(5000, 'q') + "de", "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        TestHost h;
        std::vector<Value> args = {S(c.text), S(c.charset), I(c.caseless)};
        double f = h.call(freqquality, args).result().d;
        double d = h.call(digramquality, args).result().d;
        double t = h.call(textquality, args).result().d;
        EXPECT_EQ(t, (f + d) * 0.5);
        EXPECT_EQ(f, CpuFreqQuality(c.text.c_str(), c.charset.c_str(), c.caseless));
        EXPECT_EQ(d, CpuDigramQuality(c.text.c_str(), c.charset.c_str(), c.caseless));
    }
}

TEST(QualitySql, ThroughSqlite) {
    SqliteDb db;
    const struct {
        const char *sql, *expected;
    } cases[] = {
        {"select round(freqquality('Le petit chat est sur le toit de la maison', '', 0), 2) "
         "between 0.29 and 0.33",
         "i:1"},
        {"select textquality('', '', 0)", "r:0"},
        {"select textquality('2024', 'UTF-8', 1)", "r:0"},
        {"select freqquality('e', '', 0)", "r:0"},
        {"select textquality(s, '', 1) = (freqquality(s, '', 1) + digramquality(s, '', 1)) / 2 "
         "from (select 'Bonjour tout le monde' as s)",
         "i:1"},
        {"select digramquality(null, null, null)", "r:0"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;
}

}  // namespace
