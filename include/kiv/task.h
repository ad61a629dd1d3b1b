/* Quit tasks and background tasks.

   A quit task is called once, on the main thread, when the application ends; the newest first.

   A background task runs a routine on a worker thread and then, from the main thread's low-priority
   queue, its completion: both are called as function(owner, argument). Tasks start in the order in
   which they were made, several at a time. A task's pointer is good until its completion was called
   (or, without one, its routine returned) or it was cancelled or purged; after that it may only be
   compared. When the owner was an object at the start and is gone when its turn comes, neither
   function is called. What a free function must not leave behind, it ends with
   backgroundtask_purge_object. */
#ifndef KIV_TASK_H
#define KIV_TASK_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct BackgroundTask BackgroundTask;

/* Puts a quit task at the head of the list; it is called as routine(argument). A task installed
   while the quit tasks run is run as well. */
KIV_EXPORT void quittask_install(Method routine, void *argument) KIV_NOEXCEPT;
/* Takes the newest quit task of a routine off the list; none: nothing. */
KIV_EXPORT void quittask_remove(Method routine) KIV_NOEXCEPT;
/* The same, of a routine and an argument. */
KIV_EXPORT void quittask_remove2(Method routine, void *argument) KIV_NOEXCEPT;

/* Makes a background task, stores it in `task` when that is given, and hands it to a worker.
   `owner` and `argument` stay the caller's; `completion` may be null; `flags` is reserved (0).
   Returns 0; 4,294,967,295 without a routine or memory; the system's error code when there is no
   worker and none can be started. `task` then gets null. Any thread. */
KIV_EXPORT uint32_t backgroundtask_execute(void *owner, void *argument, Method routine,
                                           Method completion, BackgroundTask **task,
                                           int32_t flags) KIV_NOEXCEPT;
/* The same for a message, sent to the owner on a worker: `selector` with a copy of `argc` atoms.
   The completion's argument is null. 4,294,967,295 when the owner is no object. */
KIV_EXPORT uint32_t backgroundtask_execute_method(void *owner, Symbol *selector, int32_t argc,
                                                  Atom *argv, Method completion,
                                                  BackgroundTask **task,
                                                  int32_t flags) KIV_NOEXCEPT;
/* Takes a waiting task away, or the completion of one that runs or has run: its routine is not
   called any more, or its completion is not. Does not wait. 0, or 4,294,967,295 when the task is
   gone. */
KIV_EXPORT uint32_t backgroundtask_cancel(BackgroundTask *task) KIV_NOEXCEPT;
/* Waits until a task's routine has returned (its completion may still be to come): 0, at once when
   the task is gone; 4,294,967,295 for null, or when the caller is in that routine. */
KIV_EXPORT uint32_t backgroundtask_join(BackgroundTask *task) KIV_NOEXCEPT;
/* The same for all tasks of an owner, also those made while it waits. */
KIV_EXPORT uint32_t backgroundtask_join_object(void *owner) KIV_NOEXCEPT;
/* Drops all tasks of an owner: those that wait are not run, those that run are waited for, and no
   completion is called. Results as for join. */
KIV_EXPORT uint32_t backgroundtask_purge_object(void *owner) KIV_NOEXCEPT;

KIV_END

#endif
