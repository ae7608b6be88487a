// The keys of a line of words in one run (phonex_words) must equal the
// words' keys one by one (Phonex), on lines dense in the letters the rules
// read (and in the digits some rules write), up to the longest line a name
// gives or a shorter limit.  The line and the keys are each in a 64-byte
// heap block, the span the function is given, so a read or write past it
// is caught.
// Input: the generator's choices (the limit, then each word's length and
// letters).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/choices.hpp"
#include "fuzzy/fuzzy_internal.hpp"
#include "udfkit/fuzzy.h"

using fuzzgen::Choices;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const char letters[] = "AEIOUYHCPSGNMQRTXZB1234";
    Choices rng(data, size);
    std::string line, want;
    const size_t limit = rng.below(2) ? 64 : 1 + rng.below(20);
    while (line.size() < limit) {
        std::string w(1 + rng.below(9), ' ');
        for (char &c : w) c = letters[rng.below(sizeof letters - 1)];
        if (line.size() + w.size() + !line.empty() > limit) break;
        char key[UDFKIT_PHONKEY_SIZE];
        Phonex(w.c_str(), key);
        line += (line.empty() ? "" : " ") + w;
        want += (want.empty() && line == w ? "" : " ") + std::string(key);
    }
    std::vector<char> in(64, '\0'), out(64);
    line.copy(in.data(), in.size());
    const size_t n = udfkit::fuzzy::phonex_words(in.data(), line.size(), out.data());
    if (n > out.size() || std::string(out.data(), n) != want) {
        std::fprintf(stderr, "line \"%s\": got \"%s\", want \"%s\"\n", line.c_str(),
                     std::string(out.data(), n > out.size() ? out.size() : n).c_str(), want.c_str());
        std::abort();
    }
    return 0;
}
