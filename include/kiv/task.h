#ifndef KIV_TASK_H
#define KIV_TASK_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct BackgroundTask BackgroundTask;

KIV_EXPORT void quittask_install(Method routine, void *argument) KIV_NOEXCEPT;
KIV_EXPORT void quittask_remove(Method routine) KIV_NOEXCEPT;
KIV_EXPORT void quittask_remove2(Method routine, void *argument) KIV_NOEXCEPT;
KIV_EXPORT uint32_t backgroundtask_execute(void *owner, void *argument, Method routine,
                                           Method completion, BackgroundTask **task,
                                           int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t backgroundtask_execute_method(void *owner, Symbol *selector, int32_t argc,
                                                  Atom *argv, Method completion,
                                                  BackgroundTask **task,
                                                  int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t backgroundtask_cancel(BackgroundTask *task) KIV_NOEXCEPT;
KIV_EXPORT uint32_t backgroundtask_join(BackgroundTask *task) KIV_NOEXCEPT;
KIV_EXPORT uint32_t backgroundtask_join_object(void *owner) KIV_NOEXCEPT;
KIV_EXPORT uint32_t backgroundtask_purge_object(void *owner) KIV_NOEXCEPT;

KIV_END

#endif
