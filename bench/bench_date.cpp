// Dates against the C library: date2char vs localtime_r + strftime,
// StrFTime vs strftime, Char2Date vs strptime, and the cost of day number
// <-> parts over a wide range of day numbers in random order.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "runtime/date_internal.hpp"
#include "udfkit/date.h"

namespace {

constexpr size_t kCount = 4096;  // a power of two: index with a mask

struct Setup {
    Setup() {
        setenv("TZ", "Europe/Paris", 1);
        tzset();
        std::mt19937 rng(1810);
        std::uniform_int_distribution<int32_t> recent(58441, 58440 + 24000);  // 1970 ... 2035
        std::uniform_int_distribution<int32_t> wide(-1000000, 1000000);
        for (size_t i = 0; i < kCount; ++i) {
            days.push_back(recent(rng));
            wide_days.push_back(wide(rng));
            narrow_days.push_back(77000 + static_cast<int32_t>(i % 365));
            moments.push_back(static_cast<time_t>(days.back() - 58440) * 86400 + 45296);
            struct tm tm;
            localtime_r(&moments.back(), &tm);
            tms.push_back(tm);
            char buf[32];
            date2char(days.back(), buf);
            texts.emplace_back(buf);
        }
        std::shuffle(narrow_days.begin(), narrow_days.end(), rng);
    }
    std::vector<int32_t> days, wide_days, narrow_days;
    std::vector<time_t> moments;
    std::vector<struct tm> tms;
    std::vector<std::string> texts;
};
const Setup &setup() {
    static const Setup s;
    return s;
}

void BM_date2char(benchmark::State &state) {
    const auto &days = setup().days;
    char buf[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(date2char(days[i++ & (kCount - 1)], buf));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_date2char);

void BM_localtime_r_strftime(benchmark::State &state) {
    const auto &moments = setup().moments;
    char buf[64];
    size_t i = 0;
    for (auto _ : state) {
        struct tm tm;
        localtime_r(&moments[i++ & (kCount - 1)], &tm);
        benchmark::DoNotOptimize(strftime(buf, sizeof buf, "%d/%m/%Y", &tm));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_localtime_r_strftime);

const char *const kTimeFormat = "%d/%m/%Y %H:%M:%S";

void BM_StrFTime(benchmark::State &state) {
    const auto &tms = setup().tms;
    char buf[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(StrFTime(buf, sizeof buf, kTimeFormat, &tms[i++ & (kCount - 1)]));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_StrFTime);

void BM_strftime(benchmark::State &state) {
    const auto &tms = setup().tms;
    char buf[64];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(strftime(buf, sizeof buf, kTimeFormat, &tms[i++ & (kCount - 1)]));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_strftime);

void BM_Char2Date(benchmark::State &state) {
    const auto &texts = setup().texts;
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(Char2Date(texts[i++ & (kCount - 1)].c_str(), "DMY4/"));
}
BENCHMARK(BM_Char2Date);

void BM_strptime(benchmark::State &state) {
    const auto &texts = setup().texts;
    size_t i = 0;
    for (auto _ : state) {
        struct tm tm {};
        benchmark::DoNotOptimize(strptime(texts[i++ & (kCount - 1)].c_str(), "%d/%m/%Y", &tm));
        benchmark::DoNotOptimize(tm);
    }
}
BENCHMARK(BM_strptime);

// Day number -> year, month, day -> day number.  The cost must not depend
// on how far the day lies from 1810, nor on the order of the days.
template <const std::vector<int32_t> Setup::*Days>
void BM_parts_and_back(benchmark::State &state) {
    const auto &days = setup().*Days;
    size_t i = 0;
    for (auto _ : state) {
        const Date n = days[i++ & (kCount - 1)];
        const int32_t y = yeardate(n), m = monthdate(n), d = daydate(n);
        benchmark::DoNotOptimize(mdy2date(m, d, y));
    }
}
BENCHMARK(BM_parts_and_back<&Setup::wide_days>)->Name("BM_parts_and_back/wide_random");
BENCHMARK(BM_parts_and_back<&Setup::narrow_days>)->Name("BM_parts_and_back/one_year_random");

// The three day parts of one day number, one call each, against the
// civil-from-days integer algorithm giving all three at once (days since
// 1 January 1970, 400-year eras, years starting in March).  Each side is
// an op_* function of its own for callgrind_percall.py.
[[gnu::noinline]] int op_day_parts(Date n) { return daydate(n) + monthdate(n) + yeardate(n); }

[[gnu::noinline]] int op_civil_from_days(Date n) {
    const int z = n - 58440 + 719468;
    const int era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int y = static_cast<int>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    return static_cast<int>(d + m) + y + (m <= 2);
}

template <int (*Op)(Date), const std::vector<int32_t> Setup::*Days>
void BM_parts(benchmark::State &state) {
    const auto &days = setup().*Days;
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(Op(days[i++ & (kCount - 1)]));
}
BENCHMARK(BM_parts<op_day_parts, &Setup::wide_days>)->Name("BM_day_parts/wide_random");
BENCHMARK(BM_parts<op_day_parts, &Setup::narrow_days>)->Name("BM_day_parts/one_year_random");
BENCHMARK(BM_parts<op_civil_from_days, &Setup::wide_days>)
    ->Name("BM_civil_from_days/wide_random");
BENCHMARK(BM_parts<op_civil_from_days, &Setup::narrow_days>)
    ->Name("BM_civil_from_days/one_year_random");

}  // namespace

BENCHMARK_MAIN();
