// Clocks: made, set, unset, freed.
//
// Thread safety: any thread may set and unset; a change of the queue holds the queue lock of the
// scheduler that serves the clock. Freeing a clock, or the object it belongs to, waits for its
// function when that runs on another thread, so that nothing fires for an owner that is gone; a
// clock may be freed by its own function. Lock order: the owners' table, then a queue.
#include <algorithm>
#include <cmath>
#include <thread>

#include "platform/platform.h"
#include "sched/plain_class.h"
#include "sched/scheduler.h"

namespace kiv {

namespace {

struct State {
    platform::CriticalSection lock;
    OwnedTable<Clock> by_owner;
};
State &state() {
    return immortal<State>();
}

void join_scheduler(Clock *clock) {
    Scheduler *const scheduler = clock->scheduler;
    if (!scheduler || scheduler == scheduler_global()) {
        return;  // which outlives its clocks
    }
    const Guard guard(scheduler->queue_lock);
    clock->sibling = scheduler->clocks;
    clock->sibling_link = &scheduler->clocks;
    if (clock->sibling) {
        clock->sibling->sibling_link = &clock->sibling;
    }
    scheduler->clocks = clock;
}

void leave_scheduler(Clock *clock) {
    if (!clock->scheduler || clock->scheduler == scheduler_global()) {
        return;
    }
    const Guard guard(clock->scheduler->queue_lock);
    *clock->sibling_link = clock->sibling;
    if (clock->sibling) {
        clock->sibling->sibling_link = clock->sibling_link;
    }
}

// The owner, if it is freed meanwhile, still finds the clock, and waits for its function too.
void clock_free(Clock *clock) {
    while (clock_withdraw(clock)) {
        std::this_thread::yield();
    }
    clock_forget(clock);
    if (clock->owned.owner) {
        const Guard guard(state().lock);
        state().by_owner.remove(clock);
    }
    leave_scheduler(clock);
    clock_nodes_reserve(-1, 0);
}

Class *clock_class() {
    static Class *const c = make_plain_class("clock", clock_free);
    return c;
}

double delay_base(const Clock *clock) {
    return clock->scheduler ? scheduler_time(clock->scheduler, true) : takeover_time();
}

// Not a number would break the order of the queue; a clock set to it is due at once.
double sane(double ms) {
    return std::isnan(ms) ? 0.0 : ms;
}

void set_at(Clock *clock, double time, double offset) {
    const double due = sane(time);
    const double sort_time = sane(due + sane(offset));
    bool on_global = false;
    {
        const QueueGuard guard(clock->scheduler);
        Scheduler *const owner = guard.owner();
        if (clock->queue_slot) {
            clock_unlink(owner, clock);
        }
        clock->time = due;
        clock->sort_time = sort_time;
        clock_link(owner, clock);
        on_global = owner == scheduler_global();
    }
    if (on_global) {
        timer_clock_set(sort_time);
    }
}

// Unsets the clocks of an owner; true when one of them fires on another thread just now.
bool cancel_waiting(Object *owner) {
    const Guard guard(state().lock);
    bool fires = false;
    state().by_owner.visit(owner, [&fires](Clock *clock) {
        fires |= clock_withdraw(clock);
        return true;
    });
    return fires;
}

}  // namespace

void clocks_start() noexcept {
    clock_class();
}

Clock *clock_make(void *owner, Method function, Scheduler *scheduler, Object *owner_object,
                  bool tracked) noexcept {
    if (!clock_nodes_reserve(1, 0)) {
        return nullptr;
    }
    auto *clock = static_cast<Clock *>(object_alloc(clock_class()));
    if (!clock) {
        clock_nodes_reserve(-1, 0);
        return nullptr;
    }
    clock->owner = owner;
    clock->function = function;
    clock->scheduler = scheduler;
    clock->owner_object = owner_object;
    join_scheduler(clock);
    if (owner_object && tracked) {
        obex_flags_set(owner_object, ObexHasClocks);
        const Guard guard(state().lock);
        state().by_owner.add(clock, owner_object);
    }
    return clock;
}

void clocks_cancel(Object *owner) noexcept {
    while (state().by_owner.may_hold(owner) && cancel_waiting(owner)) {
        std::this_thread::yield();
    }
}

}  // namespace kiv

using namespace kiv;

Clock *clock_new_withscheduler(void *owner, Method function, Scheduler *scheduler) noexcept {
    Object *const owner_object = object_valid(owner) ? static_cast<Object *>(owner) : nullptr;
    return clock_make(owner, function, scheduler, owner_object, true);
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
    const QueueGuard guard(clock->scheduler);
    if (clock->queue_slot) {
        clock_unlink(guard.owner(), clock);
    }
}

void clock_getftime(double *out) noexcept {
    scheduler_gettime(scheduler_get(), out);
}

void clock_getftime_nocache(double *out) noexcept {
    if (out) {
        *out = scheduler_time(scheduler_get(), false);
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
