// The loop sleeps until something wakes it: the timer (a clock is due), a queue element set on
// another thread, a quit request. Without work it uses no processor time.
#include "app/main_loop.h"

#include <algorithm>
#include <limits>

#include "app/application.h"
#include "app/input.h"
#include "sched/internal.h"

namespace kiv::app {

namespace {

constexpr double no_limit = std::numeric_limits<double>::infinity();
constexpr int most_passes_at_once = 1000;

// The scheduler first: what its last clock, on another thread, has put into a queue is there then.
bool idle() {
    return !input_open() && scheduler_is_idle() && main_queues_empty();
}

// When there is something to do next: for a clock, or for the queues, which want a pass in so many
// ms. Infinite for nothing.
double next_work(double wanted) {
    double clock = 0.0;
    const double next = next_clock_time(&clock) ? clock : no_limit;
    return wanted < 0.0 ? next : std::min(next, time_now() + wanted);
}

// One round of work; the ms until the queues want the next one, negative when they want none.
double work() {
    if (!overdrive_get()) {
        scheduler_poll();
    }
    return main_queues_pass();
}

// Runs what waits now, whatever keeps setting itself again a limited number of times. No timer runs
// the scheduler meanwhile.
void empty_queues_once() {
    for (int pass = 0; pass < most_passes_at_once; ++pass) {
        scheduler_poll();
        if (next_work(main_queues_pass()) > time_now()) {
            return;
        }
    }
}

// Time stands still until nothing is due, then jumps to what comes next.
void offline_loop(double end, bool until_idle) {
    while (!quit_requested()) {
        const double next = next_work(work());
        if (next != no_limit) {
            if (next > end) {
                return;
            }
            time_advance_to(next);
        } else if (!input_open() && (until_idle || end != no_limit)) {
            return;
        } else {
            main_wait(-1.0);
        }
    }
}

void timed_loop(double end, bool until_idle) {
    while (!quit_requested()) {
        const double wanted = work();
        if (until_idle && idle()) {
            return;
        }
        const double left = end - time_now();
        if (left <= 0.0) {
            return;
        }
        if (wanted < 0.0) {
            main_wait(left == no_limit ? -1.0 : left);
        } else if (wanted > 0.0) {
            main_wait(std::min(wanted, left));
        }
    }
}

}  // namespace

void main_loop(const Options &options) {
    if (options.run_seconds == 0.0) {
        empty_queues_once();
        return;
    }
    const double end = options.run_seconds ? time_now() + *options.run_seconds * 1000.0 : no_limit;
    if (options.offline) {
        offline_loop(end, options.until_idle);
    } else {
        system_timer_start();
        timed_loop(end, options.until_idle);
        system_timer_stop();
    }
}

}  // namespace kiv::app
