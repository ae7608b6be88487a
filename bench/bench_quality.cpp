// Text quality scores on 1 MiB of French prose, against the floor measured
// in the same run: one pass that counts every byte (the least any
// frequency score must do).  Also random letters (many pairs that the
// reference lacks), a short note per call, and textquality through SQLite.
//   build/bench_quality --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "udfkit/quality.h"

namespace {

constexpr size_t kMiB = 1 << 20;

const char kParagraph[] =
    "Le client M. Dupond habite au 12 rue de la Paix a Paris. Il souhaite recevoir "
    "un devis detaille pour l'installation d'un nouveau systeme de chauffage dans sa "
    "maison de campagne, situee pres de la riviere. Madame Lefevre prefere etre "
    "contactee par courriel ; son dossier est complet depuis le mois dernier. "
    "Les commandes passees avant jeudi seront livrees en fin de semaine, sauf en cas "
    "de retard chez le transporteur. Rappeler le service commercial pour confirmer "
    "les conditions de paiement et la date de la prochaine visite.\n";

const std::string &prose() {
    static const std::string text = [] {
        std::string t;
        while (t.size() < kMiB) t += kParagraph;
        t.resize(kMiB);
        return t;
    }();
    return text;
}

const std::string &random_letters() {
    static const std::string text = [] {
        const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
        std::mt19937 rng(1);
        std::string t(kMiB, ' ');
        for (char &c : t) c = letters[rng() % 52];
        return t;
    }();
    return text;
}

void BM_FloorByteCount(benchmark::State &state) {
    const std::string &t = prose();
    for (auto _ : state) {
        uint64_t count[256] = {};
        for (unsigned char c : t) ++count[c];
        benchmark::DoNotOptimize(count);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.size()));
}

void BM_FreqQuality(benchmark::State &state) {
    const std::string &t = prose();
    for (auto _ : state) benchmark::DoNotOptimize(CpuFreqQuality(t.c_str(), "", state.range(0)));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.size()));
}

void BM_DigramQuality(benchmark::State &state) {
    const std::string &t = prose();
    for (auto _ : state) benchmark::DoNotOptimize(CpuDigramQuality(t.c_str(), "", state.range(0)));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.size()));
}

void BM_DigramQualityRandomLetters(benchmark::State &state) {
    const std::string &t = random_letters();
    for (auto _ : state) benchmark::DoNotOptimize(CpuDigramQuality(t.c_str(), "", state.range(0)));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.size()));
}

void BM_TextQualityShortNote(benchmark::State &state) {
    const char *note = "Madame Lefevre prefere etre contactee par courriel. Dossier complet.";
    for (auto _ : state)
        benchmark::DoNotOptimize(CpuFreqQuality(note, "", 0) + CpuDigramQuality(note, "", 0));
}

void BM_SqliteTextQuality(benchmark::State &state) {
    constexpr int kRows = 100000;
    static sqlite3 *db = [] {
        sqlite3 *d = nullptr;
        sqlite3_open(":memory:", &d);
        sqlite3_enable_load_extension(d, 1);
        char *err = nullptr;
        if (sqlite3_load_extension(d, UDFKIT_SQLITE_EXTENSION, nullptr, &err) != SQLITE_OK) {
            std::fprintf(stderr, "cannot load the extension: %s\n", err ? err : "?");
            std::exit(1);
        }
        sqlite3_exec(d,
                     "create table t(x text);"
                     "with recursive c(i) as (select 1 union all select i + 1 from c where i < 100000)"
                     " insert into t select substr('Le client M. Dupond habite au 12 rue de la Paix"
                     " a Paris. Rappeler avant jeudi.', 1 + i % 23, 30 + i % 41) from c;",
                     nullptr, nullptr, nullptr);
        return d;
    }();
    sqlite3_stmt *st = nullptr;
    sqlite3_prepare_v2(db, "select textquality(x, '', 0) from t", -1, &st, nullptr);
    double sum = 0;
    for (auto _ : state) {
        while (sqlite3_step(st) == SQLITE_ROW) sum += sqlite3_column_double(st, 0);
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * kRows);
}

}  // namespace

BENCHMARK(BM_FloorByteCount)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FreqQuality)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DigramQuality)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DigramQualityRandomLetters)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TextQualityShortNote)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_SqliteTextQuality)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
