// Records of schedulers and clocks, shared by the files of this folder.
//
// Invariants of a clock queue, under its queue lock:
//   1. Once settled, `queue` and the clocks' `next` hold every waiting clock in firing order:
//      ascending sort time, equal sort times in the order of setting (ascending `sequence`). Until
//      then the clocks set last stand in `arrivals`, in no order.
//   2. `tree` holds the clocks of that chain, so that finding a place in it costs the logarithm of
//      their number.
//   3. A clock is set exactly when its `queue_slot` is not null.
//   4. `firing` holds a frame for each run of the scheduler that is under way.
//
// Lock order: the lock of the owners' table (owned.h); a run lock; a private scheduler's queue
// lock; the global one's queue lock. No queue lock is held while anything is called that may set a
// clock.
#pragma once

#include <kiv/clock.h>
#include <kiv/defer.h>
#include <kiv/scheduler.h>

#include <atomic>

#include "kernel/internal.h"
#include "sched/clock_tree.h"
#include "sched/internal.h"
#include "sched/owned.h"

namespace kiv {

inline constexpr int32_t most_arrivals = 1024;

// A clock that was set and is still to be put into its place.
struct ClockArrival {
    Clock *clock;
    double sort_time;
    uint64_t sequence;
};

// What a run of a scheduler is calling now; on the stack of the thread that runs it.
struct Firing {
    const Clock *clock;  // null between two clocks
    ThreadId thread;
    bool scheduler_freed;  // by the clock's own function: the run must let go of it
    Firing *outer;
};

}  // namespace kiv

struct Scheduler {
    Object ob;
    Clock *queue;
    std::atomic<double> time;        // logical time; read from any thread
    std::atomic<double> audio_time;  // scheduler time as seen from audio threads
    double real_time;                // of the last run, on the time base; under the queue lock
    double outside_time;             // last estimate handed out outside a run; under the queue lock
    CriticalRef queue_lock;
    CriticalRef run_lock;
    std::atomic<int32_t> chain_to_global;  // changes under both queue locks
    uint8_t direct_time;
    // Private from here on.
    std::atomic<bool> has_run;
    kiv::ClockTree tree;
    kiv::ClockArrival arrivals[kiv::most_arrivals];
    int32_t arrival_count;
    uint64_t settings;    // numbers the settings of clocks, so that order survives ties
    kiv::Firing *firing;  // innermost first; under the queue lock
    Clock *clocks;        // all clocks of a private scheduler; under its own queue lock
};

struct Clock {
    Object ob;
    Clock *next;
    void *owner;
    Method function;
    Clock **queue_slot;
    double sort_time;
    double time;
    Scheduler *scheduler;  // null: a clock of no scheduler waits on the global one's queue
    Object *owner_object;
    Qelem *deferral;
    // Private from here on.
    uint64_t sequence;
    int32_t arrival;       // place in `arrivals`, from 1; 0: not there
    Clock *sibling;        // the next clock of the same private scheduler
    Clock **sibling_link;  // what leads to this one among them
    kiv::OwnedLink<Clock> owned;
};

namespace kiv {

// The order of waiting clocks, and of those that are still to be placed.
inline constexpr auto fires_before = [](const auto &one, const auto &other) noexcept {
    return one.sort_time < other.sort_time ||
           (one.sort_time == other.sort_time && one.sequence < other.sequence);
};

// The scheduler whose queue and locks serve `scheduler`: itself, or the global one it chains to.
Scheduler *queue_owner(Scheduler *scheduler) noexcept;

// Holds the lock of the queue that serves a scheduler, whatever becomes of its chaining meanwhile.
class QueueGuard {
  public:
    explicit QueueGuard(Scheduler *scheduler) noexcept : owner_(queue_owner(scheduler)) {
        critical_enter(owner_->queue_lock);
        for (Scheduler *now = queue_owner(scheduler); now != owner_; now = queue_owner(scheduler)) {
            critical_exit(owner_->queue_lock);
            owner_ = now;
            critical_enter(owner_->queue_lock);
        }
    }
    ~QueueGuard() { critical_exit(owner_->queue_lock); }
    QueueGuard(const QueueGuard &) = delete;
    QueueGuard &operator=(const QueueGuard &) = delete;
    Scheduler *owner() const noexcept { return owner_; }

  private:
    Scheduler *owner_;
};

// --- The queue (clock_queue.cpp); under the owner's queue lock -----------------------------------

void clock_link(Scheduler *owner, Clock *clock) noexcept;
void clock_unlink(Scheduler *owner, Clock *clock) noexcept;
// Puts the clocks set last into their places; before every look at `queue` and `next`.
void clocks_settle(Scheduler *owner) noexcept;
// Adds delta to both times of the clocks that belong to `scheduler`, and puts them in order again.
void clocks_shift(Scheduler *owner, const Scheduler *scheduler, double delta) noexcept;
// Moves the waiting clocks that belong to `scheduler` from one queue to another.
void clocks_move(Scheduler *from, Scheduler *to, const Scheduler *scheduler) noexcept;
// Names what is broken in a queue, or answers null. Takes the lock. Tests only.
const char *clock_queue_check(Scheduler *scheduler) noexcept;

// --- Clocks (clock.cpp) --------------------------------------------------------------------------

// Makes the class, while there is memory for it.
void clocks_start() noexcept;
// A clock whose function gets `owner`, on behalf of `owner_object` (or nobody): freeing that object
// takes the clock off its queue, when `tracked`.
Clock *clock_make(void *owner, Method function, Scheduler *scheduler, Object *owner_object,
                  bool tracked) noexcept;
// Unsets every clock of an object that is being freed, and waits for those that fire elsewhere.
void clocks_cancel(Object *owner) noexcept;

// --- Runs (pass.cpp) -----------------------------------------------------------------------------

// One pass of the global scheduler at `now`.
void scheduler_pass(double now) noexcept;
// Unsets a clock; true when another thread runs its function just now, which may set it again.
bool clock_withdraw(Clock *clock) noexcept;
// A clock that its own function has freed is no longer what the run fires: its memory may become
// another clock.
void clock_forget(const Clock *clock) noexcept;
// What time it is for the calling thread: on an audio thread the audio time, inside a pass the
// logical time, else the outside estimate (through its cache, unless told otherwise).
double scheduler_time(Scheduler *scheduler, bool cached) noexcept;
// The global scheduler knows of no time yet: the time begins anew.
void scheduler_times_reset() noexcept;
// Takes off the queue and forgets every waiting clock.
void scheduler_drop_queue(Scheduler *scheduler) noexcept;

bool scheduler_is_shut_down() noexcept;
bool scheduler_is_suspended() noexcept;
uint32_t poll_throttle() noexcept;
uint32_t queue_throttle() noexcept;
// The time of the next clock or MIDI packet, infinite for none. It is noted in `watched` before a
// clock or packet that comes first can be announced by timer_clock_set.
double next_due_watched(std::atomic<double> &watched) noexcept;

// --- The time base, the timer, takeover ----------------------------------------------------------

// The reading of the time base that real times are kept in: no move of the start time touches it.
double time_base() noexcept;
// Moves the start time so that time_now gives `reading`.
void time_reading_set(double reading) noexcept;
bool time_is_offline() noexcept;

// Tells the timer that a clock was set on the global queue: it may be the first.
void timer_clock_set(double sort_time) noexcept;
// Stops and restarts the ticks of a started timer: for a suspension, or while an audio driver does
// its work (which it does in overdrive only).
void system_timer_pause(bool paused) noexcept;
void system_timer_take_over(bool on) noexcept;
// The flags that an audio driver reads through the takeover record.
int32_t *timer_running_flag() noexcept;
int32_t *overdrive_flag() noexcept;

void takeover_start() noexcept;
double takeover_time() noexcept;
void takeover_time_set(double time) noexcept;

// --- Deferred calls (defer.cpp) ------------------------------------------------------------------

// Make the classes of calls and of scheduled queues.
void calls_start() noexcept;
void schedule_queues_start() noexcept;
// Drops the deferred calls that wait for an object that is being freed, and waits for those that
// run elsewhere.
void deferred_cancel(Object *owner) noexcept;

}  // namespace kiv
