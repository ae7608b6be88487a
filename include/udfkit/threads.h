/*
 * udfkit worker-thread pool and lock wrappers.
 *
 * A pool applies a job function to every item of an array of item pointers,
 * spreading the items over its workers in blocks of at most 10 taken from a
 * shared cursor.  Calling order: ThreadsInit, any number of ThreadsRun (each
 * waited for, or followed by ThreadsWait before the next), ThreadsEnd on an
 * idle pool.
 */
#ifndef UDFKIT_THREADS_H
#define UDFKIT_THREADS_H

#include <pthread.h>
#include <semaphore.h>
#include <stdint.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A job: called as fn(item, scratch); its result is ignored. */
typedef int (*ThreadJob)(void *item, void *scratch);

struct ThreadPool;

typedef struct ThreadWorker {
    int32_t state;           /* 0 idle, 1 working, 2 exited, 3 stop requested (atomic) */
    int32_t cpu;             /* worker index modulo NumCpu; odd: blocks run backwards */
    pthread_t thread;
    sem_t start;             /* posted to wake the worker for a run or a stop */
    sem_t done;              /* posted each time the worker goes idle */
    struct ThreadPool *pool;
    void *scratch;           /* the worker's scratch buffer, null for size 0 */
    int32_t processed;       /* items processed since creation */
} ThreadWorker;

typedef struct ThreadPool {
    int32_t nthreads;
    ThreadWorker *workers;
    sem_t batchDone;         /* posted by the worker that takes the last item */
    ThreadJob fn;
    pthread_mutex_t mutex;   /* guards items, next and total */
    void **items;
    int32_t next;
    int32_t total;
    void *scratch;           /* used when a run executes on the caller's thread */
} ThreadPool;

/* Items a worker takes per grab (1 to 10), shared by all pools. */
UDFKIT_API extern int32_t JobBlocSize;
/* Online processors, taken by every ThreadsInit. */
UDFKIT_API extern int32_t NumCpu;

/* A pool of nthreads workers (-1: one per online processor), each with a
 * scratch buffer of size bytes (none for 0); null if its mutex cannot be
 * initialised. */
UDFKIT_API ThreadPool *ThreadsInit(int32_t nthreads, int32_t size);
/* fn applied once to each of the count items.  A pool of one worker, or a
 * single item, runs on the caller's thread with the pool's scratch buffer.
 * With wait 0 the call returns at once and ThreadsWait must follow before
 * the next run.  Both return 0. */
UDFKIT_API int32_t ThreadsRun(ThreadPool *pool, ThreadJob fn, void **items, int32_t count,
                              int32_t wait);
UDFKIT_API int32_t ThreadsWait(ThreadPool *pool);
/* Stops the workers of an idle pool and releases everything it holds. */
UDFKIT_API void ThreadsEnd(ThreadPool *pool);
/* The result of sched_yield. */
UDFKIT_API int ThreadYield(void);

/* A spin lock on a 32-bit word (0: free) that yields the processor between
 * attempts; the unlock stores 0 with release ordering. */
UDFKIT_API void ThreadSpinLockInit(int32_t *lock);
UDFKIT_API void ThreadSpinLock(int32_t *lock);
UDFKIT_API void ThreadSpinUnlock(int32_t *lock);

/* The POSIX mutex calls (default attributes); each returns its POSIX result. */
UDFKIT_API int ThreadMutexInit(pthread_mutex_t *mutex);
UDFKIT_API int ThreadMutexLock(pthread_mutex_t *mutex);
UDFKIT_API int ThreadMutexTryLock(pthread_mutex_t *mutex);
UDFKIT_API int ThreadMutexUnlock(pthread_mutex_t *mutex);

#ifdef __cplusplus
}
#endif

#endif
