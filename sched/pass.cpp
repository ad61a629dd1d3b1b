// Runs of schedulers: the passes of the global one, and scheduler_run.
//
// A run holds the run lock for its whole length and the queue lock only around each change of the
// queue, never while a clock's function runs. Walk protocol: the head is taken off and copied to
// locals before its function is called; afterwards nothing of that clock is touched, since its
// function may have freed it, and nothing of a private scheduler either when that was freed.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "sched/guarded.h"
#include "sched/midi_queue.h"
#include "sched/scheduler.h"

namespace kiv {

namespace {

struct Passes {
    std::atomic<int64_t> on_main{0};
    std::atomic<int64_t> elsewhere{0};
};
Passes passes;

thread_local Scheduler *running_scheduler = nullptr;  // whose run this thread is in
thread_local bool in_global_pass = false;

struct Due {
    void *owner;
    Method function;
    Qelem *deferral;
};

// The thread's marks and the frame of a run. The caller has entered the run lock.
class Run {
  public:
    explicit Run(Scheduler *scheduler) noexcept
        : scheduler_(scheduler), outer_running_(running_scheduler) {
        running_scheduler = scheduler;
        frame_.thread = systhread_self();
        const Guard guard(scheduler->queue_lock);
        frame_.outer = scheduler->firing;
        scheduler->firing = &frame_;
    }
    ~Run() {
        running_scheduler = outer_running_;
        if (!scheduler_freed()) {
            {
                const Guard guard(scheduler_->queue_lock);
                scheduler_->firing = frame_.outer;
            }
            critical_exit(scheduler_->run_lock);
        }
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    bool scheduler_freed() const noexcept { return frame_.scheduler_freed; }

    // Sets the time that callers inside the run see and, for the estimates outside it, when it was.
    void set_times(double time) noexcept {
        const double real = time_base();
        const Guard guard(scheduler_->queue_lock);
        scheduler_->time = time;
        if (systhread_isaudiothread()) {
            scheduler_->audio_time = time;
        }
        scheduler_->real_time = real;
        scheduler_->has_run = true;
    }

    // Takes the head off the queue when it is due at `now`, and moves the logical time.
    bool take_due(double now, double Clock::*due_time, Due *due) noexcept {
        const Guard guard(scheduler_->queue_lock);
        frame_.clock = nullptr;  // the one before has returned
        frame_.owner_object = nullptr;
        clocks_settle(scheduler_);
        Clock *const clock = scheduler_->queue;
        if (!clock || clock->*due_time > now) {
            return false;
        }
        if (scheduler_->time.load(std::memory_order_relaxed) - clock->sort_time < slop()) {
            scheduler_->time.store(clock->time, std::memory_order_relaxed);
        }
        clock_unlink(scheduler_, clock);
        frame_.clock = clock;
        frame_.owner_object = clock->owner_object;
        *due = {clock->owner, clock->function, clock->deferral};
        return true;
    }

  private:
    Scheduler *scheduler_;
    Scheduler *outer_running_;
    Firing frame_{};
};

void fire(const Due &due) noexcept {
    if (due.deferral) {
        qelem_set(due.deferral);
        return;
    }
    EventContext context{due.owner, nullptr, nullptr};
    event_context_push(&context);
    guarded("clock", due.owner,
            [&due] { reinterpret_cast<void (*)(void *)>(due.function)(due.owner); });
    event_context_pop();
}

bool any_firing(Scheduler *scheduler, const Clock *clock, ThreadId self) noexcept {
    const Guard guard(scheduler->queue_lock);
    for (const Firing *frame = scheduler->firing; frame; frame = frame->outer) {
        if (frame->clock == clock && frame->thread != self) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool clock_fires_elsewhere(const Clock *clock) noexcept {
    const ThreadId self = systhread_self();
    // A chained scheduler's clocks fire in the runs of the global one, and it may just have been
    // chained or freed.
    return any_firing(scheduler_global(), clock, self) ||
           (clock->scheduler && clock->scheduler != scheduler_global() &&
            any_firing(clock->scheduler, clock, self));
}

void scheduler_drop_queue(Scheduler *scheduler) noexcept {
    const Guard guard(scheduler->queue_lock);
    clocks_settle(scheduler);
    while (scheduler->queue) {
        clock_unlink(scheduler, scheduler->queue);
    }
}

void scheduler_times_reset() noexcept {
    Scheduler *const global = scheduler_global();
    const Guard guard(global->queue_lock);
    global->time = global->audio_time = 0.0;
    global->outside_time = 0.0;
    global->has_run = false;
    takeover_time_set(0.0);
}

double scheduler_time(Scheduler *scheduler, bool cached) noexcept {
    if (in_global_pass || running_scheduler == scheduler || scheduler->direct_time) {
        return scheduler->time;
    }
    if (!scheduler->has_run && scheduler != scheduler_global()) {
        return scheduler_global()->time;
    }
    const Guard guard(scheduler->queue_lock);
    // The global scheduler's time counts from the start time, before its first pass too.
    const double estimate = scheduler->has_run
                                ? scheduler->time + (time_base() - scheduler->real_time)
                                : scheduler->time + time_now();
    if (!cached) {
        return estimate;
    }
    if (estimate - scheduler->outside_time > 2.0) {
        scheduler->outside_time = estimate;
    }
    return scheduler->outside_time;
}

void scheduler_pass(double now) noexcept {
    Scheduler *const global = scheduler_global();
    if (scheduler_is_shut_down()) {
        scheduler_drop_queue(global);
        return;
    }
    if (scheduler_is_suspended() || !critical_tryenter(global->run_lock)) {
        return;
    }
    Run run(global);
    const bool outer_pass = std::exchange(in_global_pass, true);
    run.set_times(now);
    (systhread_ismainthread() ? passes.on_main : passes.elsewhere).fetch_add(1);
    for (uint32_t left = poll_throttle(); left > 0; --left) {
        global->time.store(now, std::memory_order_relaxed);
        const bool sent = midi_queue_waiting() && midi_queue_send(now);
        Due due;
        if (run.take_due(now, &Clock::sort_time, &due)) {
            fire(due);
        } else if (!sent) {
            break;
        }
    }
    global->time = now;
    in_global_pass = outer_pass;
}

void scheduler_poll() noexcept {
    scheduler_pass(time_now());
}

double next_due_watched(std::atomic<double> &watched) noexcept {
    Scheduler *const global = scheduler_global();
    const Guard guard(global->queue_lock);
    clocks_settle(global);
    const Clock *const head = global->queue;
    const double next = std::min(head ? head->sort_time : std::numeric_limits<double>::infinity(),
                                 midi_queue_next());
    watched.store(next);
    return next;
}

bool next_clock_time(double *time) noexcept {
    std::atomic<double> next;
    *time = next_due_watched(next);
    return *time != std::numeric_limits<double>::infinity() && !scheduler_is_suspended();
}

}  // namespace kiv

using namespace kiv;

void scheduler_run(Scheduler *scheduler, double until) noexcept {
    if (!scheduler || std::isnan(until)) {
        return;
    }
    Scheduler *const owner = queue_owner(scheduler);
    if (scheduler_is_shut_down()) {
        scheduler_drop_queue(owner);
        return;
    }
    if (!critical_tryenter(owner->run_lock)) {
        return;
    }
    Scheduler *const previous = scheduler_set(scheduler);
    {
        Run run(owner);
        for (uint32_t left = poll_throttle(); left > 0 && !run.scheduler_freed(); --left) {
            Due due;
            if (!run.take_due(until, &Clock::time, &due)) {
                break;
            }
            fire(due);
        }
        if (!run.scheduler_freed()) {
            run.set_times(until);
        }
    }
    scheduler_set(object_valid(previous) ? previous : nullptr);
}

int32_t sched_isinpoll() noexcept {
    return in_global_pass ? 1 : 0;
}
