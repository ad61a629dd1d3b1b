// Records of schedulers and clocks, shared by the files of this folder.
//
// Invariants of a clock queue, under its queue lock:
//   1. `queue` and the clocks' `next` hold every waiting clock in firing order: ascending sort
//   time,
//      equal sort times in the order of setting (ascending `sequence`).
//   2. `express[l]` and the clocks' `express[l]` skip along the same order: a clock of height h is
//   on
//      the first h - 1 express lanes. So setting and unsetting cost the logarithm of the number of
//      waiting clocks, and taking the head costs its height.
//   3. A clock is set exactly when its `queue_slot` is not null.
#pragma once

#include <kiv/clock.h>
#include <kiv/defer.h>
#include <kiv/scheduler.h>

#include <atomic>

#include "kernel/internal.h"
#include "sched/internal.h"

inline constexpr int clock_express_lanes =
    11;  // with a quarter on each next lane: 16 million clocks

struct Scheduler {
    Object ob;
    Clock *queue;
    std::atomic<double> time;          // logical time; read from any thread
    std::atomic<double> audio_time;    // scheduler time as seen from audio threads
    std::atomic<double> real_time;     // of the last run, on the time base
    std::atomic<double> outside_time;  // last estimate handed out outside a run
    CriticalRef queue_lock;
    CriticalRef run_lock;
    int32_t chain_to_global;
    uint8_t direct_time;
    // Private from here on.
    std::atomic<bool> has_run;
    Clock *express[clock_express_lanes];
    uint64_t settings;             // numbers the settings of clocks, so that order survives ties
    std::atomic<Clock *> firing;   // the clock whose function runs now
    std::atomic<uint32_t> runner;  // identifier of the thread that runs it
};

struct Clock {
    Object ob;
    Clock *next;
    void *owner;
    Method function;
    Clock **queue_slot;
    double sort_time;
    double time;
    Scheduler *scheduler;
    Object *owner_object;
    Qelem *deferral;
    // Private from here on.
    uint64_t sequence;
    int32_t height;
    Clock *express[clock_express_lanes];
};

namespace kiv {

// The scheduler whose queue and locks serve `scheduler`: itself, or the global one it chains to.
Scheduler *queue_owner(Scheduler *scheduler) noexcept;

// Under the owner's queue lock. Linking answers true when the clock became the head.
bool clock_link(Scheduler *owner, Clock *clock) noexcept;
void clock_unlink(Scheduler *owner, Clock *clock) noexcept;
// Adds delta to both times of the clocks that belong to `scheduler`, and puts them in order again.
void clocks_shift(Scheduler *owner, const Scheduler *scheduler, double delta) noexcept;
// Names what is broken in a queue, or answers null. Tests and debug builds only.
const char *clock_queue_check(Scheduler *scheduler) noexcept;

// Logical time for a caller outside the audio rule: inside a pass the logical time, else the
// outside estimate (through its cache, unless told otherwise).
double scheduler_time(Scheduler *scheduler, bool cached) noexcept;
// Takes off the queue and forgets every waiting clock.
void scheduler_drop_queue(Scheduler *scheduler) noexcept;
// Waits until a clock's function, running on another thread, has returned.
void clock_wait_fired(Scheduler *owner, const Clock *clock) noexcept;
void clocks_cancel(Object *owner) noexcept;

// One pass of the global scheduler at `now`.
void scheduler_pass(double now) noexcept;
// Tells the timer that a clock became the head of the global queue.
void timer_head_changed(double sort_time) noexcept;
void timer_start_family() noexcept;
// Stops and restarts the ticks of a started timer (suspension).
void system_timer_pause(bool paused) noexcept;

double takeover_time() noexcept;
void takeover_time_set(double time) noexcept;

// Frees the deferred calls that wait for an object that is being freed.
void deferred_cancel(Object *owner) noexcept;

uint32_t queue_throttle() noexcept;
uint32_t sysqelem_throttle() noexcept;

}  // namespace kiv
