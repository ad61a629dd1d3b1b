#ifndef KIV_CLOCK_H
#define KIV_CLOCK_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Clock Clock;
typedef struct Scheduler Scheduler;

KIV_EXPORT Clock *clock_new(void *owner, Method function) KIV_NOEXCEPT;
KIV_EXPORT Clock *clock_new_withscheduler(void *owner, Method function,
                                          Scheduler *scheduler) KIV_NOEXCEPT;
KIV_EXPORT void clock_delay(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fdelay(Clock *clock, double ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fdelay2(Clock *clock, double ms, double offset) KIV_NOEXCEPT;
KIV_EXPORT void clock_set(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fset(Clock *clock, double ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_fset2(Clock *clock, double ms, double offset) KIV_NOEXCEPT;
KIV_EXPORT void clock_unset(Clock *clock) KIV_NOEXCEPT;
KIV_EXPORT void clock_getftime(double *out) KIV_NOEXCEPT;
KIV_EXPORT void clock_getftime_nocache(double *out) KIV_NOEXCEPT;
KIV_EXPORT void clock_xset(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_xunset(Clock *clock) KIV_NOEXCEPT;
KIV_EXPORT void clock_xdelay(Clock *clock, int64_t ms) KIV_NOEXCEPT;
KIV_EXPORT void clock_getextfmt(Clock *clock) KIV_NOEXCEPT;

KIV_END

#endif
