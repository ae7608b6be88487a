// select upper(x) and select count(upper(x)) over 1M rows: the library's
// upper through the SQLite extension against SQLite's built-in upper(), in
// the same run; and the least any function behind the host interface
// does, registered straight with SQLite: the argument copied into the
// function's buffer (its pop), the bytes mapped through the locale's
// table, the result handed over as a copy (its push).
//   build/bench_upper --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kRows = 1000000;

void copy_upper(sqlite3_context *ctx, int, sqlite3_value **argv) {
    char buf[2048];
    const auto *text = sqlite3_value_text(argv[0]);
    const int n = text ? std::min(sqlite3_value_bytes(argv[0]), 2047) : 0;
    std::memcpy(buf, text ? reinterpret_cast<const char *>(text) : "", static_cast<size_t>(n));
    buf[n] = '\0';
    const int32_t *table = *__ctype_toupper_loc();
    for (auto *p = reinterpret_cast<unsigned char *>(buf); *p; ++p)
        *p = static_cast<unsigned char>(table[*p]);
    sqlite3_result_text(ctx, buf, -1, SQLITE_TRANSIENT);
}

sqlite3 *open_db(bool with_extension) {
    sqlite3 *db = nullptr;
    sqlite3_open(":memory:", &db);
    if (!with_extension)
        sqlite3_create_function(db, "copy_upper", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                                copy_upper, nullptr, nullptr);
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

void scan(benchmark::State &state, sqlite3 *db, const char *sql) {
    sqlite3_stmt *st = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
    int64_t bytes = 0;
    for (auto _ : state) {
        while (sqlite3_step(st) == SQLITE_ROW) bytes += sqlite3_column_bytes(st, 0);
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations() * kRows);
}

sqlite3 *plain_db() {
    static sqlite3 *db = open_db(false);
    return db;
}
sqlite3 *extension_db() {
    static sqlite3 *db = open_db(true);
    return db;
}

void BM_UpperBuiltin(benchmark::State &state) { scan(state, plain_db(), "select upper(x) from t"); }
void BM_UpperUdfkit(benchmark::State &state) { scan(state, extension_db(), "select upper(x) from t"); }
void BM_CountUpperBuiltin(benchmark::State &state) {
    scan(state, plain_db(), "select count(upper(x)) from t");
}
void BM_CountUpperUdfkit(benchmark::State &state) {
    scan(state, extension_db(), "select count(upper(x)) from t");
}
void BM_CountCopyUpper(benchmark::State &state) {
    scan(state, plain_db(), "select count(copy_upper(x)) from t");
}

}  // namespace

BENCHMARK(BM_UpperBuiltin)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UpperUdfkit)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CountUpperBuiltin)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CountUpperUdfkit)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CountCopyUpper)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
