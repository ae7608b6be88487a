// Pattern compilation, scoring, highlights, excerpts and markers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "tests/sqlite_fixture.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

const std::string kOpen =
    "<span class='fuzzy_span' style='background-color:%2.2x0000;color:FFFFFF' title='%2.2f'>";

// The default opening marker as formatted for a score.
std::string span(double score) {
    char buf[256];
    std::snprintf(buf, sizeof buf, kOpen.c_str(), (int)(255.0 * score), score);
    return buf;
}
std::string wrap(const std::string &word, double score) { return span(score) + word + "</span>"; }

// Every test starts from the default settings.
class Fuzzy : public ::testing::Test {
protected:
    void SetUp() override { defaults(); }
    void TearDown() override { defaults(); }
    static void defaults() {
        TestHost h;
        h.call(fuzzysetspans, {S(kOpen), S("</span>")});
        h.call(fuzzysetphonex, {I(1)});
        std::strcpy(IsoCode, "UTF-8");
        BuildRecherche("");
    }
};

std::string terms_of(const char *pattern) {
    BuildRecherche(pattern);
    std::string out;
    for (const SearchTerm &t : Recherche) {
        if (!t.word) break;
        char buf[400];
        std::snprintf(buf, sizeof buf, "(%s,%d,%d,%d)", t.word, t.op, t.std, t.quoted);
        EXPECT_EQ(t.length, (int32_t)std::strlen(t.word));
        out += buf;
    }
    return out;
}

TEST_F(Fuzzy, PatternCompilation) {
    const char *cases[][2] = {
        {"dupont", "(DUPONT,2,1,0)"},
        {"dupond martin", "(DUP6D,2,0,0)(MART4,2,0,0)"},
        {"+dupont -martin", "(DUPONT,1,1,0)(MART4,3,0,0)"},
        {"jean +dupont", "(JEAN,2,1,0)(DUPONT,1,1,0)"},
        {"philippe", "(FILIPPE,2,0,0)"},
        {"lefebvre,durand", "(LEFEBVRE,2,0,0)(DUR1D,2,0,0)"},
        {"a,b", "(A,2,1,0)(B,2,1,0)"},
        {"'rue de la paix'", "(RUE,2,1,1)(DE,4,1,1)(LA,4,1,1)(PAIX,4,1,1)"},
        {"x 'a b' c", "(X,2,1,0)(A,2,1,1)(B,4,1,1)(C,4,1,1)"},
        {"x 'a b'c", "(X,2,1,0)(A,2,1,1)(B,4,1,1)(C,4,1,0)"},
        {"'paris' 'lyon'", "(PARIS,2,1,1)(LYON,4,1,0)"},
        {"\"martin\"", "(MARTIN,2,1,1)"},
        {"2024", "(2024,2,1,0)"},
        {"st.louis", "(ST.LOUIS,2,1,0)"},
        {" +-,'\"", ""},
        {"\xe2\x82\xac dupont", "(DUPONT,2,1,0)"},  // a token with an empty standard word is dropped
    };
    for (const auto &c : cases) EXPECT_EQ(terms_of(c[0]), c[1]) << c[0];
}

TEST_F(Fuzzy, PatternLimitsAndCache) {
    std::string many;
    for (int i = 0; i < 25; ++i) many += "w" + std::to_string(i) + " ";
    BuildRecherche(many.c_str());
    int n = 0;
    while (n < UDFKIT_MAX_TERMS && Recherche[n].word) ++n;
    EXPECT_EQ(n, 20);
    EXPECT_STREQ(Recherche[19].word, "W19");

    // A 300-byte token is cut to the work buffer and never matches.
    std::string long_token(300, 'b');
    BuildRecherche(long_token.c_str());
    EXPECT_GT(Recherche[0].length, 255);
    EXPECT_LT(Recherche[0].length, UDFKIT_STDMOT_SIZE);
    EXPECT_EQ(FuzzySearch(long_token.c_str(), long_token.c_str()), 0.0);

    // Same bytes: nothing recompiled, even after a change of phonetics.
    BuildRecherche("philippe");
    char *first = Recherche[0].word;
    TestHost h;
    h.call(fuzzysetphonex, {I(0)});
    BuildRecherche("philippe");
    EXPECT_EQ(Recherche[0].word, first);
    EXPECT_STREQ(Recherche[0].word, "FILIPPE");
    EXPECT_EQ(Sza, 8);
    EXPECT_EQ(std::memcmp(Aiguille, "philippe", 8), 0);
    // A different pattern is compiled with the new function.
    BuildRecherche("philippe ");
    EXPECT_STREQ(Recherche[0].word, "PHILIPPE");
    BuildRecherche("");
    EXPECT_EQ(Sza, 0);
    EXPECT_EQ(Recherche[0].word, nullptr);
}

TEST_F(Fuzzy, Scores) {
    struct {
        const char *pattern, *text;
        double want;
        int position;  // of the first term, -2: not checked
    } cases[] = {
        {"dupont", "M. Dupond habite ici", 1 - 1.0 / 6, 3},
        {"jean +dupont", "Jean Dupond", 1 - 1.0 / 6, 0},
        {"+dupont jean", "Jean Dupond", 1.0, 5},
        {"+dupont", "Dupont", 0.0, 0},
        {"'rue de la paix'", "12 rue de la Paix, Paris", 1.0, 3},
        {"martin -paris", "Martine de Paris", 0.0, 0},
        {"dupont", "Du-pont", 1 - 2.0 / 6, 3},
        {"'rue de la paix'", "la paix de la rue", 0.0, -2},
        {"'dupond'", "Dupont", 1 - 2.0 / 6, 0},
        {"dupont", "Dupont et Dupont", 1.0, 0},  // the first exact match keeps the position
        {"a", "a b a", 0.0, -1},                 // a one-byte term never matches
        {"", "Dupont", 0.0, -2},
        {" ,+", "Dupont", 0.0, -2},
        {"dupont", "", 0.0, -1},
        {"dupont", " .,;", 0.0, -1},
        {"caf\xc3\xa9", "CAFE", 1.0, 0},
    };
    for (const auto &c : cases) {
        double got = FuzzySearch(c.pattern, c.text);
        EXPECT_NEAR(got, c.want, 1e-12) << c.pattern << " / " << c.text;
        if (c.position != -2) {
            EXPECT_EQ(Recherche[0].position, c.position) << c.pattern;
        }
    }
    // Positions of every phrase word.
    FuzzySearch("'rue de la paix'", "12 rue de la Paix, Paris");
    const int want[] = {3, 7, 10, 13};
    for (int j = 0; j < 4; ++j) EXPECT_EQ(Recherche[j].position, want[j]);
    EXPECT_EQ(Recherche[3].matchLength, 4);
}

TEST_F(Fuzzy, ScoreIsOneMinusTheRatio) {
    // 1 - 1/3 and (3 - 1)/3 differ in the last bit; the score is the former.
    EXPECT_EQ(FuzzySearch("123", "124"), 1.0 - 1.0 / 3.0);
    EXPECT_NE(Recherche[0].score, 2.0 / 3.0);
    EXPECT_EQ(Recherche[0].score, 1.0 - 1.0 / 3.0);
}

TEST_F(Fuzzy, BadInputNeverOverruns) {
    std::string long_word(300, 'x'), accents;
    for (int i = 0; i < 200; ++i) accents += "\xc3\xa9";
    const std::string texts[] = {
        long_word + " dupont " + long_word,
        accents + " " + accents,
        "\xc3",
        "dupont\xc3",
        std::string("\xff\xfe\xc3\xc3\xc2", 5),
        std::string(3 << 20, 'e'),
    };
    const std::string patterns[] = {long_word, accents, "\"'\"' -+,", "\xc3", "dupont " + long_word};
    for (const auto &p : patterns)
        for (const auto &t : texts) {
            double s = FuzzySearch(p.c_str(), t.c_str());
            EXPECT_GE(s, 0.0);
            EXPECT_LE(s, 1.0);
        }
    EXPECT_NEAR(FuzzySearch("dupont", texts[0].c_str()), 1.0, 0);
}

// ---------------------------------------------------------------- SQL

std::string call_str(udfkit_sqlfunc f, const std::vector<Value> &args) {
    TestHost h;
    Outcome o = h.call(f, args);
    EXPECT_TRUE(o.exact(1)) << "popped " << o.popped << " left " << o.leftover;
    return o.result().s;
}

const char *kPaix = "Le client M. Dupond habite au 12 rue de la Paix a Paris.";

TEST_F(Fuzzy, HighlightAndExcerpt) {
    const double d56 = 1 - 1.0 / 6;
    struct {
        const char *name;
        udfkit_sqlfunc fn;
        std::vector<Value> args;
        std::string want;
    } cases[] = {
        {"highlight", fuzzyhighlight, {S("dupont"), S(kPaix)},
         "Le client M. " + wrap("Dupond", d56) + " habite au 12 rue de la Paix a Paris."},
        {"highlight no term", fuzzyhighlight, {S(""), S("abc")}, "abc"},
        {"highlight empty text", fuzzyhighlight, {S("dupont"), S("")}, ""},
        {"highlight threshold", fuzzyhighlight, {S("jean +dupont"), S("Jean Dupond"), D(0.9)},
         wrap("Jean", 1.0) + " Dupond"},
        {"highlight charset", fuzzyhighlight, {S("caf\xe9"), S("un caf\xe9"), D(0.5), S("ISO-8859-1")},
         "un " + wrap("caf\xe9", 1.0)},
        {"excerpt", fuzzyexcerpt, {S("dupont"), S(kPaix), I(4), I(40)},
         "Le client M. " + wrap("Dupond", d56) + " habite au 12 rue d ..."},
        {"excerpt two terms", fuzzyexcerpt, {S("jean +dupont"), S("Jean Dupond"), I(2), I(20)},
         wrap("Jean", 1.0) + "\n " + wrap("Dupond", d56) + " ..."},
        {"excerpt threshold", fuzzyexcerpt,
         {S("jean +dupont"), S("Jean Dupond"), I(2), I(20), D(0.9)}, wrap("Jean", 1.0)},
        {"excerpt first below threshold", fuzzyexcerpt,
         {S("dupont jean"), S("Jean Dupond"), I(2), I(20), D(0.9)},
         "\n" + wrap("Jean", 1.0) + " Dupond ..."},
        {"excerpt no lines", fuzzyexcerpt, {S("dupont"), S(kPaix), I(0), I(40)},
         "Le client M. " + wrap("Dupond", d56) + " ..."},
        {"excerpt newline stops", fuzzyexcerpt,
         {S("dupont"), S("a\nb\nc\nd Dupont e\nf\ng"), I(2), I(100)},
         "\nc\nd " + wrap("Dupont", 1.0) + " e ..."},
        {"excerpt no term", fuzzyexcerpt, {S(""), S("abc"), I(2), I(20)}, ""},
        {"excerpt charset", fuzzyexcerpt,
         {S("caf\xe9"), S("un caf\xe9"), I(2), I(20), D(0.5), S("ISO-8859-1")},
         "un " + wrap("caf\xe9", 1.0) + " ..."},
    };
    for (const auto &c : cases) EXPECT_EQ(call_str(c.fn, c.args), c.want) << c.name;
    EXPECT_STREQ(IsoCode, "ISO-8859-1");

    TestHost h;
    Outcome o = h.call(fuzzysearch, {S("dupont"), S("M. Dupond habite ici")});
    EXPECT_TRUE(o.exact(1));
    EXPECT_EQ(o.result(), D(d56));
    EXPECT_STREQ(IsoCode, "UTF-8");
    o = h.call(fuzzysearch, {S("caf\xe9"), S("caf\xe9"), S("ISO-8859-1")});
    EXPECT_EQ(o.result(), D(1.0));
}

TEST_F(Fuzzy, ExcerptCanExceedTheTextByFar) {
    // The middle term matches nothing: its position -1 sends the last
    // piece back to the start of the text.
    std::string filler;
    for (int i = 0; i < 1000; ++i) filler += "ab ";
    const std::string text = filler + "Dupont " + filler + "Jean";
    const size_t p2 = text.size() - 4;
    const std::string want = filler + wrap("Dupont", 1.0) + "\n" + text.substr(0, p2) +
                             wrap("Jean", 1.0) + " ...";
    std::string got = call_str(fuzzyexcerpt, {S("dupont 999999 jean"), S(text), I(100000), I(1000000)});
    EXPECT_GT(got.size(), text.size() + 2000);
    EXPECT_EQ(got, want);
}

#ifndef LONG_MARKER
#define LONG_MARKER 1000
#endif
constexpr size_t kLongMarker = LONG_MARKER;

TEST_F(Fuzzy, Markers) {
    TestHost h;
    EXPECT_TRUE(h.call(fuzzysetspans, {S("["), S("]")}).exact(0));
    EXPECT_EQ(call_str(fuzzyhighlight, {S("dupont"), S("M. Dupond")}), "M. [Dupond]");

    struct {
        const char *open;
        std::string want;  // highlight of "Dupond" for the pattern dupont
    } cases[] = {
        {"<%x|%.3f>", "<d4|0.833>"},
        {"<%d>", "<212>"},
        {"<%g>", "<0.833333>"},
        {"<%%%-4d%%>", "<%212 %>"},
        {"<%s>", "<%s>"},             // would read memory: written as is
        {"<%n>", "<%n>"},             // would write memory
        {"<%d%d>", "<%d%d>"},         // two ints
        {"<%f%d>", "<%f%d>"},         // double before int
        {"<%*d>", "<%*d>"},           // width from an argument
        {"<%ld>", "<%ld>"},           // length modifier
        {"<%1$d>", "<%1$d>"},         // positional argument
        {"<%9999d>", "<%9999d>"},     // oversized width
        {"<%", "<%"},
    };
    for (const auto &c : cases) {
        h.call(fuzzysetspans, {S(c.open), S("")});
        EXPECT_EQ(call_str(fuzzyhighlight, {S("dupont"), S("Dupond")}), c.want + "Dupond") << c.open;
    }

    // Long markers on many words: nothing is cut.
    const std::string open(kLongMarker, 'o'), close(kLongMarker, 'c');
    h.call(fuzzysetspans, {S(open + "%d"), S(close)});
    std::string pattern, text, want;
    for (int i = 0; i < 20; ++i) {
        std::string w = std::to_string(100000 + i);
        pattern += w + " ";
        text += w + " ";
        want += open + "255" + w + close + " ";
    }
    EXPECT_EQ(call_str(fuzzyhighlight, {S(pattern), S(text)}), want);

    Describe d = h.describe(fuzzysetspans, {arg(0, 10), arg(0, 10)});
    EXPECT_EQ(d.type, UDF_T_SMALLINT);
    EXPECT_EQ(d.size, 0);
    EXPECT_FALSE(d.touched_host);
}

// A result over the host's limit is refused before it is built: nothing
// pushed, the call marked; at the limit it is pushed whole.
TEST_F(Fuzzy, ResultsOverTheHostLimitAreRefused) {
    TestHost h;
    h.call(fuzzysetspans, {S(std::string(1000, 'o') + "%d"), S(std::string(1000, 'c'))});
    std::string words;
    for (int i = 0; i < 20; ++i) words += std::to_string(100000 + i) + " ";
    std::string filler;
    for (int i = 0; i < 1000; ++i) filler += "ab ";
    const std::string far = filler + "Dupont " + filler + "Jean";
    struct {
        const char *name;
        udfkit_sqlfunc fn;
        std::vector<Value> args;
    } cases[] = {
        {"highlight, long markers", fuzzyhighlight, {S(words), S(words)}},
        {"excerpt, long markers", fuzzyexcerpt, {S(words), S(words), I(2), I(100)}},
        {"excerpt, pieces back to the start", fuzzyexcerpt, {S("dupont 999999 jean"), S(far), I(100000), I(1000000)}},
        {"convert, growing", convert, {S(std::string(5000, '\xe9')), S("ISO-8859-1"), S("UTF-8")}},
    };
    for (const auto &c : cases) {
        udfkit_set_result_limit(0);
        const std::string full = call_str(c.fn, c.args);
        ASSERT_GT(full.size(), 2000u) << c.name;
        udfkit_set_result_limit((int64_t)full.size() - 1);
        Outcome o = h.call(c.fn, c.args);
        EXPECT_TRUE(o.exact(0)) << c.name;
        EXPECT_EQ(udfkit_result_refused(), 1) << c.name;
        udfkit_set_result_limit((int64_t)full.size());
        o = h.call(c.fn, c.args);
        EXPECT_TRUE(o.exact(1) && o.result().s == full) << c.name;
        EXPECT_EQ(udfkit_result_refused(), 0) << c.name;
    }
    udfkit_set_result_limit(0);
}

bool valid_utf8(const std::string &s) {
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = s[i];
        const size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k)
            if (((unsigned char)s[i + k] & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

// Excerpt pieces of a UTF-8 text hold whole characters, whatever the
// window widths; in a single-byte character set every byte is one.
TEST_F(Fuzzy, ExcerptWindowsKeepWholeCharacters) {
    const char *chars[] = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
    for (const char *ch : chars)
        for (int lead = 0; lead < 4; ++lead)
            for (int32_t length = 20; length <= 60; ++length) {
                std::string side = std::string(lead, 'a');
                for (int i = 0; i < 12; ++i) side += ch;
                const std::string text = side + " Dupont " + side + "\nJean " + side;
                const std::string got = call_str(fuzzyexcerpt, {S("dupont jean"), S(text), I(4), I(length)});
                EXPECT_TRUE(valid_utf8(got)) << ch << " lead " << lead << " length " << length;
            }
    // The window would start on the second byte of an e acute: it starts
    // after that character instead, and ends before a cut one.
    EXPECT_EQ(call_str(fuzzyexcerpt, {S("dupont"), S("\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9 Dupont \xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9"), I(2), I(20)}),
              "\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9 " + wrap("Dupont", 1.0) + " \xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9 ...");
    // In ISO-8859-1 the same bytes are characters of their own.
    EXPECT_EQ(call_str(fuzzyexcerpt, {S("dupont"), S("\xa9\xa9\xa9\xa9\xa9\xa9\xa9\xa9\xa9\xa9 Dupont"), I(2), I(20), D(0.1), S("ISO-8859-1")}),
              "\xa9\xa9\xa9\xa9\xa9\xa9\xa9\xa9 " + wrap("Dupont", 1.0) + " ...");
}

TEST_F(Fuzzy, Describe) {
    TestHost h;
    struct {
        udfkit_sqlfunc fn;
        int32_t type, size;
    } cases[] = {
        {fuzzysearch, UDF_T_FLOAT, 8},
        {fuzzyhighlight, UDF_T_VCHAR, 65536},
        {fuzzyexcerpt, UDF_T_VCHAR, 65536},
    };
    for (const auto &c : cases) {
        Describe d = h.describe(c.fn, {arg(0, 10), arg(0, 10)});
        EXPECT_EQ(d.type, c.type);
        EXPECT_EQ(d.size, c.size);
        EXPECT_FALSE(d.touched_host);
    }
}

TEST_F(Fuzzy, ThroughSqlite) {
    SqliteDb db;
    EXPECT_EQ(db.one("select round(fuzzysearch('dupont', 'M. Dupond habite ici'), 4)"), "r:0.8333");
    EXPECT_EQ(db.one("select fuzzysearch('dupont', 'ab cd')"), "r:0");
    EXPECT_EQ(db.one("select fuzzyhighlight('dupont', 'M. Dupond', 0.5, 'UTF-8')"),
              "M. " + wrap("Dupond", 1 - 1.0 / 6));
    db.exec("select fuzzysetspans('[', ']')");
    EXPECT_EQ(db.one("select fuzzyexcerpt('dupont', 'M. Dupond habite ici', 2, 20)"),
              "M. [Dupond] habite i ...");
    EXPECT_EQ(db.one("select fuzzyhighlight('dupont', NULL)"), "NULL");
    EXPECT_EQ(db.one("select convert('abc', 'NOPE', 'UTF-8')"), "abc");
}

}  // namespace
