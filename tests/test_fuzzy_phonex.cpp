// Phonex keys, long words, edit distances (against a plain reference).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "fuzzy/fuzzy_internal.hpp"
#include "host/testhost.hpp"
#include "udfkit/fuzzy.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

std::string key(const std::string &w) {
    char out[UDFKIT_STDMOT_SIZE];
    std::memset(out, 'Z', sizeof out);
    EXPECT_EQ(Phonex(w.c_str(), out), out);
    return out;
}

TEST(Phonex, Keys) {
    const char *cases[][2] = {
        {"PHILIPPE", "FILIPPE"}, {"THOMAS", "TOMAS"},   {"MARTIN", "MART4"},  {"HENRI", "1RI"},
        {"CHAT", "5A"},          {"CHANT", "51"},       {"SCHEMA", "5EMA"},   {"ROSE", "ROZE"},
        {"SOUS", "S3S"},         {"QUEUE", "KEE"},      {"GUY", "KI"},        {"CECI", "SESI"},
        {"EAU", "O"},            {"SEAUX", "SO"},       {"OUATE", "2TE"},     {"PAIN", "P4"},
        {"PEINE", "PYNE"},       {"AIMER", "YNYR"},     {"MAISON", "MYS6"},   {"BONBON", "B6B6"},
        {"ONE", "6E"},           {"CAMION", "KAMI6"},   {"DUPONT", "DUP6"},   {"ROBERT", "ROBYR"},
        {"ANNE", "1NE"},         {"VINCENT", "V4K1"},   {"GANT", "K1"},       {"GAIN", "K4"},
        {"GAMBADE", "K1BADE"},   {"GAIMAT", "KYNA"},    {"TEXT", "TEX"},      {"XT", "X"},
        {"T", ""},               {"", ""},              {"EAIN", "E4"},       {"HACHE", "A5E"},
        {"QATAR", "KATAR"},      {"SCIE", "SIE"},       {"ESSAI", "YSY"},     {"SHAH", "5A"},
        {"DUPOND", "DUP6D"},     {"DURAND", "DUR1D"},   {"LEFEBVRE", "LEFEBVRE"},
    };
    for (const auto &c : cases) EXPECT_EQ(key(c[0]), c[1]) << c[0];
}

// Long words are cut to fit the output buffer; nothing is written past it.
TEST(Phonex, LongWordsStayInTheBuffer) {
    const std::string w(1000, 'B');
    char out[3][UDFKIT_STDMOT_SIZE + 16];
    std::memset(out, 'Z', sizeof out);
    MakeStdMot(w.c_str(), out[0]);
    Phonex(w.c_str(), out[1]);
    PhonexNone(w.c_str(), out[2]);
    const size_t want[] = {UDFKIT_STDMOT_SIZE - 1, 270, UDFKIT_STDMOT_SIZE - 1};  // Phonex cuts first
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(std::strlen(out[k]), want[k]) << k;
        EXPECT_EQ(out[k][UDFKIT_STDMOT_SIZE], 'Z') << k;
    }
}

TEST(Phonex, SetPhonexSwitchesTheFunction) {
    TestHost h;
    char out[UDFKIT_STDMOT_SIZE];
    EXPECT_TRUE(h.call(fuzzysetphonex, {I(0)}).exact(0));
    EXPECT_STREQ(Phonetiseur("PHILIPPE", out), "PHILIPPE");
    EXPECT_TRUE(h.call(fuzzysetphonex, {I(7)}).exact(0));
    EXPECT_EQ(Phonetiseur, Phonex);
}

// The two-row programme once per pair, keeping the least cell 1..l2 of
// each row: the cut-off rule for any cut is then read from it.
struct Rows {
    std::vector<int32_t> least;  // least[i - 1]: row i
    int32_t last = 0;
    Rows(const std::string &a, const std::string &b) {
        const size_t l2 = b.size();
        std::vector<int32_t> prev(l2 + 1), cur(l2 + 1);
        for (size_t j = 0; j <= l2; ++j) prev[j] = (int32_t)j;
        for (size_t i = 1; i <= a.size(); ++i) {
            cur[0] = prev[0] + 1;
            int32_t low = INT32_MAX;
            for (size_t j = 1; j <= l2; ++j) {
                cur[j] = std::min({prev[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1), prev[j] + 1, cur[j - 1] + 1});
                low = std::min(low, cur[j]);
            }
            least.push_back(low);
            std::swap(prev, cur);
        }
        last = prev[l2];
    }
    // The result for strings of lengths l1 and l2 (the programme ran only
    // when both are within the limit); INT32_MAX: no cut-off.
    int32_t with_cut(int32_t l1, int32_t l2, int32_t cut) const {
        if (l1 == 0 || l2 == 0) return l1 + l2;
        if (l1 > 255 || l2 > 255 || std::abs(l1 - l2) >= cut) return 1000000;
        for (int32_t v : least)
            if (v >= cut) return 1000000;
        return last;
    }
};

// Known distances: they hold the reference above to account too.
TEST(LevDist, Examples) {
    const std::string w256(256, 'A'), a70(70, 'A'), b65(65, 'B');
    struct {
        const char *a, *b;
        int32_t cut;  // -1: LevDist
        int32_t want;
    } cases[] = {
        {"", "ABC", -1, 3},           {"FLAW", "LAWN", -1, 2},
        {"DUPOND", "DUPONT", 255, 1}, {"AB", "BA", 2, 2},
        {"XYZ", "ABC", 1, 1000000},   {"HABITE", "DUPONT", 1, 1000000},
        {w256.c_str(), w256.c_str(), -1, 1000000},
        {a70.c_str(), b65.c_str(), 70, 1000000},  // the last row is the first at the cut
        {a70.c_str(), b65.c_str(), 71, 70},
    };
    for (const auto &c : cases) {
        int32_t got = c.cut < 0 ? LevDist(c.a, c.b) : LevDistCutOff(c.a, c.b, c.cut);
        EXPECT_EQ(got, c.want) << c.a << " / " << c.b << " cut " << c.cut;
    }
}

// Every pair of lengths 0 to 20 and of lengths around the 16-byte
// registers, the 64-position words and the 255-byte limit (and past it),
// as random strings over alphabets of 2 to 200 bytes (bytes above 0x7F
// included) and as one string and an edited copy of it: small distances,
// so that the cut-off fires at every row.  Every cut up to 24, those near
// the distance and a spread of others.  Each string sits in a heap block
// of exactly its size, so that the sanitizer build catches a read past a
// terminator.
void compare_with_two_rows() {
    std::vector<int32_t> lengths = {31, 32, 33, 48, 49, 63, 64, 65, 80, 127, 128, 129, 193, 255, 256, 1000};
    for (int32_t n = 0; n <= 20; ++n) lengths.push_back(n);
    const int alphabets[] = {2, 200, 4, 26, 3, 5};
    std::mt19937 rng(777);
    auto letter = [&](int alphabet) { return (char)(alphabet > 26 ? 1 + rng() % alphabet : 'a' + rng() % alphabet); };
    int mismatches = 0;
    for (int32_t l1 : lengths)
        for (int32_t l2 : lengths)
            for (int trial = 0; trial < (l1 <= 20 || l2 <= 20 ? 24 : 8) && mismatches < 10; ++trial) {
                const int alphabet = alphabets[trial / 2 % 6];
                std::string a(l1, ' '), b(l2, ' ');
                for (char &c : a) c = letter(alphabet);
                for (char &c : b) c = letter(alphabet);
                if (trial % 2) {  // a copy of a, a few bytes changed, cut or padded to l2
                    b = a.substr(0, l2);
                    for (int k = rng() % 8; k > 0 && !b.empty(); --k) b[rng() % b.size()] = letter(alphabet);
                    while ((int32_t)b.size() < l2) b += letter(alphabet);
                }
                const std::vector<char> pa(a.c_str(), a.c_str() + l1 + 1), pb(b.c_str(), b.c_str() + l2 + 1);
                const bool small = l1 <= 255 && l2 <= 255;
                const Rows rows(small ? a : "", small ? b : "");
                auto check = [&](int32_t cut) {  // INT32_MAX: LevDist
                    const int32_t got = cut == INT32_MAX ? LevDist(pa.data(), pb.data())
                                                         : LevDistCutOff(pa.data(), pb.data(), cut);
                    if (got == rows.with_cut(l1, l2, small ? cut : 0)) return;
                    ++mismatches;
                    ADD_FAILURE() << a << " / " << b << " cut " << cut << ": " << got;
                };
                check(INT32_MAX);
                for (int32_t cut = -2; cut <= std::max(l1, l2) + 2; cut += cut < 24 ? 1 : 1 + rng() % 9) check(cut);
                for (int32_t d = -3; d <= 3; ++d) check(rows.last + d);
                check(255);
                check(1000000);
            }
}

// Words of up to 16 bytes take a path built twice, for AVX2 and for any
// x86-64: both are compared.
TEST(LevDist, SameAsTheTwoRowProgramme) {
    const bool avx2 = udfkit::fuzzy::lev_avx2;
    for (bool use : {avx2, false}) {
        udfkit::fuzzy::lev_avx2 = use;
        compare_with_two_rows();
    }
    udfkit::fuzzy::lev_avx2 = avx2;
}

}  // namespace
