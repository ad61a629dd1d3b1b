#ifndef KIV_SCHEDULER_H
#define KIV_SCHEDULER_H

#include <kiv/clock.h>
#include <kiv/types.h>

KIV_BEGIN

KIV_EXPORT Scheduler *scheduler_new(void) KIV_NOEXCEPT;
KIV_EXPORT void scheduler_run(Scheduler *scheduler, double until) KIV_NOEXCEPT;
KIV_EXPORT Scheduler *scheduler_set(Scheduler *scheduler) KIV_NOEXCEPT;
KIV_EXPORT Scheduler *scheduler_get(void) KIV_NOEXCEPT;
KIV_EXPORT void scheduler_settime(Scheduler *scheduler, double time) KIV_NOEXCEPT;
KIV_EXPORT void scheduler_gettime(Scheduler *scheduler, double *out) KIV_NOEXCEPT;
KIV_EXPORT void scheduler_shift(Scheduler *scheduler, double delta) KIV_NOEXCEPT;
KIV_EXPORT Scheduler *scheduler_fromobject(void *x) KIV_NOEXCEPT;
KIV_EXPORT double scheduler_getaudioschedulertime(Scheduler *scheduler) KIV_NOEXCEPT;
KIV_EXPORT void scheduler_setaudioschedulertime(Scheduler *scheduler, double time) KIV_NOEXCEPT;
KIV_EXPORT int32_t gettime(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t getschedtime(void) KIV_NOEXCEPT;
KIV_EXPORT double gettime_forobject(void *x) KIV_NOEXCEPT;
KIV_EXPORT uint32_t sched_setpollthrottle(uint32_t value, uint32_t *previous) KIV_NOEXCEPT;
KIV_EXPORT uint32_t sched_setqueuethrottle(uint32_t value, uint32_t *previous) KIV_NOEXCEPT;
KIV_EXPORT void sched_set_takeover(int32_t on) KIV_NOEXCEPT;
KIV_EXPORT void sched_suspend(void) KIV_NOEXCEPT;
KIV_EXPORT void sched_resume(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t sched_isinpoll(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t sched_isinqueue(void) KIV_NOEXCEPT;
KIV_EXPORT void sched_idledequeue(void) KIV_NOEXCEPT;

KIV_END

#endif
