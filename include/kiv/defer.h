/* Deferred execution: queue elements, deferred and scheduled calls, rings.

   1. The main thread runs three queues in passes: the low-priority one (at most 100 elements a
      pass), the system one (at most 1,000, some 30 times a second) and the idle one (as many as
      wait in the low-priority queue). What is set during a pass waits for the next, unless it is
      put at the head.
   2. Functions get `owner` first; it stays the caller's. Freeing an element, or an owner object of
      calls, waits for a function that runs on another thread.
   3. Any thread may call these, but for the two ends of a ring; null is ignored. Setting an element
      allocates nothing, and setting one that is set already takes no lock. */
#ifndef KIV_DEFER_H
#define KIV_DEFER_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Qelem Qelem;
typedef struct LockfreeQueue LockfreeQueue;
typedef struct ScheduleQueue ScheduleQueue;

/* --- queue elements: one run of function(owner) on the main thread, however often they are set */

/* Makes an unset element; freed with qelem_free. Null when there is no memory. */
KIV_EXPORT Qelem *qelem_new(void *owner, Method function) KIV_NOEXCEPT;
/* Unsets and frees an element; its own function may do so. */
KIV_EXPORT void qelem_free(Qelem *element) KIV_NOEXCEPT;
/* Puts an element at the end of the low-priority queue; one that waits keeps its place. */
KIV_EXPORT void qelem_set(Qelem *element) KIV_NOEXCEPT;
/* Withdraws a request. */
KIV_EXPORT void qelem_unset(Qelem *element) KIV_NOEXCEPT;
/* Puts an element at the head of the queue, also one that waits further back. */
KIV_EXPORT void qelem_front(Qelem *element) KIV_NOEXCEPT;
/* The same four on the idle queue. An element waits in one queue at a time: setting one that waits
   in the other leaves it there, qelem_front and qelem_idlefront move it, and either unset function
   withdraws it. */
KIV_EXPORT void qelem_idleset(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idleunset(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idlefront(Qelem *element) KIV_NOEXCEPT;
KIV_EXPORT void qelem_idlefree(Qelem *element) KIV_NOEXCEPT;

/* --- deferred calls: function(owner, selector, argc, argv) on the main thread, once, with a copy
   of the atoms, however many; a negative count is none. A call whose owner is no longer a valid
   object when it comes up is dropped, and so are those that wait when the main loop ends. The
   result is the call's record, good until it has run and only to be compared, or null without
   function or memory; an error is posted without memory. Calls with the selector "idlepriority" do
   not mark their owner: freeing it waits for none of them, and one made anew at the same address is
   taken for the old one. */

/* On the main thread makes the call at once and returns null; elsewhere does defer_low. */
KIV_EXPORT void *defer(void *owner, Method function, Symbol *selector, int32_t argc,
                       Atom *argv) KIV_NOEXCEPT;
/* Queues the call at the tail of the low-priority queue, on the main thread too. */
KIV_EXPORT void *defer_low(void *owner, Method function, Symbol *selector, int32_t argc,
                           Atom *argv) KIV_NOEXCEPT;
/* The same as defer. */
KIV_EXPORT void *defer_medium(void *owner, Method function, Symbol *selector, int32_t argc,
                              Atom *argv) KIV_NOEXCEPT;
/* Queues the call at the head of the low-priority queue. */
KIV_EXPORT void *defer_front(void *owner, Method function, Symbol *selector, int32_t argc,
                             Atom *argv) KIV_NOEXCEPT;
/* Queues the call on the system queue. */
KIV_EXPORT void *defer_sys_low(void *owner, Method function, Symbol *selector, int32_t argc,
                               Atom *argv) KIV_NOEXCEPT;

/* --- scheduled calls: the same call, made on the thread that runs the owner's scheduler. A time or
   delay that is not a number counts as none; an infinite one never comes. */

/* At a logical time; in the next pass when it is past. */
KIV_EXPORT void schedule(void *owner, Method function, int64_t time, Symbol *selector, int32_t argc,
                         Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedulef(void *owner, Method function, double time, Symbol *selector, int32_t argc,
                          Atom *argv) KIV_NOEXCEPT;
/* After a delay in ms; a negative one counts as 0. */
KIV_EXPORT void schedule_delay(void *owner, Method function, int64_t delay, Symbol *selector,
                               int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule_fdelay(void *owner, Method function, double delay, Symbol *selector,
                                int32_t argc, Atom *argv) KIV_NOEXCEPT;
/* After a delay hands the call to defer. */
KIV_EXPORT void schedule_defer(void *owner, Method function, int64_t delay, Symbol *selector,
                               int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void schedule_fdefer(void *owner, Method function, double delay, Symbol *selector,
                                int32_t argc, Atom *argv) KIV_NOEXCEPT;

/* --- scheduled queues: values passed from one time-critical thread to the scheduler */

/* Makes a queue of 32 values for function(owner, value); freed with object_free, by the function
   too. Null without memory or function. */
KIV_EXPORT ScheduleQueue *schedule_queue_new(void *owner, Method function) KIV_NOEXCEPT;
/* Puts a value into the queue and has its clock fire at once: 0, or 4,294,967,295 when the queue is
   full. One firing delivers 32 values; one more that it finds is dropped, and the rest waits for
   the next call. One thread at a time. */
KIV_EXPORT uint32_t schedule_queue(ScheduleQueue *queue, int64_t value) KIV_NOEXCEPT;

/* --- rings: values of one size from one thread to another, without a lock or an allocation */

/* Makes a ring of `count` elements of `element_size` bytes; the count is raised to a power of two.
   Null for a size of 0 or above 2^30 and when there is no memory. */
KIV_EXPORT LockfreeQueue *lockfreequeue_new(uint32_t count, uint32_t element_size) KIV_NOEXCEPT;
KIV_EXPORT void lockfreequeue_free(LockfreeQueue *queue) KIV_NOEXCEPT;
/* Copies an element in: 0; 1 when the ring is full; 2 when it is full but the reader is taking an
   element just now. The writing thread. */
KIV_EXPORT int32_t lockfreequeue_push(LockfreeQueue *queue, const void *element) KIV_NOEXCEPT;
/* Copies the oldest element out: 0; 1 when the ring is empty; 2 when the writer is writing its only
   element just now; `element` is then untouched. The reading thread. */
KIV_EXPORT int32_t lockfreequeue_pop(LockfreeQueue *queue, void *element) KIV_NOEXCEPT;

KIV_END

#endif
