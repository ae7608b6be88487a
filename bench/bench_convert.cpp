// Conversions against the C library doing the bare work, in the same run:
// the dispatch, null tests and library-owned areas should cost little.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "udfkit/convert.h"
#include "udfkit/date.h"

namespace {

void BM_TextToInt_cvt(benchmark::State &st) {
    char text[] = "  123456";
    SqlVar v{UDF_T_CHAR, 0, text};
    for (auto _ : st) benchmark::DoNotOptimize(cvt_int(&v));
}
void BM_TextToInt_strtol(benchmark::State &st) {
    const char *text = "  123456";
    for (auto _ : st) benchmark::DoNotOptimize(std::strtol(text, nullptr, 10));
}

void BM_IntToText_cvt(benchmark::State &st) {
    int32_t x = 123456;
    SqlVar v{UDF_T_INTEGER, 0, &x};
    for (auto _ : st) benchmark::DoNotOptimize(cvt_char(&v));
}
void BM_IntToText_snprintf(benchmark::State &st) {
    char buf[32];
    int32_t x = 123456;
    benchmark::DoNotOptimize(&x);
    for (auto _ : st) {
        std::snprintf(buf, sizeof buf, "%d", x);
        benchmark::DoNotOptimize(buf);
    }
}

// A vchar of 1000 bytes to text: after the first call the area is reused.
void BM_VcharToText_cvt(benchmark::State &st) {
    std::string bytes(1000, 'x');
    VChar vc{1000, bytes.data()};
    SqlVar v{UDF_T_VCHAR, 0, &vc};
    for (auto _ : st) benchmark::DoNotOptimize(cvt_char(&v));
}
void BM_VcharToText_mallocCopy(benchmark::State &st) {
    std::string bytes(1000, 'x');
    for (auto _ : st) {
        char *p = static_cast<char *>(std::malloc(1001));
        std::memcpy(p, bytes.data(), 1000);
        p[1000] = 0;
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}

void BM_TextToDecimal_cvt(benchmark::State &st) {
    char text[] = "  -1234.5678";
    SqlVar v{UDF_T_CHAR, 0, text};
    Decimal d;
    for (auto _ : st) benchmark::DoNotOptimize(cvt_decimal(&v, &d));
}
void BM_TextToDouble_strtod(benchmark::State &st) {
    const char *text = "  -1234.5678";
    for (auto _ : st) benchmark::DoNotOptimize(std::strtod(text, nullptr));
}

void BM_DateToText_cvt(benchmark::State &st) {
    _date_init();
    int32_t day = 77061;
    SqlVar v{UDF_T_DATE, 0, &day};
    for (auto _ : st) benchmark::DoNotOptimize(cvt_char(&v));
}

BENCHMARK(BM_TextToInt_cvt);
BENCHMARK(BM_TextToInt_strtol);
BENCHMARK(BM_IntToText_cvt);
BENCHMARK(BM_IntToText_snprintf);
BENCHMARK(BM_VcharToText_cvt);
BENCHMARK(BM_VcharToText_mallocCopy);
BENCHMARK(BM_TextToDecimal_cvt);
BENCHMARK(BM_TextToDouble_strtod);
BENCHMARK(BM_DateToText_cvt);

}  // namespace

BENCHMARK_MAIN();
