// Unit tests of the string family through the in-memory test host.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "host/testhost.hpp"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

struct Case {
    const char *name;
    udfkit_sqlfunc fn;
    std::vector<Value> args;
    Value expected;
};

void run_cases(const std::vector<Case> &cases) {
    for (const Case &c : cases) {
        TestHost h;
        Outcome o = h.call(c.fn, c.args);
        EXPECT_TRUE(o.exact(1)) << c.name << ": popped " << o.popped << ", left " << o.leftover;
        EXPECT_EQ(o.result(), c.expected) << c.name;
    }
}

TEST(StringFunctions, CaseAndSubstrings) {
    run_cases({
        {"upper", upper, {S("aBc")}, S("ABC")},
        {"lower", lower, {S("aBc")}, S("abc")},
        {"upper high bytes kept", upper, {S("\xe9t\xe9")}, S("\xe9T\xe9")},
        {"capitalize", capitalize, {S("hello WORLD")}, S("Hello world")},
        {"capitalize empty", capitalize, {S("")}, S("")},
        {"basename dir", basename, {S("/usr/lib/")}, S("")},
        {"basename path", basename, {S("/a/b/c.txt")}, S("c.txt")},
        {"lastchars 2", lastchars, {S("abcdef"), I(2)}, S("ef")},
        {"lastchars past length", lastchars, {S("abc"), I(5)}, S("abc")},
        {"lastchars negative", lastchars, {S("abc"), I(-1)}, S("abc")},
        {"lastchars 0", lastchars, {S("abc"), I(0)}, S("")},
        {"strpos from 1", strpos, {S("banana"), S("n"), I(1)}, I(3)},
        {"strpos past end", strpos, {S("banana"), S("n"), I(7)}, I(0)},
        {"strpos negative", strpos, {S("banana"), S("n"), I(-3)}, I(0)},
        {"strpos start 0", strpos, {S("banana"), S("b"), I(0)}, I(1)},
        {"strpos blank", strpos, {S("a b"), S(""), I(1)}, I(2)},
        {"strpos only first char", strpos, {S("banana"), S("na"), I(1)}, I(3)},
        {"valascii A", valascii, {S("A")}, I(65)},
        {"valascii empty", valascii, {S("")}, S("")},
        {"valascii high byte", valascii, {S("\xe9")}, I(-23)},
        {"strreplace grow", strreplace, {S("aaa"), S("a"), S("bb")}, S("bbbbbb")},
        {"strreplace delete", strreplace, {S("abcabc"), S("bc"), S("")}, S("aa")},
        {"strreplace no overlap", strreplace, {S("aaaa"), S("aa"), S("x")}, S("xx")},
        {"strreplace empty search", strreplace, {S("abc"), S(""), S("x")}, S("abc")},
    });
}

TEST(StringFunctions, ConcatenationAndFields) {
    run_cases({
        {"concat", concat, {S("ab"), S(""), S("cd")}, S("abcd")},
        {"concat none", concat, {}, S("")},
        {"merge skips empty", merge, {S("ab"), S(""), S("cd")}, S("ab cd")},
        {"merge trailing blank kept", merge, {S("a"), S("b"), S("")}, S("a b ")},
        {"merge none", merge, {}, S("")},
        {"champ 2", champ, {S("a;b;c"), S(";"), I(2)}, S("b")},
        {"champ 4", champ, {S("a;b;c"), S(";"), I(4)}, S("")},
        {"champ -1", champ, {S("a;b;c"), S(";"), I(-1)}, S("")},
        {"champ after empty", champ, {S("a;;c"), S(";"), I(3)}, S("c")},
        {"champ blank separator", champ, {S("x y z"), S(""), I(2)}, S("y")},
    });
}

// Under the host's result limit a function whose output can outgrow its
// arguments measures the result first: over the limit it pushes nothing
// and marks the call as refused, without building the text.
TEST(StringFunctions, ResultLimit) {
    const std::string mega(1 << 20, 'a');
    const struct {
        const char *name;
        udfkit_sqlfunc fn;
        std::vector<Value> args;
        int64_t limit;
        const char *expected;  // null: refused
    } cases[] = {
        {"strreplace at the limit", strreplace, {S("aaa"), S("a"), S("bb")}, 6, "bbbbbb"},
        {"strreplace over", strreplace, {S("aaa"), S("a"), S("bb")}, 5, nullptr},
        {"strreplace shrinking", strreplace, {S("abab"), S("ab"), S("")}, 1, ""},
        {"concat over", concat, {S("ab"), S(""), S("cd")}, 3, nullptr},
        {"merge at the limit", merge, {S("ab"), S(""), S("cd")}, 5, "ab cd"},
        {"merge over", merge, {S("ab"), S(""), S("cd")}, 4, nullptr},
        {"merge trailing blank counted", merge, {S("ab"), S("")}, 2, nullptr},
        // 4 GB if it were built.
        {"strreplace 1 MB by 4 KB", strreplace, {S(mega), S("a"), S(std::string(4095, 'r'))},
         1000000000, nullptr},
        {"convert at the limit", convert, {S("\xe9\xe9\xe9"), S("ISO-8859-1"), S("UTF-8")}, 6,
         "\xc3\xa9\xc3\xa9\xc3\xa9"},
        {"convert over", convert, {S("\xe9\xe9\xe9"), S("ISO-8859-1"), S("UTF-8")}, 5, nullptr},
        // What is pushed ends at the first NUL byte of the conversion.
        {"convert counts what is pushed", convert, {S("\xc3\xa9t\xc3\xa9"), S("UTF-8"), S("UTF-16LE")},
         1, "\xe9"},
    };
    for (const auto &c : cases) {
        TestHost h;
        udfkit_set_result_limit(c.limit);
        Outcome o = h.call(c.fn, c.args);
        const int32_t refused = udfkit_result_refused();
        udfkit_set_result_limit(0);
        EXPECT_EQ(o.leftover, 0) << c.name;
        EXPECT_EQ(refused, c.expected ? 0 : 1) << c.name;
        EXPECT_TRUE(c.expected ? o.result() == S(c.expected) : o.pushed.empty()) << c.name;
    }
}

TEST(StringFunctions, TypedColumnsAndExtremes) {
    run_cases({
        {"charcolumn", charcolumn, {I(12)}, S("")},
        {"vcharcolumn", vcharcolumn, {I(40)}, S("")},
        {"datecolumn", datecolumn, {}, S("")},
        {"datetimecolumn", datetimecolumn, {}, Value::datetime(INT64_MIN)},
        {"intcolumn", intcolumn, {}, I(32768)},
        {"minx", minx, {D(3), D(1), D(2)}, D(1)},
        {"maxx", maxx, {D(3), D(1), D(2)}, D(3)},
        {"minx ints", minx, {I(4), I(-9)}, D(-9)},
    });
}

TEST(StringFunctions, ExtremesAndNaN) {
    TestHost h;
    // A NaN popped first stays; a NaN popped later is never taken in.
    EXPECT_TRUE(std::isnan(h.call(maxx, {D(5), D(NAN)}).result().d));
    EXPECT_EQ(h.call(maxx, {D(NAN), D(5)}).result(), D(5));
    // With nargs 0 one value is still popped and returned.
    h.stack.push_back(D(4.25));
    Outcome o = h.call(minx, {}, 0);
    EXPECT_EQ(o.popped, 1);
    EXPECT_EQ(o.result(), D(4.25));
}

TEST(StringFunctions, Capacities) {
    const std::string big(5000, 'x');
    run_cases({
        {"upper cut", upper, {S(big)}, S(std::string(2047, 'X'))},
        {"capitalize cut", capitalize, {S(std::string(300, 'b'))}, S("B" + std::string(198, 'b'))},
        // the text was cut at 2047 before the tail is taken
        {"lastchars of a cut text", lastchars, {S(big + "yz"), I(2)}, S("xx")},
        // length-sized pops are whole, however long
        {"champ of a long text", champ, {S(big + ";z"), S(";"), I(2)}, S("z")},
        // search and replacement popped with capacity 4096
        {"strreplace cut", strreplace, {S("ab"), S("a"), S(std::string(5000, 'r'))},
         S(std::string(4095, 'r') + "b")},
    });
}

// Newest value first; a wrong count of arguments and over-long values.
TEST(GroupConcat, Accumulates) {
    TestHost h;
    std::string acc;
    for (const char *v : {"x", "y", "", "z"}) {
        Outcome o = h.call_aggregate(group_concat, {S(v), S(",")}, S(acc));
        ASSERT_TRUE(o.exact(1));
        EXPECT_EQ(o.popped, 3);
        acc = o.result().s;
    }
    EXPECT_EQ(acc, "z,y,x");
    Outcome o = h.call_aggregate(group_concat, {S("x")}, S("acc"));
    EXPECT_EQ(o.popped, 0);
    EXPECT_EQ(o.result(), S("error"));
    EXPECT_EQ(o.leftover, 2);
    const std::string v(2000, 'v'), a(2000, 'a');
    o = h.call_aggregate(group_concat, {S(v), S("|")}, S(a));
    EXPECT_EQ(o.result().s, std::string(1024, 'v') + "|" + std::string(1024, 'a'));
}

TEST(ListMatches, CountsTokens) {
    run_cases({
        {"one of three", list_matches, {S("a,b,,c"), S(","), S("b")}, D(1.0 / 3)},
        {"no token", list_matches, {S(",,,"), S(","), S("*")}, D(0)},
        {"one token", list_matches, {S("abc"), S(","), S("a*")}, D(1)},
        {"two delimiters", list_matches, {S("apple pear; plum"), S(" ;"), S("p*")}, D(2.0 / 3)},
        {"a set", list_matches, {S("a1 b2 c3"), S(" "), S("[ab]?")}, D(2.0 / 3)},
    });
}

TEST(Describe, Answers) {
    const ArgDesc char10 = arg(0, 10), int4 = arg(2, 4), vchar = arg(9, 300);
    const struct { const char *name; udfkit_sqlfunc fn; std::vector<ArgDesc> args; int32_t type, size; } cases[] = {
        {"upper", upper, {vchar}, 9, 300},
        {"basename", basename, {char10}, 0, 10},
        {"strreplace", strreplace, {vchar, char10, char10}, 9, 300},
        {"lastchars", lastchars, {char10, arg(2, 4, 5)}, 0, 5},
        {"strpos", strpos, {char10, char10, int4}, 1, 2},
        {"valascii", valascii, {char10}, 1, 2},
        {"merge", merge, {char10, int4}, 0, 19},
        {"concat", concat, {char10, int4}, 0, 18},
        {"merge none", merge, {}, 0, -1},
        {"concat none", concat, {}, 0, 0},
        {"concat widths", concat,
         {arg(3, 8), arg(5, 10 * 256 + 2), arg(7, 4), arg(8, 0), arg(13, 8), arg(12, 5), arg(4, 0), arg(10, 8), arg(200, 1)},
         0, 12 + 12 + 10 + 19 + 19 + 1000},
        {"champ", champ, {char10, char10, int4}, 0, 10},
        {"charcolumn", charcolumn, {arg(2, 4, 12)}, 0, 12},
        {"vcharcolumn", vcharcolumn, {arg(2, 4, 40)}, 9, 40},
        {"datecolumn", datecolumn, {}, 7, 4},
        {"datetimecolumn", datetimecolumn, {}, 13, 8},
        {"intcolumn", intcolumn, {}, 1, 2},
        {"minx", minx, {arg(3, 8)}, 3, 8},
        {"list_matches", list_matches, {char10, char10, char10}, 3, 8},
    };
    for (const auto &c : cases) {
        TestHost h;
        Describe d = h.describe(c.fn, c.args);
        EXPECT_FALSE(d.touched_host) << c.name;
        EXPECT_EQ(d.type, c.type) << c.name;
        EXPECT_EQ(d.size, c.size) << c.name;
    }
}

TEST(Describe, Aggregate) {
    TestHost h;
    Describe d = h.describe_aggregate(group_concat, {arg(0, 10), arg(0, 1)}, true);
    EXPECT_TRUE(d.type == 0 && d.size == 1024 && d.aggregate == 1 && !d.touched_host);
    d = h.describe_aggregate(group_concat, {arg(0, 10), arg(0, 1)}, false);
    EXPECT_EQ(d.size, 1024);
    EXPECT_EQ(d.aggregate, -999);
}

}  // namespace
