// Runs of schedulers: the passes of the global one, and scheduler_run.
//
// A run holds the run lock for its whole length and the queue lock only around each change of the
// queue, never while a clock's function runs. Walk protocol: the head is taken off and copied to
// locals before its function is called; afterwards nothing of that clock is touched, since its
// function may have freed it, and nothing of a private scheduler either when that was freed.
#include <algorithm>
#include <cmath>
#include <limits>

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

struct Due {
    void *owner;
    Method function;
    Qelem *deferral;
};

class Run;
thread_local Run *innermost_run = nullptr;  // of the calling thread

// A run under way. The caller has entered the run lock.
class Run : public Firing {
  public:
    explicit Run(Scheduler *scheduler) noexcept
        : Firing{}, scheduler_(scheduler), enclosing_(innermost_run), started_(time_base()) {
        innermost_run = this;
        thread = systhread_self();
        const Guard guard(scheduler->queue_lock);
        outside_time_ = outside_time(scheduler);
        outer = scheduler->firing;
        scheduler->firing = this;
    }
    ~Run() {
        innermost_run = enclosing_;
        if (!scheduler_freed) {
            {
                const Guard guard(scheduler_->queue_lock);
                scheduler_->firing = outer;
            }
            critical_exit(scheduler_->run_lock);
        }
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    // Whether the calling thread is in a run of a scheduler.
    static bool is_inside(const Scheduler *scheduler) noexcept {
        const Run *run = innermost_run;
        while (run && run->scheduler_ != scheduler) {
            run = run->enclosing_;
        }
        return run != nullptr;
    }
    // A clock that the calling thread is freeing: other threads must not take what comes to stand
    // in its place for what fires.
    static void forget(const Clock *freed) noexcept {
        for (Run *run = innermost_run; run; run = run->enclosing_) {
            if (run->clock == freed && !run->scheduler_freed) {
                const Guard guard(run->scheduler_->queue_lock);
                run->clock = nullptr;
            }
        }
    }
    // The logical time that callers outside count from: during a run not that of the clock which it
    // fires. The caller holds the queue lock.
    static double outside_time(const Scheduler *scheduler) noexcept {
        return scheduler->firing ? static_cast<const Run *>(scheduler->firing)->outside_time_
                                 : scheduler->time.load();
    }

    // Sets the logical time, for callers outside as from the beginning of the run.
    void set_times(double time) noexcept {
        const Guard guard(scheduler_->queue_lock);
        scheduler_->time = outside_time_ = time;
        if (systhread_isaudiothread()) {
            scheduler_->audio_time = time;
        }
        scheduler_->real_time = started_;
        scheduler_->has_run = true;
    }

    // Takes the head off the queue when it is due at `now`, and moves the logical time.
    bool take_due(double now, double Clock::*due_time, Due *due) noexcept {
        const Guard guard(scheduler_->queue_lock);
        clock = nullptr;  // the one before has returned
        clocks_settle(scheduler_);
        Clock *const head = scheduler_->queue;
        if (!head || head->*due_time > now) {
            return false;
        }
        if (scheduler_->time.load(std::memory_order_relaxed) - head->sort_time < slop()) {
            scheduler_->time.store(head->time, std::memory_order_relaxed);
        }
        clock_unlink(scheduler_, head);
        clock = head;
        *due = {head->owner, head->function, head->deferral};
        return true;
    }

  private:
    Scheduler *const scheduler_;
    Run *const enclosing_;  // on this thread, of whatever scheduler
    const double started_;  // on the time base
    double outside_time_;   // under the queue lock
};

// Enters the run lock of a scheduler, if it may be run now.
bool enter_run(Scheduler *scheduler) noexcept {
    if (scheduler_is_shut_down()) {
        scheduler_drop_queue(scheduler);
        return false;
    }
    const bool suspended = scheduler_is_suspended() && scheduler == scheduler_global();
    return !suspended && critical_tryenter(scheduler->run_lock);
}

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

// Under the scheduler's queue lock.
bool fires_elsewhere(const Scheduler *scheduler, const Clock *clock) noexcept {
    const ThreadId self = systhread_self();
    const Firing *frame = scheduler->firing;
    while (frame && (frame->clock != clock || frame->thread == self)) {
        frame = frame->outer;
    }
    return frame != nullptr;
}

}  // namespace

// Both locks at once: a function that returns between two looks may have set its clock again. A
// clock whose scheduler was chained or let go while it fired is found in either's runs.
bool clock_withdraw(Clock *clock) noexcept {
    Scheduler *const global = scheduler_global();
    Scheduler *const own = clock->scheduler ? clock->scheduler : global;
    const Guard own_guard(own->queue_lock);
    const Guard global_guard(global->queue_lock);
    if (clock->queue_slot) {
        clock_unlink(queue_owner(own), clock);
    }
    return fires_elsewhere(own, clock) || fires_elsewhere(global, clock);
}

void clock_forget(const Clock *clock) noexcept {
    Run::forget(clock);
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

double scheduler_time(Scheduler *asked, bool cached) noexcept {
    Scheduler *const scheduler = queue_owner(asked);
    if (systhread_isaudiothread()) {
        return scheduler->audio_time;
    }
    if (Run::is_inside(scheduler) || Run::is_inside(scheduler_global()) || scheduler->direct_time) {
        return scheduler->time;
    }
    if (!scheduler->has_run && scheduler != scheduler_global()) {
        return scheduler_global()->time;
    }
    const Guard guard(scheduler->queue_lock);
    // The global scheduler's time counts from the start time, before its first pass too.
    const double passed = scheduler->has_run ? time_base() - scheduler->real_time : time_now();
    const double estimate = Run::outside_time(scheduler) + passed;
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
    if (!enter_run(global)) {
        return;
    }
    Run run(global);
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
}

int64_t scheduler_passes(bool on_main) noexcept {
    return (on_main ? passes.on_main : passes.elsewhere).load();
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

bool scheduler_is_idle() noexcept {
    Scheduler *const global = scheduler_global();
    const Guard guard(global->queue_lock);
    double time = 0.0;
    return !next_clock_time(&time) && !global->firing;
}

}  // namespace kiv

using namespace kiv;

void scheduler_run(Scheduler *scheduler, double until) noexcept {
    if (!scheduler || std::isnan(until)) {
        return;
    }
    Scheduler *const owner = queue_owner(scheduler);
    if (!enter_run(owner)) {
        return;
    }
    Scheduler *const previous = scheduler_set(scheduler);
    {
        Run run(owner);
        for (uint32_t left = poll_throttle(); left > 0 && !run.scheduler_freed; --left) {
            Due due;
            if (!run.take_due(until, &Clock::time, &due)) {
                break;
            }
            fire(due);
        }
        if (!run.scheduler_freed) {
            run.set_times(until);
        }
    }
    scheduler_set(previous);
}

int32_t sched_isinpoll() noexcept {
    return Run::is_inside(scheduler_global()) ? 1 : 0;
}
