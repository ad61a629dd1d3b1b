/* Clocks: each calls a function of its owner at a logical time.

   1. Times are milliseconds of the clock's scheduler. A set clock waits in its scheduler's queue;
      it fires once, in the pass that finds it due, and is unset before its function is called.
      Clocks due at the same time fire in the order in which they were set; setting a set clock
      again moves it behind those.
   2. The function is called as function(owner), on the thread that runs the scheduler: the main
      thread, or in overdrive the timer's. It may set, unset and free any clock, its own included.
   3. While it runs the scheduler's time is the time the clock was set to, unless the pass came
      25 ms late or later: so a clock that sets itself again counts from when it was due.
   4. A clock is freed with object_free. Freeing it, or the object that owns it, waits for its
      function when that runs on another thread; afterwards the function is not called any more.
   5. Any thread may call these; a null clock is ignored. A time that is not a number counts as 0.
 */
#ifndef KIV_CLOCK_H
#define KIV_CLOCK_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Clock Clock;
typedef struct Scheduler Scheduler;

/* Makes an unset clock on the scheduler of `owner` (scheduler_fromobject). `owner` stays the
   caller's and need not be an object. Null when there is no memory. */
KIV_EXPORT Clock *clock_new(void *owner, Method function) KIV_NOEXCEPT;
/* The same on a given scheduler. A clock of no scheduler (null) waits in the global one's queue,
   and its delays count from the takeover time. */
KIV_EXPORT Clock *clock_new_withscheduler(void *owner, Method function,
                                          Scheduler *scheduler) KIV_NOEXCEPT;

/* Set a clock to fire `ms` from now: from the time that scheduler_gettime gives, or on an audio
   thread from the scheduler's audio time. A negative delay is in the past, so due at once. */
KIV_EXPORT void clock_delay(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fdelay(Clock *clock, double ms) KIV_NOEXCEPT;
/* The same; `offset` ms are added to its place in the queue, not to the time that it stands for. */
KIV_EXPORT void clock_fdelay2(Clock *clock, double ms, double offset) KIV_NOEXCEPT;
/* Set a clock to fire at the logical time `ms`. */
KIV_EXPORT void clock_set(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fset(Clock *clock, double ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fset2(Clock *clock, double ms, double offset) KIV_NOEXCEPT;
/* Takes a set clock off its queue. A function that is running is not waited for. */
KIV_EXPORT void clock_unset(Clock *clock) KIV_NOEXCEPT;

/* Stores the time of the calling thread's current scheduler, as scheduler_gettime does. */
KIV_EXPORT void clock_getftime(double *out) KIV_NOEXCEPT;
/* The same without the steps that steady the time outside a pass. */
KIV_EXPORT void clock_getftime_nocache(double *out) KIV_NOEXCEPT;

/* Older names of clock_set, clock_unset, clock_delay (a negative delay is taken as 0) and
   clock_unset. */
KIV_EXPORT void clock_xset(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_xunset(Clock *clock) KIV_NOEXCEPT;
KIV_EXPORT void clock_xdelay(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_getextfmt(Clock *clock) KIV_NOEXCEPT;

KIV_END

#endif
