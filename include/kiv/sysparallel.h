/* Parallel tasks: one routine run by several workers side by side, and waited for.

   Tasks and workers are kernel objects. One task runs at a time in the whole process; a second one
   is refused, not queued. Every worker of a task has a thread of its own, so workers may wait for
   one another. A task is set up, executed and freed by one thread at a time. */
#ifndef KIV_SYSPARALLEL_H
#define KIV_SYSPARALLEL_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct SysparallelTask SysparallelTask;
typedef struct SysparallelWorker {
    Object ob;
    void *data; /* the task's data */
    SysparallelTask *task;
    int32_t id; /* 0 to worker count - 1 */
} SysparallelWorker;
typedef void (*SysparallelProc)(SysparallelWorker *worker);

/* The number of processors that the system reports, at least 1. */
KIV_EXPORT int32_t sysparallel_processorcount(void) KIV_NOEXCEPT;
/* Makes a task of `worker_count` workers (0: one for each processor; a negative count stands for
   its absolute value; at most 64). `data` is the caller's, handed to the workers. Null without a
   routine or without memory. Freed with sysparallel_task_free. */
KIV_EXPORT SysparallelTask *sysparallel_task_new(void *data, SysparallelProc worker,
                                                 int32_t worker_count) KIV_NOEXCEPT;
/* Runs all workers, the last one on the calling thread, and returns 0 when all have finished; -1 at
   once when a task is running already (a worker executing a task included) or `task` is none. With
   the attribute "benchmark" set the run is timed. */
KIV_EXPORT int32_t sysparallel_task_execute(SysparallelTask *task) KIV_NOEXCEPT;
/* Posts the worker count and the time of the last timed run. */
KIV_EXPORT void sysparallel_task_benchprint(SysparallelTask *task) KIV_NOEXCEPT;
/* Sets what the workers of the next run find as their data. */
KIV_EXPORT void sysparallel_task_data(SysparallelTask *task, void *data) KIV_NOEXCEPT;
/* Sets the routine of the next run; null is ignored. */
KIV_EXPORT void sysparallel_task_workerproc(SysparallelTask *task,
                                            SysparallelProc worker) KIV_NOEXCEPT;
/* The number of workers; 0 for what is no task. */
KIV_EXPORT int32_t sysparallel_task_workercount(SysparallelTask *task) KIV_NOEXCEPT;
/* Lets the workers of the present run that have not started be left out. Any thread. */
KIV_EXPORT void sysparallel_task_cancel(SysparallelTask *task) KIV_NOEXCEPT;
/* Frees a task and its workers, waiting for a run on another thread to end. A worker cannot free
   its own task: that is refused with an error on the console. */
KIV_EXPORT void sysparallel_task_free(SysparallelTask *task) KIV_NOEXCEPT;
/* Makes one more worker for a task, with id 0, to be run by hand; null when `task` is none. */
KIV_EXPORT SysparallelWorker *sysparallel_worker_new(SysparallelTask *task) KIV_NOEXCEPT;
/* Runs the routine of a worker's task on the calling thread. */
KIV_EXPORT void sysparallel_worker_execute(SysparallelWorker *worker) KIV_NOEXCEPT;
/* Frees a worker made with sysparallel_worker_new. */
KIV_EXPORT void sysparallel_worker_free(SysparallelWorker *worker) KIV_NOEXCEPT;

KIV_END

#endif
