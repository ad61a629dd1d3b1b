// The time base: milliseconds since the start time, on the clock of the system or, offline, on one
// that stands still until the host advances it.
//
// There is one for the process, as there is one global scheduler that lives by it. Thread safety:
// any thread reads it; an audio driver's takeover moves the start time.
#include <atomic>

#include "platform/platform.h"
#include "sched/scheduler.h"

namespace kiv {

namespace {

struct State {
    // The first reading of the process; atomic, since takeover moves it.
    std::atomic<double> start_time{platform::time_ms()};
    std::atomic<bool> offline{false};
    std::atomic<double> offline_time{0.0};
};
State &state() {
    return immortal<State>();
}

void begin_anew(bool offline) {
    State &s = state();
    s.start_time.store(platform::time_ms());
    s.offline_time.store(0.0);
    s.offline.store(offline);
    scheduler_times_reset();
}

}  // namespace

double time_base() noexcept {
    const State &s = state();
    return s.offline.load(std::memory_order_relaxed)
               ? s.offline_time.load(std::memory_order_relaxed)
               : platform::time_ms();
}

double time_now() noexcept {
    const State &s = state();
    return s.offline.load(std::memory_order_relaxed)
               ? s.offline_time.load(std::memory_order_relaxed)
               : platform::time_ms() - s.start_time.load(std::memory_order_relaxed);
}

void time_reading_set(double reading) noexcept {
    state().start_time.store(platform::time_ms() - reading);
}

void time_offline_begin() noexcept {
    begin_anew(true);
}

void time_offline_end() noexcept {
    begin_anew(false);
}

void time_advance_to(double time) noexcept {
    if (time > state().offline_time.load()) {
        state().offline_time.store(time);
    }
}

bool time_is_offline() noexcept {
    return state().offline.load(std::memory_order_relaxed);
}

}  // namespace kiv
