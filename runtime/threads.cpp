// The worker-thread pool and the lock wrappers.
//
// Choices of this implementation: a worker count of 0 or below -1 gives a
// pool of one worker (a pool needs at least one); a negative scratch size
// means no scratch buffer; if a worker thread cannot be created the pool
// keeps the workers created so far (a pool whose first thread fails runs
// every job on the caller's thread); ThreadsEnd joins every exited thread,
// so nothing of a pool outlives it.
#include "udfkit/threads.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

extern "C" {
UDFKIT_API int32_t JobBlocSize = 1;
UDFKIT_API int32_t NumCpu = 1;
}

namespace {

constexpr int32_t kIdle = 0, kWorking = 1, kExited = 2, kStop = 3;
constexpr int32_t kMaxBlock = 10;

int32_t load_state(const ThreadWorker *w) { return __atomic_load_n(&w->state, __ATOMIC_SEQ_CST); }
void store_state(ThreadWorker *w, int32_t s) { __atomic_store_n(&w->state, s, __ATOMIC_SEQ_CST); }

void wait_sem(sem_t *s) {
    while (sem_wait(s) != 0 && errno == EINTR) {
    }
}

// The hand-out holds the mutex for a few instructions only, so a worker
// that finds it taken retries for a moment before sleeping in the kernel:
// a sleep and wake-up costs far more than the whole critical section.
// While it waits it reads the lock word (where the C library's layout is
// known) and only tries for the lock when it looks free, so that the
// holder keeps the cache line of the lock and the cursor to itself.
bool looks_free(pthread_mutex_t *m) {
#if defined(__GLIBC__)
    return __atomic_load_n(&m->__data.__lock, __ATOMIC_RELAXED) == 0;
#else
    (void)m;
    return true;
#endif
}

void lock_handout(pthread_mutex_t *m) {
    for (int i = 0; i < 200; ++i) {
        if (looks_free(m) && pthread_mutex_trylock(m) == 0) return;
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }
    pthread_mutex_lock(m);
}

// The fields a run's hand-out reads and writes (fn, mutex, items, next
// and total) span 64 bytes of the record.  Placed so that they share one
// cache line, the lock and the cursor travel between the workers' caches
// as one line per grab instead of two.
constexpr size_t kLine = 64;
constexpr size_t kPoolSkew = (kLine - offsetof(ThreadPool, fn) % kLine) % kLine;
static_assert(offsetof(ThreadPool, total) + sizeof(int32_t) - offsetof(ThreadPool, fn) <= kLine);
constexpr size_t kPoolBlock = (kPoolSkew + sizeof(ThreadPool) + kLine - 1) / kLine * kLine;

ThreadPool *alloc_pool() {
    void *base = std::aligned_alloc(kLine, kPoolBlock);
    if (!base) return nullptr;
    std::memset(base, 0, kPoolBlock);
    return reinterpret_cast<ThreadPool *>(static_cast<char *>(base) + kPoolSkew);
}

void free_pool(ThreadPool *pool) { std::free(reinterpret_cast<char *>(pool) - kPoolSkew); }

// Asks for the cache line at p in the state that allows writing.
inline void prefetch_for_write(const void *p) {
#if defined(__x86_64__)
    // (a no-op on the processors that do not have it)
    asm volatile("prefetchw %0" : : "m"(*static_cast<const char *>(p)));
#else
    __builtin_prefetch(p, 1);
#endif
}

void *ThreadRun(void *arg) {
    auto *w = static_cast<ThreadWorker *>(arg);
    ThreadPool *pool = w->pool;
    // Fixed for the worker's life; kept here so the loop never reads the
    // worker record, whose cache line the neighbouring worker writes.
    const bool backwards = (w->cpu & 1) != 0;
    void *const scratch = w->scratch;
    void *block[kMaxBlock];
    for (;;) {
        wait_sem(&w->start);
        if (load_state(w) == kStop) {
            store_state(w, kExited);
            return nullptr;
        }
        store_state(w, kWorking);
        for (;;) {
            lock_handout(&pool->mutex);
            if (pool->next >= pool->total) {
                pthread_mutex_unlock(&pool->mutex);
                store_state(w, kIdle);
                sem_post(&w->done);
                break;
            }
            int32_t k = __atomic_load_n(&JobBlocSize, __ATOMIC_RELAXED);
            if (k > pool->total - pool->next) k = pool->total - pool->next;
            if (k > kMaxBlock) k = kMaxBlock;
            if (k < 1) k = 1;
            void *const *taken = pool->items + pool->next;
            ThreadJob fn = pool->fn;
            pool->next += k;
            if (pool->next == pool->total) sem_post(&pool->batchDone);
            pthread_mutex_unlock(&pool->mutex);
            // The block's item pointers are copied before any of its jobs
            // runs, as under the lock, but with the lock already free: the
            // array stays as it is while its run lasts.
            std::memcpy(block, taken, sizeof(void *) * k);
            // The last job of the block runs while the line of the lock and
            // the cursor comes over for the next grab.
            if (backwards) {
                for (int32_t i = k; i-- > 1;) fn(block[i], scratch);
                prefetch_for_write(&pool->next);
                fn(block[0], scratch);
            } else {
                for (int32_t i = 0; i < k - 1; ++i) fn(block[i], scratch);
                prefetch_for_write(&pool->next);
                fn(block[k - 1], scratch);
            }
            w->processed += k;
        }
    }
}

}  // namespace

extern "C" {

UDFKIT_API ThreadPool *ThreadsInit(int32_t nthreads, int32_t size) {
    long cpus = sysconf(_SC_NPROCESSORS_ONLN);
    NumCpu = cpus < 1 ? 1 : static_cast<int32_t>(cpus > INT32_MAX ? INT32_MAX : cpus);
    int32_t n = nthreads == -1 ? NumCpu : nthreads;
    if (n < 1) n = 1;
    const size_t scratch = size > 0 ? static_cast<size_t>(size) : 0;

    ThreadPool *pool = alloc_pool();
    if (!pool) return nullptr;
    auto *workers = static_cast<ThreadWorker *>(std::calloc(static_cast<size_t>(n), sizeof(ThreadWorker)));
    if (!workers || pthread_mutex_init(&pool->mutex, nullptr) != 0) {
        std::free(workers);
        free_pool(pool);
        return nullptr;
    }
    if (scratch) pool->scratch = std::calloc(1, scratch);
    sem_init(&pool->batchDone, 0, 0);
    pool->workers = workers;

    int32_t created = 0;
    for (int32_t i = 0; i < n; ++i) {
        ThreadWorker *w = &workers[i];
        w->pool = pool;
        if (scratch) w->scratch = std::calloc(1, scratch);
        w->state = kIdle;
        w->cpu = i % NumCpu;
        w->processed = 0;
        sem_init(&w->start, 0, 0);
        sem_init(&w->done, 0, 0);
        if (pthread_create(&w->thread, nullptr, ThreadRun, w) != 0) {
            w->thread = 0;  // no thread: ThreadsEnd leaves this record alone
            break;
        }
        ++created;
    }
    // Keep the workers that exist; at least one record, so a pool whose
    // threads all failed runs every job on the caller's thread.
    pool->nthreads = created > 0 ? created : 1;
    for (int32_t i = pool->nthreads; i < n; ++i) {
        sem_destroy(&workers[i].start);
        sem_destroy(&workers[i].done);
        std::free(workers[i].scratch);
        workers[i].scratch = nullptr;
    }
    return pool;
}

UDFKIT_API int32_t ThreadsRun(ThreadPool *pool, ThreadJob fn, void **items, int32_t count,
                              int32_t wait) {
    if (!pool || !fn || count <= 0) return 0;
    if (pool->nthreads == 1 || count == 1) {
        for (int32_t i = 0; i < count; ++i) fn(items[i], pool->scratch);
        return 0;
    }
    pthread_mutex_lock(&pool->mutex);
    pool->fn = fn;
    pool->items = items;
    pool->next = 0;
    pool->total = count;
    pthread_mutex_unlock(&pool->mutex);

    const int32_t q = count / pool->nthreads;
    __atomic_store_n(&JobBlocSize, q == 0 ? 1 : (q <= kMaxBlock ? q : kMaxBlock), __ATOMIC_RELAXED);

    const int32_t m = pool->nthreads < count ? pool->nthreads : count;
    for (int32_t i = m; i-- > 0;) {
        store_state(&pool->workers[i], kWorking);
        sem_post(&pool->workers[i].start);
    }
    if (!wait) return 0;

    wait_sem(&pool->batchDone);
    for (bool waited = true; waited;) {
        waited = false;
        for (int32_t i = 0; i < m; ++i) {
            if (load_state(&pool->workers[i]) != kIdle) {
                wait_sem(&pool->workers[i].done);
                waited = true;
            }
        }
    }
    return 0;
}

UDFKIT_API int32_t ThreadsWait(ThreadPool *pool) {
    if (!pool) return 0;
    for (int32_t i = 0; i < pool->nthreads;) {
        if (load_state(&pool->workers[i]) != kIdle) {
            wait_sem(&pool->workers[i].done);
            i = 0;  // start the scan again from the first worker
        } else {
            ++i;
        }
    }
    return 0;
}

UDFKIT_API void ThreadsEnd(ThreadPool *pool) {
    if (!pool) return;
    for (int32_t i = 0; i < pool->nthreads; ++i) {
        ThreadWorker *w = &pool->workers[i];
        if (!w->thread) continue;
        store_state(w, kStop);
        sem_post(&w->start);
        while (load_state(w) != kExited) sched_yield();
        pthread_join(w->thread, nullptr);
    }
    pthread_mutex_destroy(&pool->mutex);
    sem_destroy(&pool->batchDone);
    for (int32_t i = 0; i < pool->nthreads; ++i) {
        sem_destroy(&pool->workers[i].start);
        sem_destroy(&pool->workers[i].done);
        std::free(pool->workers[i].scratch);
    }
    std::free(pool->scratch);
    std::free(pool->workers);
    free_pool(pool);
}

UDFKIT_API int ThreadYield(void) { return sched_yield(); }

UDFKIT_API void ThreadSpinLockInit(int32_t *lock) { __atomic_store_n(lock, 0, __ATOMIC_RELEASE); }

UDFKIT_API void ThreadSpinLock(int32_t *lock) {
    while (__atomic_exchange_n(lock, 1, __ATOMIC_SEQ_CST) != 0) ThreadYield();
}

UDFKIT_API void ThreadSpinUnlock(int32_t *lock) { __atomic_store_n(lock, 0, __ATOMIC_RELEASE); }

UDFKIT_API int ThreadMutexInit(pthread_mutex_t *mutex) { return pthread_mutex_init(mutex, nullptr); }
UDFKIT_API int ThreadMutexLock(pthread_mutex_t *mutex) { return pthread_mutex_lock(mutex); }
UDFKIT_API int ThreadMutexTryLock(pthread_mutex_t *mutex) { return pthread_mutex_trylock(mutex); }
UDFKIT_API int ThreadMutexUnlock(pthread_mutex_t *mutex) { return pthread_mutex_unlock(mutex); }

}  // extern "C"
