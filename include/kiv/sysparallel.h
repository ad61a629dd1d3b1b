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

KIV_EXPORT int32_t sysparallel_processorcount(void) KIV_NOEXCEPT;
KIV_EXPORT SysparallelTask *sysparallel_task_new(void *data, SysparallelProc worker,
                                                 int32_t worker_count) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysparallel_task_execute(SysparallelTask *task) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_task_benchprint(SysparallelTask *task) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_task_data(SysparallelTask *task, void *data) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_task_workerproc(SysparallelTask *task,
                                            SysparallelProc worker) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysparallel_task_workercount(SysparallelTask *task) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_task_cancel(SysparallelTask *task) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_task_free(SysparallelTask *task) KIV_NOEXCEPT;
KIV_EXPORT SysparallelWorker *sysparallel_worker_new(SysparallelTask *task) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_worker_execute(SysparallelWorker *worker) KIV_NOEXCEPT;
KIV_EXPORT void sysparallel_worker_free(SysparallelWorker *worker) KIV_NOEXCEPT;

KIV_END

#endif
