// Fuzz target: the parser on arbitrary bytes, then path evaluation and the
// node functions on the parsed document, with handles both genuine and
// altered.  Input: JSON text, then paths, separated by 0xFF bytes.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "udfkit/json.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // Parse errors print the rest of the text; send the C stream to
    // /dev/null (sanitizer reports write to descriptor 2 directly).
    if (FILE *null = std::fopen("/dev/null", "w")) stderr = null;
    return 0;
}

namespace {

std::vector<std::string> split(const uint8_t *data, size_t size) {
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0xFF)
            parts.emplace_back();
        else
            parts.back() += static_cast<char>(data[i]);
    }
    return parts;
}

// Walks every node reachable with jsonlib_next (bounded), touching each
// with the node functions and a few altered handles.
void walk(TestHost &h, const Value &handle, int depth, int &budget) {
    if (depth > 64) return;
    for (int n = 0; n < 64 && budget > 0; ++n, --budget) {
        Outcome o = h.call(jsonlib_next, {handle});
        if (o.pushed.size() != 2 || o.pushed[0].s.empty()) return;
        const Value &child = o.pushed[1];
        h.call(jsonlib_getkey, {child});
        h.call(jsonlib_getkeyvalue, {child});
        h.call(jsonlib_getvalue4key, {child, S("a")});
        Outcome v = h.call(jsonlib_getvalue, {child});
        for (int64_t delta : {int64_t{1}, int64_t{-1}, int64_t{1} << 32, int64_t{1} << 39})
            h.call(jsonlib_getvalue, {L(child.i + delta)});
        if (!v.pushed.empty() && v.pushed[0].kind == Value::Long) h.call(jsonlib_getkey, v.pushed);
        if (o.pushed[0].s != "V") walk(h, child, depth + 1, budget);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<std::string> parts = split(data, size);

    // The parser alone, on the text as given (NUL bytes included).
    {
        std::string text = parts[0];
        JsonNode top{};
        parse_value(&top, nullptr, text.data());
        nx_json_free(top.v2.child);
    }

    TestHost h;
    Outcome c = h.call(jsonlib_createparser, {S(parts[0])});
    const int64_t p = c.pushed.empty() ? -1 : c.pushed[0].i;
    for (size_t i = 1; i < parts.size(); ++i) h.call(jsonlib_extractobject, {I(p), S(parts[i])});
    if (p >= 0) {
        Outcome top = h.call(jsonlib_getobject, {I(p)});
        int budget = 4096;
        if (top.pushed.size() == 2) walk(h, top.pushed[1], 0, budget);
        const int64_t kept = top.pushed.size() == 2 ? top.pushed[1].i : 0;
        h.call(jsonlib_freeparser, {I(p)});
        h.call(jsonlib_getvalue, {L(kept)});  // stale handle
        h.call(jsonlib_next, {L(kept)});
    }
    return 0;
}
