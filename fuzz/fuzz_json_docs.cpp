// Generated documents read back through the JSON SQL functions of the test
// host must equal what was generated: every kind of value, strings escaped
// every way, nesting, comments.  Input: the generator's choices.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/choices.hpp"
#include "host/testhost.hpp"
#include "udfkit/json.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;
using fuzzgen::Choices;

namespace {

std::string g_json;  // the document under test, printed with a failure

void fail(const char *what, const std::string &detail = "") {
    std::fprintf(stderr, "%s %s\ndocument: %s\n", what, detail.c_str(), g_json.c_str());
    std::abort();
}

// Calls that pop exactly their arguments; one() pushes one result.
std::vector<Value> run(TestHost &h, udfkit_sqlfunc fn, const std::vector<Value> &args) {
    Outcome o = h.call(fn, args);
    if (o.leftover != 0 || o.underflow) fail("arguments not popped");
    return o.pushed;
}
Value one(TestHost &h, udfkit_sqlfunc fn, const std::vector<Value> &args) {
    auto r = run(h, fn, args);
    if (r.size() != 1) fail("not one result");
    return r[0];
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

// A string appended to json, escaped every way; returns its UTF-8.
std::string gen_text(Choices &in, std::string &json) {
    static const uint32_t base[] = {0x20, 0x01, 0x80, 0xE000, 0x10000};
    static const uint32_t span[] = {0x5F, 0x1F, 0x780, 0x1000, 0x100000};
    std::string utf8;
    json += '"';
    for (uint64_t n = in.below(8); n > 0; --n) {
        const uint64_t r = in.below(5);
        const uint32_t cp = base[r] + static_cast<uint32_t>(in.below(span[r])), v = cp - 0x10000;
        char buf[8], esc[16], *end = buf;
        unicode_to_utf8(cp, buf, &end);
        utf8.append(buf, end);
        if (cp >= 0x10000)
            std::snprintf(esc, sizeof esc, "\\u%04X\\u%04x", 0xD800 + (v >> 10), 0xDC00 + (v & 0x3FF));
        else if (cp == '"' || cp == '\\')
            std::snprintf(esc, sizeof esc, "\\%c", static_cast<char>(cp));
        else if (cp < 0x20 || in.below(3) == 0)
            std::snprintf(esc, sizeof esc, "\\u%04x", cp);
        else
            std::snprintf(esc, sizeof esc, "%.*s", static_cast<int>(end - buf), buf);
        json += esc;
    }
    json += '"';
    return utf8;
}

// Appends a value to json and returns its form.
std::string gen_value(Choices &in, std::string &json, int depth) {
    const uint64_t k = depth == 0 ? 5 + in.below(2) : in.below(depth > 4 ? 5 : 7);
    char buf[40];
    if (k == 0) return json += "null", "~";
    if (k == 1) return in.below(2) ? (json += "true", "b1") : (json += "false", "b0");
    if (k == 2) {
        const std::string i = std::to_string(static_cast<int64_t>(in.word()) >> in.below(64));
        return json += i, "i" + i;
    }
    if (k == 3) {
        const double d = std::ldexp(static_cast<double>(static_cast<int64_t>(in.word() >> 11)) - 4e15,
                                    static_cast<int>(in.below(80)) - 60);
        std::snprintf(buf, sizeof buf, "%.17e", d);  // an exponent: read as a double
        return json += buf, dbl_form(d);
    }
    if (k == 4) {
        const std::string s = gen_text(in, json);
        return s.empty() ? "~" : "s" + text_form(s);
    }
    const bool obj = k == 6;
    std::string form = obj ? "{" : "[";
    json += form;
    for (uint64_t n = in.below(6), i = 0; i < n; ++i) {
        if (i) form += ",";
        if (obj) {
            std::string name;
            form += text_form(gen_text(in, name)) + "=";
            json += name + (in.below(2) ? ":" : " : ");
        }
        form += gen_value(in, json, depth + 1);
        json += in.below(4) ? ", " : " /* c */ ,";
    }
    json += obj ? "}" : "]";
    return form + (obj ? "}" : "]");
}

// The form of a node, from its kind letter and handle, read with the SQL
// functions only.
std::string read_back(TestHost &h, const Value &letter, const Value &handle) {
    if (letter.s == "V") {
        const Value v = one(h, jsonlib_getvalue, {handle});
        if (v.kind == Value::Double) return dbl_form(v.d);
        if (v.kind == Value::Long || v.kind == Value::Int)
            return (v.kind == Value::Long ? "i" : "b") + std::to_string(v.i);
        return v.s.empty() ? "~" : "s" + text_form(v.s);
    }
    const bool obj = letter.s == "O";
    std::string form = obj ? "{" : "[";
    for (int i = 0;; ++i) {
        auto child = run(h, jsonlib_next, {handle});
        if (child.size() != 2 || child[0].s.empty()) break;
        if (i) form += ",";
        if (obj) form += text_form(one(h, jsonlib_getkey, {child[1]}).s) + "=";
        form += read_back(h, child[0], child[1]);
    }
    return form + (obj ? "}" : "]");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Choices in(data, size);
    g_json.clear();
    const std::string want = gen_value(in, g_json, 0);
    TestHost h;
    Outcome c = h.call(jsonlib_createparser, {S(g_json)});
    if (!c.exact(1)) fail("createparser did not push one result");
    const Value p = I(c.result().i);
    if (p.i < 0) fail("not parsed");
    auto top = run(h, jsonlib_getobject, {p});
    if (top.size() != 2) fail("getobject did not push two results");
    const std::string got = read_back(h, top[0], top[1]);
    if (got != want) fail("read back", got + "\nwant " + want);
    run(h, jsonlib_freeparser, {p});
    return 0;
}
