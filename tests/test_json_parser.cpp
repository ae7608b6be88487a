// The in-place JSON parser (trees, error lines, number conversion, node
// lifetimes), then the JSON SQL functions through the in-memory test host.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/testhost.hpp"
#include "sqlfunc/jsonlib.hpp"
#include "udfkit/json.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

// A tree as i:int, d:double/intslot, s:text, b:0/1, null, [..], {key=..}.
std::string dump(const JsonNode *n) {
    char buf[80];
    switch (n->kind) {
    case JSON_NULL: return "null";
    case JSON_STRING: return std::string("s:") + n->v1.text_value;
    case JSON_INTEGER:
    case JSON_BOOL:
        std::snprintf(buf, sizeof buf, "%c:%" PRId64, n->kind == JSON_BOOL ? 'b' : 'i', n->v1.int_value);
        return buf;
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

// The text copied so that its NUL is the last byte before a page that
// cannot be read: a read past the end of the text stops the test.
char *guarded_copy(const std::string &text) {
    static char *area = nullptr;
    static size_t area_size = 0;
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t need = (text.size() + 1 + page - 1) / page * page;
    if (need > area_size) {
        if (area) munmap(area, area_size + page);
        void *m = mmap(nullptr, need + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m == MAP_FAILED) std::abort();
        area = static_cast<char *>(m);
        area_size = need;
        if (mprotect(area + need, page, PROT_NONE) != 0) std::abort();
    }
    char *text_at = area + area_size - (text.size() + 1);
    std::memcpy(text_at, text.c_str(), text.size() + 1);
    return text_at;
}

Parsed parse(const std::string &text) {
    char *buf = guarded_copy(text);
    JsonNode top{};
    testing::internal::CaptureStderr();
    char *end = parse_value(&top, nullptr, buf);
    Parsed p{end != nullptr, "", testing::internal::GetCapturedStderr(), end ? end : ""};
    if (top.v2.child) {
        if (p.ok) p.tree = dump(top.v2.child);
        EXPECT_EQ(top.v2.child, top.last_child);
        nx_json_free(top.v2.child);
    }
    return p;
}

TEST(JsonParser, Trees) {
    // Decimal numbers are held to the C library by a fuzz target, plain
    // escapes are checked at every offset below.
    const struct { const char *text, *tree; } cases[] = {
        {"]", ""},                        {",,[1 2]", "[i:1,i:2]"},
        {"{\"a\":}", "{}"},                {"{\"a\" \t:1,,\"b\":2}", "{a=i:1,b=i:2}"},
        {"{\"a\":1 /* c */ , // d\n \"b\":[true,false,null]}", "{a=i:1,b=[b:1,b:0,null]}"},
        {"-0x10", "i:-16"},               {"017", "i:15"},
        {"[08]", "[i:0,i:8]"},            {"0x10.8", "d:16.5/16"},
        {"1 abc", "i:1"},                 {"/* / */ 9", "i:9"},
        {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "s:\"\\/\b\f\n\r\t"},
        {"\"\\ud83d\\ude00\"", "s:\xf0\x9f\x98\x80"}, {"\"a\\u0000b\"", "s:a"},
        {"[[[{\"k\":[{}]}]]]", "[[[{k=[{}]}]]]"}, {"{\"a\\u0062\":\"c\"}", "{ab=s:c}"},
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
        {"[1, {\"b\": [2, tru]}]", "(346): unexpected chars at tru]}]"},  // partial tree freed
        {"fals", "(354): unexpected chars at fals"},
        {"nul", "(361): unexpected chars at nul"},
        {"-", "(318): invalid number at -"},
        {"99999999999999999999", "(318): invalid number at 99999999999999999999"},
        {"[1e999]", "(325): invalid number at 1e999]"},
        {deep, "(264): nesting too deep at ["},
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.text);
        EXPECT_FALSE(p.ok) << c.text;
        EXPECT_EQ(p.stderr_, "NXJSON PARSE ERROR " + c.line + "\n") << c.text;
    }
    const int max = udfkit::json::kMaxDepth;
    Parsed p = parse(std::string(max, '[') + std::string(max, ']'));
    EXPECT_TRUE(p.ok) << p.stderr_.substr(0, 80);
}

TEST(JsonParser, Utf8Encoding) {
    const struct { uint32_t cp; const char *bytes; } cases[] = {  // null: refused
        {0x7F, "\x7f"},        {0x80, "\xc2\x80"},         {0x7FF, "\xdf\xbf"},
        {0x800, "\xe0\xa0\x80"}, {0xD800, nullptr},         {0xDFFF, nullptr},
        {0xFFFF, "\xef\xbf\xbf"}, {0x10000, "\xf0\x90\x80\x80"}, {0x10FFFF, "\xf4\x8f\xbf\xbf"},
        {0x110000, nullptr},
    };
    for (const auto &c : cases) {
        char out[8] = {};
        char *end = out;
        const int ok = unicode_to_utf8(c.cp, out, &end);
        EXPECT_EQ(ok == 1 ? std::string(out, end) : ok ? "?" : "-", c.bytes ? c.bytes : "-") << std::hex << c.cp;
    }
}

// An escape at every offset of strings up to 40 bytes, the text ending at
// every distance after them: plain bytes are read in blocks, never past the end.
TEST(JsonParser, StringsAtEveryOffset) {
    const struct {
        const char *in, *out;  // what is inserted, and what it gives
    } marks[] = {{"\\n", "\n"}, {"\\u00e9", "\xc3\xa9"}, {"\\q", "\\q"}, {"\\\\", "\\"}};
    for (int len = 0; len <= 40; ++len) {
        for (int at = 0; at <= len; ++at) {
            for (int after = 0; after <= 17; after += 17 - after > 1 ? 4 : 1) {
                const auto &m = marks[(len + at) % 4];
                const std::string plain_a(static_cast<size_t>(at), 'a');
                const std::string plain_b(static_cast<size_t>(len - at), 'b');
                const std::string rest(static_cast<size_t>(after), ' ');
                Parsed p = parse("\"" + plain_a + m.in + plain_b + "\"" + rest);
                ASSERT_TRUE(p.ok) << len << " " << at << " " << after;
                EXPECT_EQ(p.tree, "s:" + plain_a + m.out + plain_b);
                EXPECT_EQ(p.rest, rest);
                // Unclosed, the line quotes the text as the unescaping left
                // it (the bytes moved down, the last ones still in place).
                const std::string text = plain_a + m.in + plain_b + rest;
                const size_t shrink = std::strlen(m.in) - std::strlen(m.out);
                Parsed open = parse("[\"" + text);
                EXPECT_FALSE(open.ok);
                EXPECT_EQ(open.stderr_, "NXJSON PARSE ERROR (200): no closing quote for string at " +
                                            plain_a + m.out + plain_b + rest +
                                            text.substr(text.size() - shrink) + "\n")
                    << len << " " << at << " " << after;
            }
        }
    }
}

// A document kept alive: its text, its tree and the tree's shape when made.
struct Kept {
    std::vector<char> text;  // moved with its Kept, the bytes stay put
    JsonNode *root = nullptr;
    std::string shape;
};

Kept keep(const std::string &text) {
    Kept k{std::vector<char>(text.c_str(), text.c_str() + text.size() + 1), nullptr, ""};
    JsonNode top{};
    EXPECT_NE(parse_value(&top, nullptr, k.text.data()), nullptr);
    k.root = top.v2.child;
    k.shape = dump(k.root);
    return k;
}

std::string random_document(std::mt19937 &rng) {
    // Up to 3000 elements: some trees span several blocks of nodes.
    const int n = rng() % 4 == 0 ? 3000 : static_cast<int>(rng() % 40);
    std::string s = "[";
    for (int i = 0; i < n; ++i)
        s += i % 3 ? std::to_string(rng() % 1000) + "," : "{\"k\": [\"v\", " + std::to_string(i) + "]},";
    return s + "]";
}

// Trees made and freed in any order, whole or a subtree at a time, keep
// every node of the others: nothing a tree holds is given back or reused.
TEST(JsonParser, NodesLiveUntilTheirTreeIsFreed) {
    std::mt19937 rng(99);
    std::vector<Kept> trees;
    for (int step = 0; step < 600; ++step) {
        const unsigned op = rng() % 4;
        if (op < 2 || trees.empty()) {
            trees.push_back(keep(random_document(rng)));
        } else if (op == 2) {  // a whole tree
            const size_t i = rng() % trees.size();
            nx_json_free(trees[i].root);
            trees.erase(trees.begin() + static_cast<long>(i));
        } else {  // the first element of a tree, unlinked first
            Kept &k = trees[rng() % trees.size()];
            JsonNode *first = k.root->v2.child;
            if (!first) continue;
            k.root->v2.child = first->next;
            if (k.root->last_child == first) k.root->last_child = nullptr;
            k.root->v1.length--;
            nx_json_free(first);
            k.shape = dump(k.root);
        }
        for (size_t i = 0; step % 50 == 0 && i < trees.size(); ++i) ASSERT_EQ(dump(trees[i].root), trees[i].shape);
    }
    for (Kept &k : trees) {
        ASSERT_EQ(dump(k.root), k.shape);
        nx_json_free(k.root);
    }
}

// A parent the caller allocated goes back to the C library with its
// children; trees are freed on other threads than the one that made them,
// after that thread ended.
TEST(JsonParser, NodesCrossThreadsAndCallerParents) {
    auto *top = static_cast<JsonNode *>(std::calloc(1, sizeof(JsonNode)));
    std::string text = "[1, [2, 3], {\"a\": \"b\"}]";
    ASSERT_NE(parse_value(top, nullptr, text.data()), nullptr);
    top->kind = JSON_ARRAY;  // so that freeing it frees what it holds
    nx_json_free(top);

    std::mt19937 rng(5);
    std::vector<Kept> made(8);
    std::vector<std::thread> threads;
    for (size_t i = 1; i < made.size(); ++i)
        threads.emplace_back([&made, i, doc = random_document(rng)] { made[i] = keep(doc); });
    made[0] = keep(random_document(rng));  // made here
    for (auto &t : threads) t.join();
    threads.clear();
    for (Kept &k : made)
        threads.emplace_back([&k] {
            EXPECT_EQ(dump(k.root), k.shape);
            nx_json_free(k.root);
        });
    for (auto &t : threads) t.join();
}

// A node that cannot be allocated stops the process with the C library's
// failed-assertion line, in every build type (NDEBUG included).
TEST(JsonParserDeathTest, OutOfMemoryStopsTheProcess) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "an address-space limit does not mix with the sanitizers' shadow memory";
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::string text = "[";
    for (int i = 0; i < 4000000; ++i) text += "0,";
    text += "0]";
    auto starve = [&text] {
        // 32 MB more than is in use now, far from enough for 4 million nodes.
        long pages = 0;
        FILE *f = std::fopen("/proc/self/statm", "r");
        if (!f || std::fscanf(f, "%ld", &pages) != 1) pages = 0;
        const rlim_t limit = static_cast<rlim_t>(pages) * 4096 + (32u << 20);
        const rlimit r{limit, limit};
        setrlimit(RLIMIT_AS, &r);
        JsonNode top{};
        parse_value(&top, nullptr, text.data());
    };
    EXPECT_DEATH(starve(), "create_json: Assertion `js' failed");
#endif
}

// ------------------------------------------------------------ SQL functions

constexpr int kSlots = udfkit::json::kParserSlots;

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

// Plain walks are read back by the generated-documents fuzz target; here
// the edges.
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

}  // namespace
