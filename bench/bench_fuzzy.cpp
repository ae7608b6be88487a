// Fuzzy search on 1 MiB of French prose, single thread, with the floor
// measured in the same run: cutting the text into words and making the
// standard word of each (the work every search does).  Also the edit
// distance with cut-off against the plain two-row programme.
//   build/bench_fuzzy --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
//
// The prose is the running text of the French manual pages
// (/usr/share/man/fr, package manpages-fr) with the roff markup stripped.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "fuzzy/fuzzy_internal.hpp"
#include "udfkit/fuzzy.h"

namespace {

constexpr size_t kTextSize = 1 << 20;

// One line of roff source reduced to its text.
void strip_roff(const std::string &line, std::string &out) {
    if (line.empty() || line[0] == '.' || line[0] == '\'') return;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i >= line.size()) break;
        switch (line[i]) {
        case 'f':  // font change: \fB, \f(XY, \f[...]
            if (i + 1 < line.size() && line[i + 1] == '[') {
                size_t e = line.find(']', i);
                i = e == std::string::npos ? line.size() : e;
            } else if (i + 1 < line.size() && line[i + 1] == '(') {
                i += 3;
            } else {
                ++i;
            }
            break;
        case '(':  // \(aq and the like
            if (line.compare(i + 1, 2, "aq") == 0) out += '\'';
            i += 2;
            break;
        case '-': out += '-'; break;
        case ' ': out += ' '; break;
        case 'e': out += '\\'; break;
        default: break;  // \& \, \/ \: ...
        }
    }
    out += '\n';
}

const std::string &prose() {
    static const std::string text = [] {
        std::string t;
        FILE *p = popen("zcat -f /usr/share/man/fr/man1/*.gz /usr/share/man/fr/man8/*.gz "
                        "/usr/share/man/fr/man5/*.gz 2>/dev/null",
                        "r");
        if (p) {
            char buf[8192];
            std::string line;
            while (t.size() < kTextSize && std::fgets(buf, sizeof buf, p)) {
                line = buf;
                if (!line.empty() && line.back() == '\n') line.pop_back();
                strip_roff(line, t);
            }
            pclose(p);
        }
        if (t.size() < kTextSize) {
            // Without the manual pages: a French sentence, repeated.
            std::fprintf(stderr, "bench_fuzzy: French manual pages not found, using a stock text\n");
            while (t.size() < kTextSize)
                t += "Le client M. Dupond habite au 12 rue de la Paix, à Paris, depuis l'année 2024 ; "
                     "il reçoit son courrier chaque matin et répond aux lettres de l'administration.\n";
        }
        t.resize(kTextSize);
        return t;
    }();
    return text;
}

struct Delims {
    bool is[256] = {};
    Delims() {
        for (const char *p = " :,;.-'/\n`*+#!?(){}[]=~$<>_"; *p; ++p) is[static_cast<unsigned char>(*p)] = true;
    }
};
const Delims kDelims;
inline bool is_delim(char c) { return kDelims.is[static_cast<unsigned char>(c)]; }

// The floor: every word cut out and made a standard word.
void BM_Floor(benchmark::State &state) {
    const std::string &t = prose();
    using namespace udfkit::fuzzy;
    std::strcpy(IsoCode, "UTF-8");
    char stdw[kStdSize];
    for (auto _ : state) {
        const StdMode mode = std_mode();
        const UpperTable upper;
        size_t words = 0, i = 0, n = t.size();
        while (i < n) {
            while (i < n && is_delim(t[i])) ++i;
            if (i >= n) break;
            size_t off = i;
            while (i < n && !is_delim(t[i])) ++i;
            bool over;
            words += make_std(mode, t.data() + off, i - off, stdw, sizeof stdw, &over, &upper) > 0;
        }
        benchmark::DoNotOptimize(words);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.size()));
}

void search(benchmark::State &state, const char *pattern) {
    const std::string &t = prose();
    std::strcpy(IsoCode, "UTF-8");
    Phonetiseur = Phonex;
    double score = 0;
    for (auto _ : state) score += FuzzySearch(pattern, t.c_str());
    benchmark::DoNotOptimize(score);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.size()));
}

// One standard-word term (digits), one phonetic term, and five terms of
// which three form a quoted phrase (no cut-off then: plain distances).
void BM_SearchDigits(benchmark::State &state) { search(state, "2024"); }
void BM_SearchPhonetic(benchmark::State &state) { search(state, "fichier"); }
void BM_SearchFiveTermsPhrase(benchmark::State &state) {
    search(state, "option +fichier 'ligne de commande'");
}
// The same with misspelt words that match nothing exactly: no term ever
// reaches distance 0, so every word in range gets its distances (and its
// phonetic key) to the end of the text.
void BM_SearchDigitsMisspelt(benchmark::State &state) { search(state, "2042"); }
void BM_SearchPhoneticMisspelt(benchmark::State &state) { search(state, "fichiet"); }
void BM_SearchFiveTermsMisspelt(benchmark::State &state) {
    search(state, "optoin +fichiet 'ligne de comande'");
}

// Long words: 20 random terms of L letters against 1 MiB of random words
// of L letters (a-z, fixed seed), every word in range of every term and
// no word close to any term, so each pair costs a whole matrix.  L 250
// needs four machine words per row, L 60 one: the long case should cost
// at most about four times the short one.
struct LongWords {
    std::string pattern, text;
};
const LongWords &long_words(int len) {
    static std::map<int, LongWords> made;
    LongWords &w = made[len];
    if (!w.text.empty()) return w;
    std::mt19937 rng(4242 + len);
    auto word = [&](std::string &out) {
        for (int i = 0; i < len; ++i) out += static_cast<char>('a' + rng() % 26);
    };
    for (int k = 0; k < 20; ++k) {
        if (k) w.pattern += ' ';
        word(w.pattern);
    }
    while (w.text.size() < kTextSize) {
        word(w.text);
        w.text += ' ';
    }
    return w;
}
void BM_SearchLongWords(benchmark::State &state) {
    const LongWords &w = long_words(static_cast<int>(state.range(0)));
    std::strcpy(IsoCode, "UTF-8");
    Phonetiseur = Phonex;
    double score = 0;
    for (auto _ : state) score += FuzzySearch(w.pattern.c_str(), w.text.c_str());
    benchmark::DoNotOptimize(score);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(w.text.size()));
}

// Word pairs of 3 to 12 bytes: standard words of the prose against a few
// terms of the same lengths.
struct Pairs {
    std::vector<std::string> words, terms;
};
const Pairs &pairs() {
    static const Pairs p = [] {
        Pairs r;
        const std::string &t = prose();
        std::strcpy(IsoCode, "UTF-8");
        char stdw[udfkit::fuzzy::kStdSize];
        size_t i = 0, n = t.size();
        while (i < n && r.words.size() < 20000) {
            while (i < n && is_delim(t[i])) ++i;
            size_t off = i;
            while (i < n && !is_delim(t[i])) ++i;
            bool over;
            size_t len = udfkit::fuzzy::make_std(udfkit::fuzzy::StdMode::Utf8, t.data() + off, i - off,
                                                 stdw, sizeof stdw, &over);
            if (len >= 3 && len <= 12) r.words.emplace_back(stdw);
        }
        r.terms = {"DUPONT", "FICHIER", "COMMANDE", "REPERTOIRE", "OPTION", "UTILISATEUR", "LIGNE", "AFFICHER"};
        return r;
    }();
    return p;
}

// The two-row programme behind the same interface as LevDistCutOff.
int32_t two_rows(const char *s1, const char *s2, int32_t cut) {
    const int32_t l1 = static_cast<int32_t>(std::strlen(s1)), l2 = static_cast<int32_t>(std::strlen(s2));
    if (l1 == 0) return l2;
    if (l2 == 0) return l1;
    if (l1 > 255 || l2 > 255 || (l1 > l2 ? l1 - l2 : l2 - l1) >= cut) return 1000000;
    return udfkit::fuzzy::lev_two_rows(s1, l1, s2, l2, cut, true);
}

// The phonetic key of every standard word of 3 to 12 bytes.
void BM_PhonexWords(benchmark::State &state) {
    const Pairs &p = pairs();
    char key[udfkit::fuzzy::kKeySize];
    size_t sum = 0;
    for (auto _ : state)
        for (const std::string &w : p.words) sum += std::strlen(Phonex(w.c_str(), key));
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(p.words.size()));
}

// cut: the bound given to both; 255 never fires (the whole matrix is
// computed), small bounds are what a search passes once it has a match.
void BM_LevTwoRows(benchmark::State &state) {
    const Pairs &p = pairs();
    const int32_t cut = static_cast<int32_t>(state.range(0));
    int64_t sum = 0;
    for (auto _ : state)
        for (const std::string &term : p.terms)
            for (const std::string &w : p.words) sum += two_rows(w.c_str(), term.c_str(), cut);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(p.terms.size() * p.words.size()));
}

void BM_LevDistCutOff(benchmark::State &state) {
    const Pairs &p = pairs();
    const int32_t cut = static_cast<int32_t>(state.range(0));
    int64_t sum = 0;
    for (auto _ : state)
        for (const std::string &term : p.terms)
            for (const std::string &w : p.words) sum += LevDistCutOff(w.c_str(), term.c_str(), cut);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(p.terms.size() * p.words.size()));
}

// The same pairs as the search computes them: each term prepared once,
// the words' lengths known.
void BM_LevPrepared(benchmark::State &state) {
    const Pairs &p = pairs();
    const int32_t cut = static_cast<int32_t>(state.range(0));
    int64_t sum = 0;
    for (auto _ : state)
        for (const std::string &term : p.terms) {
            udfkit::fuzzy::LevPattern pat;
            pat.set(term.c_str(), static_cast<int32_t>(term.size()));
            for (const std::string &w : p.words)
                sum += pat.distance(w.c_str(), static_cast<int32_t>(w.size()), cut, true);
        }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(p.terms.size() * p.words.size()));
}

// Upper-case word pairs of 3 to 12 bytes from the prose: half of them
// unrelated (two words drawn apart), half one word against a copy of it 1
// to 3 random edits away (insertions, deletions, substitutions, the copy
// kept to 3 to 12 bytes), in random order.
struct WordPair {
    std::string a, b;
};
const std::vector<WordPair> &edit_pairs() {
    static const std::vector<WordPair> made = [] {
        const std::vector<std::string> &w = pairs().words;
        std::mt19937 rng(1234);
        std::vector<WordPair> r;
        while (r.size() < 40000) {
            const std::string &a = w[rng() % w.size()];
            if (r.size() % 2) {
                r.push_back({a, w[rng() % w.size()]});
                continue;
            }
            std::string b = a;
            for (int e = 1 + static_cast<int>(rng() % 3); e > 0; --e) {
                const size_t at = rng() % (b.size() + 1);
                const char c = static_cast<char>('A' + rng() % 26);
                const unsigned kind = rng() % 3;
                if (kind == 0 && b.size() < 12) b.insert(at, 1, c);
                else if (kind == 1 && b.size() > 3 && at < b.size()) b.erase(at, 1);
                else b[at % b.size()] = c;
            }
            r.push_back({a, b});
        }
        std::shuffle(r.begin(), r.end(), rng);
        return r;
    }();
    return made;
}

// The plain two-row programme without any cut-off: the whole matrix.
int32_t two_rows_plain(const char *s1, const char *s2, int32_t) {
    const int32_t l1 = static_cast<int32_t>(std::strlen(s1)), l2 = static_cast<int32_t>(std::strlen(s2));
    if (l1 == 0 || l2 == 0) return l1 + l2;
    return udfkit::fuzzy::lev_two_rows(s1, l1, s2, l2, 0, false);
}

// LevDistCutOff as on a processor without AVX2.
int32_t lev_any_x86(const char *s1, const char *s2, int32_t cut) {
    const bool avx2 = udfkit::fuzzy::lev_avx2;
    udfkit::fuzzy::lev_avx2 = false;
    const int32_t d = LevDistCutOff(s1, s2, cut);
    udfkit::fuzzy::lev_avx2 = avx2;
    return d;
}

template <int32_t (*Distance)(const char *, const char *, int32_t)>
void BM_EditPairs(benchmark::State &state) {
    const std::vector<WordPair> &pairs = edit_pairs();
    const int32_t cut = static_cast<int32_t>(state.range(0));
    int64_t sum = 0;
    for (auto _ : state)
        for (const WordPair &p : pairs) sum += Distance(p.a.c_str(), p.b.c_str(), cut);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pairs.size()));
}

}  // namespace

BENCHMARK(BM_Floor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchDigits)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchPhonetic)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchFiveTermsPhrase)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchDigitsMisspelt)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchPhoneticMisspelt)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchFiveTermsMisspelt)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchLongWords)->Arg(60)->Arg(250)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PhonexWords)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LevTwoRows)->Arg(255)->Arg(3)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LevDistCutOff)->Arg(255)->Arg(3)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LevPrepared)->Arg(255)->Arg(3)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EditPairs<LevDistCutOff>)->Name("BM_EditPairs/LevDistCutOff")->Arg(3)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EditPairs<lev_any_x86>)->Name("BM_EditPairs/LevDistCutOff_any_x86")->Arg(3)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EditPairs<two_rows>)->Name("BM_EditPairs/two_rows_cut")->Arg(3)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EditPairs<two_rows_plain>)->Name("BM_EditPairs/two_rows_plain")->Arg(3)
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
