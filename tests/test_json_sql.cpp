// The JSON SQL functions through the in-memory test host.
#include <gtest/gtest.h>

#include <cinttypes>
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
protected:
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
    // Runs fn on args; expects every argument popped.
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

TEST_F(JsonSql, Describe) {
    const struct {
        udfkit_sqlfunc fn;
        int32_t type, size;
    } cases[] = {
        {jsonlib_createparser, 2, 4}, {jsonlib_freeparser, 2, 4},
        {jsonlib_extractobject, 0, 512}, {jsonlib_getvalue, 0, 512},
        {jsonlib_getkey, 0, 512}, {jsonlib_getvalue4key, 0, 512},
        {jsonlib_getobject, 0, 512}, {jsonlib_getkeyvalue, 0, 512},
        {jsonlib_next, 0, 512},
    };
    for (const auto &c : cases) {
        Describe d = h.describe(c.fn, {});
        EXPECT_EQ(d.type, c.type);
        EXPECT_EQ(d.size, c.size);
        EXPECT_FALSE(d.touched_host);
    }
}

TEST_F(JsonSql, Paths) {
    const int p = create(kDoc);
    ASSERT_EQ(p, 0);
    const Value b = one(jsonlib_getvalue, {one(jsonlib_extractobject, {I(p), S("$")})});
    const struct {
        const char *path;
        Value expected;
    } cases[] = {
        {"$.a.b[0]", L(10)},       {"$.a.b[1]", D(20.5)},  {"$.a.b[2]", S("x")},
        {"$.a.b[3]", I(1)},        {"$.a.b[4]", S("")},    {"$.a.b[5]", S("")},
        {"$.a.c", S("")},          {"$.a[0]", S("")},      {"a.b", S("")},
        {"$.a.b.x", S("")},        {"$.a.b[-1]", S("")},   {"$.a.b[ +2]", S("x")},
        {"$.a.b[]", L(10)},        {"$.a.b[z]", L(10)},    {"$.a.b[0", L(10)},
        {"$.a.b[0]x", S("")},      {"$..a", S("")},        {"$.", S("")},
        {"$x", S("")},             {"", S("")},            {"$.a", b},
        {"$.a.b[99999999999999999999999]", S("")},
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

TEST_F(JsonSql, WalkWithNext) {
    const int p = create(kDoc);
    auto root = run(jsonlib_getobject, {I(p)});
    ASSERT_EQ(root.size(), 2u);
    EXPECT_EQ(root[0], S("O"));
    const Value a = one(jsonlib_extractobject, {I(p), S("$")});
    for (int round = 0; round < 2; ++round) {  // after the end it starts over
        auto first = run(jsonlib_next, {root[1]});
        ASSERT_EQ(first.size(), 2u);
        EXPECT_EQ(first[0], S("O"));
        EXPECT_EQ(first[1], a);
        auto end = run(jsonlib_next, {root[1]});
        EXPECT_EQ(end, (std::vector<Value>{S(""), L(0)}));
    }
    EXPECT_EQ(one(jsonlib_getkey, {a}), S("a"));
    const Value b = one(jsonlib_getvalue, {a});
    EXPECT_EQ(run(jsonlib_getkeyvalue, {a}), (std::vector<Value>{S("a"), b}));
    EXPECT_EQ(one(jsonlib_getvalue4key, {root[1], S("a")}), b);
    EXPECT_EQ(one(jsonlib_getvalue4key, {root[1], S("A")}), S(""));
    // b's value is its first element; an element has no name.
    const Value ten = one(jsonlib_getvalue, {b});
    EXPECT_EQ(one(jsonlib_getvalue, {ten}), L(10));
    EXPECT_EQ(run(jsonlib_getkeyvalue, {ten}), (std::vector<Value>{S(""), S("")}));
    EXPECT_EQ(one(jsonlib_getkey, {ten}), S(""));
    // The double 20.5 is no container.
    EXPECT_EQ(run(jsonlib_next, {b})[1], ten);
    const Value second = run(jsonlib_next, {b})[1];
    EXPECT_EQ(one(jsonlib_getvalue, {second}), D(20.5));
    EXPECT_EQ(run(jsonlib_next, {second}), (std::vector<Value>{S(""), L(0)}));
    EXPECT_EQ(one(jsonlib_getvalue4key, {second, S("")}), S(""));
}

TEST_F(JsonSql, ParserNumbersAndFailures) {
    EXPECT_EQ(create("1"), 0);
    EXPECT_EQ(create("2"), 1);
    EXPECT_EQ(create("3"), 2);
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

// ---------------------------------------------------------------- round trip

// A generated document, kept as the tree it was written from.
struct Doc {
    enum Kind { Null, Bool, Int, Double, String, Array, Object } kind = Null;
    int64_t i = 0;
    double d = 0;
    std::string s;  // string value (UTF-8)
    std::vector<std::pair<std::string, Doc>> items;
};

struct Generator {
    std::mt19937_64 rng;
    explicit Generator(uint64_t seed) : rng(seed) {}
    uint64_t pick(uint64_t n) { return rng() % n; }

    // A string as UTF-8 and as JSON text with escapes.
    void text(std::string &utf8, std::string &json) {
        json += '"';
        for (uint64_t n = pick(8); n > 0; --n) {
            uint32_t cp;
            switch (pick(5)) {
            case 0: cp = 0x20 + pick(0x5F); break;
            case 1: cp = 1 + pick(0x1F); break;
            case 2: cp = 0x80 + pick(0x780); break;
            case 3: cp = 0xE000 + pick(0x1000); break;
            default: cp = 0x10000 + pick(0x100000); break;
            }
            char buf[8], *end = buf;
            unicode_to_utf8(cp, buf, &end);
            utf8.append(buf, end);
            if (cp >= 0x10000) {
                char esc[16];
                uint32_t v = cp - 0x10000;
                std::snprintf(esc, sizeof esc, "\\u%04X\\u%04x", 0xD800 + (v >> 10), 0xDC00 + (v & 0x3FF));
                json += esc;
            } else if (cp == '"' || cp == '\\') {
                json += '\\';
                json += static_cast<char>(cp);
            } else if (cp < 0x20 || pick(3) == 0) {
                char esc[8];
                std::snprintf(esc, sizeof esc, "\\u%04x", cp);
                json += esc;
            } else {
                json.append(buf, end);
            }
        }
        json += '"';
    }

    Doc value(std::string &json, int depth) {
        Doc d;
        const uint64_t k = depth == 0 ? 5 + pick(2) : depth > 4 ? pick(5) : pick(7);
        char buf[40];
        switch (k) {
        case 0: d.kind = Doc::Null; json += "null"; break;
        case 1: d.kind = Doc::Bool; d.i = pick(2); json += d.i ? "true" : "false"; break;
        case 2:
            d.kind = Doc::Int;
            d.i = static_cast<int64_t>(rng()) >> pick(64);
            json += std::to_string(d.i);
            break;
        case 3:
            d.kind = Doc::Double;
            d.d = std::ldexp(static_cast<double>(static_cast<int64_t>(rng() >> 11)) - 4e15,
                             static_cast<int>(pick(80)) - 60);
            std::snprintf(buf, sizeof buf, "%.17e", d.d);
            json += buf;
            break;
        case 4: d.kind = Doc::String; text(d.s, json); break;
        default: {
            const bool obj = k == 6;
            d.kind = obj ? Doc::Object : Doc::Array;
            json += obj ? "{" : "[";
            for (uint64_t n = pick(6); n > 0; --n) {
                std::string name, jname;
                if (obj) {
                    text(name, jname);
                    name += "#" + std::to_string(d.items.size());  // unique names
                    jname.insert(jname.size() - 1, "#" + std::to_string(d.items.size()));
                    json += jname + (pick(2) ? ":" : " : ");
                }
                d.items.emplace_back(name, value(json, depth + 1));
                json += pick(4) ? ", " : " /* c */ ,";
            }
            json += obj ? "}" : "]";
        }
        }
        return d;
    }
};

class RoundTrip : public JsonSql {
protected:
    // Rebuilds the document from a node handle and its kind letter, using
    // only the SQL functions.
    Doc read(const Value &letter, const Value &handle) {
        Doc d;
        if (letter.s == "V") {
            const Value v = one(jsonlib_getvalue, {handle});
            switch (v.kind) {
            case Value::Long: d.kind = Doc::Int; d.i = v.i; break;
            case Value::Double: d.kind = Doc::Double; d.d = v.d; break;
            case Value::Int: d.kind = Doc::Bool; d.i = v.i; break;
            default: d.kind = v.s.empty() ? Doc::Null : Doc::String; d.s = v.s; break;
            }
            return d;
        }
        d.kind = letter.s == "O" ? Doc::Object : Doc::Array;
        for (;;) {
            auto child = run(jsonlib_next, {handle});
            if (child.size() != 2 || child[0].s.empty()) break;
            const std::string key = one(jsonlib_getkey, {child[1]}).s;
            d.items.emplace_back(key, read(child[0], child[1]));
        }
        return d;
    }
};

// Null and the empty string both come back as the empty string.
void expect_same(const Doc &want, const Doc &got, const std::string &where) {
    const bool empty_text = want.kind == Doc::String && want.s.empty();
    const Doc::Kind wk = empty_text ? Doc::Null : want.kind;
    ASSERT_EQ(wk, got.kind) << where;
    switch (wk) {
    case Doc::Bool: case Doc::Int: EXPECT_EQ(want.i, got.i) << where; break;
    case Doc::Double: EXPECT_EQ(want.d, got.d) << where; break;
    case Doc::String: EXPECT_EQ(want.s, got.s) << where; break;
    case Doc::Array: case Doc::Object:
        ASSERT_EQ(want.items.size(), got.items.size()) << where;
        for (size_t i = 0; i < want.items.size(); ++i) {
            EXPECT_EQ(want.items[i].first, got.items[i].first) << where;
            expect_same(want.items[i].second, got.items[i].second, where + "/" + std::to_string(i));
        }
        break;
    default: break;
    }
}

TEST_F(RoundTrip, GeneratedDocuments) {
    for (uint64_t seed = 1; seed <= 300; ++seed) {
        Generator g(seed);
        std::string json;
        const Doc doc = g.value(json, 0);
        const int p = create(json);
        ASSERT_GE(p, 0) << json;
        auto top = run(jsonlib_getobject, {I(p)});
        ASSERT_EQ(top.size(), 2u);
        expect_same(doc, read(top[0], top[1]), "seed " + std::to_string(seed));
        run(jsonlib_freeparser, {I(p)});
        if (HasFatalFailure()) return;
    }
}

}  // namespace
