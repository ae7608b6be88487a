// The fuzzy SQL functions, fuzzyrank among them, on arbitrary input:
// pattern, text, character set and markers come from the data, with the
// threshold and the excerpt sizes.
//   byte 0: argument counts and options; byte 1: threshold (/ 200);
//   byte 2: lines (signed); bytes 3-4: length (signed);
//   the rest: pattern, text, charset, opening and closing marker, separated
//   by 0x1f.
// Checks: one result per call, every score in [0, 1], and with empty
// markers the highlight gives back the text (up to a NUL byte).  A
// threshold byte above 250 gives fuzzyrank a NULL query (251-253) or text
// (254-255).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 5) return 0;
    const uint8_t opts = data[0];
    const double threshold = data[1] / 200.0;
    const int32_t lines = static_cast<int8_t>(data[2]);
    const int32_t length = static_cast<int16_t>(data[3] | (data[4] << 8));
    std::vector<std::string> f(1);
    for (size_t i = 5; i < size; ++i) {
        if (data[i] == 0x1f && f.size() < 5) f.emplace_back();
        else f.back() += static_cast<char>(data[i]);
    }
    f.resize(5);
    static const char *const kCharsets[] = {"UTF-8", "ISO-8859-1", "utf8", "NO-SUCH-CHARSET"};
    const std::string charset = f[2].empty() ? kCharsets[(opts >> 6) & 3] : f[2];
    const std::string &pattern = f[0], &text = f[1];

    TestHost h;
    h.call(fuzzysetphonex, {I(opts & 0x20 ? 0 : 1)});
    if (!h.call(fuzzysetspans, {S(f[3]), S(f[4])}).exact(0)) std::abort();

    std::vector<Value> sargs = {S(pattern), S(text)};
    if (opts & 1) sargs.push_back(S(charset));
    Outcome o = h.call(fuzzysearch, sargs);
    if (!o.exact(1)) std::abort();
    if (!(o.result().d >= 0.0 && o.result().d <= 1.0)) std::abort();

    std::vector<Value> hargs = {S(pattern), S(text)};
    if (opts & 2) hargs.push_back(D(threshold));
    if ((opts & 6) == 6) hargs.push_back(S(charset));
    if (!h.call(fuzzyhighlight, hargs).exact(1)) std::abort();

    std::vector<Value> eargs = {S(pattern), S(text), I(lines), I(length)};
    if (opts & 8) eargs.push_back(D(threshold));
    if ((opts & 24) == 24) eargs.push_back(S(charset));
    if (!h.call(fuzzyexcerpt, eargs).exact(1)) std::abort();

    // fuzzyrank reads the pattern as plain words.
    std::vector<Value> rargs = {S(pattern), S(text)};
    if (opts & 1) rargs.push_back(S(charset));
    if (data[1] > 250) rargs[data[1] > 253 ? 1 : 0] = Value::null();
    o = h.call(fuzzyrank, rargs);
    if (!o.exact(1)) std::abort();
    if (!(o.result().d >= 0.0 && o.result().d <= 1.0)) std::abort();

    // Without markers the highlight is the text itself.
    h.call(fuzzysetspans, {S(""), S("")});
    o = h.call(fuzzyhighlight, hargs);
    if (o.result().s != std::string(text.c_str())) std::abort();
    return 0;
}
