// How late a clock of 10 ms fires in overdrive, beside a thread that sleeps until each time is due:
//     bench/lateness [SECONDS]
// Both run at once, so what the machine does to one it does to the other. On a busy machine both
// say more about the machine.
#include <kiv/kiv.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "kernel/startup.h"
#include "sched/internal.h"

namespace kiv {
namespace {

constexpr double interval_ms = 10.0;

struct Metro {
    Clock *clock;
    double next;
    std::vector<double> late;

    static void tick(Metro *metro) {
        if (metro->late.size() < metro->late.capacity()) {
            metro->late.push_back(time_now() - metro->next);
            metro->next += interval_ms;
            clock_fset(metro->clock, metro->next);
        }
    }
};

std::vector<double> sleeping_loop(size_t count) {
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;
    std::vector<double> late;
    Clock::time_point next = Clock::now();
    for (size_t i = 0; i < count; ++i) {
        next += std::chrono::milliseconds(static_cast<int>(interval_ms));
        std::this_thread::sleep_until(next);
        late.push_back(Milliseconds(Clock::now() - next).count());
    }
    return late;
}

void report(const char *name, std::vector<double> late) {
    std::sort(late.begin(), late.end());
    std::printf("%-15s %8.3f %8.3f %8.3f\n", name, late[late.size() / 2],
                late[late.size() * 99 / 100], late.back());
}

void run(size_t count) {
    Metro metro{nullptr, time_now() + interval_ms, {}};
    metro.late.reserve(count);
    metro.clock = clock_new(&metro, method(Metro::tick));
    overdrive_set(true);
    system_timer_start();
    clock_fset(metro.clock, metro.next);
    std::vector<double> slept = sleeping_loop(count);
    systhread_sleep(static_cast<uint32_t>(10 * interval_ms));
    system_timer_stop();
    std::printf("ms late           median      99%%    worst   (%zu times)\n", count);
    report("clock", metro.late);
    report("sleeping loop", slept);
    object_free(metro.clock);
}

}  // namespace
}  // namespace kiv

int main(int argc, char **argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
    if (!(seconds > 0.0 && seconds < 1e6)) {
        std::fprintf(stderr, "usage: lateness [SECONDS]\n");
        return 2;
    }
    kiv::startup();
    kiv::run(static_cast<size_t>(seconds * 1000.0 / kiv::interval_ms) + 1);
    kiv::shutdown();
}
