/* Schedulers: queues of clocks with a logical time.

   1. One global scheduler serves the application. It is run in passes of at most the poll throttle
      (40) clocks, on the main thread or, in overdrive, on the timer's; others are run by hand.
   2. Times are milliseconds. Only one thread runs a scheduler at a time; another that tries returns
      at once.
   3. Where a scheduler is asked for, one that chains to the global one (attribute "chaintoglobal")
      stands for that: its clocks wait in the global queue, and its time is the global one's.
   4. Any thread may call these. A time that is not a number is ignored. */
#ifndef KIV_SCHEDULER_H
#define KIV_SCHEDULER_H

#include <kiv/clock.h>
#include <kiv/types.h>

KIV_BEGIN

/* Makes a scheduler, at time 0; freed with object_free, when its clocks become the global one's,
   unset. Freeing it waits for its runs on other threads, and for its clocks that fire there; no
   other thread may use it or set its clocks meanwhile. Null when there is no memory. */
KIV_EXPORT Scheduler *scheduler_new(void) KIV_NOEXCEPT;
/* Fires every clock due up to and including `until`, no more than the poll throttle; then the
   logical time is `until`. Meanwhile it is the thread's current scheduler. Null does nothing. */
KIV_EXPORT void scheduler_run(Scheduler *scheduler, double until) KIV_NOEXCEPT;
/* Makes a scheduler the calling thread's current one (null: the global one) and returns the one
   before. */
KIV_EXPORT Scheduler *scheduler_set(Scheduler *scheduler) KIV_NOEXCEPT;
/* The calling thread's current scheduler, at first the global one. */
KIV_EXPORT Scheduler *scheduler_get(void) KIV_NOEXCEPT;
/* Sets a scheduler's own logical time, seen while it does not chain. Null: the global one's and the
   takeover time. An infinite time is ignored. */
KIV_EXPORT void scheduler_settime(Scheduler *scheduler, double time) KIV_NOEXCEPT;
/* Stores the time of a scheduler (null: the global one): on an audio thread its audio time, inside
   a pass its logical time, elsewhere an estimate that moves forward in steps of more than 2 ms. */
KIV_EXPORT void scheduler_gettime(Scheduler *scheduler, double *out) KIV_NOEXCEPT;
/* Adds `delta` ms to a scheduler's logical time and to the times of its clocks, which so have the
   same time still to wait. */
KIV_EXPORT void scheduler_shift(Scheduler *scheduler, double delta) KIV_NOEXCEPT;
/* The scheduler of an object: the one stored in its extension record under "#S", else the one
   stored there for its patcher, else the global one; the global one too for what is no object. */
KIV_EXPORT Scheduler *scheduler_fromobject(void *x) KIV_NOEXCEPT;
/* Get and set the time that audio threads see. Null reads the global one's and sets nothing. */
KIV_EXPORT double scheduler_getaudioschedulertime(Scheduler *scheduler) KIV_NOEXCEPT;
KIV_EXPORT void scheduler_setaudioschedulertime(Scheduler *scheduler, double time) KIV_NOEXCEPT;

/* The time of the current scheduler (clock_getftime) without its fraction. */
KIV_EXPORT int32_t gettime(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t getschedtime(void) KIV_NOEXCEPT;
/* The time of an object's scheduler (scheduler_gettime). */
KIV_EXPORT double gettime_forobject(void *x) KIV_NOEXCEPT;

/* Set the most clocks of one pass (40) and the most elements of one pass of the low-priority queue
   (100); 4,294,967,295 leaves the setting as it is. `previous`, when given, gets the old setting.
   Return the one now in force. */
KIV_EXPORT uint32_t sched_setpollthrottle(uint32_t value, uint32_t *previous) KIV_NOEXCEPT;
KIV_EXPORT uint32_t sched_setqueuethrottle(uint32_t value, uint32_t *previous) KIV_NOEXCEPT;

/* Switches audio takeover on or off: in overdrive an audio driver, who finds its record bound to
   "__takeover", then drives the global scheduler in place of the timer. */
KIV_EXPORT void sched_set_takeover(int32_t on) KIV_NOEXCEPT;
/* Suspend and resume the global scheduler. While it is suspended no pass runs; what came due fires
   late, after it resumes. The timer follows when the main thread runs its queue. */
KIV_EXPORT void sched_suspend(void) KIV_NOEXCEPT;
KIV_EXPORT void sched_resume(void) KIV_NOEXCEPT;

/* Non-zero inside a pass of the global scheduler, and inside one of the low-priority queue, on the
   calling thread. */
KIV_EXPORT int32_t sched_isinpoll(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t sched_isinqueue(void) KIV_NOEXCEPT;
/* Runs a pass of the idle queue: as many elements as wait in the low-priority queue, so none beside
   an empty one; no more than the queue throttle. Main thread. */
KIV_EXPORT void sched_idledequeue(void) KIV_NOEXCEPT;

KIV_END

#endif
