// The system timer and overdrive.
//
// A tick runs a pass (in overdrive) or wakes the main thread to run one. The timer ticks only when
// a clock or a MIDI packet is due, and never twice within its interval: its thread sleeps until the
// head's time, or without limit when nothing waits, and what is set to come first cuts the sleep
// short (timer_clock_set). So a runtime with nothing to do uses no processor, and a tick comes as
// soon as there is something for it to do.
//
// Thread safety: the timer starts and stops under `lock`, on any thread. Each start is a generation
// with a thread of its own; the thread of an earlier one ends after the pass it may be in. A thread
// that ends joins the one that ended before it, so that whoever joins the last has seen all end.
#include <kiv/console.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <utility>

#include "platform/platform.h"
#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr int32_t timer_priority = 30;

struct State {
    platform::CriticalSection lock;
    bool wanted = false;                  // by the host
    bool paused = false;                  // the scheduler is suspended
    bool taken_over = false;              // by an audio driver
    Vector<ThreadId> threads;             // those that have not ended
    ThreadId ended = 0;                   // the last that has, until it is joined
    std::atomic<uint32_t> generation{0};  // odd while the timer runs
    std::atomic<double> interval{1.0};
    std::atomic<double> sleeping_until{never};
    platform::Event changed{false};  // the head, the interval or the generation changed
    std::atomic<int32_t> running{0};
    std::atomic<int32_t> overdrive{0};
};
static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t));
State &state() {
    return immortal<State>();
}

void tick(double now) {
    if (overdrive_get()) {
        scheduler_pass(now);
    } else {
        main_wake();  // the host polls the scheduler when it wakes
    }
}

void *timer_thread(void *argument) {
    const auto generation = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
    State &s = state();
    timer_thread_mark();
    platform::time_punctual();
    double earliest = -never;  // when the next tick may come, on the platform's clock
    while (s.generation.load() == generation) {
        const double until_due = next_due_watched(s.sleeping_until) - time_now();
        const double now = platform::time_ms();
        const double wait = std::max(until_due, earliest - now);
        if (wait > 0.0) {
            if (wait == never) {
                main_wake();  // the host may be waiting for the last clock
            }
            s.changed.wait(wait == never ? platform::wait_forever : wait);
            continue;
        }
        tick(time_now());
        // Counted from when this tick was to come, lest its own lateness add up from tick to tick.
        const double interval_ms = std::floor(s.interval.load());
        earliest = std::max(now + wait, now - interval_ms) + interval_ms;
    }
    s.changed.set();  // what this thread was woken by may have been meant for its successor
    ThreadId before = 0;
    {
        const Guard guard(s.lock);
        std::erase(s.threads, systhread_self());
        before = std::exchange(s.ended, systhread_self());
    }
    systhread_join(before, nullptr);
    return nullptr;
}

bool start_thread(State &s, uint32_t generation) {
    const auto argument = reinterpret_cast<void *>(uintptr_t{generation});
    try {
        ThreadId &thread = s.threads.emplace_back();
        if (systhread_create(method(timer_thread), argument, 0, timer_priority, 0, &thread) == 0) {
            return true;
        }
        s.threads.pop_back();
    } catch (const std::bad_alloc &) {
        // As when the system has no thread to give.
    }
    return false;
}

void start_ticks(State &s) {
    const uint32_t generation = s.generation.fetch_add(1) + 1;
    s.running.store(1);
    if (!start_thread(s, generation)) {
        s.generation.fetch_add(1);
        s.running.store(0);
        error("the system timer cannot start its thread");
    }
}

void stop_ticks(State &s) {
    s.generation.fetch_add(1);
    s.running.store(0);
    s.changed.set();
}

// Changes what is asked of the timer and brings the ticks in line with it. Nobody waits here for a
// thread to end, since it may be what is calling.
template <class Change>
void apply(Change change) {
    State &s = state();
    const Guard guard(s.lock);
    change(s);
    const bool run = s.wanted && !s.paused && !(s.taken_over && overdrive_get());
    const bool runs = (s.generation.load() & 1) != 0;
    if (run && !runs) {
        start_ticks(s);
    } else if (runs && !run) {
        stop_ticks(s);
    }
}

// A thread to join, or 0 when all have been.
ThreadId take_thread() {
    State &s = state();
    const Guard guard(s.lock);
    if (s.threads.empty()) {
        return std::exchange(s.ended, 0);
    }
    const ThreadId thread = s.threads.back();
    s.threads.pop_back();
    return thread;
}

}  // namespace

void system_timer_start() noexcept {
    apply([](State &s) { s.wanted = true; });
}

void system_timer_stop() noexcept {
    apply([](State &s) { s.wanted = false; });
    if (systhread_istimerthread()) {
        return;
    }
    while (const ThreadId thread = take_thread()) {
        systhread_join(thread, nullptr);
    }
}

void system_timer_pause(bool paused) noexcept {
    apply([paused](State &s) { s.paused = paused; });
}

void system_timer_take_over(bool on) noexcept {
    apply([on](State &s) { s.taken_over = on; });
}

void timer_clock_set(double sort_time) noexcept {
    State &s = state();
    if ((s.generation.load(std::memory_order_relaxed) & 1) &&
        sort_time < s.sleeping_until.load(std::memory_order_relaxed)) {
        s.changed.set();
    }
}

int32_t *timer_running_flag() noexcept {
    return reinterpret_cast<int32_t *>(&state().running);
}

int32_t *overdrive_flag() noexcept {
    return reinterpret_cast<int32_t *>(&state().overdrive);
}

void overdrive_set(bool on) noexcept {
    on = on && !time_is_offline();
    apply([on](State &s) { s.overdrive.store(on ? 1 : 0); });
}

bool overdrive_get() noexcept {
    return state().overdrive.load() != 0;
}

double interval() noexcept {
    return state().interval.load();
}

bool interval_set(double ms) noexcept {
    if (!(ms >= 1.0 && ms <= 20.0)) {
        return false;
    }
    state().interval.store(ms);
    state().changed.set();
    return true;
}

}  // namespace kiv
