// The worker pool against OpenMP's dynamic schedule (chunks of 10) on the
// same jobs, over 1M items, on all online processors.
//   build/bench_threads --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <omp.h>
#include <pthread.h>

#include <ctime>
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

double cpu_ns(clockid_t clock) {
    timespec t;
    clock_gettime(clock, &t);
    return t.tv_sec * 1e9 + t.tv_nsec;
}
double thread_cpu_ns() { return cpu_ns(CLOCK_THREAD_CPUTIME_ID); }

// CPU time of every thread of the process per run, in milliseconds: the
// work itself plus whatever the hand-out, spinning and waking cost.  It
// moves much less than the real time when other processes share the
// machine.
void report_cpu(benchmark::State &state, double cpu0) {
    state.counters["cpu_ms"] = (cpu_ns(CLOCK_PROCESS_CPUTIME_ID) - cpu0) / 1e6 /
                               static_cast<double>(state.iterations());
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

// Spins giving a job of about `ns` nanoseconds: the job run over the
// items on one thread, as the pool runs it, timed in this thread's CPU
// time (the fastest of several tries, so that time slices lost to other
// processes do not shorten the job).
int calibrate(double ns) {
    Data &d = data();
    constexpr int kSample = 20000;
    int spins = 4;
    for (;;) {
        g_spins = spins;
        double per = 1e300;
        for (int t = 0; t < 5; ++t) {
            const double t0 = thread_cpu_ns();
            for (int i = 0; i < kSample; ++i) job(d.ptrs[i], nullptr);
            const double dt = (thread_cpu_ns() - t0) / kSample;
            if (dt < per) per = dt;
        }
        if (per >= ns || spins > (1 << 24)) return static_cast<int>(spins * ns / per) + 1;
        spins *= 2;
    }
}

void set_job(benchmark::State &state) {
    static int spins50 = calibrate(50), spins5000 = calibrate(5000);
    const int64_t ns = state.range(0);
    g_spins = ns == 0 ? 0 : ns == 50 ? spins50 : spins5000;
}

void BM_ThreadsRun(benchmark::State &state) {
    set_job(state);
    Data &d = data();
    ThreadPool *pool = ThreadsInit(-1, 0);
    const int n = kItems;
    const double cpu0 = cpu_ns(CLOCK_PROCESS_CPUTIME_ID);
    for (auto _ : state) ThreadsRun(pool, job, d.ptrs.data(), n, 1);
    report_cpu(state, cpu0);
    ThreadsEnd(pool);
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_OpenMPDynamic10(benchmark::State &state) {
    set_job(state);
    Data &d = data();
    const int n = kItems;
    omp_set_num_threads(static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    const double cpu0 = cpu_ns(CLOCK_PROCESS_CPUTIME_ID);
    for (auto _ : state) {
        void **items = d.ptrs.data();
#pragma omp parallel for schedule(dynamic, 10)
        for (int i = 0; i < n; ++i) job(items[i], nullptr);
    }
    report_cpu(state, cpu0);
    state.SetItemsProcessed(state.iterations() * n);
}

// What the pool's rules cost against the anchor, on OpenMP's threads:
// the job called through a pointer as the pool calls it, with OpenMP's
// dynamic schedule, or with blocks of 10 taken from a cursor that one
// atomic addition advances, or under a POSIX mutex as the pool must.
enum class Cursor { kOpenMP, kFetchAdd, kMutex };

template <Cursor kind>
void BM_Floor(benchmark::State &state) {
    set_job(state);
    Data &d = data();
    const int n = kItems;
    ThreadJob volatile through = job;
    omp_set_num_threads(static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    const double cpu0 = cpu_ns(CLOCK_PROCESS_CPUTIME_ID);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        void **items = d.ptrs.data();
        ThreadJob fn = through;
        if constexpr (kind == Cursor::kOpenMP) {
#pragma omp parallel for schedule(dynamic, 10)
            for (int i = 0; i < n; ++i) fn(items[i], nullptr);
        } else {
            alignas(64) int next = 0;
#pragma omp parallel
            for (;;) {
                int start;
                if constexpr (kind == Cursor::kFetchAdd) {
                    start = __atomic_fetch_add(&next, 10, __ATOMIC_RELAXED);
                } else {
                    pthread_mutex_lock(&mutex);
                    start = next;
                    next += 10;
                    pthread_mutex_unlock(&mutex);
                }
                if (start >= n) break;
                for (int i = start; i < start + 10 && i < n; ++i) fn(items[i], nullptr);
            }
        }
    }
    report_cpu(state, cpu0);
    state.SetItemsProcessed(state.iterations() * n);
}

}  // namespace

// Argument: the job's cost in nanoseconds (50 or 5000; 0 is an empty job,
// which leaves the cost of handing the items out).
BENCHMARK(BM_ThreadsRun)->Arg(0)->Arg(50)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenMPDynamic10)->Arg(0)->Arg(50)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Floor<Cursor::kOpenMP>)->Name("BM_FloorOpenMPThroughPointer")->Arg(0)->Arg(50)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Floor<Cursor::kFetchAdd>)->Name("BM_FloorFetchAddCursor")->Arg(0)->Arg(50)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Floor<Cursor::kMutex>)->Name("BM_FloorMutexCursor")->Arg(0)->Arg(50)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
