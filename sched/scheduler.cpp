// Schedulers, their passes and their time.
//
// Thread safety: a pass holds the run lock for its whole length and the queue lock only around each
// change of the queue, never while a clock's function runs. Lock order: run lock, queue lock. Walk
// protocol of a pass: the head is taken off and copied to locals before its function is called;
// afterwards nothing of that clock is touched, since its function may have freed it.
#include <kiv/attr.h>
#include <kiv/console.h>

#include <cmath>
#include <cstddef>
#include <limits>

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
    std::atomic<int64_t> main_passes{0};
    std::atomic<int64_t> other_passes{0};
};
State state;

thread_local Scheduler *current_scheduler = nullptr;  // of scheduler_set
thread_local Scheduler *running_scheduler = nullptr;  // whose pass this thread is in
thread_local bool in_global_pass = false;

void scheduler_free(Scheduler *scheduler) {
    scheduler_drop_queue(scheduler);
    critical_free(scheduler->queue_lock);
    critical_free(scheduler->run_lock);
    state.count.fetch_sub(1);
}

// Takes the head off the queue when it is due at `now`, and moves the logical time.
struct Due {
    Clock *clock;
    void *owner;
    Method function;
    Qelem *deferral;
};

bool take_due(Scheduler *scheduler, double now, bool by_sort_time, Due *due) {
    const Guard guard(scheduler->queue_lock);
    Clock *const clock = scheduler->queue;
    if (!clock || (by_sort_time ? clock->sort_time : clock->time) > now) {
        return false;
    }
    if (scheduler->time.load(std::memory_order_relaxed) - clock->sort_time <
        state.slop.load(std::memory_order_relaxed)) {
        scheduler->time.store(clock->time, std::memory_order_relaxed);
    }
    clock_unlink(scheduler, clock);
    *due = {clock, clock->owner, clock->function, clock->deferral};
    scheduler->firing.store(clock, std::memory_order_release);
    return true;
}

void fire(Scheduler *scheduler, const Due &due) {
    if (due.deferral) {
        qelem_set(due.deferral);
    } else {
        EventContext context{due.owner, nullptr, nullptr};
        event_context_push(&context);
        reinterpret_cast<void (*)(void *)>(due.function)(due.owner);
        event_context_pop();
    }
    scheduler->firing.store(nullptr, std::memory_order_release);
}

// The run lock, the thread's marks, and the record of a run, for the length of a pass.
class Run {
  public:
    explicit Run(Scheduler *scheduler)
        : scheduler_(scheduler),
          outer_(running_scheduler),
          outer_runner_(scheduler->runner.load()),
          outer_firing_(scheduler->firing.load()) {
        running_scheduler = scheduler;
        scheduler->runner.store(systhread_self());
        scheduler->has_run = true;
    }
    ~Run() {
        scheduler_->firing.store(outer_firing_);
        scheduler_->runner.store(outer_runner_);
        running_scheduler = outer_;
        critical_exit(scheduler_->run_lock);
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

  private:
    Scheduler *scheduler_;
    Scheduler *outer_;
    uint32_t outer_runner_;  // the run lock is recursive: a function may run its own scheduler
    Clock *outer_firing_;
};

void set_times(Scheduler *scheduler, double time) {
    scheduler->time = time;
    if (systhread_isaudiothread()) {
        scheduler->audio_time = time;
    }
}

// Runs on the main thread after sched_suspend and sched_resume: a suspended scheduler needs no
// timer, and its clocks fire, late, in the first pass after it resumes.
void apply_suspension(void *) {
    if (state.suspended.load()) {
        system_timer_pause(true);
    } else {
        system_timer_pause(false);
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
    const uint32_t old = setting.load();
    if (previous) {
        *previous = old;
    }
    if (value != std::numeric_limits<uint32_t>::max()) {
        setting.store(value);
    }
    return setting.load();
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
                  attr_offset_new("chaintoglobal", "long"_sym, 0, nullptr, nullptr,
                                  static_cast<int32_t>(offsetof(Scheduler, chain_to_global))));
    class_register("nobox"_sym, state.scheduler_class);
    state.global = scheduler_new();
    kernel_hooks().cancel_clocks = cancel_for;
    timer_start_family();
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
    return !scheduler || scheduler->chain_to_global ? state.global : scheduler;
}

CriticalRef scheduler_run_lock(Scheduler *scheduler) noexcept {
    return queue_owner(scheduler)->run_lock;
}

void scheduler_drop_queue(Scheduler *scheduler) noexcept {
    const Guard guard(scheduler->queue_lock);
    while (scheduler->queue) {
        clock_unlink(scheduler, scheduler->queue);
    }
}

double scheduler_time(Scheduler *scheduler, bool cached) noexcept {
    if (in_global_pass || running_scheduler == scheduler || scheduler->direct_time) {
        return scheduler->time;
    }
    if (!scheduler->has_run && scheduler != state.global) {
        return state.global->time;
    }
    const Guard guard(scheduler->queue_lock);
    const double estimate = scheduler->time + (time_now() - scheduler->real_time);
    if (!cached) {
        return estimate;
    }
    if (estimate - scheduler->outside_time > 2.0) {
        scheduler->outside_time = estimate;
    }
    return scheduler->outside_time;
}

void scheduler_pass(double now) noexcept {
    Scheduler *const global = state.global;
    if (state.shut_down.load()) {
        scheduler_drop_queue(global);
        return;
    }
    if (state.suspended.load() || !critical_tryenter(global->run_lock)) {
        return;
    }
    const Run run(global);
    const bool outer_pass = in_global_pass;
    in_global_pass = true;
    set_times(global, now);
    global->real_time = now;
    (systhread_ismainthread() ? state.main_passes : state.other_passes).fetch_add(1);
    for (uint32_t left = state.poll_throttle.load(); left > 0; --left) {
        global->time.store(now, std::memory_order_relaxed);
        Due due;
        if (!take_due(global, now, true, &due)) {
            break;
        }
        fire(global, due);
    }
    global->time = now;
    in_global_pass = outer_pass;
}

void scheduler_poll() noexcept {
    scheduler_pass(time_now());
}

bool next_clock_time(double *time) noexcept {
    const Guard guard(state.global->queue_lock);
    if (!state.global->queue) {
        return false;
    }
    *time = state.global->queue->sort_time;
    return true;
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

uint32_t queue_throttle() noexcept {
    return state.queue_throttle.load();
}

uint32_t sysqelem_throttle() noexcept {
    return state.sysqelem_throttle.load();
}

}  // namespace kiv

using namespace kiv;

Scheduler *scheduler_new() noexcept {
    auto *scheduler = static_cast<Scheduler *>(object_alloc(state.scheduler_class));
    if (scheduler) {
        critical_new(&scheduler->queue_lock);
        critical_new(&scheduler->run_lock);
        state.count.fetch_add(1);
    }
    return scheduler;
}

void scheduler_run(Scheduler *scheduler, double until) noexcept {
    if (!scheduler) {
        return;
    }
    Scheduler *const owner = queue_owner(scheduler);
    if (state.shut_down.load()) {
        scheduler_drop_queue(owner);
        return;
    }
    if (!critical_tryenter(owner->run_lock)) {
        return;
    }
    const Run run(owner);
    Scheduler *const previous = scheduler_set(scheduler);
    for (uint32_t left = state.poll_throttle.load(); left > 0; --left) {
        Due due;
        if (!take_due(owner, until, false, &due)) {
            break;
        }
        fire(owner, due);
    }
    set_times(owner, until);
    owner->real_time = time_now();
    scheduler_set(previous);
}

Scheduler *scheduler_set(Scheduler *scheduler) noexcept {
    Scheduler *const previous = scheduler_get();
    current_scheduler = scheduler;
    return previous;
}

Scheduler *scheduler_get() noexcept {
    return current_scheduler ? current_scheduler : state.global;
}

void scheduler_settime(Scheduler *scheduler, double time) noexcept {
    if (!scheduler) {
        takeover_time_set(time);
    }
    Scheduler *const target = scheduler ? scheduler : state.global;
    target->time = time;
}

void scheduler_gettime(Scheduler *scheduler, double *out) noexcept {
    if (out) {
        Scheduler *const owner = queue_owner(scheduler);
        *out = systhread_isaudiothread() ? owner->audio_time.load() : scheduler_time(owner, true);
    }
}

void scheduler_shift(Scheduler *scheduler, double delta) noexcept {
    if (!scheduler || std::isnan(delta)) {
        return;
    }
    Scheduler *const owner = queue_owner(scheduler);
    const Guard guard(owner->queue_lock);
    scheduler->time = scheduler->time + delta;
    clocks_shift(owner, scheduler, delta);
}

Scheduler *scheduler_fromobject(void *x) noexcept {
    // With no scheduler but the global one, as in nearly every session, there is nothing to look
    // up.
    if (state.count.load(std::memory_order_relaxed) <= 1 || !object_valid(x)) {
        return state.global;
    }
    void *scheduler = nullptr;
    if (object_obex_lookup(x, "#S"_sym, &scheduler) == ErrorNone && object_valid(scheduler)) {
        return static_cast<Scheduler *>(scheduler);
    }
    Object *const box = object_box(static_cast<Object *>(x));
    void *const patcher = box ? object_attr_getobj(box, "patcher"_sym) : "#P"_sym->thing;
    if (object_valid(patcher) && patcher != x &&
        object_obex_lookup(patcher, "#S"_sym, &scheduler) == ErrorNone && object_valid(scheduler)) {
        object_obex_storeflags(x, "#S"_sym, scheduler, ContainerReference);
        return static_cast<Scheduler *>(scheduler);
    }
    return state.global;
}

double scheduler_getaudioschedulertime(Scheduler *scheduler) noexcept {
    return queue_owner(scheduler)->audio_time;
}

void scheduler_setaudioschedulertime(Scheduler *scheduler, double time) noexcept {
    if (scheduler) {
        queue_owner(scheduler)->audio_time = time;
    }
}

int32_t gettime() noexcept {
    double time = 0.0;
    clock_getftime(&time);
    return static_cast<int32_t>(static_cast<int64_t>(time));
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

int32_t sched_isinpoll() noexcept {
    return in_global_pass ? 1 : 0;
}
