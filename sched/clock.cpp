// Clocks: set, unset, free.
//
// Thread safety: any thread may set and unset; a change of the queue holds the queue lock of the
// scheduler that serves the clock. Freeing a clock waits for its function when that runs on another
// thread, so that nothing fires after its owner is gone; a clock may be freed by its own function.
#include <algorithm>
#include <cmath>
#include <thread>

#include "sched/scheduler.h"

namespace kiv {

namespace {

void clock_free(Clock *clock) {
    clock_unset(clock);
    clock_wait_fired(queue_owner(clock->scheduler), clock);
}

Class *make_clock_class() {
    Class *made = class_new("clock", nullptr, method(clock_free),
                            static_cast<int32_t>(sizeof(Clock)), nullptr, 0);
    class_obexoffset_set(made, -1);
    class_register("nobox"_sym, made);
    return made;
}

Class *clock_class() {
    static Class *const c = make_clock_class();
    return c;
}

double delay_base(const Clock *clock) {
    if (!clock->scheduler) {
        return takeover_time();
    }
    Scheduler *const owner = queue_owner(clock->scheduler);
    return systhread_isaudiothread() ? owner->audio_time.load() : scheduler_time(owner, true);
}

// Not a number would break the order of the queue; a clock set to it is due at once.
double sane(double ms) {
    return std::isnan(ms) ? 0.0 : ms;
}

void set_at(Clock *clock, double time, double offset) {
    Scheduler *const owner = queue_owner(clock->scheduler);
    bool became_head = false;
    {
        const Guard guard(owner->queue_lock);
        if (clock->queue_slot) {
            clock_unlink(owner, clock);
        }
        clock->time = sane(time);
        clock->sort_time = sane(clock->time + sane(offset));
        became_head = clock_link(owner, clock);
    }
    if (became_head && owner == scheduler_global()) {
        timer_head_changed(clock->sort_time);
    }
}

}  // namespace

void clock_wait_fired(Scheduler *owner, const Clock *clock) noexcept {
    if (owner->runner.load(std::memory_order_acquire) == systhread_self()) {
        return;
    }
    while (owner->firing.load(std::memory_order_acquire) == clock) {
        std::this_thread::yield();
    }
}

void clocks_cancel(Object *owner) noexcept {
    Scheduler *const schedulers[] = {queue_owner(scheduler_fromobject(owner)),
                                     queue_owner(scheduler_get())};
    const int count = schedulers[0] == schedulers[1] ? 1 : 2;
    for (int i = 0; i < count; ++i) {
        const Guard guard(schedulers[i]->queue_lock);
        for (Clock *clock = schedulers[i]->queue; clock;) {
            Clock *const next = clock->next;
            if (clock->owner_object == owner) {
                clock_unlink(schedulers[i], clock);
            }
            clock = next;
        }
    }
}

}  // namespace kiv

using namespace kiv;

Clock *clock_new_withscheduler(void *owner, Method function, Scheduler *scheduler) noexcept {
    auto *clock = static_cast<Clock *>(object_alloc(clock_class()));
    if (!clock) {
        return nullptr;
    }
    clock->owner = owner;
    clock->function = function;
    clock->scheduler = scheduler ? scheduler : scheduler_global();
    if (object_valid(owner)) {
        clock->owner_object = static_cast<Object *>(owner);
        obex_flags_set(clock->owner_object, ObexHasClocks);
    }
    return clock;
}

Clock *clock_new(void *owner, Method function) noexcept {
    return clock_new_withscheduler(owner, function, scheduler_fromobject(owner));
}

void clock_fset2(Clock *clock, double ms, double offset) noexcept {
    if (clock) {
        set_at(clock, ms, offset);
    }
}

void clock_fset(Clock *clock, double ms) noexcept {
    clock_fset2(clock, ms, 0.0);
}

void clock_set(Clock *clock, int64_t ms) noexcept {
    clock_fset2(clock, static_cast<double>(ms), 0.0);
}

void clock_fdelay2(Clock *clock, double ms, double offset) noexcept {
    if (clock) {
        set_at(clock, delay_base(clock) + sane(ms), offset);
    }
}

void clock_fdelay(Clock *clock, double ms) noexcept {
    clock_fdelay2(clock, ms, 0.0);
}

void clock_delay(Clock *clock, int64_t ms) noexcept {
    clock_fdelay2(clock, static_cast<double>(ms), 0.0);
}

void clock_unset(Clock *clock) noexcept {
    if (!clock) {
        return;
    }
    Scheduler *const owner = queue_owner(clock->scheduler);
    const Guard guard(owner->queue_lock);
    if (clock->queue_slot) {
        clock_unlink(owner, clock);
    }
}

void clock_getftime(double *out) noexcept {
    scheduler_gettime(scheduler_get(), out);
}

void clock_getftime_nocache(double *out) noexcept {
    if (out) {
        Scheduler *const scheduler = queue_owner(scheduler_get());
        *out = systhread_isaudiothread() ? scheduler->audio_time.load()
                                         : scheduler_time(scheduler, false);
    }
}

void clock_xset(Clock *clock, int64_t ms) noexcept {
    clock_set(clock, ms);
}

void clock_xunset(Clock *clock) noexcept {
    clock_unset(clock);
}

void clock_xdelay(Clock *clock, int64_t ms) noexcept {
    clock_delay(clock, std::max<int64_t>(ms, 0));
}

// An old module's second name for taking a clock off its queue.
void clock_getextfmt(Clock *clock) noexcept {
    clock_unset(clock);
}
