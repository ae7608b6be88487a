// Values crossing a bridge: UTF-8 cuts and checks, floats as plain text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "sqlhelp/text.hpp"

namespace {
using namespace udfkit::sqlhelp;

TEST(Utf8, CutNeverSplitsACharacter) {
    struct Case { std::string text; size_t max, want; } cases[] = {
        {"abc", 5, 3},              {"a\xC3\xA9", 2, 1},           {"a\xC3\xA9", 3, 3},
        {"\xE2\x82\xAC" "x", 2, 0}, {"\xF0\x9F\x98\x80", 3, 0},  {"\xF0\x9F\x98\x80", 4, 4},
        {"a\x80\x80\x80\x80", 3, 3},  // not UTF-8: cut where asked
        {"ab\xC3", 3, 3},             // a dangling lead byte inside the limit stays
    };
    for (const auto &c : cases)
        EXPECT_EQ(utf8_cut(c.text.data(), c.text.size(), c.max), c.want) << c.text << " " << c.max;
}

TEST(Utf8, PopLength) {
    struct Case { std::string text; int64_t capacity; size_t want; } cases[] = {
        {"abc", 10, 3},
        {"abc", 3, 2},
        {"a\xC3\xA9", 3, 1},          // é does not fit whole
        {"\xC3\xA9", 2, 1},           // one character: one byte
        {"\xC3\xA9", 1, 0},
        {"\xC3\xA9", 0, 0},
        {"", 2, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(pop_length(c.text.data(), c.text.size(), c.capacity), c.want)
            << c.text << " " << c.capacity;
}

TEST(Utf8, Validity) {
    struct Case { std::string text; bool ok; } cases[] = {
        {"", true}, {"plain", true}, {"\xC3\xA9t\xC3\xA9", true}, {"\xF4\x8F\xBF\xBF", true},
        {"\xC3", false}, {"\x80", false}, {"\xC0\xAF", false}, {"\xE0\x80\xAF", false},
        {"\xED\xA0\x80", false}, {"\xF4\x90\x80\x80", false}, {"\xFF", false},
    };
    for (const auto &c : cases) EXPECT_EQ(utf8_valid(c.text.data(), c.text.size()), c.ok) << c.text;
}

TEST(Utf8, TrimEndsDropsPartialCharacters) {
    struct Case { std::string text, want; } cases[] = {
        {"\xA9" "abc", "abc"}, {"abc\xE2\x82", "abc"}, {"\x82\xAC" "abc\xF0\x9F\x98", "abc"},
        {"\xC3\xA9", "\xC3\xA9"}, {"\xC3", ""},
    };
    for (const auto &c : cases) {
        const char *s = c.text.data();
        size_t n = c.text.size();
        utf8_trim_ends(s, n);
        EXPECT_EQ(std::string(s, n), c.want);
    }
}

TEST(Glob, Patterns) {
    const std::string many_a(3000, 'a');
    struct Case { const char *pattern, *text; bool match; } cases[] = {
        {"a*c", "abbbc", true},     {"a*c", "abbcb", false},   {"*", "", true},
        {"?", "\xC3\xA9", true},    {"??", "\xC3\xA9", false}, {"[a-c]x", "bx", true},
        {"[^a-c]", "d", true},      {"[^a-c]", "b", false},    {"[]]", "]", true},
        {"[a-]", "-", true},        {"[\xC3\xA0-\xC3\xBF]", "\xC3\xA9", true},
        {"a[", "a[", false},        {"*a*a*a*a*a*a*b", many_a.c_str(), false},
        {"A*", "abc", false},       {"*?*", "x", true},        {"[*]", "*", true},
    };
    for (const auto &c : cases) EXPECT_EQ(glob_match(c.pattern, c.text), c.match) << c.pattern;
}

TEST(RealText, PlainShortestAndExact) {
    struct Case { double d; const char *want; } cases[] = {
        {2.5e15, "2500000000000000"}, {0.00005, "0.00005"}, {-1.5, "-1.5"},
        {0.1, "0.1"}, {1e21, "1000000000000000000000"}, {0, "0"},
    };
    char buf[kRealTextMax];
    for (const auto &c : cases) {
        real_to_text(c.d, buf);
        EXPECT_STREQ(buf, c.want);
    }
    // Every magnitude reads back to the same double.
    for (double d : {1.7976931348623157e308, 4.9406564584124654e-324, 2.2250738585072014e-308,
                     -123456.789e-200, 9007199254740993.0}) {
        real_to_text(d, buf);
        EXPECT_EQ(std::strtod(buf, nullptr), d) << buf;
        EXPECT_EQ(std::string(buf).find('e'), std::string::npos);
    }
}

TEST(QueryDepth, RefusesBeyondTheLimit) {
    QueryDepth a, b, c, d;
    EXPECT_TRUE(a.entered() && b.entered() && c.entered() && d.entered());
    {
        QueryDepth e;
        EXPECT_FALSE(e.entered());
    }
}

}  // namespace
