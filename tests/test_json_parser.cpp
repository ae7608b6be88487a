// The in-place JSON parser: trees, error lines, number conversion.
#include <gtest/gtest.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "sqlfunc/jsonlib.hpp"
#include "udfkit/json.h"

namespace {

// A compact rendering of a tree: i:int, d:double/intslot, s:text, b:0/1,
// null, [..], {key=..}.
std::string dump(const JsonNode *n) {
    char buf[80];
    switch (n->kind) {
    case JSON_NULL: return "null";
    case JSON_STRING: return std::string("s:") + n->v1.text_value;
    case JSON_INTEGER: std::snprintf(buf, sizeof buf, "i:%" PRId64, n->v1.int_value); return buf;
    case JSON_BOOL: std::snprintf(buf, sizeof buf, "b:%" PRId64, n->v1.int_value); return buf;
    case JSON_DOUBLE:
        std::snprintf(buf, sizeof buf, "d:%.17g/%" PRId64, n->v2.dbl_value, n->v1.int_value);
        return buf;
    default: {
        const bool obj = n->kind == JSON_OBJECT;
        std::string s = obj ? "{" : "[";
        int count = 0;
        for (const JsonNode *c = n->v2.child; c; c = c->next, ++count) {
            if (count) s += ",";
            if (c->key) s += std::string(c->key) + "=";
            s += dump(c);
        }
        EXPECT_EQ(count, n->v1.length);
        return s + (obj ? "}" : "]");
    }
    }
}

struct Parsed {
    bool ok;
    std::string tree;    // empty when there is no top-level value
    std::string stderr_;
    std::string rest;    // text after the top-level value
};

Parsed parse(const std::string &text) {
    std::vector<char> buf(text.begin(), text.end());
    buf.push_back('\0');
    JsonNode top{};
    testing::internal::CaptureStderr();
    char *end = parse_value(&top, nullptr, buf.data());
    Parsed p{end != nullptr, "", testing::internal::GetCapturedStderr(), end ? end : ""};
    if (top.v2.child) {
        if (p.ok) p.tree = dump(top.v2.child);
        EXPECT_EQ(top.v2.child, top.last_child);
        nx_json_free(top.v2.child);
    }
    return p;
}

TEST(JsonParser, Trees) {
    const struct { const char *text, *tree; } cases[] = {
        {"]", ""},                        {"[1,,2]", "[i:1,i:2]"},
        {",,[1 2]", "[i:1,i:2]"},         {"{\"a\":}", "{}"},
        {"{\"a\" \t:1,,\"b\":2}", "{a=i:1,b=i:2}"},
        {"{\"a\":1 /* c */ , // d\n \"b\":[true,false,null]}", "{a=i:1,b=[b:1,b:0,null]}"},
        {"0x1F", "i:31"},                 {"017", "i:15"},
        {"[08]", "[i:0,i:8]"},            {"-0x10", "i:-16"},
        {"1.5e3", "d:1500/1"},            {"-2.5", "d:-2.5/-2"},
        {"1.e2", "d:100/1"},              {"1e-400", "d:0/1"},
        {"0x10.8", "d:16.5/16"},          {"18446744073709551615", "i:-1"},
        {"-9223372036854775808", "i:-9223372036854775808"},
        {"9223372036854775808", "i:-9223372036854775808"},
        {"1 abc", "i:1"},                 {"/**/7", "i:7"},
        {"/* / */ 9", "i:9"},             {"\"a\\qb\"", "s:a\\qb"},
        {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "s:\"\\/\b\f\n\r\t"},
        {"\"x\\u00e9y\"", "s:x\xc3\xa9y"}, {"\"\\ud83d\\ude00\"", "s:\xf0\x9f\x98\x80"},
        {"\"a\\u0000b\"", "s:a"},         {"[[[{\"k\":[{}]}]]]", "[[[{k=[{}]}]]]"},
        {"{\"a\\u0062\":\"c\"}", "{ab=s:c}"},
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.text);
        EXPECT_TRUE(p.ok) << c.text << ": " << p.stderr_;
        EXPECT_EQ(p.tree, c.tree) << c.text;
        EXPECT_EQ(p.stderr_, "") << c.text;
    }
}

TEST(JsonParser, ErrorLines) {
    const std::string deep(udfkit::json::kMaxDepth + 1, '[');
    const struct { std::string text, line; } cases[] = {  // one per check
        {"[1,", "(263): unexpected end of text at "},
        {"\"abc", "(200): no closing quote for string at abc"},
        {"\"\\u12G4\"", "(168): invalid unicode escape at \\u12G4\""},
        {"\"\\ud83d\"", "(176): invalid unicode surrogate at \\ud83d\""},
        {"\"\\ud83d\\u0041\"", "(181): invalid unicode surrogate at \\ud83d\\u0041\""},
        {"\"\\ude00\"", "(187): invalid codepoint at \\ude00\""},
        {"/*", "(207): endless comment at /*"},
        {"/*/", "(213): endless comment at /*/"},
        {"// x", "(368): endless comment at // x"},
        {"/x", "(376): unexpected chars at /x"},
        {"{// x", "(238): endless comment at // x"},
        {"{/x}", "(246): unexpected chars at /x}"},
        {"{\"a\"/**/:1}", "(228): unexpected chars at /**/:1}"},
        {"{x", "(250): unexpected chars at x"},
        {"{", "(254): unexpected chars at "},
        {"{\"a\": }", "(381): unexpected chars at }"},
        {"[1 \xff]", "(381): unexpected chars at \xff]"},
        {"[1, {\"b\": [2, tru]}]", "(346): unexpected chars at tru]}]"},  // partial tree freed
        {"fals", "(354): unexpected chars at fals"},
        {"nul", "(361): unexpected chars at nul"},
        {"-", "(318): invalid number at -"},
        {"99999999999999999999", "(318): invalid number at 99999999999999999999"},
        {"-9223372036854775809", "(318): invalid number at -9223372036854775809"},
        {"[1e999]", "(325): invalid number at 1e999]"},
        {deep, "(264): nesting too deep at ["},
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.text);
        EXPECT_FALSE(p.ok) << c.text;
        EXPECT_EQ(p.stderr_, "NXJSON PARSE ERROR " + c.line + "\n") << c.text;
    }
    // A million brackets stop at the limit (the line quotes the rest).
    Parsed deep_one = parse(std::string(1000000, '['));
    EXPECT_FALSE(deep_one.ok);
    EXPECT_EQ(deep_one.stderr_.rfind("NXJSON PARSE ERROR (264): nesting too deep at [[", 0), 0u);
    // The deepest accepted nesting.
    const int max = udfkit::json::kMaxDepth;
    Parsed p = parse(std::string(max, '[') + std::string(max, ']'));
    EXPECT_TRUE(p.ok) << p.stderr_.substr(0, 80);
}

TEST(JsonParser, Utf8Encoding) {
    const struct { uint32_t cp; const char *bytes; } cases[] = {  // null: refused
        {0x41, "A"},          {0x7F, "\x7f"},         {0x80, "\xc2\x80"},
        {0x7FF, "\xdf\xbf"},  {0x800, "\xe0\xa0\x80"}, {0xD7FF, "\xed\x9f\xbf"},
        {0xD800, nullptr},    {0xDFFF, nullptr},       {0xE000, "\xee\x80\x80"},
        {0xFFFF, "\xef\xbf\xbf"}, {0x10000, "\xf0\x90\x80\x80"},
        {0x10FFFF, "\xf4\x8f\xbf\xbf"}, {0x110000, nullptr},
    };
    for (const auto &c : cases) {
        char out[8] = {};
        char *end = out;
        int ok = unicode_to_utf8(c.cp, out, &end);
        EXPECT_EQ(ok, c.bytes ? 1 : 0) << std::hex << c.cp;
        if (c.bytes) {
            EXPECT_EQ(std::string(out, end), c.bytes) << std::hex << c.cp;
        }
    }
}

// Numbers must read exactly as the C library's automatic-base 64-bit
// conversions and strtod read them, whatever shortcut the parser takes.
TEST(JsonParser, NumbersAgreeWithTheCLibrary) {
    std::mt19937_64 rng(7);
    auto digits = [&](int n) {
        std::string s;
        for (int i = 0; i < n; ++i) s += static_cast<char>('0' + rng() % 10);
        return s;
    };
    testing::internal::CaptureStderr();  // the error lines of the rejected ones
    for (int k = 0; k < 20000; ++k) {
        std::string t;
        if (rng() % 3 == 0) t += '-';
        t += digits(1 + rng() % 22);
        if (rng() % 2) t += "." + digits(rng() % 20);
        if (rng() % 3 == 0) t += (rng() % 2 ? "e" : "E") + std::string(rng() % 2 ? "-" : "") +
                                 std::to_string(rng() % 330);
        std::vector<char> buf(t.begin(), t.end());
        buf.push_back('\0');
        JsonNode top{};
        char *end = parse_value(&top, nullptr, buf.data());

        char *iend;
        errno = 0;
        int64_t iv = t[0] == '-' ? std::strtoll(t.c_str(), &iend, 0)
                                 : static_cast<int64_t>(std::strtoull(t.c_str(), &iend, 0));
        bool bad = iend == t.c_str() || errno == ERANGE;
        const bool dbl = !bad && (*iend == '.' || *iend == 'e' || *iend == 'E');
        double dv = 0;
        char *dend = iend;
        if (dbl) {
            errno = 0;
            dv = std::strtod(t.c_str(), &dend);
            bad = errno == ERANGE && (dv == HUGE_VAL || dv == -HUGE_VAL);
        }
        if (bad) {
            EXPECT_EQ(end, nullptr) << t;
        } else {
            ASSERT_NE(end, nullptr) << t;
            const JsonNode *n = top.v2.child;
            EXPECT_EQ(end - buf.data(), dend - t.c_str()) << t;
            EXPECT_EQ(n->kind, dbl ? JSON_DOUBLE : JSON_INTEGER) << t;
            EXPECT_EQ(n->v1.int_value, iv) << t;
            if (dbl) {
                EXPECT_EQ(std::memcmp(&n->v2.dbl_value, &dv, sizeof dv), 0) << t;
            }
        }
        nx_json_free(top.v2.child);
    }
    testing::internal::GetCapturedStderr();
}

}  // namespace
