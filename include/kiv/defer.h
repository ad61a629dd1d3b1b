#ifndef KIV_DEFER_H
#define KIV_DEFER_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Qelem Qelem;
typedef struct LockfreeQueue LockfreeQueue;
typedef struct ScheduleQueue ScheduleQueue;

KIV_EXPORT Qelem *qelem_new(void *owner, Method function) KIV_NOEXCEPT;
KIV_EXPORT void qelem_free(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_set(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_unset(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_front(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idleset(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idleunset(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idlefront(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idlefree(Qelem *element) KIV_NOEXCEPT;
/* The deferred function is called as function(owner, selector, argc, argv). */
KIV_EXPORT void *defer(void *owner, Method function, Symbol *selector, int32_t argc,
                       Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *defer_low(void *owner, Method function, Symbol *selector, int32_t argc,
                           Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *defer_medium(void *owner, Method function, Symbol *selector, int32_t argc,
                              Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *defer_front(void *owner, Method function, Symbol *selector, int32_t argc,
                             Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *defer_sys_low(void *owner, Method function, Symbol *selector, int32_t argc,
                               Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule(void *owner, Method function, int64_t time, Symbol *selector, int32_t argc,
                         Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedulef(void *owner, Method function, double time, Symbol *selector, int32_t argc,
                          Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule_delay(void *owner, Method function, int64_t delay, Symbol *selector,
                               int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule_fdelay(void *owner, Method function, double delay, Symbol *selector,
                                int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule_defer(void *owner, Method function, int64_t delay, Symbol *selector,
                               int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule_fdefer(void *owner, Method function, double delay, Symbol *selector,
                                int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ScheduleQueue *schedule_queue_new(void *owner, Method function) KIV_NOEXCEPT;
KIV_EXPORT uint32_t schedule_queue(ScheduleQueue *queue, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT LockfreeQueue *lockfreequeue_new(uint32_t count, uint32_t element_size) KIV_NOEXCEPT;
KIV_EXPORT void lockfreequeue_free(LockfreeQueue *queue) KIV_NOEXCEPT;
KIV_EXPORT int32_t lockfreequeue_push(LockfreeQueue *queue, const void *element) KIV_NOEXCEPT;
KIV_EXPORT int32_t lockfreequeue_pop(LockfreeQueue *queue, void *element) KIV_NOEXCEPT;

KIV_END

#endif
