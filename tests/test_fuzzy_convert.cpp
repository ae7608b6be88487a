// Character-set conversion, standard words and the conversion SQL functions.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "host/testhost.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

// The standard word of w with IsoCode set to charset ("UTF-8" after).
std::string std_word(const char *charset, const std::string &w) {
    std::strncpy(IsoCode, charset, sizeof IsoCode - 1);
    char out[UDFKIT_STDMOT_SIZE];
    std::memset(out, 'Z', sizeof out);
    MakeStdMot(w.c_str(), out);
    std::strcpy(IsoCode, "UTF-8");
    return out;
}

// Iconv as a string; "<null>" on failure.
std::string conv(const std::string &in, int32_t len, const char *from, const char *to) {
    char *r = Iconv(in.c_str(), len, from, to);
    if (!r) return "<null>";
    std::string s = r;
    std::free(r);
    return s;
}

// Lengths: measured (-1), exact, 0 (a flush only), negative (refused).
// The character sets are tried through the SQL function below.
TEST(Iconv, Lengths) {
    struct {
        std::string in;
        int32_t len;
        std::string want;
    } cases[] = {{"caf\xc3\xa9", -1, "caf\xe9"}, {"abcdef", 3, "abc"}, {"abc", 0, ""}, {"abc", -2, "<null>"}};
    for (const auto &c : cases) EXPECT_EQ(conv(c.in, c.len, "UTF-8", "ISO-8859-1"), c.want) << c.len;
}

// The built-in folding for UTF-8 and ISO-8859-1 (names in any case);
// other names go through iconv's transliteration.
TEST(MakeStdMot, FoldsByCharacterSet) {
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
    for (const auto &c : cases) EXPECT_EQ(std_word(c[0], c[1]), c[2]) << c[0] << " " << c[1];
}

TEST(ConvertSql, Functions) {
    std::string latin(200, '\xe9'), utf8;
    for (int i = 0; i < 200; ++i) utf8 += "\xc3\xa9";
    TestHost h;
    struct {
        const char *name;
        std::vector<Value> args;
        Value want;
    } cases[] = {
        {"utf8 to latin1", {S("caf\xc3\xa9"), S("UTF-8"), S("ISO-8859-1")}, S("caf\xe9")},
        {"doubling: the buffer grows", {S(latin), S("ISO-8859-1"), S("UTF-8")}, S(utf8)},
        {"translit", {S("5\xe2\x82\xac"), S("UTF-8"), S("ASCII//TRANSLIT")}, S("5EUR")},
        {"empty", {S(""), S("UTF-8"), S("ISO-8859-1")}, S("")},
        // Whatever cannot be converted comes back as is.
        {"unknown charset", {S("abc"), S("NO-SUCH"), S("UTF-8")}, S("abc")},
        {"invalid sequence", {S("a\xc3("), S("UTF-8"), S("ISO-8859-1")}, S("a\xc3(")},
        {"incomplete sequence", {S("a\xc3"), S("UTF-8"), S("ISO-8859-1")}, S("a\xc3")},
    };
    for (const auto &c : cases) {
        Outcome o = h.call(convert, c.args);
        EXPECT_TRUE(o.exact(1) && o.result() == c.want) << c.name;
    }
}

TEST(ConvertSql, SetIsoCode) {
    TestHost h;
    EXPECT_TRUE(h.call(fuzzysetisocode, {S("ISO-8859-1")}).exact(0));
    EXPECT_STREQ(IsoCode, "ISO-8859-1");
    // Long names are cut to the 50-byte setting.
    h.call(fuzzysetisocode, {S(std::string(80, 'x'))});
    EXPECT_EQ(std::strlen(IsoCode), 49u);
    std::strcpy(IsoCode, "UTF-8");
}

}  // namespace
