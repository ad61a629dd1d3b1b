// The time base, the system timer, overdrive and audio takeover.
//
// The timer ticks on the grid of its interval, but a tick that would find nothing due is slept
// through: the timer's thread waits until the first grid point at or after the time of the head
// clock, or without limit when no clock waits. So a runtime with nothing to do uses no processor,
// and a clock that becomes the head cuts the wait short (timer_head_changed).
//
// Thread safety: the timer record changes on the thread that starts and stops it (the main thread,
// or an audio driver's through takeover) under `lock`; ticks of an earlier generation do nothing.
#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/platform.h"
#include "sched/qelem.h"

namespace kiv {

namespace {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr double resync_limit_ms = 100.0;

struct State {
    platform::CriticalSection lock;
    platform::Event changed{false};       // the head, the interval or the generation changed
    std::atomic<uint32_t> generation{0};  // odd while the timer runs
    std::atomic<double> sleeping_until{never};
    std::atomic<double> start_time{0.0};  // first reading of the time base
    std::atomic<double> interval{1.0};
    std::atomic<bool> overdrive{false};
    std::atomic<bool> wanted{false};  // the host started the timer
    std::atomic<bool> paused{false};
    std::atomic<bool> poll_requested{false};
    std::atomic<bool> offline{false};
    std::atomic<double> offline_time{0.0};
    uint32_t thread = 0;  // identifier of the timer's thread, for joining
};
State &state() {
    static State instance;
    return instance;
}

// What an audio driver finds under "__takeover". Field order is part of the interface.
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

int32_t timer_running_flag = 0;
int32_t overdrive_flag = 0;
bool takeover_on = false;

void takeover_poll();

TakeoverRecord takeover{takeover_poll,
                        sched_set_takeover,
                        0.0,
                        44.1,
                        &timer_running_flag,
                        0.022675736961451247,
                        &overdrive_flag,
                        44.1,
                        0.022675736961451247,
                        0};

void takeover_poll() {
    if (!state().overdrive.load()) {
        return;
    }
    const double reading = time_now();
    if (std::fabs(takeover.time - reading) > resync_limit_ms) {
        state().start_time.store(state().start_time.load() + reading - takeover.time);
    }
    scheduler_pass(takeover.time);
}

void tick(double now) {
    if (state().overdrive.load()) {
        scheduler_pass(now);
    } else {
        main_wake();  // the host polls the scheduler when it wakes
    }
}

// Milliseconds to sleep: to the first point of the interval's grid at or after the head's time.
uint32_t sleep_for(double head, double now) {
    const double interval = state().interval.load();
    const double wait = std::ceil((head - now) / interval) * interval;
    return static_cast<uint32_t>(std::clamp(std::ceil(wait), 1.0, 3600000.0));
}

uint32_t timer_thread(void *argument) {
    const auto generation = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
    timer_thread_mark();
    systhread_setpriority(systhread_self(), 30);
    bool woke_main = false;
    while (state().generation.load() == generation) {
        double head = never;
        next_clock_time(&head);
        state().sleeping_until.store(head);
        double again = never;  // the head may have changed before it was announced
        next_clock_time(&again);
        if (again != head) {
            continue;
        }
        const double now = time_now();
        if (head == never) {
            state().changed.wait(platform::wait_forever);
            woke_main = false;
        } else if (head > now || woke_main) {
            // A head that is due stays until the main thread has polled: look again in an interval.
            state().changed.wait(sleep_for(std::max(head, now), now));
            woke_main = false;
        } else {
            tick(now);
            woke_main = !state().overdrive.load();
        }
    }
    return 0;
}

void start_ticks() {
    if (state().generation.load() & 1) {
        return;
    }
    const uint32_t generation = state().generation.fetch_add(1) + 1;
    timer_running_flag = 1;
    platform::thread_start(timer_thread, reinterpret_cast<void *>(uintptr_t{generation}), 0,
                           &state().thread);
}

void stop_ticks() {
    if (!(state().generation.load() & 1)) {
        return;
    }
    state().generation.fetch_add(1);
    timer_running_flag = 0;
    state().changed.set();
    if (platform::thread_self() != state().thread) {
        platform::thread_join(state().thread, nullptr);
    }
}

// Brings the ticks in line with what the host, suspension and takeover ask for.
void apply() {
    const bool run = state().wanted.load() && !state().paused.load() &&
                     !(takeover_on && state().overdrive.load());
    if (run) {
        start_ticks();
    } else {
        stop_ticks();
    }
}

class StateLock {
  public:
    StateLock() { state().lock.enter(); }
    ~StateLock() { state().lock.exit(); }
    StateLock(const StateLock &) = delete;
    StateLock &operator=(const StateLock &) = delete;
};

// What audio drivers call when they start: the driver's first buffer resynchronises by itself.
void audio_starting() {}

}  // namespace

void timer_start_family() noexcept {
    state().start_time.store(platform::time_ms());
    "__takeover"_sym->thing = &takeover;
    "systimer_notifystartiovector"_sym->thing = reinterpret_cast<void *>(audio_starting);
}

void system_timer_start() noexcept {
    const StateLock lock;
    state().wanted.store(true);
    apply();
}

void system_timer_stop() noexcept {
    const StateLock lock;
    state().wanted.store(false);
    apply();
}

void system_timer_pause(bool paused) noexcept {
    const StateLock lock;
    state().paused.store(paused);
    apply();
}

void timer_head_changed(double sort_time) noexcept {
    if ((state().generation.load(std::memory_order_relaxed) & 1) &&
        sort_time < state().sleeping_until.load()) {
        state().changed.set();
    }
}

void overdrive_set(bool on) noexcept {
    const StateLock lock;
    if (state().overdrive.exchange(on) == on) {
        return;
    }
    overdrive_flag = on ? 1 : 0;
    apply();
    state().changed.set();
    main_wake();
}

bool overdrive_get() noexcept {
    return state().overdrive.load();
}

bool interval_set(double ms) noexcept {
    if (!(ms >= 1.0 && ms <= 20.0)) {
        return false;
    }
    state().interval.store(std::floor(ms));
    state().changed.set();
    return true;
}

double time_now() noexcept {
    return state().offline.load(std::memory_order_relaxed)
               ? state().offline_time.load(std::memory_order_relaxed)
               : platform::time_ms() - state().start_time.load(std::memory_order_relaxed);
}

void time_offline_begin() noexcept {
    state().offline_time.store(0.0);
    state().offline.store(true);
}

void time_advance_to(double time) noexcept {
    if (time > state().offline_time.load()) {
        state().offline_time.store(time);
    }
}

bool time_is_offline() noexcept {
    return state().offline.load();
}

double takeover_time() noexcept {
    return takeover.time;
}

void takeover_time_set(double time) noexcept {
    takeover.time = time;
}

}  // namespace kiv

using namespace kiv;

void sched_set_takeover(int32_t on) noexcept {
    const StateLock lock;
    if (takeover_on == (on != 0)) {
        return;
    }
    takeover_on = on != 0;
    if (takeover_on) {
        apply();
        takeover.time = time_now();
    } else {
        if (state().overdrive.load()) {
            // The reading goes on from where the driver's count stood.
            state().start_time.store(platform::time_ms() - takeover.time);
        }
        apply();
    }
}
