// Setting and firing clocks on a scheduler run by hand, beside a multimap of due times.
// What it cannot show: how punctual the timer's thread is.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <map>
#include <random>
#include <vector>

#include "kernel/startup.h"
#include "sched/internal.h"

namespace kiv {
namespace {

std::vector<double> times(int64_t count) {
    std::mt19937 random(1);
    std::vector<double> made(static_cast<size_t>(count));
    for (double &time : made) {
        time = static_cast<double>(random() % 100000);
    }
    return made;
}

int64_t fired;
void tick(void *) {
    ++fired;
}

void ClockSetAndFire(benchmark::State &state) {
    const std::vector<double> due = times(state.range(0));
    Scheduler *const scheduler = scheduler_new();
    uint32_t throttle = 0;
    sched_setpollthrottle(0xfffffffe, &throttle);
    std::vector<Clock *> clocks;
    for (size_t i = 0; i < due.size(); ++i) {
        clocks.push_back(clock_new_withscheduler(nullptr, method(tick), scheduler));
    }
    for (auto _ : state) {
        for (size_t i = 0; i < due.size(); ++i) {
            clock_fset(clocks[i], due[i]);
        }
        scheduler_run(scheduler, 200000.0);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    for (Clock *clock : clocks) {
        object_free(clock);
    }
    object_free(scheduler);
    sched_setpollthrottle(throttle, nullptr);
}
BENCHMARK(ClockSetAndFire)->Arg(100)->Arg(10000)->Arg(1000000)->Unit(benchmark::kMicrosecond);

void MultimapSetAndFire(benchmark::State &state) {
    const std::vector<double> due = times(state.range(0));
    for (auto _ : state) {
        std::multimap<double, void (*)(void *)> queue;
        for (const double time : due) {
            queue.emplace(time, tick);
        }
        while (!queue.empty()) {
            const auto head = queue.extract(queue.begin());
            head.mapped()(nullptr);
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(MultimapSetAndFire)->Arg(100)->Arg(10000)->Arg(1000000)->Unit(benchmark::kMicrosecond);

void QelemSetAgain(benchmark::State &state) {
    Qelem *const element = qelem_new(nullptr, method(tick));
    qelem_set(element);
    for (auto _ : state) {
        qelem_set(element);
    }
    qelem_free(element);
}
BENCHMARK(QelemSetAgain);

}  // namespace
}  // namespace kiv

int main(int argc, char **argv) {
    kiv::startup();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
