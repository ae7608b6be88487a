// Anonymisation functions through the in-memory test host.  Expected
// outputs are predicted from the 48-bit generator's sequence: a model of
// srand48/drand48 below, and literal values worked out independently.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;
namespace fs = std::filesystem;

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

// What anonymize_letter gives for text under a given seed.
std::string letter_model(int64_t seed, const std::string &text, const std::string &alphabet) {
    Lcg48 g(seed);
    std::string out = text;
    for (char &c : out)
        if (c != ' ') c = alphabet.empty() ? '\0' : alphabet[size_t(alphabet.size() * g.next())];
    return out.substr(0, out.find('\0'));
}

// Points UDFKIT_DICT_DIR at a folder for the life of the object.
class EnvDir {
public:
    explicit EnvDir(const std::string &dir) {
        const char *old = getenv("UDFKIT_DICT_DIR");
        had_ = old != nullptr;
        if (had_) old_ = old;
        setenv("UDFKIT_DICT_DIR", dir.c_str(), 1);
    }
    ~EnvDir() {
        if (had_)
            setenv("UDFKIT_DICT_DIR", old_.c_str(), 1);
        else
            unsetenv("UDFKIT_DICT_DIR");
    }
    EnvDir(const EnvDir &) = delete;
    EnvDir &operator=(const EnvDir &) = delete;

private:
    std::string old_;
    bool had_ = false;
};

std::string make_temp_dir() {
    char tmpl[] = "/tmp/udfkit-dict-XXXXXX";
    const char *d = mkdtemp(tmpl);
    return d ? d : "/nonexistent-udfkit-dict";
}

// A fresh, empty dictionary folder in use for the life of the object.
class DictDir {
public:
    DictDir() : dir_(make_temp_dir()), env_(dir_) {}
    ~DictDir() {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    void write(const char *file, const std::string &content) const {
        std::ofstream(dir_ + "/" + file, std::ios::binary) << content;
    }

private:
    std::string dir_;
    EnvDir env_;
};

const char kMasc[] = "dict.prenom.masculin.txt";
const char kFem[] = "dict.prenom.feminin.txt";
const char kNom[] = "dict.nom.txt";

// n lines of 8 bytes: prefix, 3 digits, "|ab\n".
std::vector<std::string> fixed_lines(char prefix, int n) {
    std::vector<std::string> lines;
    char buf[16];
    for (int i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%c%03d|ab\n", prefix, i);
        lines.push_back(buf);
    }
    return lines;
}

std::string join(const std::vector<std::string> &lines) {
    std::string s;
    for (const auto &l : lines) s += l;
    return s;
}

// The name picked from a dictionary of 8-byte lines by the first draw of
// seed: the line after the one the random position falls in.
std::string predicted_pick(const std::vector<std::string> &lines, int64_t seed) {
    const long size = long(lines.size() * 8);
    const long pos = long(double(size - 100) * Lcg48(seed).next());
    const std::string &l = lines.at(size_t(pos / 8 + 1));
    return l.substr(0, l.find_first_of("|\n"));
}

std::string run(udfkit_sqlfunc f, const std::vector<Value> &args) {
    TestHost h;
    Outcome o = h.call(f, args);
    EXPECT_TRUE(o.exact(1)) << "popped " << o.popped << ", left " << o.leftover;
    return o.pushed.empty() ? "<nothing>" : o.result().s;
}

TEST(Anonymize, ModelMatchesTheCLibraryGenerator) {
    for (int64_t seed : {0LL, 1LL, 123LL, -55LL, 0x1234567890LL}) {
        srand48(long(seed));
        Lcg48 g(seed);
        for (int i = 0; i < 5; ++i) EXPECT_EQ(drand48(), g.next()) << seed;
    }
}

TEST(Anonymize, DescribeAnswers) {
    const struct {
        const char *name;
        udfkit_sqlfunc fn;
        std::vector<ArgDesc> args;
        int32_t type, size;
    } cases[] = {
        {"first", anonymize_first, {arg(UDF_T_CHAR, 30), arg(UDF_T_INTEGER, 4)}, UDF_T_CHAR, 20},
        {"last", anonymize_last, {arg(UDF_T_VCHAR, 80)}, UDF_T_CHAR, 50},
        {"letter", anonymize_letter, {arg(UDF_T_VCHAR, 300), arg(UDF_T_CHAR, 10)}, UDF_T_VCHAR, 300},
        {"nss", anonymize_nss, {arg(UDF_T_CHAR, 13), arg(UDF_T_CHAR, 2)}, UDF_T_CHAR, 13},
        {"email", anonymize_email, {arg(UDF_T_VCHAR, 120)}, UDF_T_VCHAR, 120},
    };
    for (const auto &c : cases) {
        TestHost h;
        Describe d = h.describe(c.fn, c.args);
        EXPECT_FALSE(d.touched_host) << c.name;
        EXPECT_EQ(d.type, c.type) << c.name;
        EXPECT_EQ(d.size, c.size) << c.name;
    }
}

// The seed of a text, observed through anonymize_letter.
TEST(Anonymize, SeedFromText) {
    const std::string alpha =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz!#$%&()*+,-./:;=?";
    ASSERT_EQ(alpha.size(), 79u);
    const struct {
        const char *text;
        int64_t seed;
    } cases[] = {
        {"123", 123},
        {"  42", 42},                                 // leading blanks allowed
        {"-5", -5},
        {"+7", 7},
        {"99999999999999999999", INT64_MAX},          // saturated, still whole
        {"0", 16},                                    // zero: shift rule
        {"12abc", 0xd16563},                          // digits, then the bytes
        {"42 ", 0x2b520},                             // not whole: 42, '4', '2', ' '
        {"a@b.fr", 'a' - 32},                         // stops at the at sign
        {"\xe9t\xe9", -55},                           // negative bytes spread
        {"marie", 0x4d56d5},
    };
    for (const auto &c : cases)
        EXPECT_EQ(run(anonymize_letter, {S(c.text), S(alpha)}), letter_model(c.seed, c.text, alpha))
            << c.text;
}

TEST(Anonymize, Letter) {
    const struct {
        const char *text, *alphabet, *expected;
    } cases[] = {
        {"Hello world", "abc", "cbbcc acaba"},
        {"", "abc", ""},
        {"   ", "abc", "   "},
        {"  ab cd", "", "  "},  // an empty alphabet ends the text at its first letter
        {"abc", "Q", "QQQ"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(run(anonymize_letter, {S(c.text), S(c.alphabet)}), c.expected) << c.text;
}

TEST(Anonymize, LetterAroundTheLocalCapacity) {
    // 102398 bytes + terminator fit the local area; one more goes to the heap.
    for (size_t n : {size_t(102398), size_t(102399), size_t(300000)}) {
        std::string text(n, 'k');
        for (size_t i = 5; i < n; i += 7) text[i] = ' ';
        const std::string out = run(anonymize_letter, {S(text), S("xy")});
        ASSERT_EQ(out.size(), n);
        for (size_t i = 0; i < n; ++i)
            ASSERT_TRUE(text[i] == ' ' ? out[i] == ' ' : (out[i] == 'x' || out[i] == 'y')) << i;
        EXPECT_EQ(out, run(anonymize_letter, {S(text), S("xy")}));
    }
    // The alphabet is cut to 79 characters.
    const std::string alpha = std::string(79, 'a') + "b";
    EXPECT_EQ(run(anonymize_letter, {S(std::string(500, 'z')), S(alpha)}), std::string(500, 'a'));
}

TEST(Anonymize, Nss) {
    const struct {
        const char *number, *key, *expected;
    } cases[] = {
        {"1234567890123", "", "0OUXSHDMQ852K"},
        {"1 84 12 75 12", "", "0 64 70 YK S2"},
        {"1234567890123", "255", "1          ff"},
        {"1234567890123", "abc", "1           0"},       // key not a number
        {"1234567890123", "-1", "1    ffffffff"},
        {"2840575123456", "4294967297", "2           1"},  // low 32 bits
        {"123456789012", "", "123456789012"},             // 12 characters
        {"12345678901234", "7", "12345678901234"},        // 14 characters
        {"", "", ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(run(anonymize_nss, {S(c.number), S(c.key)}), c.expected)
            << c.number << " / " << c.key;
    // Cut to 79 characters on popping, so returned unchanged but cut.
    EXPECT_EQ(run(anonymize_nss, {S(std::string(200, '9')), S("")}), std::string(79, '9'));
    for (const char *n : {"2991201234567", "A9B8C7D6E5F4G"}) {
        const std::string out = run(anonymize_nss, {S(n), S("")});
        ASSERT_EQ(out.size(), 13u);
        EXPECT_EQ(out[0], '0');
        EXPECT_EQ(out.find_first_not_of("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos);
    }
}

TEST(Anonymize, Email) {
    const struct {
        const char *address, *expected;
    } cases[] = {
        {"jean.dupont@example.fr", "lc97hz18kby@anonyme.invalid"},
        {"jean.dupont@example.com", "l6tkcha3h2h@anonyme.invalid"},  // domain counts
        {"no at sign", ".n lo nsfa@anonyme.invalid"},
        {"a b@c", "o w@anonyme.invalid"},
        {"", "@anonyme.invalid"},
    };
    for (const auto &c : cases) EXPECT_EQ(run(anonymize_email, {S(c.address)}), c.expected);

    // A full 1023-byte local part keeps all of it, then the domain.
    const std::string out = run(anonymize_email, {S(std::string(3000, 'q'))});
    ASSERT_EQ(out.size(), 1023u + std::string("@anonyme.invalid").size());
    EXPECT_EQ(out.substr(1023), "@anonyme.invalid");
    EXPECT_EQ(out.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz._"), 1023u);
}

TEST(Anonymize, MaskedWithoutDictionaries) {
    DictDir empty;  // holds no file
    const struct {
        const char *name;
        udfkit_sqlfunc fn;
        std::vector<Value> args;
        std::string expected;
    } cases[] = {
        {"first feminine", anonymize_first, {S("Marie Claire"), I(1)}, "XXXXX XXXXXX"},
        {"first masculine", anonymize_first, {S("Marie Claire"), I(0)}, "YYYYY YYYYYY"},
        {"first other sex", anonymize_first, {S("Lou"), I(-7)}, "XXX"},
        {"first guessed", anonymize_first, {S("Marie"), I(2)}, "YYYYY"},  // no file: masculine
        {"last", anonymize_last, {S("Du Pont")}, "ZZ ZZZZ"},
        {"last empty", anonymize_last, {S("")}, ""},
        {"first cut", anonymize_first, {S(std::string(400, 'a')), I(0)}, std::string(255, 'Y')},
    };
    for (const auto &c : cases) EXPECT_EQ(run(c.fn, c.args), c.expected) << c.name;
}

TEST(Anonymize, PickFollowsTheGenerator) {
    DictDir d;
    auto masc = fixed_lines('M', 60), fem = fixed_lines('F', 60), nom = fixed_lines('S', 60);
    fem[10] = "MARIE|F\n";  // also 8 bytes
    d.write(kMasc, join(masc));
    d.write(kFem, join(fem));
    d.write(kNom, join(nom));
    // Whole numbers seed the generator with themselves.
    for (int64_t n = 1; n <= 40; ++n) {
        const std::string text = std::to_string(n * 7919);
        const int64_t seed = n * 7919;
        EXPECT_EQ(run(anonymize_last, {S(text)}), predicted_pick(nom, seed)) << text;
        EXPECT_EQ(run(anonymize_first, {S(text), I(0)}), predicted_pick(masc, seed)) << text;
        EXPECT_EQ(run(anonymize_first, {S(text), I(1)}), predicted_pick(fem, seed)) << text;
    }
    // Sex 2: "marie" is found (any case, followed by "|") so the pick is
    // feminine; "mari" and "maries" are not, so it is masculine.
    const int64_t marie = 0x4d56d5;
    EXPECT_EQ(run(anonymize_first, {S("marie"), I(2)}), predicted_pick(fem, marie));
    EXPECT_EQ(run(anonymize_first, {S("MaRiE"), I(2)}), run(anonymize_first, {S("MaRiE"), I(1)}));
    EXPECT_EQ(run(anonymize_first, {S("mari"), I(2)}), run(anonymize_first, {S("mari"), I(0)}));
    EXPECT_EQ(run(anonymize_first, {S("maries"), I(2)}), run(anonymize_first, {S("maries"), I(0)}));
    EXPECT_EQ(run(anonymize_first, {S("F059"), I(2)}), run(anonymize_first, {S("F059"), I(1)}));
}

// Awkward dictionary files: the pick either gives a name or the input is
// masked, never more than a line's worth of bytes, and always the same.
// A file under 100 bytes masks, except when the truncated position is 0
// (a draw below 1 / (100 - size)): then its second line is picked.
TEST(Anonymize, AwkwardDictionaries) {
    std::string binary;
    uint32_t x = 12345;
    for (int i = 0; i < 5000; ++i) {
        x = x * 1103515245u + 12345u;
        binary += char(x >> 16);
    }
    std::string long_lines;
    for (int i = 0; i < 20; ++i) long_lines += "L" + std::string(297, char('a' + i % 26)) + "|\n";
    std::string crlf;
    for (int i = 0; i < 40; ++i) crlf += "Nom" + std::to_string(100 + i) + "|x\r\n";
    std::string crlf_bare;
    for (int i = 0; i < 40; ++i) crlf_bare += "Nom" + std::to_string(100 + i) + "\r\n";
    const struct {
        const char *name;
        std::string content;
        bool short_file;
        const char *at_position_0;  // short file: the pick when the position is 0
        size_t min_distinct;
    } cases[] = {
        {"empty", "", true, nullptr, 1},
        {"short", "Alpha|\nBeta|\nGamma|\nDelta|\n", true, "Beta", 2},
        {"99 bytes", std::string(98, 'x') + "\n", true, nullptr, 1},
        {"one long line", std::string(5000, 'y'), false, nullptr, 1},
        {"binary", binary, false, nullptr, 5},
        {"lines over 255 bytes", long_lines, false, nullptr, 5},
        {"crlf", crlf, false, nullptr, 5},
        {"crlf without bar", crlf_bare, false, nullptr, 5},
    };
    for (const auto &c : cases) {
        DictDir d;
        d.write(kNom, c.content);
        std::set<std::string> seen;
        for (int i = 0; i < 200; ++i) {
            const int64_t seed = 1000 + 37 * i;
            const std::string in = std::to_string(seed);
            const std::string out = run(anonymize_last, {S(in)});
            EXPECT_EQ(out, run(anonymize_last, {S(in)})) << c.name;
            EXPECT_LE(out.size(), 255u) << c.name;
            EXPECT_EQ(out.find_first_of("|\n"), std::string::npos) << c.name;
            if (c.short_file) {
                const double r = Lcg48(seed).next();
                const long pos = long(double(long(c.content.size()) - 100) * r);
                const bool pos0 = pos == 0 && c.at_position_0;
                EXPECT_EQ(out, pos0 ? c.at_position_0 : std::string(in.size(), 'Z')) << c.name;
            }
            seen.insert(out);
        }
        EXPECT_GE(seen.size(), c.min_distinct) << c.name;
    }
    // The name ends at "|": with CRLF the carriage return stays after it.
    DictDir d;
    d.write(kNom, crlf);
    for (int i = 0; i < 20; ++i) {
        const std::string out = run(anonymize_last, {S(std::to_string(i + 1))});
        EXPECT_EQ(out.find('\r'), std::string::npos) << out;
    }
}

// Through the shipped dictionaries, every pick is one of their names.
TEST(Anonymize, ShippedDictionaries) {
    const std::string dir = UDFKIT_SOURCE_DIR "/data";
    EnvDir env(dir);
    for (const char *file : {kMasc, kFem, kNom}) {
        std::ifstream in(dir + "/" + file, std::ios::binary);
        std::set<std::string> names;
        std::string line;
        while (std::getline(in, line)) {
            ASSERT_LT(line.size(), 255u) << file;
            ASSERT_EQ(line.find('\r'), std::string::npos) << file;
            const auto bar = line.find('|');
            ASSERT_NE(bar, std::string::npos) << file << ": " << line;
            ASSERT_GT(bar, 0u) << file;
            names.insert(line.substr(0, bar));
        }
        EXPECT_GE(names.size(), 250u) << file;
        std::set<std::string> picked;
        for (int i = 0; i < 300; ++i) {
            const std::string in = "Personne " + std::to_string(i);
            const std::string out = file == std::string(kNom) ? run(anonymize_last, {S(in)})
                                    : file == std::string(kFem) ? run(anonymize_first, {S(in), I(1)})
                                                                : run(anonymize_first, {S(in), I(0)});
            EXPECT_TRUE(names.count(out)) << file << ": " << out;
            picked.insert(out);
        }
        EXPECT_GT(picked.size(), 100u) << file;
    }
}

}  // namespace
