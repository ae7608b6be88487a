// A labelled set for finding customers by misspelt names: 5,000 distinct
// French full names (first name and surname, some first names hyphenated)
// from the dictionaries in data/, and 1,000 queries, each a misspelt form
// of one of them, made by rules with a fixed seed:
//   - phonetic respellings: ph/f, eau/au/o, final t/d, dropped accents,
//     doubled or single consonants, c/k, qu/k, y/i, ai/ei, an/en, a silent
//     h dropped;
//   - keyboard slips: a letter dropped, added, doubled or swapped with the
//     next one.
// Half the queries are typed in lower case.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace udfkit::bench {

struct NameSet {
    std::vector<std::string> names;
    std::vector<std::string> queries;
    std::vector<size_t> target;  // the row each query means
};

inline std::vector<std::string> read_dict(const std::string &path) {
    std::vector<std::string> out;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('|'));
        if (!line.empty()) out.push_back(line);
    }
    return out;
}

// A name as a list of characters (UTF-8 sequences), so rules never split one.
inline std::vector<std::string> chars_of(const std::string &s) {
    std::vector<std::string> c;
    for (size_t i = 0; i < s.size();) {
        size_t n = 1;
        const auto b = static_cast<unsigned char>(s[i]);
        if (b >= 0xF0) n = 4;
        else if (b >= 0xE0) n = 3;
        else if (b >= 0xC0) n = 2;
        c.push_back(s.substr(i, n));
        i += n;
    }
    return c;
}

inline std::string join(const std::vector<std::string> &c) {
    std::string s;
    for (const auto &x : c) s += x;
    return s;
}

inline bool replace_one(std::string &s, const std::string &from, const std::string &to,
                        std::mt19937 &rng, bool at_word_end = false) {
    std::vector<size_t> at;
    for (size_t p = s.find(from); p != std::string::npos; p = s.find(from, p + 1)) {
        const size_t e = p + from.size();
        if (at_word_end && e < s.size() && s[e] != ' ' && s[e] != '-') continue;
        at.push_back(p);
    }
    if (at.empty()) return false;
    const size_t p = at[rng() % at.size()];
    s.replace(p, from.size(), to);
    return true;
}

inline bool phonetic_rule(std::string &s, std::mt19937 &rng) {
    static const char *const kPairs[][2] = {
        {"ph", "f"}, {"f", "ph"}, {"eau", "o"}, {"au", "o"}, {"é", "e"}, {"è", "e"}, {"ë", "e"},
        {"ï", "i"}, {"ç", "c"}, {"ô", "o"}, {"ll", "l"}, {"nn", "n"}, {"tt", "t"}, {"ss", "s"},
        {"rr", "r"}, {"mm", "m"}, {"l", "ll"}, {"n", "nn"}, {"c", "k"}, {"qu", "k"}, {"y", "i"},
        {"i", "y"}, {"ai", "ei"}, {"ei", "ai"}, {"an", "en"}, {"en", "an"}, {"th", "t"},
    };
    const size_t n = sizeof kPairs / sizeof kPairs[0];
    for (int tries = 0; tries < 12; ++tries) {
        const unsigned r = rng() % (n + 3);
        if (r == n) {
            if (replace_one(s, "t", "d", rng, true)) return true;
        } else if (r == n + 1) {
            if (replace_one(s, "d", "t", rng, true)) return true;
        } else if (r == n + 2) {
            if (replace_one(s, "H", "", rng) || replace_one(s, "h", "", rng)) return true;
        } else if (replace_one(s, kPairs[r][0], kPairs[r][1], rng)) {
            return true;
        }
    }
    return false;
}

inline bool keyboard_rule(std::string &s, std::mt19937 &rng) {
    auto c = chars_of(s);
    if (c.size() < 3) return false;
    const size_t i = 1 + rng() % (c.size() - 2);  // never the first letter
    if (c[i] == " " || c[i] == "-") return false;
    switch (rng() % 4) {
    case 0: c.erase(c.begin() + static_cast<long>(i)); break;
    case 1: c.insert(c.begin() + static_cast<long>(i), std::string(1, "aeiorstnlu"[rng() % 10])); break;
    case 2: c.insert(c.begin() + static_cast<long>(i), c[i]); break;
    default:
        if (c[i + 1] == " " || c[i + 1] == "-") return false;
        std::swap(c[i], c[i + 1]);
        break;
    }
    s = join(c);
    return true;
}

inline std::string lower_ascii(std::string s) {
    for (char &ch : s)
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
    return s;
}

inline NameSet make_name_set(const std::string &data_dir, size_t rows = 5000, size_t queries = 1000) {
    auto first = read_dict(data_dir + "/dict.prenom.masculin.txt");
    const auto fem = read_dict(data_dir + "/dict.prenom.feminin.txt");
    first.insert(first.end(), fem.begin(), fem.end());
    const auto last = read_dict(data_dir + "/dict.nom.txt");
    NameSet set;
    if (first.empty() || last.empty()) return set;
    std::mt19937 rng(20261124);
    std::set<std::string> seen;
    while (set.names.size() < rows) {
        std::string f = first[rng() % first.size()];
        if (rng() % 100 < 15) f += "-" + first[rng() % first.size()];
        const std::string name = f + " " + last[rng() % last.size()];
        if (seen.insert(lower_ascii(name)).second) set.names.push_back(name);
    }
    while (set.queries.size() < queries) {
        const size_t row = rng() % set.names.size();
        std::string q = set.names[row];
        const int edits = rng() % 4 == 0 ? 2 : 1;
        for (int e = 0; e < edits;)
            if (rng() % 2 ? phonetic_rule(q, rng) : keyboard_rule(q, rng)) ++e;
        if (rng() % 2) q = lower_ascii(q);
        if (q == set.names[row]) continue;
        set.queries.push_back(q);
        set.target.push_back(row);
    }
    return set;
}

// Top-1 accuracy of a score: a query counts when its row scores strictly
// above every other row (a tie is a miss).
template <class Score>
double top1(const NameSet &set, Score score) {
    size_t hits = 0;
    for (size_t q = 0; q < set.queries.size(); ++q) {
        const double want = score(set.queries[q], set.names[set.target[q]]);
        bool alone = true;
        for (size_t r = 0; r < set.names.size() && alone; ++r)
            if (r != set.target[q] && score(set.queries[q], set.names[r]) >= want) alone = false;
        hits += alone;
    }
    return set.queries.empty() ? 0 : static_cast<double>(hits) / static_cast<double>(set.queries.size());
}

}  // namespace udfkit::bench
