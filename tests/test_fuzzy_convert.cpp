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

// Sets IsoCode for the life of the object, then restores "UTF-8".
struct Charset {
    explicit Charset(const char *name) { std::strncpy(IsoCode, name, sizeof IsoCode - 1); }
    ~Charset() { std::strcpy(IsoCode, "UTF-8"); }
};

std::string std_word(const std::string &w) {
    char out[UDFKIT_STDMOT_SIZE];
    std::memset(out, 'Z', sizeof out);
    MakeStdMot(w.c_str(), out);
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

TEST(Iconv, Conversions) {
    struct {
        const char *name;
        std::string in;
        int32_t len;
        const char *from, *to;
        std::string want;
    } cases[] = {
        {"measured utf8 to latin1", "caf\xc3\xa9", -1, "UTF-8", "ISO-8859-1", "caf\xe9"},
        {"exact length", "abcdef", 3, "UTF-8", "UTF-8", "abc"},
        {"length 0: flush only", "abc", 0, "UTF-8", "ISO-8859-1", ""},
        {"unknown source charset", "abc", -1, "NO-SUCH-CHARSET", "UTF-8", "<null>"},
        {"unknown target charset", "abc", -1, "UTF-8", "NO-SUCH-CHARSET", "<null>"},
        {"invalid sequence", "a\xc3(", -1, "UTF-8", "ISO-8859-1", "<null>"},
        {"incomplete sequence", "a\xc3", -1, "UTF-8", "ISO-8859-1", "<null>"},
        {"translit", "5\xe2\x82\xac", -1, "UTF-8", "ASCII//TRANSLIT", "5EUR"},
        {"negative length", "abc", -2, "UTF-8", "UTF-8", "<null>"},
    };
    for (const auto &c : cases) EXPECT_EQ(conv(c.in, c.len, c.from, c.to), c.want) << c.name;
}

TEST(Iconv, ExpandingConversionGrowsTheBuffer) {
    // 200 Latin-1 accented letters double in UTF-8: far beyond length + 32.
    std::string latin(200, '\xe9'), utf8;
    for (int i = 0; i < 200; ++i) utf8 += "\xc3\xa9";
    EXPECT_EQ(conv(latin, -1, "ISO-8859-1", "UTF-8"), utf8);
    // UTF-32 output is four times the input, plus a byte-order mark.
    char *r = Iconv("abcdefgh", 8, "ASCII", "UTF-32LE");
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(std::memcmp(r, "a\0\0\0b\0\0\0", 8), 0);
    EXPECT_EQ(r[28], 'h');
    std::free(r);
}

TEST(MakeStdMot, Utf8Mode) {
    struct {
        const char *in, *want;
    } cases[] = {
        {"caf\xc3\xa9", "CAFE"},
        {"\xc3\x89lan", "ELAN"},
        {"na\xc3\xafve", "NAIVE"},
        {"\xc3\x86r\xc3\xb8", "R"},
        {"\xe2\x82\xac" "5", "5"},
        {"\xc3\x8eLE", "LE"},
        {"\xc3\xa7\xc3\xa0 et l\xc3\xa0", "CA ET LA"},
        {"ab\xc3", "AB"},
        {"\xc2\xa0x", "X"},
        {"\xc3" "a!", "!"},  // both bytes of an unlisted pair vanish
        {"", ""},
    };
    for (const auto &c : cases) EXPECT_EQ(std_word(c.in), c.want) << c.in;
    Charset lower("utf-8");
    EXPECT_EQ(std_word("caf\xc3\xa9"), "CAFE");
}

TEST(MakeStdMot, Latin1Mode) {
    Charset cs("iso-8859-1");
    struct {
        const char *in, *want;
    } cases[] = {
        {"\xc6\xd8\xc5", "A"},
        {"\xf0", "O"},
        {"\xcc\xee", "I"},
        {"\xd9\xf9", "U"},
        {"\xe7" "a", "CA"},
        {"\xd1\xf1o", "NNO"},
        {"\xe5\xec\xed", ""},
    };
    for (const auto &c : cases) EXPECT_EQ(std_word(c.in), c.want) << c.in;
}

TEST(MakeStdMot, TransliterationMode) {
    {
        Charset cs("utf8");  // no hyphen: not the built-in mode
        // (what accented letters become depends on the locale; the ligature
        // and the euro sign transliterate in every locale)
        EXPECT_EQ(std_word("c\xc5\x93ur\xe2\x82\xac"), "COEUREUR");
    }
    {
        // A charset iconv does not know: plain upper-casing, high bytes kept.
        Charset cs("NO-SUCH-CHARSET");
        EXPECT_EQ(std_word("ab\xc3\xa9"), "AB\xc3\xa9");
    }
}

TEST(MakeStdMot, LongWordsStayInTheBuffer) {
    std::string w(1000, 'a');
    char out[UDFKIT_STDMOT_SIZE + 16];
    std::memset(out, 'Z', sizeof out);
    MakeStdMot(w.c_str(), out);
    EXPECT_EQ(std::strlen(out), UDFKIT_STDMOT_SIZE - 1);
    EXPECT_EQ(out[UDFKIT_STDMOT_SIZE], 'Z');
}

TEST(ConvertSql, Functions) {
    TestHost h;
    struct {
        const char *name;
        std::vector<Value> args;
        Value want;
    } cases[] = {
        {"utf8 to latin1", {S("caf\xc3\xa9"), S("UTF-8"), S("ISO-8859-1")}, S("caf\xe9")},
        {"latin1 to utf8", {S("caf\xe9"), S("ISO-8859-1"), S("UTF-8")}, S("caf\xc3\xa9")},
        {"unknown charset", {S("abc"), S("NO-SUCH"), S("UTF-8")}, S("abc")},
        {"invalid input", {S("a\xff"), S("UTF-8"), S("ISO-8859-1")}, S("a\xff")},
        {"empty", {S(""), S("UTF-8"), S("ISO-8859-1")}, S("")},
    };
    for (const auto &c : cases) {
        Outcome o = h.call(convert, c.args);
        EXPECT_TRUE(o.exact(1)) << c.name;
        EXPECT_EQ(o.result(), c.want) << c.name;
    }
    Describe d = h.describe(convert, {arg(0, 10), arg(0, 10), arg(0, 10)});
    EXPECT_EQ(d.type, UDF_T_VCHAR);
    EXPECT_EQ(d.size, 65536);
    EXPECT_FALSE(d.touched_host);
}

TEST(ConvertSql, SetIsoCode) {
    TestHost h;
    Outcome o = h.call(fuzzysetisocode, {S("ISO-8859-1")});
    EXPECT_TRUE(o.exact(0));
    EXPECT_STREQ(IsoCode, "ISO-8859-1");
    // Long names are cut to the 50-byte setting.
    o = h.call(fuzzysetisocode, {S(std::string(80, 'x'))});
    EXPECT_EQ(std::strlen(IsoCode), 49u);
    std::strcpy(IsoCode, "UTF-8");
    Describe d = h.describe(fuzzysetisocode, {arg(0, 50)});
    EXPECT_EQ(d.type, UDF_T_SMALLINT);
    EXPECT_EQ(d.size, 0);
    EXPECT_FALSE(d.touched_host);
}

}  // namespace
