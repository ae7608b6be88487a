// Finding a customer by a misspelt name: top-1 accuracy (ties are misses)
// and time per row of fuzzyrank and fuzzysearch on the same labelled set
// (bench/names_set.hpp), in one run.
//   build/bench_names --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
//   build/bench_names --dump DIR   writes DIR/names.tsv and DIR/queries.tsv
//                                  (query, intended name) for other tools
#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>

#include "bench/names_set.hpp"
#include "fuzzy/rank.hpp"
#include "udfkit/fuzzy.h"

namespace {

using udfkit::bench::NameSet;

const NameSet &name_set() {
    static const NameSet set = udfkit::bench::make_name_set(UDFKIT_SOURCE_DIR "/data");
    return set;
}

double rank_score(const std::string &q, const std::string &t) {
    return udfkit::fuzzy::name_rank(q.data(), q.size(), t.data(), t.size());
}

double search_score(const std::string &q, const std::string &t) {
    return FuzzySearch(q.c_str(), t.c_str());
}

template <double (*Score)(const std::string &, const std::string &)>
void BM_Top1(benchmark::State &state) {
    double acc = 0;
    for (auto _ : state) acc = udfkit::bench::top1(name_set(), Score);
    state.counters["top1"] = acc;
}
BENCHMARK(BM_Top1<rank_score>)->Name("Top1/fuzzyrank")->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_Top1<search_score>)->Name("Top1/fuzzysearch")->Iterations(1)->Unit(benchmark::kSecond);

// One query against every row, as `order by score desc` does.
template <double (*Score)(const std::string &, const std::string &)>
void BM_PerRow(benchmark::State &state) {
    const NameSet &set = name_set();
    size_t q = 0;
    double sink = 0;
    for (auto _ : state) {
        const std::string &query = set.queries[q++ % set.queries.size()];
        for (const std::string &row : set.names) sink += Score(query, row);
    }
    benchmark::DoNotOptimize(sink);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * set.names.size()));
}
BENCHMARK(BM_PerRow<rank_score>)->Name("PerRow/fuzzyrank");
BENCHMARK(BM_PerRow<search_score>)->Name("PerRow/fuzzysearch");

void dump(const std::string &dir) {
    const NameSet &set = name_set();
    std::ofstream names(dir + "/names.tsv"), queries(dir + "/queries.tsv");
    for (size_t i = 0; i < set.names.size(); ++i) names << i + 1 << '\t' << set.names[i] << '\n';
    for (size_t i = 0; i < set.queries.size(); ++i)
        queries << i + 1 << '\t' << set.queries[i] << '\t' << set.target[i] + 1 << '\n';
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 3 && std::strcmp(argv[1], "--dump") == 0) {
        dump(argv[2]);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
