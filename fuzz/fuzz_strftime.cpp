// StrFTime against the C library's strftime in the C locale, on a moment
// of the years 1000 ... 9999 and a format made of the conversions both
// define alike, in any number, order and repetition, each followed or not
// by a space.  The length and the text must be the same; the output buffer
// is exactly the C library's text and its NUL, so a write past it is
// caught.
// Input: the generator's choices (the moment, then one per conversion).
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "fuzz/choices.hpp"
#include "udfkit/date.h"

using fuzzgen::Choices;

namespace {

constexpr int64_t kFirst = -30610224000LL;  // 1000-01-01 00:00:00 UTC
constexpr int64_t kLast = 253402300799LL;   // 9999-12-31 23:59:59 UTC
constexpr int kMaxConversions = 64;         // at most 11 characters each

const char *const kConversions[] = {"%a", "%A", "%b", "%B", "%C", "%d", "%e", "%H", "%I", "%j",
                                    "%k", "%l", "%m", "%M", "%p", "%S", "%y", "%Y", "%D", "%R",
                                    "%T", "%r", "%x", "%X", "%h", "%n", "%t", "%%"};
constexpr uint64_t kCount = sizeof kConversions / sizeof kConversions[0];

[[noreturn]] void fail(const char *what, time_t t, const std::string &format, const char *got,
                       const char *want) {
    std::fprintf(stderr, "%s at %lld, format \"%s\"\ngot:  \"%s\"\nwant: \"%s\"\n", what,
                 static_cast<long long>(t), format.c_str(), got, want);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::setlocale(LC_TIME, "C");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Choices in(data, size);
    const time_t t = static_cast<time_t>(kFirst + static_cast<int64_t>(in.below(kLast - kFirst + 1)));
    std::string format;
    // The moment takes five bytes; each byte after it is one conversion.
    for (size_t i = 5; i < size && i < 5 + kMaxConversions; ++i) {
        const uint64_t k = in.below(2 * kCount);
        format += kConversions[k % kCount];
        if (k >= kCount) format += ' ';
    }
    struct tm tm;
    gmtime_r(&t, &tm);
    char want[1024];
    const size_t wn = std::strftime(want, sizeof want, format.c_str(), &tm);
    if (wn == 0 && !format.empty()) fail("the C library's text does not fit", t, format, "", "");
    std::vector<char> got(wn + 1, '\x7f');
    const int32_t gn = StrFTime(got.data(), got.size(), format.c_str(), &tm);
    const std::string text(got.data(), strnlen(got.data(), got.size()));
    if (gn < 0 || static_cast<size_t>(gn) != wn) fail("length", t, format, text.c_str(), want);
    if (text.size() == got.size() || text != want) fail("text", t, format, text.c_str(), want);
    return 0;
}
