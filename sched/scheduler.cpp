// Schedulers: their life, their times, chaining, tuning and suspension.
//
// Thread safety: a scheduler's times are read on any thread. Its chaining changes under both queue
// locks, and moves what waits; so a clock always waits on the queue that serves its scheduler. A
// scheduler that is freed lets go of its clocks, which then count as the global one's.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/console.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <thread>

#include "sched/scheduler.h"

namespace kiv {

namespace {

struct State {
    Scheduler *global = nullptr;
    Class *scheduler_class = nullptr;
    std::atomic<int32_t> count{0};  // schedulers made
    std::atomic<bool> shut_down{false};
    std::atomic<bool> suspended{false};
    std::atomic<uint32_t> poll_throttle{40};
    std::atomic<uint32_t> queue_throttle{100};
    std::atomic<uint32_t> sysqelem_throttle{1000};
    std::atomic<double> slop{25.0};
};
State state;

// Of scheduler_set, null for the global one; another thread may have freed it.
thread_local Scheduler *current_scheduler = nullptr;

Scheduler *as_scheduler(void *x) {
    const bool is_one = object_valid(x) && class_of(x) == state.scheduler_class;
    return is_one ? static_cast<Scheduler *>(x) : nullptr;
}

// After a change from which any clock may come first on the global queue.
void tell_timer() {
    timer_clock_set(-std::numeric_limits<double>::infinity());
}

// --- Life ----------------------------------------------------------------------------------------

// Leaves the clocks to the global scheduler, unset; false while one fires on another thread, as it
// may in a pass of the global one that this one chains to. It may set the others: one look at all.
bool let_go_of_clocks(Scheduler *scheduler) {
    const Guard own(scheduler->queue_lock);
    const Guard global(state.global->queue_lock);
    bool fires = false;
    for (Clock *clock = scheduler->clocks; clock; clock = clock->sibling) {
        fires |= clock_withdraw(clock);
    }
    if (fires) {
        return false;
    }
    while (Clock *const clock = scheduler->clocks) {
        scheduler->clocks = clock->sibling;
        clock->scheduler = state.global;
    }
    return true;
}

// Waits for runs on other threads; one on this thread, whose clock frees its scheduler, is told.
void scheduler_free(Scheduler *scheduler) {
    critical_enter(scheduler->run_lock);
    for (Firing *frame = scheduler->firing; frame; frame = frame->outer) {
        frame->scheduler_freed = true;
        critical_exit(scheduler->run_lock);
    }
    critical_exit(scheduler->run_lock);
    while (!let_go_of_clocks(scheduler)) {
        std::this_thread::yield();
    }
    if (current_scheduler == scheduler) {
        current_scheduler = nullptr;
    }
    critical_free(scheduler->queue_lock);
    critical_free(scheduler->run_lock);
    clock_nodes_reserve(0, -1);
    state.count.fetch_sub(1);
}

// The setter of "chaintoglobal". What waits moves to the queue that serves it from now on.
ErrorCode set_chain(Scheduler *scheduler, void *, int32_t argc, Atom *argv) {
    if (argc < 1 || scheduler == state.global) {
        return ErrorNone;
    }
    const bool chain = atom_getlong(argv) != 0;
    {
        const Guard own(scheduler->queue_lock);
        const Guard global(state.global->queue_lock);
        if ((scheduler->chain_to_global != 0) == chain) {
            return ErrorNone;
        }
        scheduler->chain_to_global = chain ? 1 : 0;
        Scheduler *const from = chain ? scheduler : state.global;
        clocks_move(from, chain ? state.global : scheduler, scheduler);
    }
    tell_timer();
    return ErrorNone;
}

Scheduler *stored_scheduler(void *x) {
    void *stored = nullptr;
    object_obex_lookup(x, "#S"_sym, &stored);
    return as_scheduler(stored);
}

// The patcher that holds an object, or its box; an object under construction belongs to the one
// that is being filled, on the main thread.
void *patcher_around(Object *x) {
    Object *const box = object_box(x);
    void *const patcher = object_attr_getobj(box ? box : x, "patcher"_sym);
    return patcher || !systhread_ismainthread() ? patcher : "#P"_sym->thing;
}

// --- Suspension and tuning -----------------------------------------------------------------------

// Runs on the main thread after sched_suspend and sched_resume: a suspended scheduler needs no
// timer, and its clocks fire, late, in the first pass after it resumes.
void apply_suspension(void *) {
    const bool suspended = state.suspended.load();
    system_timer_pause(suspended);
    if (!suspended) {
        main_wake();
    }
}

void suspension_changed(bool suspended, const char *text) {
    static Qelem *const task = qelem_new(nullptr, method(apply_suspension));
    if (verbose_get()) {
        post("%s", text);
    }
    state.suspended.store(suspended);
    qelem_set(task);
}

uint32_t throttle_change(std::atomic<uint32_t> &setting, uint32_t value, uint32_t *previous) {
    const bool changes = value != std::numeric_limits<uint32_t>::max();
    const uint32_t old = changes ? setting.exchange(value) : setting.load();
    if (previous) {
        *previous = old;
    }
    return changes ? value : old;
}

void cancel_for(Object *x) {
    clocks_cancel(x);
    deferred_cancel(x);
}

}  // namespace

void scheduler_start() noexcept {
    state.scheduler_class = class_new("scheduler", nullptr, method(scheduler_free),
                                      static_cast<int32_t>(sizeof(Scheduler)), nullptr, 0);
    class_addattr(state.scheduler_class,
                  attr_offset_new("chaintoglobal", "long"_sym, 0, nullptr, method(set_chain),
                                  static_cast<int32_t>(offsetof(Scheduler, chain_to_global))));
    class_register("nobox"_sym, state.scheduler_class);
    clocks_start();
    state.global = scheduler_new();
    kernel_hooks().cancel_clocks = cancel_for;
    takeover_start();
    time_now();  // fixes the start time
}

void scheduler_shutdown() noexcept {
    system_timer_stop();
    state.shut_down.store(true);
    scheduler_drop_queue(state.global);
}

Scheduler *scheduler_global() noexcept {
    return state.global;
}

int32_t scheduler_count() noexcept {
    return state.count.load(std::memory_order_relaxed);
}

Scheduler *queue_owner(Scheduler *scheduler) noexcept {
    return !scheduler || scheduler->chain_to_global.load(std::memory_order_relaxed) ? state.global
                                                                                    : scheduler;
}

CriticalRef scheduler_run_lock(Scheduler *scheduler) noexcept {
    return queue_owner(scheduler)->run_lock;
}

bool scheduler_is_shut_down() noexcept {
    return state.shut_down.load(std::memory_order_relaxed);
}

bool scheduler_is_suspended() noexcept {
    return state.suspended.load(std::memory_order_relaxed);
}

bool slop_set(double ms) noexcept {
    if (ms == -1.0 || std::isnan(ms)) {
        return false;
    }
    state.slop.store(ms);
    return true;
}

bool sysqelem_throttle_set(int64_t value) noexcept {
    if (value < 1 || value > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    state.sysqelem_throttle.store(static_cast<uint32_t>(value));
    return true;
}

double slop() noexcept {
    return state.slop.load(std::memory_order_relaxed);
}

uint32_t poll_throttle() noexcept {
    return state.poll_throttle.load(std::memory_order_relaxed);
}

uint32_t queue_throttle() noexcept {
    return state.queue_throttle.load(std::memory_order_relaxed);
}

uint32_t sysqelem_throttle() noexcept {
    return state.sysqelem_throttle.load(std::memory_order_relaxed);
}

}  // namespace kiv

using namespace kiv;

Scheduler *scheduler_new() noexcept {
    if (!clock_nodes_reserve(0, 1)) {
        return nullptr;
    }
    auto *scheduler = static_cast<Scheduler *>(object_alloc(state.scheduler_class));
    if (!scheduler) {
        clock_nodes_reserve(0, -1);
        return nullptr;
    }
    critical_new(&scheduler->queue_lock);
    critical_new(&scheduler->run_lock);
    state.count.fetch_add(1);
    return scheduler;
}

Scheduler *scheduler_set(Scheduler *scheduler) noexcept {
    Scheduler *const previous = scheduler_get();
    current_scheduler = scheduler == state.global ? nullptr : scheduler;
    return previous;
}

Scheduler *scheduler_get() noexcept {
    Scheduler *const current = current_scheduler ? as_scheduler(current_scheduler) : nullptr;
    return current ? current : state.global;
}

void scheduler_settime(Scheduler *scheduler, double time) noexcept {
    if (!std::isfinite(time)) {
        return;
    }
    if (!scheduler) {
        takeover_time_set(time);
    }
    (scheduler ? scheduler : state.global)->time = time;
}

void scheduler_gettime(Scheduler *scheduler, double *out) noexcept {
    if (out) {
        *out = scheduler_time(scheduler, true);
    }
}

void scheduler_shift(Scheduler *scheduler, double delta) noexcept {
    if (!scheduler || !std::isfinite(delta)) {
        return;
    }
    {
        const QueueGuard guard(scheduler);
        scheduler->time = scheduler->time + delta;
        clocks_shift(guard.owner(), scheduler, delta);
    }
    tell_timer();
}

Scheduler *scheduler_fromobject(void *x) noexcept {
    // With no scheduler but the global one, as in nearly every session, nothing is looked up.
    if (state.count.load(std::memory_order_relaxed) <= 1 || !object_valid(x)) {
        return state.global;
    }
    if (Scheduler *const own = stored_scheduler(x)) {
        return own;
    }
    Scheduler *const shared = stored_scheduler(patcher_around(static_cast<Object *>(x)));
    if (!shared) {
        return state.global;
    }
    object_obex_store(x, "#S"_sym, shared);
    return shared;
}

double scheduler_getaudioschedulertime(Scheduler *scheduler) noexcept {
    return queue_owner(scheduler)->audio_time;
}

void scheduler_setaudioschedulertime(Scheduler *scheduler, double time) noexcept {
    if (scheduler && !std::isnan(time)) {
        queue_owner(scheduler)->audio_time = time;
    }
}

int32_t gettime() noexcept {
    double time = 0.0;
    clock_getftime(&time);
    constexpr double most = std::numeric_limits<int32_t>::max();
    constexpr double least = std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(std::clamp(time, least, most));
}

int32_t getschedtime() noexcept {
    return gettime();
}

double gettime_forobject(void *x) noexcept {
    double time = 0.0;
    scheduler_gettime(scheduler_fromobject(x), &time);
    return time;
}

uint32_t sched_setpollthrottle(uint32_t value, uint32_t *previous) noexcept {
    return throttle_change(state.poll_throttle, value, previous);
}

uint32_t sched_setqueuethrottle(uint32_t value, uint32_t *previous) noexcept {
    return throttle_change(state.queue_throttle, value, previous);
}

void sched_suspend() noexcept {
    suspension_changed(true, "sched_suspend");
}

void sched_resume() noexcept {
    suspension_changed(false, "sched_resume");
}
