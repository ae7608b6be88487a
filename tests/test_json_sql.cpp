// The JSON SQL functions through the in-memory test host.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "sqlfunc/jsonlib.hpp"
#include "udfkit/json.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

constexpr int kSlots = udfkit::json::kParserSlots;

// Every test starts and ends with an empty parser table.
class JsonSql : public testing::Test {
public:
    void SetUp() override { free_all(); }
    void TearDown() override { free_all(); }
    void free_all() {
        for (int i = 0; i < kSlots; ++i) h.call(jsonlib_freeparser, {I(i)});
    }
    int create(const std::string &text) {
        Outcome o = h.call(jsonlib_createparser, {S(text)});
        EXPECT_TRUE(o.exact(1));
        return static_cast<int>(o.result().i);
    }
    std::vector<Value> run(udfkit_sqlfunc fn, const std::vector<Value> &args) {
        Outcome o = h.call(fn, args);
        EXPECT_EQ(o.leftover, 0);
        EXPECT_FALSE(o.underflow);
        return o.pushed;
    }
    Value one(udfkit_sqlfunc fn, const std::vector<Value> &args) {
        auto r = run(fn, args);
        EXPECT_EQ(r.size(), 1u);
        return r.empty() ? Value::null() : r[0];
    }
    TestHost h;
};

const char *kDoc = "{\"a\": {\"b\": [10, 20.5, \"x\", true, null]}}";

TEST_F(JsonSql, Paths) {
    const int p = create(kDoc);
    ASSERT_EQ(p, 0);
    const Value b = one(jsonlib_getvalue, {one(jsonlib_extractobject, {I(p), S("$")})});
    const struct { const char *path; Value expected; } cases[] = {
        {"$.a.b[0]", L(10)},       {"$.a.b[1]", D(20.5)},  {"$.a.b[2]", S("x")},
        {"$.a.b[3]", I(1)},        {"$.a.b[4]", S("")},    {"$.a.b[5]", S("")},
        {"$.a.c", S("")},          {"$.a[0]", S("")},      {"a.b", S("")},
        {"$.a.b.x", S("")},        {"$.a.b[-1]", S("")},   {"$.a.b[ +2]", S("x")},
        {"$.a.b[z]", L(10)},       {"$.a.b[0", L(10)},     {"$.a.b[0]x", S("")},
        {"$.", S("")},             {"$x", S("")},          {"", S("")},
        {"$.a", b},                {"$.a.b[99999999999999999999999]", S("")},
    };
    for (const auto &c : cases) EXPECT_EQ(one(jsonlib_extractobject, {I(p), S(c.path)}), c.expected) << c.path;
    // Outside 0-99, or a free slot: empty.
    for (int n : {-1, 1, 100, 1 << 30}) EXPECT_EQ(one(jsonlib_extractobject, {I(n), S("$")}), S(""));
}

TEST_F(JsonSql, LongPathSteps) {
    const std::string name(300, 'k');
    const int p = create("{\"" + name + "\": [0, 1, 2, 3]}");
    EXPECT_EQ(one(jsonlib_extractobject, {I(p), S("$." + name + "[3]")}), L(3));
    EXPECT_EQ(one(jsonlib_extractobject, {I(p), S("$." + name.substr(0, 255) + "[3]")}), S(""));
    EXPECT_EQ(one(jsonlib_extractobject, {I(p), S("$." + name + "[" + std::string(400, '0') + "2]")}),
              L(2));
}

// Plain walks are read back in the round trip below; here the edges.
TEST_F(JsonSql, WalkWithNext) {
    const int p = create(kDoc);
    auto root = run(jsonlib_getobject, {I(p)});
    ASSERT_EQ(root.size(), 2u);
    const Value a = one(jsonlib_extractobject, {I(p), S("$")});
    const std::vector<Value> none{S(""), L(0)};
    for (int round = 0; round < 2; ++round) {  // after the end it starts over
        EXPECT_EQ(run(jsonlib_next, {root[1]}), (std::vector<Value>{S("O"), a}));
        EXPECT_EQ(run(jsonlib_next, {root[1]}), none);
    }
    const Value b = one(jsonlib_getvalue, {a});
    EXPECT_EQ(run(jsonlib_getkeyvalue, {a}), (std::vector<Value>{S("a"), b}));
    EXPECT_EQ(one(jsonlib_getvalue4key, {root[1], S("a")}), b);
    EXPECT_EQ(one(jsonlib_getvalue4key, {root[1], S("A")}), S(""));
    // b's value is its first element; an element has no name.
    const Value ten = one(jsonlib_getvalue, {b});
    EXPECT_EQ(run(jsonlib_getkeyvalue, {ten}), (std::vector<Value>{S(""), S("")}));
    EXPECT_EQ(one(jsonlib_getkey, {ten}), S(""));
    // The double 20.5 is no container.
    EXPECT_EQ(run(jsonlib_next, {b})[1], ten);
    const Value second = run(jsonlib_next, {b})[1];
    EXPECT_EQ(run(jsonlib_next, {second}), none);
    EXPECT_EQ(one(jsonlib_getvalue4key, {second, S("")}), S(""));
}

TEST_F(JsonSql, ParserNumbersAndFailures) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(create(std::to_string(i + 1)), i);
    run(jsonlib_freeparser, {I(1)});
    EXPECT_EQ(create("4"), 1);
    EXPECT_EQ(one(jsonlib_extractobject, {I(1), S("$")}), L(4));
    for (int i = 3; i < kSlots; ++i) EXPECT_EQ(create("[]"), i);
    // Full table: -1, and the text is left on the stack.
    Outcome full = h.call(jsonlib_createparser, {S("5")});
    EXPECT_EQ(full.pushed, std::vector<Value>{I(-1)});
    EXPECT_EQ(full.leftover, 1);
    free_all();

    testing::internal::CaptureStderr();
    EXPECT_EQ(create("{\"a\": \"abc"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "NXJSON PARSE ERROR (200): no closing quote for string at abc\n");
    EXPECT_EQ(create("]"), -1);  // no value, no error line
    EXPECT_EQ(create("7"), 0);   // failures took no slot

    // Wrong argument counts: createparser pushes -1, the others nothing;
    // none pops.
    Outcome o = h.call(jsonlib_createparser, {S("1"), S("2")});
    EXPECT_EQ(o.pushed, std::vector<Value>{I(-1)});
    EXPECT_EQ(o.leftover, 2);
    for (udfkit_sqlfunc fn : {jsonlib_freeparser, jsonlib_getobject, jsonlib_getvalue, jsonlib_getkey,
                              jsonlib_getkeyvalue, jsonlib_next, jsonlib_extractobject,
                              jsonlib_getvalue4key}) {
        Outcome w = h.call(fn, {I(0), I(0), I(0)});
        EXPECT_TRUE(w.pushed.empty());
        EXPECT_EQ(w.leftover, 3);
    }
    // getobject on an empty slot pushes nothing.
    EXPECT_TRUE(run(jsonlib_getobject, {I(5)}).empty());
}

TEST_F(JsonSql, ForeignAndStaleHandles) {
    const int p = create("{\"k\": [1, 2]}");
    const Value k = one(jsonlib_extractobject, {I(p), S("$")});
    const int64_t good = k.i;
    run(jsonlib_freeparser, {I(p)});
    ASSERT_EQ(create("{\"k\": [3, 4]}"), p);  // same slot, new parser
    const int64_t handles[] = {good,        0,           -1,      1,        INT64_MIN, INT64_MAX,
                               good + 1000, good ^ (int64_t{1} << 32), good & 0xFFFFFFFF,
                               static_cast<int64_t>(reinterpret_cast<intptr_t>(&h))};
    for (int64_t bad : handles) {
        EXPECT_EQ(one(jsonlib_getvalue, {L(bad)}), S("")) << bad;
        EXPECT_EQ(one(jsonlib_getkey, {L(bad)}), S("")) << bad;
        EXPECT_EQ(one(jsonlib_getvalue4key, {L(bad), S("k")}), S("")) << bad;
        EXPECT_EQ(run(jsonlib_getkeyvalue, {L(bad)}), (std::vector<Value>{S(""), S("")})) << bad;
        EXPECT_EQ(run(jsonlib_next, {L(bad)}), (std::vector<Value>{S(""), L(0)})) << bad;
    }
    // The new parser's own handle works.
    EXPECT_EQ(one(jsonlib_getkey, {one(jsonlib_extractobject, {I(p), S("$")})}), S("k"));
}

// What the SQL functions must read back from a generated document:
// ~ (null or empty text), b0/b1, i<n>, d<%.17g>, s<len>:<utf8>, [a,b],
// {<len>:key=value,...}.  A JSON null and "" both read back as "".
std::string text_form(const std::string &s) { return std::to_string(s.size()) + ":" + s; }
std::string dbl_form(double d) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "d%.17g", d);
    return buf;
}

// A random string appended to json, escaped every way; returns its UTF-8.
std::string gen_text(std::mt19937_64 &rng, std::string &json) {
    static const uint32_t base[] = {0x20, 0x01, 0x80, 0xE000, 0x10000};
    static const uint32_t span[] = {0x5F, 0x1F, 0x780, 0x1000, 0x100000};
    std::string utf8;
    json += '"';
    for (uint64_t n = rng() % 8; n > 0; --n) {
        const uint64_t r = rng() % 5;
        const uint32_t cp = base[r] + static_cast<uint32_t>(rng() % span[r]), v = cp - 0x10000;
        char buf[8], esc[16], *end = buf;
        unicode_to_utf8(cp, buf, &end);
        utf8.append(buf, end);
        if (cp >= 0x10000)
            std::snprintf(esc, sizeof esc, "\\u%04X\\u%04x", 0xD800 + (v >> 10), 0xDC00 + (v & 0x3FF));
        else if (cp == '"' || cp == '\\')
            std::snprintf(esc, sizeof esc, "\\%c", static_cast<char>(cp));
        else if (cp < 0x20 || rng() % 3 == 0)
            std::snprintf(esc, sizeof esc, "\\u%04x", cp);
        else
            std::snprintf(esc, sizeof esc, "%.*s", static_cast<int>(end - buf), buf);
        json += esc;
    }
    json += '"';
    return utf8;
}

// Appends a random value to json and returns its form.
std::string gen_value(std::mt19937_64 &rng, std::string &json, int depth) {
    const uint64_t k = depth == 0 ? 5 + rng() % 2 : rng() % (depth > 4 ? 5 : 7);
    char buf[40];
    if (k == 0) return json += "null", "~";
    if (k == 1) return rng() % 2 ? (json += "true", "b1") : (json += "false", "b0");
    if (k == 2) {
        const std::string i = std::to_string(static_cast<int64_t>(rng()) >> rng() % 64);
        return json += i, "i" + i;
    }
    if (k == 3) {
        const double d = std::ldexp(static_cast<double>(static_cast<int64_t>(rng() >> 11)) - 4e15,
                                    static_cast<int>(rng() % 80) - 60);
        std::snprintf(buf, sizeof buf, "%.17e", d);  // an exponent: read as a double
        return json += buf, dbl_form(d);
    }
    if (k == 4) {
        const std::string s = gen_text(rng, json);
        return s.empty() ? "~" : "s" + text_form(s);
    }
    const bool obj = k == 6;
    std::string form = obj ? "{" : "[";
    json += form;
    for (uint64_t n = rng() % 6, i = 0; i < n; ++i) {
        if (i) form += ",";
        if (obj) {
            std::string name;
            form += text_form(gen_text(rng, name)) + "=";
            json += name + (rng() % 2 ? ":" : " : ");
        }
        form += gen_value(rng, json, depth + 1);
        json += rng() % 4 ? ", " : " /* c */ ,";
    }
    json += obj ? "}" : "]";
    return form + (obj ? "}" : "]");
}

// The form of a node, from its kind letter and handle, read with the SQL
// functions only.
std::string read_back(JsonSql &t, const Value &letter, const Value &handle) {
    if (letter.s == "V") {
        const Value v = t.one(jsonlib_getvalue, {handle});
        if (v.kind == Value::Double) return dbl_form(v.d);
        if (v.kind == Value::Long || v.kind == Value::Int)
            return (v.kind == Value::Long ? "i" : "b") + std::to_string(v.i);
        return v.s.empty() ? "~" : "s" + text_form(v.s);
    }
    const bool obj = letter.s == "O";
    std::string form = obj ? "{" : "[";
    for (int i = 0;; ++i) {
        auto child = t.run(jsonlib_next, {handle});
        if (child.size() != 2 || child[0].s.empty()) break;
        if (i) form += ",";
        if (obj) form += text_form(t.one(jsonlib_getkey, {child[1]}).s) + "=";
        form += read_back(t, child[0], child[1]);
    }
    return form + (obj ? "}" : "]");
}

TEST_F(JsonSql, GeneratedDocumentsReadBack) {
    for (uint64_t seed = 1; seed <= 300; ++seed) {
        std::mt19937_64 rng(seed);
        std::string json;
        const std::string want = gen_value(rng, json, 0);
        const int p = create(json);
        ASSERT_GE(p, 0) << json;
        auto top = run(jsonlib_getobject, {I(p)});
        ASSERT_EQ(top.size(), 2u);
        EXPECT_EQ(read_back(*this, top[0], top[1]), want) << "seed " << seed << ": " << json;
        run(jsonlib_freeparser, {I(p)});
    }
}

}  // namespace
