// select upper(x) over 1M rows: the library's upper through the SQLite
// extension against SQLite's built-in upper(), in the same run.
//   build/bench_upper --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kRows = 1000000;

sqlite3 *open_db(bool with_extension) {
    sqlite3 *db = nullptr;
    sqlite3_open(":memory:", &db);
    if (with_extension) {
        sqlite3_enable_load_extension(db, 1);
        char *err = nullptr;
        if (sqlite3_load_extension(db, UDFKIT_SQLITE_EXTENSION, nullptr, &err) != SQLITE_OK) {
            std::fprintf(stderr, "cannot load the extension: %s\n", err ? err : "?");
            std::exit(1);
        }
    }
    // Texts of 10 to 30 characters, mixed case.
    sqlite3_exec(db,
                 "create table t(x text);"
                 "with recursive c(i) as (select 1 union all select i + 1 from c where i < 1000000)"
                 " insert into t select substr('Le Client M. Dupond habite au 12 rue de la Paix', 1 + i % 17, 10 + i % 21)"
                 " from c;",
                 nullptr, nullptr, nullptr);
    return db;
}

void scan(benchmark::State &state, sqlite3 *db) {
    sqlite3_stmt *st = nullptr;
    sqlite3_prepare_v2(db, "select upper(x) from t", -1, &st, nullptr);
    int64_t bytes = 0;
    for (auto _ : state) {
        while (sqlite3_step(st) == SQLITE_ROW) bytes += sqlite3_column_bytes(st, 0);
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations() * kRows);
}

void BM_UpperBuiltin(benchmark::State &state) {
    static sqlite3 *db = open_db(false);
    scan(state, db);
}

void BM_UpperUdfkit(benchmark::State &state) {
    static sqlite3 *db = open_db(true);
    scan(state, db);
}

}  // namespace

BENCHMARK(BM_UpperBuiltin)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UpperUdfkit)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
