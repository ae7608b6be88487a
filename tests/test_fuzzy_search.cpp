// Pattern compilation, hostile input, highlights, excerpts and markers;
// character sets and standard words; fuzzyrank.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
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
struct Fuzzy : ::testing::Test {
    void SetUp() override { TearDown(); }
    void TearDown() override {
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
        {"'rue de la paix'", "(RUE,2,1,1)(DE,4,1,1)(LA,4,1,1)(PAIX,4,1,1)"},
        {"x 'a b' c", "(X,2,1,0)(A,2,1,1)(B,4,1,1)(C,4,1,1)"},
        {"x 'a b'c", "(X,2,1,0)(A,2,1,1)(B,4,1,1)(C,4,1,0)"},
        {"'paris' 'lyon'", "(PARIS,2,1,1)(LYON,4,1,0)"},
        {"\"martin\"", "(MARTIN,2,1,1)"},
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
    EXPECT_STREQ(Recherche[UDFKIT_MAX_TERMS - 1].word, "W19");  // the first 20 terms

    // A 300-byte token is cut to the work buffer and never matches.
    std::string long_token(300, 'b');
    BuildRecherche(long_token.c_str());
    EXPECT_GT(Recherche[0].length, 255);
    EXPECT_LT(Recherche[0].length, UDFKIT_STDMOT_SIZE);
    EXPECT_EQ(FuzzySearch(long_token.c_str(), long_token.c_str()), 0.0);
    EXPECT_EQ(FuzzySearch("dupont", (long_token + " dupont " + long_token).c_str()), 1.0);

    // Same bytes: nothing recompiled, even after a change of phonetics.
    BuildRecherche("philippe");
    char *first = Recherche[0].word;
    TestHost h;
    h.call(fuzzysetphonex, {I(0)});
    BuildRecherche("philippe");
    EXPECT_EQ(Recherche[0].word, first);
    EXPECT_STREQ(Recherche[0].word, "FILIPPE");
    EXPECT_EQ(std::string(Aiguille, Sza), "philippe");
    // A different pattern is compiled with the new function.
    BuildRecherche("philippe ");
    EXPECT_STREQ(Recherche[0].word, "PHILIPPE");
    BuildRecherche("");
    EXPECT_EQ(Recherche[0].word, nullptr);
}

// ---------------------------------------------------------------- SQL

std::string call_str(udfkit_sqlfunc f, const std::vector<Value> &args) {
    TestHost h;
    Outcome o = h.call(f, args);
    EXPECT_TRUE(o.exact(1)) << "popped " << o.popped << " left " << o.leftover;
    return o.result().s;
}

struct Call {
    const char *name;
    udfkit_sqlfunc fn;
    std::vector<Value> args;
    std::string want;
};

const char *kPaix = "Le client M. Dupond habite au 12 rue de la Paix a Paris.";

TEST_F(Fuzzy, HighlightAndExcerpt) {
    const double d56 = 1 - 1.0 / 6;
    const std::string e5 = "\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9";
    const Call cases[] = {
        {"highlight", fuzzyhighlight, {S("dupont"), S(kPaix)},
         "Le client M. " + wrap("Dupond", d56) + " habite au 12 rue de la Paix a Paris."},
        {"highlight no term", fuzzyhighlight, {S(""), S("abc")}, "abc"},
        {"highlight threshold", fuzzyhighlight, {S("jean +dupont"), S("Jean Dupond"), D(0.9)},
         wrap("Jean", 1.0) + " Dupond"},
        {"highlight charset", fuzzyhighlight, {S("caf\xe9"), S("un caf\xe9"), D(0.5), S("ISO-8859-1")},
         "un " + wrap("caf\xe9", 1.0)},
        {"excerpt", fuzzyexcerpt, {S("dupont"), S(kPaix), I(4), I(40)},
         "Le client M. " + wrap("Dupond", d56) + " habite au 12 rue d ..."},
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
        // The window would start on the second byte of an e acute: it
        // starts after that character instead, and ends before a cut one.
        {"excerpt window inside a character", fuzzyexcerpt,
         {S("dupont"), S(e5 + " Dupont " + e5), I(2), I(20)},
         e5.substr(2) + " " + wrap("Dupont", 1.0) + " " + e5.substr(2) + " ..."},
        // In ISO-8859-1 the same bytes are characters of their own.
        {"excerpt window in single bytes", fuzzyexcerpt,
         {S("dupont"), S(std::string(10, '\xa9') + " Dupont"), I(2), I(20), D(0.1), S("ISO-8859-1")},
         std::string(8, '\xa9') + " " + wrap("Dupont", 1.0) + " ..."},
    };
    for (const auto &c : cases) EXPECT_EQ(call_str(c.fn, c.args), c.want) << c.name;
    EXPECT_STREQ(IsoCode, "ISO-8859-1");

    // A call without a character set goes back to UTF-8.
    TestHost h;
    EXPECT_TRUE(h.call(fuzzysearch, {S("caf\xe9"), S("caf\xe9"), S("ISO-8859-1")}).result() == D(1.0));
    EXPECT_TRUE(h.call(fuzzysearch, {S("dupont"), S("M. Dupond habite ici")}).result() == D(d56));
    EXPECT_STREQ(IsoCode, "UTF-8");
}

TEST_F(Fuzzy, Markers) {
    TestHost h;
    const char *cases[][2] = {  // opening marker, highlight of "Dupond" for the pattern dupont
        {"[", "[Dupond]"},
        {"<%x|%.3f>", "<d4|0.833>Dupond"},
        {"<%d>", "<212>Dupond"},
        {"<%%%-4d%%>", "<%212 %>Dupond"},
        // Anything else is written as is.
        {"<%s>", "<%s>Dupond"},          // would read memory
        {"<%n>", "<%n>Dupond"},          // would write memory
        {"<%d%d>", "<%d%d>Dupond"},      // two ints
        {"<%*d>", "<%*d>Dupond"},        // width from an argument
        {"<%ld>", "<%ld>Dupond"},        // length modifier
        {"<%9999d>", "<%9999d>Dupond"},  // oversized width
        {"<%", "<%Dupond"},
    };
    for (const auto &c : cases) {
        EXPECT_TRUE(h.call(fuzzysetspans, {S(c[0]), S(*c[0] == '[' ? "]" : "")}).exact(0));
        EXPECT_EQ(call_str(fuzzyhighlight, {S("dupont"), S("Dupond")}), c[1]) << c[0];
    }
}

// Results far longer than the text (long markers, excerpt pieces sent back
// to the start) come whole; over the host's limit they are refused before
// they are built (nothing pushed, the call marked), at the limit pushed whole.
TEST_F(Fuzzy, LongResultsAndTheHostLimit) {
    TestHost h;
    const std::string open(1000, 'o'), close(1000, 'c');
    h.call(fuzzysetspans, {S(open + "%d"), S(close)});
    auto mark = [&](const std::string &w) { return open + "255" + w + close; };
    std::string words, marked, pieces;  // pieces: one per term
    for (int i = 0; i < 20; ++i) {
        const std::string w = std::to_string(100000 + i);
        words += w + " ";
        marked += mark(w) + " ";
        pieces += (i ? "\n " : "") + mark(w);
    }
    // The middle term matches nothing: its position -1 sends the last
    // piece back to the start of the text.
    std::string filler;
    for (int i = 0; i < 1000; ++i) filler += "ab ";
    const std::string far = filler + "Dupont " + filler + "Jean";
    const std::string far_want =
        filler + mark("Dupont") + "\n" + far.substr(0, far.size() - 4) + mark("Jean") + " ...";
    const Call cases[] = {
        {"highlight, long markers", fuzzyhighlight, {S(words), S(words)}, marked},
        {"excerpt, long markers", fuzzyexcerpt, {S(words), S(words), I(2), I(100)}, pieces + "  ..."},
        {"excerpt, pieces back to the start", fuzzyexcerpt,
         {S("dupont 999999 jean"), S(far), I(100000), I(1000000)}, far_want},
    };
    for (const auto &c : cases)
        for (int64_t limit : {int64_t(0), int64_t(c.want.size()) - 1, int64_t(c.want.size())}) {
            udfkit_set_result_limit(limit);  // 0: none
            const bool refused = limit == int64_t(c.want.size()) - 1;
            Outcome o = h.call(c.fn, c.args);
            EXPECT_TRUE(refused ? o.exact(0) : o.exact(1) && o.result().s == c.want)
                << c.name << " " << limit;
            EXPECT_EQ(udfkit_result_refused(), refused) << c.name << " " << limit;
        }
    udfkit_set_result_limit(0);
}

// Iconv as a string; "<null>" on failure.
std::string conv(const std::string &in, int32_t len, const char *from, const char *to) {
    char *r = Iconv(in.c_str(), len, from, to);
    if (!r) return "<null>";
    std::string s = r;
    std::free(r);
    return s;
}

// Excerpt pieces of a UTF-8 text hold whole characters, whatever the widths.
TEST_F(Fuzzy, ExcerptWindowsKeepWholeCharacters) {
    const char *chars[] = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
    for (const char *ch : chars)
        for (int lead = 0; lead < 4; ++lead)
            for (int32_t length = 20; length <= 60; ++length) {
                std::string side = std::string(lead, 'a');
                for (int i = 0; i < 12; ++i) side += ch;
                const std::string text = side + " Dupont " + side + "\nJean " + side;
                const std::string got = call_str(fuzzyexcerpt, {S("dupont jean"), S(text), I(4), I(length)});
                EXPECT_NE(conv(got, -1, "UTF-8", "UTF-16LE"), "<null>")
                    << ch << " lead " << lead << " length " << length;
            }
}

// ---------------------------------------------------------------- character sets

// Lengths: measured (-1), exact, 0 (a flush only), negative (refused).
TEST_F(Fuzzy, IconvLengths) {
    struct {
        std::string in;
        int32_t len;
        std::string want;
    } cases[] = {{"caf\xc3\xa9", -1, "caf\xe9"}, {"abcdef", 3, "abc"}, {"abc", 0, ""}, {"abc", -2, "<null>"}};
    for (const auto &c : cases) EXPECT_EQ(conv(c.in, c.len, "UTF-8", "ISO-8859-1"), c.want) << c.len;
}

// The built-in folding for UTF-8 and ISO-8859-1 (names in any case);
// other names go through iconv's transliteration.
TEST_F(Fuzzy, StandardWordsFoldByCharacterSet) {
    const char *cases[][3] = {
        {"UTF-8", "caf\xc3\xa9", "CAFE"},
        {"utf-8", "\xc3\x89lan", "ELAN"},
        {"UTF-8", "\xc3\x86r\xc3\xb8", "R"},  // unlisted letters vanish
        {"UTF-8", "\xe2\x82\xac" "5", "5"},
        {"UTF-8", "\xc3\x8eLE", "LE"},
        {"UTF-8", "\xc3\xa7\xc3\xa0 et l\xc3\xa0", "CA ET LA"},
        {"UTF-8", "ab\xc3", "AB"},
        {"UTF-8", "\xc2\xa0x", "X"},
        {"UTF-8", "\xc3" "a!", "!"},  // both bytes of an unlisted pair vanish
        {"UTF-8", "", ""},
        {"iso-8859-1", "\xc6\xd8\xc5", "A"},
        {"iso-8859-1", "\xf0", "O"},
        {"iso-8859-1", "\xcc\xee", "I"},
        {"iso-8859-1", "\xe7" "a", "CA"},
        {"iso-8859-1", "\xd1\xf1o", "NNO"},
        {"iso-8859-1", "\xe5\xec\xed", ""},
        // What accented letters become depends on the locale; the ligature
        // and the euro sign transliterate in every locale.
        {"utf8", "c\xc5\x93ur\xe2\x82\xac", "COEUREUR"},
        {"NO-SUCH-CHARSET", "ab\xc3\xa9", "AB\xc3\xa9"},  // upper-cased, high bytes kept
    };
    for (const auto &c : cases) {
        std::strncpy(IsoCode, c[0], sizeof IsoCode - 1);
        char out[UDFKIT_STDMOT_SIZE];
        std::memset(out, 'Z', sizeof out);
        MakeStdMot(c[1], out);
        EXPECT_STREQ(out, c[2]) << c[0] << " " << c[1];
    }
}

TEST_F(Fuzzy, ConvertFunction) {
    std::string latin(200, '\xe9'), utf8;
    for (int i = 0; i < 200; ++i) utf8 += "\xc3\xa9";
    const Call cases[] = {
        {"utf8 to latin1", convert, {S("caf\xc3\xa9"), S("UTF-8"), S("ISO-8859-1")}, "caf\xe9"},
        {"doubling: the buffer grows", convert, {S(latin), S("ISO-8859-1"), S("UTF-8")}, utf8},
        {"translit", convert, {S("5\xe2\x82\xac"), S("UTF-8"), S("ASCII//TRANSLIT")}, "5EUR"},
        {"empty", convert, {S(""), S("UTF-8"), S("ISO-8859-1")}, ""},
        // Whatever cannot be converted comes back as is.
        {"unknown charset", convert, {S("abc"), S("NO-SUCH"), S("UTF-8")}, "abc"},
        {"invalid sequence", convert, {S("a\xc3("), S("UTF-8"), S("ISO-8859-1")}, "a\xc3("},
        {"incomplete sequence", convert, {S("a\xc3"), S("UTF-8"), S("ISO-8859-1")}, "a\xc3"},
    };
    for (const auto &c : cases) EXPECT_EQ(call_str(c.fn, c.args), c.want) << c.name;
}

TEST_F(Fuzzy, SetIsoCode) {
    TestHost h;
    EXPECT_TRUE(h.call(fuzzysetisocode, {S("ISO-8859-1")}).exact(0));
    EXPECT_STREQ(IsoCode, "ISO-8859-1");
    // Long names are cut to the 50-byte setting.
    h.call(fuzzysetisocode, {S(std::string(80, 'x'))});
    EXPECT_EQ(std::strlen(IsoCode), 49u);
}

// ---------------------------------------------------------------- fuzzyrank

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

// One end-to-end check per function and per kind of value (the default
// markers, NULL, a BLOB of invalid UTF-8).
TEST_F(Fuzzy, ThroughSqlite) {
    SqliteDb db;
    const std::string cases[][2] = {
        {"select round(fuzzysearch('dupont', 'M. Dupond habite ici'), 4)", "r:0.8333"},
        {"select fuzzyhighlight('dupont', 'M. Dupond', 0.5, 'UTF-8')", "M. " + wrap("Dupond", 1 - 1.0 / 6)},
        {"select fuzzyhighlight('dupont', NULL)", "NULL"},
        {"select fuzzysetspans('[', ']')", "NULL"},
        {"select fuzzyexcerpt('dupont', 'M. Dupond habite ici', 2, 20)", "M. [Dupond] habite i ..."},
        {"select fuzzyrank('Jean Dupont', 'Jean Dupont')", "r:1"},
        {"select fuzzyrank(NULL, 'Jean')", "r:0"},
        {"select fuzzyrank(x'c328fffe206a65616e', 'Jean')", ""},  // "": some score
    };
    for (const auto &c : cases) {
        const std::string got = db.one(c[0]);
        const double d = got.substr(0, 2) == "r:" ? std::stod(got.substr(2)) : -1;
        EXPECT_TRUE(c[1].empty() ? d >= 0 && d <= 1 : got == c[1]) << c[0] << ": " << got;
    }
}

}  // namespace
