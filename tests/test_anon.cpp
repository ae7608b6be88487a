// Anonymisation functions through the in-memory test host.  Expected
// outputs are predicted from the 48-bit generator's sequence: a model of
// srand48/drand48 below, and literal values worked out independently.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

// The POSIX 48-bit linear congruential generator.
struct Lcg48 {
    uint64_t x;
    explicit Lcg48(int64_t seed) : x((uint64_t(uint32_t(seed)) << 16) | 0x330e) {}
    double next() {
        x = (0x5deece66dull * x + 0xb) & ((1ull << 48) - 1);
        return std::ldexp(double(x), -48);
    }
};

// A fresh empty folder in UDFKIT_DICT_DIR for the life of the object.
struct DictDir {
    std::string dir, old;
    DictDir() {
        char tmpl[] = "/tmp/udfkit-dict-XXXXXX";
        dir = mkdtemp(tmpl) ? tmpl : "/nonexistent";
        if (const char *o = getenv("UDFKIT_DICT_DIR")) old = o;
        setenv("UDFKIT_DICT_DIR", dir.c_str(), 1);
    }
    ~DictDir() {
        setenv("UDFKIT_DICT_DIR", old.c_str(), 1);
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    void write(const char *file, const std::string &content) const {
        std::ofstream(dir + "/" + file, std::ios::binary) << content;
    }
};

const char kMasc[] = "dict.prenom.masculin.txt";
const char kFem[] = "dict.prenom.feminin.txt";
const char kNom[] = "dict.nom.txt";

// 60 lines of 8 bytes: prefix, 3 digits, "|ab\n".
std::vector<std::string> fixed_lines(char prefix) {
    std::vector<std::string> lines;
    for (int i = 0; i < 60; ++i) lines.push_back(prefix + std::to_string(1000 + i).substr(1) + "|ab\n");
    return lines;
}
std::string join(const std::vector<std::string> &l) {
    return std::accumulate(l.begin(), l.end(), std::string());
}

// The name the first draw of seed picks from a file of 8-byte lines: the
// line after the one the random position falls in.
std::string predicted_pick(const std::vector<std::string> &lines, int64_t seed) {
    const long pos = long(double(long(lines.size() * 8) - 100) * Lcg48(seed).next());
    const std::string &l = lines.at(size_t(pos / 8 + 1));
    return l.substr(0, l.find('|'));
}

std::string run(udfkit_sqlfunc f, const std::vector<Value> &args) {
    TestHost h;
    Outcome o = h.call(f, args);
    EXPECT_TRUE(o.exact(1)) << "popped " << o.popped << ", left " << o.leftover;
    return o.pushed.empty() ? "<nothing>" : o.result().s;
}

// The seed of a text, observed through anonymize_letter with a
// 79-character alphabet.
TEST(Anonymize, SeedFromText) {
    const std::string alpha =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz!#$%&()*+,-./:;=?";
    const struct { const char *text; int64_t seed; } cases[] = {
        {"123", 123},  {"  42", 42},  {"-5", -5},
        {"99999999999999999999", INT64_MAX},  // saturated, still whole
        {"0", 16},                            // zero: shift-and-or of the bytes
        {"12abc", 0xd16563},                  // starts from 12
        {"42 ", 0x2b520},                     // not whole
        {"a@b.fr", 'a' - 32},                 // stops at the at sign
        {"\xe9t\xe9", -55},                   // negative bytes spread
    };
    for (const auto &c : cases) {
        Lcg48 g(c.seed);
        std::string expected = c.text;
        for (char &ch : expected)
            if (ch != ' ') ch = alpha[size_t(79 * g.next())];
        EXPECT_EQ(run(anonymize_letter, {S(c.text), S(alpha)}), expected) << c.text;
    }
}

TEST(Anonymize, Letter) {
    const struct { std::string text, alphabet, expected; } cases[] = {
        {"Hello world", "abc", "cbbcc acaba"},
        {"", "abc", ""},
        {"  ab cd", "", "  "},  // an empty alphabet ends the text at its first letter
        {std::string(500, 'z'), std::string(79, 'a') + "b", std::string(500, 'a')},  // cut to 79
    };
    for (const auto &c : cases)
        EXPECT_EQ(run(anonymize_letter, {S(c.text), S(c.alphabet)}), c.expected) << c.text;
    // Around the local area (102399 bytes with the terminator) and beyond.
    for (size_t n : {size_t(102398), size_t(102399), size_t(300000)}) {
        std::string text(n, 'k');
        for (size_t i = 5; i < n; i += 7) text[i] = ' ';
        const std::string out = run(anonymize_letter, {S(text), S("xy")});
        ASSERT_EQ(out.size(), n);
        for (size_t i = 0; i < n; ++i)
            ASSERT_TRUE(text[i] == ' ' ? out[i] == ' ' : (out[i] == 'x' || out[i] == 'y')) << i;
    }
}

TEST(Anonymize, Nss) {
    const struct { std::string number, key, expected; } cases[] = {
        {"1234567890123", "", "0OUXSHDMQ852K"},   {"1 84 12 75 12", "", "0 64 70 YK S2"},
        {"1234567890123", "255", "1          ff"}, {"1234567890123", "abc", "1           0"},  // not a number
        {"1234567890123", "-1", "1    ffffffff"},
        {"2840575123456", "4294967297", "2           1"},  // low 32 bits
        {"123456789012", "", "123456789012"},    {"12345678901234", "7", "12345678901234"},  // not 13 long
        {std::string(200, '9'), "", std::string(79, '9')},  // cut on popping
    };
    for (const auto &c : cases)
        EXPECT_EQ(run(anonymize_nss, {S(c.number), S(c.key)}), c.expected) << c.number;
}

TEST(Anonymize, Email) {
    const struct { std::string address, expected; } cases[] = {
        {"jean.dupont@example.fr", "lc97hz18kby@anonyme.invalid"},
        {"jean.dupont@example.com", "l6tkcha3h2h@anonyme.invalid"},  // the domain counts
        {"no at sign", ".n lo nsfa@anonyme.invalid"},
        {"", "@anonyme.invalid"},
    };
    for (const auto &c : cases) EXPECT_EQ(run(anonymize_email, {S(c.address)}), c.expected);
    // A full 1023-byte local part keeps all of it, then the domain.
    const std::string out = run(anonymize_email, {S(std::string(3000, 'q'))});
    EXPECT_EQ(out.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz._"), 1023u);
    EXPECT_EQ(out.substr(1023), "@anonyme.invalid");
}

TEST(Anonymize, MaskedWithoutDictionaries) {
    DictDir empty;
    const struct { udfkit_sqlfunc fn; std::vector<Value> args; std::string expected; } cases[] = {
        {anonymize_first, {S("Marie Claire"), I(1)}, "XXXXX XXXXXX"},
        {anonymize_first, {S("Marie Claire"), I(0)}, "YYYYY YYYYYY"},
        {anonymize_first, {S("Lou"), I(-7)}, "XXX"},
        {anonymize_first, {S("Marie"), I(2)}, "YYYYY"},  // no file: guessed masculine
        {anonymize_first, {S(std::string(400, 'a')), I(0)}, std::string(255, 'Y')},
        {anonymize_last, {S("Du Pont")}, "ZZ ZZZZ"},
    };
    for (const auto &c : cases) EXPECT_EQ(run(c.fn, c.args), c.expected);
}

TEST(Anonymize, PickFollowsTheGenerator) {
    DictDir d;
    auto masc = fixed_lines('M'), fem = fixed_lines('F'), nom = fixed_lines('S');
    fem[10] = "MARIE|F\n";  // also 8 bytes
    d.write(kMasc, join(masc));
    d.write(kFem, join(fem));
    d.write(kNom, join(nom));
    for (int64_t seed = 7919; seed < 40 * 7919; seed += 7919) {  // whole numbers seed as such
        const std::string text = std::to_string(seed);
        EXPECT_EQ(run(anonymize_last, {S(text)}), predicted_pick(nom, seed));
        EXPECT_EQ(run(anonymize_first, {S(text), I(0)}), predicted_pick(masc, seed));
        EXPECT_EQ(run(anonymize_first, {S(text), I(1)}), predicted_pick(fem, seed));
    }
    // Sex 2: a line starting with the name (any case) then "|" makes it feminine.
    EXPECT_EQ(run(anonymize_first, {S("marie"), I(2)}), predicted_pick(fem, 0x4d56d5));
    for (const char *name : {"MaRiE", "F059"})
        EXPECT_EQ(run(anonymize_first, {S(name), I(2)}), run(anonymize_first, {S(name), I(1)}));
    for (const char *name : {"mari", "maries"})
        EXPECT_EQ(run(anonymize_first, {S(name), I(2)}), run(anonymize_first, {S(name), I(0)}));
}

// A dictionary file under 100 bytes masks, except when the truncated
// position is 0 (a draw below 1 / (100 - size)): then its second line is
// picked.  (Other awkward files: the anon fuzz target.)
TEST(Anonymize, ShortDictionaries) {
    const struct { std::string content; const char *at_position_0; } cases[] = {
        {"", nullptr},
        {"Alpha|\nBeta|\nGamma|\nDelta|\n", "Beta"},
        {std::string(98, 'x') + "\n", nullptr},
    };
    for (const auto &c : cases) {
        DictDir d;
        d.write(kNom, c.content);
        for (int64_t seed = 1000; seed < 1200; ++seed) {
            const std::string in = std::to_string(seed);
            const long pos = long(double(long(c.content.size()) - 100) * Lcg48(seed).next());
            const bool pos0 = pos == 0 && c.at_position_0;
            EXPECT_EQ(run(anonymize_last, {S(in)}), pos0 ? c.at_position_0 : std::string(in.size(), 'Z'));
        }
    }
}

// The shipped dictionaries: well-formed lines, and every pick is one of
// their names.
TEST(Anonymize, ShippedDictionaries) {
    const std::string dir = UDFKIT_SOURCE_DIR "/data";
    setenv("UDFKIT_DICT_DIR", dir.c_str(), 1);
    for (const char *file : {kMasc, kFem, kNom}) {
        std::ifstream in(dir + "/" + file, std::ios::binary);
        std::set<std::string> names;
        for (std::string line; std::getline(in, line);) {
            const auto bar = line.find('|');
            ASSERT_TRUE(bar > 0 && bar != std::string::npos && line.size() < 255) << line;
            ASSERT_NE(line.back(), '\r') << file;
            names.insert(line.substr(0, bar));
        }
        EXPECT_GE(names.size(), 250u) << file;
        const int sex = file == kFem ? 1 : 0;
        for (int i = 0; i < 300; ++i) {
            const Value who = S("Personne " + std::to_string(i));
            const std::string out =
                file == kNom ? run(anonymize_last, {who}) : run(anonymize_first, {who, I(sex)});
            EXPECT_TRUE(names.count(out)) << file << ": " << out;
        }
    }
}

}  // namespace
