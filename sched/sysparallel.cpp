// Parallel tasks: one routine run by several workers at the same time.
//
// One pool serves the process and runs one task at a time: `lock` guards it. A pool thread takes
// the next worker's number, runs it, and the last one to finish wakes the thread that executes the
// task. The pool grows to one thread fewer than the most workers ever asked for, so that all
// workers of a task really run side by side and may wait for each other; threads are never ended.
// Where threads cannot be made, the executing thread runs the workers left over.
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/object.h>
#include <kiv/sysparallel.h>

#include <algorithm>
#include <atomic>
#include <cstddef>

#include "kernel/internal.h"
#include "sched/condition.h"

struct SysparallelTask {
    Object ob;
    void *data;
    SysparallelProc routine;
    int32_t worker_count;
    SysparallelWorker **workers;
    int32_t benchmark;  // attribute "benchmark": execution is timed
    double last_ms;     // how long the last timed run took
    std::atomic<bool> cancelled;
};

namespace kiv {

namespace {

constexpr int32_t max_workers = 64;

struct Pool {
    platform::CriticalSection lock;
    Condition work;                   // a task came
    Condition idle;                   // no worker is busy, or the pool has no task
    SysparallelTask *task = nullptr;  // the one that is executed
    int32_t next_worker = 0;          // number of the next one to start
    int32_t busy = 0;                 // workers on the pool that have not finished
    int32_t threads = 0;
};
Pool &pool() noexcept {
    return immortal<Pool>();
}

// The task whose worker the thread runs, so that the worker does not wait for itself.
thread_local const SysparallelTask *running_here = nullptr;

void run_worker(SysparallelWorker *worker) noexcept {
    const SysparallelTask *const outer = running_here;
    running_here = worker->task;
    try {
        worker->task->routine(worker);
    } catch (...) {
        object_error(worker->task, "worker %d threw an exception", worker->id);
    }
    running_here = outer;
}

// For a worker of a task that is executed.
void run_unless_cancelled(SysparallelWorker *worker) noexcept {
    if (!worker->task->cancelled.load(std::memory_order_relaxed)) {
        run_worker(worker);
    }
}

// Starts the next worker of the pool's task on this thread. The caller holds the lock, which is let
// go while the worker runs.
void run_next_worker(Pool &p) noexcept {
    SysparallelWorker *worker = p.task->workers[p.next_worker++];
    {
        const Unguarded run(p.lock);
        run_unless_cancelled(worker);
    }
    if (--p.busy == 0) {
        systhread_cond_broadcast(&p.idle);
    }
}

// The last worker is for the thread that executes the task.
bool worker_waits(const Pool &p) noexcept {
    return p.task && p.next_worker < p.task->worker_count - 1;
}

void *pool_thread(void *) {
    Pool &p = pool();
    service_thread_mark();
    p.lock.enter();
    for (;;) {
        while (!worker_waits(p)) {
            condition_wait(p.work, p.lock);
        }
        run_next_worker(p);
    }
}

void grow(Pool &p, int32_t wanted) noexcept {
    ThreadId id;
    while (p.threads < wanted &&
           systhread_create(method(pool_thread), nullptr, 0, 0, 0, &id) == 0) {
        systhread_detach(id);
        ++p.threads;
    }
}

// Gives the pool to a task: false when another has it.
bool begin(SysparallelTask *task) noexcept {
    Pool &p = pool();
    const Guard guard(p.lock);
    if (p.task) {
        return false;
    }
    for (int32_t i = 0; i < task->worker_count; ++i) {
        task->workers[i]->data = task->data;
    }
    task->cancelled.store(false);
    p.task = task;
    p.next_worker = 0;
    p.busy = task->worker_count - 1;
    grow(p, task->worker_count - 1);
    if (p.busy > 0) {
        systhread_cond_broadcast(&p.work);
    }
    return true;
}

// Waits for the workers. Once the pool has been let go, another thread may free the task.
void finish(SysparallelTask *task, double start) noexcept {
    Pool &p = pool();
    const Guard guard(p.lock);
    while (p.busy > 0) {
        if (worker_waits(p) && p.threads < task->worker_count - 1) {
            run_next_worker(p);
        } else {
            condition_wait(p.idle, p.lock);
        }
    }
    if (task->benchmark) {
        task->last_ms = platform::time_ms() - start;
    }
    p.task = nullptr;
    systhread_cond_broadcast(&p.idle);
}

// --- Classes -------------------------------------------------------------------------------------

// Waits until the task does not run; its own worker must not free it.
void task_destroy(SysparallelTask *task) {
    if (running_here != task) {
        Pool &p = pool();
        const Guard guard(p.lock);
        while (p.task == task) {
            condition_wait(p.idle, p.lock);
        }
    }
    for (int32_t i = 0; task->workers && i < task->worker_count; ++i) {
        sysparallel_worker_free(task->workers[i]);
    }
    sysmem_freeptr(task->workers);
}

// Made by functions, not by lambdas in their initialisers: clang 14 crashes on a symbol literal
// there.
Class *make_task_class() noexcept {
    Class *c = class_new("sysparallel_task", nullptr, method(task_destroy),
                         static_cast<int32_t>(sizeof(SysparallelTask)), nullptr, 0);
    constexpr auto offset = static_cast<int32_t>(offsetof(SysparallelTask, benchmark));
    class_addattr(c, attr_offset_new("benchmark", "long"_sym, 0, nullptr, nullptr, offset));
    class_register("nobox"_sym, c);
    return c;
}

Class *make_worker_class() noexcept {
    Class *c = class_new("sysparallel_worker", nullptr, nullptr,
                         static_cast<int32_t>(sizeof(SysparallelWorker)), nullptr, 0);
    class_register("nobox"_sym, c);
    return c;
}

Class *task_class() noexcept {
    static Class *const c = make_task_class();
    return c;
}

Class *worker_class() noexcept {
    static Class *const c = make_worker_class();
    return c;
}

int32_t real_worker_count(int32_t wanted) noexcept {
    const int64_t count = wanted == 0 ? sysparallel_processorcount() : int64_t{wanted};
    return static_cast<int32_t>(std::min<int64_t>(count < 0 ? -count : count, max_workers));
}

bool make_workers(SysparallelTask *task) noexcept {
    task->workers = static_cast<SysparallelWorker **>(
        sysmem_newptrclear(task->worker_count * static_cast<int64_t>(sizeof(void *))));
    if (!task->workers) {
        return false;
    }
    for (int32_t i = 0; i < task->worker_count; ++i) {
        task->workers[i] = sysparallel_worker_new(task);
        if (!task->workers[i]) {
            return false;
        }
        task->workers[i]->id = i;
    }
    return true;
}

bool is_task(const SysparallelTask *task) noexcept {
    return object_valid(task) && class_of(task) == task_class();
}

}  // namespace

}  // namespace kiv

using namespace kiv;

int32_t sysparallel_processorcount() noexcept {
    return static_cast<int32_t>(platform::processor_count());
}

SysparallelTask *sysparallel_task_new(void *data, SysparallelProc worker,
                                      int32_t worker_count) noexcept {
    if (!worker) {
        return nullptr;
    }
    auto *task = static_cast<SysparallelTask *>(object_alloc(task_class()));
    if (!task) {
        return nullptr;
    }
    task->data = data;
    task->routine = worker;
    task->worker_count = real_worker_count(worker_count);
    if (!make_workers(task)) {
        object_free(task);
        return nullptr;
    }
    return task;
}

int32_t sysparallel_task_execute(SysparallelTask *task) noexcept {
    const double start = platform::time_ms();
    if (!is_task(task) || !begin(task)) {
        return -1;
    }
    run_unless_cancelled(task->workers[task->worker_count - 1]);
    finish(task, start);
    return 0;
}

void sysparallel_task_benchprint(SysparallelTask *task) noexcept {
    if (is_task(task)) {
        object_post(task, "%d workers: %.3f ms", task->worker_count, task->last_ms);
    }
}

void sysparallel_task_data(SysparallelTask *task, void *data) noexcept {
    if (is_task(task)) {
        task->data = data;
    }
}

void sysparallel_task_workerproc(SysparallelTask *task, SysparallelProc worker) noexcept {
    if (is_task(task) && worker) {
        task->routine = worker;
    }
}

int32_t sysparallel_task_workercount(SysparallelTask *task) noexcept {
    return is_task(task) ? task->worker_count : 0;
}

void sysparallel_task_cancel(SysparallelTask *task) noexcept {
    if (is_task(task)) {
        task->cancelled.store(true);
    }
}

void sysparallel_task_free(SysparallelTask *task) noexcept {
    if (!is_task(task)) {
        return;
    }
    if (running_here == task) {
        object_error(task, "a task cannot be freed by its own worker");
        return;
    }
    object_free(task);
}

SysparallelWorker *sysparallel_worker_new(SysparallelTask *task) noexcept {
    if (!is_task(task)) {
        return nullptr;
    }
    auto *worker = static_cast<SysparallelWorker *>(object_alloc(worker_class()));
    if (worker) {
        worker->data = task->data;
        worker->task = task;
    }
    return worker;
}

void sysparallel_worker_execute(SysparallelWorker *worker) noexcept {
    if (object_valid(worker) && class_of(worker) == worker_class() && is_task(worker->task)) {
        run_worker(worker);
    }
}

void sysparallel_worker_free(SysparallelWorker *worker) noexcept {
    if (object_valid(worker) && class_of(worker) == worker_class()) {
        object_free(worker);
    }
}
