// The worker pool and the lock wrappers (also run under ThreadSanitizer).
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "udfkit/threads.h"

namespace {

struct Item {
    std::atomic<int> hits{0};
    std::atomic<pthread_t> by{};
    std::atomic<void *> scratch{nullptr};
};

int count_job(void *item, void *scratch) {
    auto *it = static_cast<Item *>(item);
    it->hits.fetch_add(1, std::memory_order_relaxed);
    it->by.store(pthread_self(), std::memory_order_relaxed);
    it->scratch.store(scratch, std::memory_order_relaxed);
    return 0;
}

struct Batch {
    std::vector<Item> items;
    std::vector<void *> ptrs;
    explicit Batch(size_t n) : items(n) {
        for (auto &i : items) ptrs.push_back(&i);
    }
    bool each_once() const {
        for (const auto &i : items)
            if (i.hits.load() != 1) return false;
        return true;
    }
};

int32_t processed(const ThreadPool *p) {
    int32_t sum = 0;
    for (int32_t i = 0; i < p->nthreads; ++i) sum += p->workers[i].processed;
    return sum;
}

TEST(ThreadPool, EveryItemOnceOnTheNeededWorkers) {
    const struct { int32_t workers, items, block; } cases[] = {
        {8, 3, 1}, {4, 100, 10}, {4, 25, 6}, {2, 5, 2}, {4, 4, 1}, {2, 21, 10}, {3, 2000000, 10},
    };
    for (const auto &c : cases) {
        ThreadPool *pool = ThreadsInit(c.workers, 16);
        ASSERT_NE(pool, nullptr);
        ASSERT_EQ(pool->nthreads, c.workers);
        Batch r(c.items);
        EXPECT_EQ(ThreadsRun(pool, count_job, r.ptrs.data(), c.items, 1), 0);
        EXPECT_TRUE(r.each_once()) << c.workers << " workers, " << c.items << " items";
        EXPECT_EQ(JobBlocSize, c.block) << c.workers << " workers, " << c.items << " items";
        EXPECT_EQ(processed(pool), c.items);
        // Only the workers the blocks need are woken.
        for (int32_t w = (c.items + c.block - 1) / c.block; w < c.workers; ++w)
            EXPECT_EQ(pool->workers[w].processed, 0) << w;
        for (const auto &i : r.items) {
            EXPECT_NE(i.by.load(), pthread_self());  // ran on a worker ...
            bool own = false;                       // ... with that worker's scratch
            for (int32_t w = 0; w < pool->nthreads; ++w) own |= i.scratch.load() == pool->workers[w].scratch;
            EXPECT_TRUE(own);
        }
        ThreadsEnd(pool);
    }
}

TEST(ThreadPool, CallerThreadForOneWorkerOrOneItem) {
    for (int32_t wait : {0, 1}) {
        ThreadPool *one = ThreadsInit(1, 32);
        ThreadPool *many = ThreadsInit(4, 32);
        Batch a(50), b(1);
        ThreadsRun(one, count_job, a.ptrs.data(), 50, wait);
        ThreadsRun(many, count_job, b.ptrs.data(), 1, wait);
        EXPECT_TRUE(a.each_once());
        EXPECT_TRUE(b.each_once());
        for (const auto &i : a.items) {
            EXPECT_EQ(i.by.load(), pthread_self());
            EXPECT_EQ(i.scratch.load(), one->scratch);
        }
        EXPECT_EQ(b.items[0].by.load(), pthread_self());
        EXPECT_EQ(b.items[0].scratch.load(), many->scratch);
        EXPECT_EQ(processed(many), 0);
        ThreadsEnd(one);
        ThreadsEnd(many);
    }
}

TEST(ThreadPool, WorkerCounts) {
    for (int32_t asked : {-1, 0, -100}) {  // -1: one per processor; 0 or fewer: one
        ThreadPool *p = ThreadsInit(asked, 0);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->nthreads, asked == -1 ? NumCpu : 1) << asked;
        EXPECT_EQ(p->scratch, nullptr);
        ThreadsEnd(p);
    }
    EXPECT_EQ(NumCpu, static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
}

// Runs of random sizes, waited or not (an unwaited run leaves a post that
// must not end the next waited run early).
TEST(ThreadPool, StressRandomRuns) {
    std::mt19937 rng(12345);
    for (int32_t workers : {2, 3, 7}) {
        ThreadPool *pool = ThreadsInit(workers, 0);
        for (int run = 0; run < 1000; ++run) {
            const int32_t n = static_cast<int32_t>(rng() % 700);
            const bool wait = rng() % 3 != 0;
            Batch r(n);
            ThreadsRun(pool, count_job, r.ptrs.data(), n, wait);
            if (!wait) ThreadsWait(pool);
            ASSERT_TRUE(r.each_once()) << "run " << run << ", " << n << " items";
        }
        EXPECT_EQ(ThreadsWait(pool), 0);  // an idle pool returns at once
        ThreadsEnd(pool);
    }
}

TEST(Locks, SpinLockExcludes) {
    int32_t lock = 7;
    ThreadSpinLockInit(&lock);
    EXPECT_EQ(lock, 0);
    long counter = 0;
    std::vector<std::thread> ts;
    for (int t = 0; t < 4; ++t)
        ts.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                ThreadSpinLock(&lock);
                ++counter;
                ThreadSpinUnlock(&lock);
            }
        });
    for (auto &t : ts) t.join();
    EXPECT_EQ(counter, 80000);
}

}  // namespace
