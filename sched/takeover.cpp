// Audio takeover: an audio driver finds the record under "__takeover" and, in overdrive, drives the
// scheduler in place of the timer. The driver advances the record's time and calls its poll
// routine.
//
// Thread safety: takeover is switched under `lock`; the time belongs to the driver while it is on.
#include <atomic>
#include <cmath>

#include "platform/platform.h"
#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr double resync_limit_ms = 100.0;

// Field order is part of the interface.
struct TakeoverRecord {
    void (*poll)();
    void (*set_takeover)(int32_t on);
    double time;
    double sample_rate_khz;
    int32_t *timer_running;
    double ms_per_sample;
    int32_t *overdrive;
    double sample_rate_khz_again;
    double ms_per_sample_again;
    uintptr_t zero;
};

void poll();

constexpr double sample_rate_khz = 44.1;
constexpr double ms_per_sample = 0.022675736961451247;

TakeoverRecord record{poll,          sched_set_takeover,
                      0.0,           sample_rate_khz,
                      nullptr,       ms_per_sample,
                      nullptr,       sample_rate_khz,
                      ms_per_sample, 0};

struct State {
    platform::CriticalSection lock;
    bool on = false;
};
State &state() {
    return immortal<State>();
}

void poll() {
    if (!overdrive_get()) {
        return;
    }
    const double time = takeover_time();
    if (std::fabs(time - time_now()) > resync_limit_ms) {
        time_reading_set(time);
    }
    scheduler_pass(time);
}

// What drivers call when they start: the first poll resynchronises by itself.
void driver_starting() {}

}  // namespace

void takeover_start() noexcept {
    record.timer_running = timer_running_flag();
    record.overdrive = overdrive_flag();
    "__takeover"_sym->thing = &record;
    "systimer_notifystartiovector"_sym->thing = reinterpret_cast<void *>(driver_starting);
}

// The record is the driver's to write: nonsense in it must not become the time.
double takeover_time() noexcept {
    const double time = std::atomic_ref(record.time).load(std::memory_order_relaxed);
    return std::isfinite(time) ? time : time_now();
}

void takeover_time_set(double time) noexcept {
    std::atomic_ref(record.time).store(time, std::memory_order_relaxed);
}

}  // namespace kiv

using namespace kiv;

void sched_set_takeover(int32_t on) noexcept {
    const Guard guard(state().lock);
    if (state().on == (on != 0)) {
        return;
    }
    state().on = on != 0;
    if (state().on) {
        system_timer_take_over(true);
        takeover_time_set(time_now());
    } else {
        if (overdrive_get()) {
            time_reading_set(takeover_time());  // goes on from where the driver's count stood
        }
        system_timer_take_over(false);
    }
}
