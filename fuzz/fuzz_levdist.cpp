// LevDist and LevDistCutOff against the plain two-row programme, on two
// strings the input builds: lengths up to 300, across the 16-byte
// registers, the 64-position words and the 255-byte limit; any byte but
// NUL, over alphabets of 1 to 255 values; or a string and an edited copy
// of it, so that distances are small and the cut-off fires at any row.
// The cuts tried are those where the answer can change, and two the input
// gives.  Each string fills its heap block exactly
// (a read past a terminator is caught), and words of up to 16 bytes are
// measured with both builds of their path.
// Input: the generator's choices.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "fuzz/choices.hpp"
#include "fuzzy/fuzzy_internal.hpp"
#include "udfkit/fuzzy.h"

using fuzzgen::Choices;

namespace {

constexpr int32_t kMaxLen = 255, kTooLarge = UDFKIT_DISTANCE_TOO_LARGE;
bool g_avx2_at_load = false;  // as the library set it at load

// The two-row programme once per pair, keeping the least of cells 1..l2
// of each row: the cut-off rule for any cut is then read from it.
struct Rows {
    std::vector<int32_t> least;  // least[i - 1]: row i
    int32_t last = 0;
    Rows(const std::string &a, const std::string &b) {
        if (a.empty() || b.empty() || a.size() > kMaxLen || b.size() > kMaxLen) return;
        std::vector<int32_t> prev(b.size() + 1), cur(b.size() + 1);
        std::iota(prev.begin(), prev.end(), 0);
        for (size_t i = 1; i <= a.size(); ++i) {
            cur[0] = prev[0] + 1;
            for (size_t j = 1; j <= b.size(); ++j)
                cur[j] = std::min({prev[j - 1] + (a[i - 1] != b[j - 1]), prev[j] + 1, cur[j - 1] + 1});
            least.push_back(*std::min_element(cur.begin() + 1, cur.end()));
            std::swap(prev, cur);
        }
        last = prev[b.size()];
    }
};

// What LevDist (use_cut false) or LevDistCutOff must give.
int32_t expected(const Rows &rows, int32_t l1, int32_t l2, int32_t cut, bool use_cut) {
    if (l1 == 0 || l2 == 0) return l1 + l2;
    if (l1 > kMaxLen || l2 > kMaxLen) return kTooLarge;
    if (!use_cut) return rows.last;
    if (std::abs(l1 - l2) >= cut) return kTooLarge;
    for (int32_t v : rows.least)
        if (v >= cut) return kTooLarge;
    return rows.last;
}

std::string shown(const std::string &s) {
    std::string out;
    for (unsigned char c : s) {
        char buf[8];
        std::snprintf(buf, sizeof buf, c >= 0x20 && c < 0x7f && c != '\\' ? "%c" : "\\x%02x", c);
        out += buf;
    }
    return out;
}

[[noreturn]] void fail(const std::string &a, const std::string &b, const char *what, int32_t cut, int32_t got,
                       int32_t want) {
    std::fprintf(stderr, "%s (cut %d, avx2 %d): got %d, want %d\na (%zu): %s\nb (%zu): %s\n", what, cut,
                 udfkit::fuzzy::lev_avx2, got, want, a.size(), shown(a).c_str(), b.size(), shown(b).c_str());
    std::abort();
}

// A string of n bytes: letters from 'a' for up to 26 values, otherwise
// any byte from 1 on.
struct Alphabet {
    int32_t size;
    char letter(Choices &in) const {
        const auto k = static_cast<int32_t>(in.below(static_cast<uint64_t>(size)));
        return static_cast<char>(size <= 26 ? 'a' + k : 1 + k);
    }
};

std::string random_string(Choices &in, const Alphabet &abc, int32_t n) {
    std::string s(static_cast<size_t>(n), ' ');
    for (char &c : s) c = abc.letter(in);
    return s;
}

// a with up to 7 bytes changed, inserted or removed, then cut or padded
// to n bytes.
std::string edited_copy(Choices &in, const Alphabet &abc, std::string a, int32_t n) {
    for (auto k = in.below(8); k > 0; --k) {
        const auto op = in.below(3);
        const size_t at = in.below(a.size() + 1);
        if (op == 0 && at < a.size()) a[at] = abc.letter(in);
        else if (op == 1) a.insert(at, 1, abc.letter(in));
        else if (at < a.size()) a.erase(at, 1);
    }
    a.resize(std::min(a.size(), static_cast<size_t>(n)));
    while (a.size() < static_cast<size_t>(n)) a += abc.letter(in);
    return a;
}

// The cuts where something changes: the small ones, and those around the
// distance, the greatest least-of-a-row (the rule fires up to it), the
// length difference, the lengths and the limit; then far ones and two the
// input gives.
std::vector<int32_t> cuts_to_try(const Rows &rows, int32_t l1, int32_t l2, Choices &in) {
    std::vector<int32_t> cuts;
    for (int32_t c = -2; c <= 20; ++c) cuts.push_back(c);
    const int32_t most = rows.least.empty() ? 0 : *std::max_element(rows.least.begin(), rows.least.end());
    for (int32_t at : {rows.last, most, std::abs(l1 - l2), l1, l2, kMaxLen})
        for (int32_t c = at - 2; c <= at + 2; ++c) cuts.push_back(c);
    for (int32_t c : {kTooLarge, INT32_MAX, INT32_MIN}) cuts.push_back(c);
    cuts.push_back(static_cast<int32_t>(in.below(static_cast<uint64_t>(std::max(l1, l2)) + 3)) - 2);
    cuts.push_back(static_cast<int32_t>(static_cast<uint32_t>(in.word())));
    return cuts;
}

// LevDist and LevDistCutOff of a and b, both ways round, with each build
// of the short-word path when both fit it.
void check(const std::string &a, const std::string &b, Choices &in) {
    const auto l1 = static_cast<int32_t>(a.size()), l2 = static_cast<int32_t>(b.size());
    const std::vector<char> pa(a.c_str(), a.c_str() + l1 + 1), pb(b.c_str(), b.c_str() + l2 + 1);
    const Rows ab(a, b), ba(b, a);
    const std::vector<int32_t> cuts = cuts_to_try(ab, l1, l2, in), cuts_ba = cuts_to_try(ba, l1, l2, in);
    const bool twice = g_avx2_at_load && l1 <= 16 && l2 <= 16;
    for (int pass = 0; pass < (twice ? 2 : 1); ++pass) {
        udfkit::fuzzy::lev_avx2 = pass == 0 && g_avx2_at_load;
        for (int k = 0; k < 2; ++k) {
            const std::string &x = k ? b : a, &y = k ? a : b;
            const char *px = k ? pb.data() : pa.data(), *py = k ? pa.data() : pb.data();
            const Rows &rows = k ? ba : ab;
            const int32_t lx = k ? l2 : l1, ly = k ? l1 : l2;
            const int32_t d = LevDist(px, py), want = expected(rows, lx, ly, 0, false);
            if (d != want) fail(x, y, "LevDist", 0, d, want);
            for (int32_t cut : k ? cuts_ba : cuts) {
                const int32_t got = LevDistCutOff(px, py, cut), w = expected(rows, lx, ly, cut, true);
                if (got != w) fail(x, y, "LevDistCutOff", cut, got, w);
            }
        }
    }
    udfkit::fuzzy::lev_avx2 = g_avx2_at_load;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_avx2_at_load = udfkit::fuzzy::lev_avx2;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Choices in(data, size);
    const bool copy = in.below(2) != 0;
    const Alphabet abc{1 + static_cast<int32_t>(in.below(255))};
    const auto l1 = static_cast<int32_t>(in.below(301)), l2 = static_cast<int32_t>(in.below(301));
    const std::string a = random_string(in, abc, l1);
    const std::string b = copy ? edited_copy(in, abc, a, l2) : random_string(in, abc, l2);
    check(a, b, in);
    return 0;
}
