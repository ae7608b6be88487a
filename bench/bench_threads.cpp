// The worker pool against OpenMP's dynamic schedule (chunks of 10) on the
// same jobs, over 1M items, on all online processors.
//   build/bench_threads --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <omp.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "udfkit/threads.h"

namespace {

constexpr int kItems = 1000000;

struct Item {
    uint64_t seed;
    uint64_t out;
};

// A job of about `spins` dependent multiply-adds.
inline uint64_t work(uint64_t x, int spins) {
    for (int i = 0; i < spins; ++i) {
        x = x * 6364136223846793005ull + 1442695040888963407ull;
        asm volatile("" : "+r"(x));
    }
    return x;
}

int g_spins = 1;

int job(void *item, void *) {
    auto *it = static_cast<Item *>(item);
    it->out = work(it->seed, g_spins);
    return 0;
}

// Spins giving a job of about `ns` nanoseconds on one core.
int calibrate(double ns) {
    int spins = 16;
    for (;;) {
        auto t0 = std::chrono::steady_clock::now();
        uint64_t x = 1;
        for (int i = 0; i < 20000; ++i) x = work(x, spins);
        benchmark::DoNotOptimize(x);
        double per = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count() / 20000;
        if (per >= ns || spins > (1 << 24)) return static_cast<int>(spins * ns / per) + 1;
        spins *= 2;
    }
}

struct Data {
    std::vector<Item> items;
    std::vector<void *> ptrs;
    Data() : items(kItems) {
        for (int i = 0; i < kItems; ++i) {
            items[i].seed = i;
            ptrs.push_back(&items[i]);
        }
    }
};

Data &data() {
    static Data d;
    return d;
}

void set_job(benchmark::State &state) {
    static int spins50 = calibrate(50), spins5000 = calibrate(5000);
    g_spins = state.range(0) == 50 ? spins50 : spins5000;
}

void BM_ThreadsRun(benchmark::State &state) {
    set_job(state);
    Data &d = data();
    ThreadPool *pool = ThreadsInit(-1, 0);
    const int n = kItems;
    for (auto _ : state) ThreadsRun(pool, job, d.ptrs.data(), n, 1);
    ThreadsEnd(pool);
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_OpenMPDynamic10(benchmark::State &state) {
    set_job(state);
    Data &d = data();
    const int n = kItems;
    omp_set_num_threads(static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    for (auto _ : state) {
        void **items = d.ptrs.data();
#pragma omp parallel for schedule(dynamic, 10)
        for (int i = 0; i < n; ++i) job(items[i], nullptr);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

}  // namespace

// Argument: the job's cost in nanoseconds (50 or 5000).
BENCHMARK(BM_ThreadsRun)->Arg(50)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenMPDynamic10)->Arg(50)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
