// A clock that notes when it fires, for the tests of clocks, schedulers and the timer.
#pragma once

#include <kiv/clock.h>
#include <kiv/object.h>
#include <kiv/scheduler.h>

#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "sched/internal.h"
#include "sched/scheduler.h"

namespace kiv::test {

inline double time_of(Scheduler *scheduler) {
    double time = 0.0;
    scheduler_gettime(scheduler, &time);
    return time;
}

// Notes its number and the time it saw.
struct Ticker {
    static inline std::vector<std::pair<int, double>> fired;

    Ticker(int number_, Scheduler *scheduler_) : number(number_), scheduler(scheduler_) {
        clock = clock_new_withscheduler(this, method(tick), scheduler);
    }
    ~Ticker() { object_free(clock); }
    Ticker(const Ticker &) = delete;
    Ticker &operator=(const Ticker &) = delete;

    static void tick(Ticker *ticker) {
        fired.emplace_back(ticker->number, time_of(ticker->scheduler));
        if (ticker->again >= 0.0) {
            clock_fdelay(ticker->clock, ticker->again);
        }
        if (ticker->also) {
            ticker->also();
        }
    }

    int number;
    Scheduler *scheduler;
    Clock *clock;
    double again = -1.0;  // set itself again after so many ms
    std::function<void()> also;
};
using Fired = std::vector<std::pair<int, double>>;

class TickerTest : public testing::Test {
  protected:
    void SetUp() override {
        Ticker::fired.clear();
        scheduler = scheduler_new();
    }
    void TearDown() override { object_free(scheduler); }

    static std::vector<int> order() {
        std::vector<int> numbers;
        for (const auto &[number, time] : Ticker::fired) {
            numbers.push_back(number);
        }
        return numbers;
    }

    Scheduler *scheduler = nullptr;  // run by hand
};

}  // namespace kiv::test
