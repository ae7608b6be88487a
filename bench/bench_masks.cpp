// Picture masks against the C library's own layouts:
//   _mk_using_nombre on common masks    vs snprintf("%'.2f")
//   _mk_using_date("ddd dd mmm yyyy")   vs gmtime_r + strftime("%a %d %b %Y")
// Each operation sits in a function of its own (op_*) so that callgrind can
// count the instructions of one call:
//   build/bench_masks --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

#include "udfkit/masks.h"

namespace {

const char *const kAmounts[] = {"1234.567", "-42.75", "310", "1250.10", "0.5",
                                "98765.4", "-7", "15.25"};
constexpr int kNumAmounts = sizeof kAmounts / sizeof kAmounts[0];
const double kAmountValues[] = {1234.567, -42.75, 310, 1250.10, 0.5, 98765.4, -7, 15.25};

const char *const kMasks[] = {"###,###.##", "$$$,$$$.##", "(###,###.##)", "&&&&&&"};

constexpr int32_t kFirstDay = 76500;  // 1 June 2019
constexpr int32_t kDayNumberOf1970 = 58440;

__attribute__((noinline)) void op_mk_using_nombre(const char *number, const char *mask,
                                                  char *out) {
    _mk_using_nombre(number, mask, out);
}

__attribute__((noinline)) void op_snprintf(double value, char *out, size_t size) {
    std::snprintf(out, size, "%'.2f", value);
}

__attribute__((noinline)) void op_mk_using_date(int32_t day, char *out) {
    _mk_using_date(day, "ddd dd mmm yyyy", out);
}

__attribute__((noinline)) void op_strftime(int32_t day, char *out, size_t size) {
    const time_t t = static_cast<time_t>(day - kDayNumberOf1970) * 86400;
    struct tm tm;
    gmtime_r(&t, &tm);
    std::strftime(out, size, "%a %d %b %Y", &tm);
}

void BM_mk_using_nombre(benchmark::State &state) {
    const char *mask = kMasks[state.range(0)];
    char out[128];
    int i = 0;
    for (auto _ : state) {
        op_mk_using_nombre(kAmounts[i], mask, out);
        benchmark::DoNotOptimize(out);
        if (++i == kNumAmounts) i = 0;
    }
    state.SetLabel(mask);
}
BENCHMARK(BM_mk_using_nombre)->DenseRange(0, 3);

void BM_snprintf_grouped(benchmark::State &state) {
    char out[128];
    int i = 0;
    for (auto _ : state) {
        op_snprintf(kAmountValues[i], out, sizeof out);
        benchmark::DoNotOptimize(out);
        if (++i == kNumAmounts) i = 0;
    }
}
BENCHMARK(BM_snprintf_grouped);

void BM_mk_using_date(benchmark::State &state) {
    char out[64];
    int32_t day = kFirstDay;
    for (auto _ : state) {
        op_mk_using_date(day, out);
        benchmark::DoNotOptimize(out);
        if (++day == kFirstDay + 1000) day = kFirstDay;
    }
}
BENCHMARK(BM_mk_using_date);

void BM_strftime(benchmark::State &state) {
    char out[64];
    int32_t day = kFirstDay;
    for (auto _ : state) {
        op_strftime(day, out, sizeof out);
        benchmark::DoNotOptimize(out);
        if (++day == kFirstDay + 1000) day = kFirstDay;
    }
}
BENCHMARK(BM_strftime);

}  // namespace

BENCHMARK_MAIN();
