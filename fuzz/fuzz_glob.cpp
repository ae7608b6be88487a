// The glob of hosts without one of their own must match as SQLite's GLOB
// does (sqlite3_strglob), on patterns and texts of up to six pieces each,
// dense in what the glob reads: sets, ranges, negations, brackets out of
// place and a two-byte character.
// Both are copied to heap blocks of their exact size, so a read past the
// NUL is caught.
// Input: the generator's choices (the pattern's pieces, then the text's).
#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/choices.hpp"
#include "sqlhelp/text.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const char *const pattern_parts[] = {"a", "b", "\xC3\xA9", "*", "?", "[", "]", "^", "-", "[a-b]"};
    static const char *const text_parts[] = {"a", "b", "\xC3\xA9", "-", "]", "^", "["};
    fuzzgen::Choices in(data, size);
    std::string pattern, text;
    for (auto n = in.below(7); n > 0; --n) pattern += pattern_parts[in.below(10)];
    for (auto n = in.below(7); n > 0; --n) text += text_parts[in.below(7)];
    const std::vector<char> p(pattern.c_str(), pattern.c_str() + pattern.size() + 1),
        t(text.c_str(), text.c_str() + text.size() + 1);
    const bool got = udfkit::sqlhelp::glob_match(p.data(), t.data());
    const bool want = sqlite3_strglob(pattern.c_str(), text.c_str()) == 0;
    if (got != want) {
        std::fprintf(stderr, "pattern '%s' text '%s': got %d, want %d\n", pattern.c_str(), text.c_str(), got,
                     want);
        std::abort();
    }
    return 0;
}
