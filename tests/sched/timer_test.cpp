#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "platform/testing/testing.h"
#include "sched/ticker.h"

namespace kiv {
namespace {

using test::Ticker;

// --- Takeover ------------------------------------------------------------------------------------

// The record, as a driver sees it.
struct Takeover {
    void (*poll)();
    void (*set)(int32_t);
    double time;
    double rate;
    int32_t *timer_running;
    double ms_per_sample;
    int32_t *overdrive;
    double rate_again;
    double ms_per_sample_again;
    uintptr_t zero;
};

class TimerTest : public test::TickerTest {
  protected:
    void TearDown() override {
        TickerTest::TearDown();
        time_offline_end();  // begins anew: a driver may have set it back
    }
    // Where the start time lies on the time base: the closest of several pairs of readings.
    static double start_time() {
        double start = std::numeric_limits<double>::infinity();
        for (int i = 0; i < 20; ++i) {
            const double now = time_now();
            start = std::min(start, time_base() - now);
        }
        return start;
    }

    Takeover *const driver = static_cast<Takeover *>("__takeover"_sym->thing);
};

TEST_F(TimerTest, ADriverRunsTheSchedulerInOverdriveAlone) {
    Ticker ticker(1, scheduler_global());
    system_timer_start();
    EXPECT_EQ(*driver->timer_running, 1);
    overdrive_set(true);
    EXPECT_EQ(*driver->overdrive, 1);
    driver->set(1);
    EXPECT_EQ(*driver->timer_running, 0);
    EXPECT_NEAR(driver->time, time_now(), 60000.0);
    const double time = driver->time;
    const double start = start_time();
    driver->time = time + 50.0;
    driver->set(1);  // it is on
    EXPECT_EQ(driver->time, time + 50.0);
    driver->poll();
    EXPECT_NEAR(start_time(), start, 10.0);
    driver->time = 500000.0;  // far off: the time base follows
    clock_fset(ticker.clock, 500010.0);
    driver->poll();
    EXPECT_TRUE(Ticker::fired.empty());
    EXPECT_GE(time_now(), 500000.0);
    driver->time = 500010.0;
    driver->poll();
    EXPECT_EQ(Ticker::fired.size(), 1u);
    clock_fset(ticker.clock, 1e9);
    for (const double nonsense : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        driver->time = nonsense;
        driver->poll();
    }
    EXPECT_EQ(Ticker::fired.size(), 1u);
    driver->time = 600000.0;
    driver->set(0);
    EXPECT_EQ(*driver->timer_running, 1);
    EXPECT_GE(time_now(), 600000.0);
    system_timer_stop();
    overdrive_set(false);
    clock_fset(ticker.clock, 0.0);
    driver->poll();  // does nothing outside overdrive
    EXPECT_EQ(Ticker::fired.size(), 1u);
    const double after = start_time();
    driver->set(1);
    driver->time = 0.0;
    driver->set(0);  // nor does the time base follow a driver there
    EXPECT_NEAR(start_time(), after, 10.0);
    EXPECT_EQ(driver->rate_again, 44.1);
    EXPECT_EQ(driver->ms_per_sample_again, 0.022675736961451247);
    EXPECT_EQ(driver->zero, 0u);
    scheduler_poll();  // the logical time goes on from where the driver left the time base
}

TEST_F(TimerTest, TheTimerRunsWhenWantedUnlessTakenOverOrSuspended) {
    std::mt19937 random(1);
    bool wanted = false;
    bool overdrive = false;
    bool taken_over = false;
    bool suspended = false;
    for (int step = 0; step < 200; ++step) {
        switch (random() % 4) {
            case 0:
                wanted = !wanted;
                (wanted ? system_timer_start : system_timer_stop)();
                break;
            case 1:
                overdrive_set(overdrive = !overdrive);
                break;
            case 2:
                sched_set_takeover(taken_over = !taken_over);
                break;
            default:
                suspended = !suspended;
                (suspended ? sched_suspend : sched_resume)();
                main_queues_pass();
        }
        ASSERT_EQ(*driver->timer_running != 0, wanted && !suspended && !(taken_over && overdrive))
            << step;
    }
    system_timer_stop();
    overdrive_set(false);
    sched_set_takeover(0);
    sched_resume();
    main_queues_pass();
}

// --- The timer -----------------------------------------------------------------------------------

TEST_F(TimerTest, StoppingWaitsForThePassOfATimerThatIsPausedAlready) {
    static std::atomic<bool> began, done;
    Clock *const clock = clock_new(nullptr, method(+[](void *) {
                                       began = true;
                                       systhread_sleep(50);
                                       done = true;
                                   }));
    overdrive_set(true);
    system_timer_start();
    clock_fdelay(clock, 0.0);
    while (!began) {
        systhread_sleep(1);
    }
    sched_suspend();
    main_queues_pass();
    EXPECT_EQ(*driver->timer_running, 0);
    system_timer_stop();
    EXPECT_TRUE(done);
    overdrive_set(false);
    sched_resume();
    main_queues_pass();
    object_free(clock);
}

TEST_F(TimerTest, ATimerThatRunsWakesForWhatComesFirst) {
    static std::atomic<int> fired;
    fired = 0;
    static std::atomic<bool> late_fired;
    late_fired = false;
    Clock *const late = clock_new(nullptr, method(+[](void *) { late_fired.store(true); }));
    Clock *const early = clock_new(nullptr, method(+[](void *) { fired.fetch_add(1); }));
    overdrive_set(true);
    system_timer_start();
    clock_fdelay(late, 1e7);
    for (int i = 0; i < 100; ++i) {
        clock_fdelay(early, 0.5);  // while the timer sleeps for the other
        while (fired.load() == i) {
            systhread_sleep(1);
        }
    }
    scheduler_shift(scheduler_global(), -2e7);
    while (!late_fired.load()) {
        systhread_sleep(1);
    }
    system_timer_stop();
    overdrive_set(false);
    object_free(early);
    object_free(late);
}

// In each round the switches come while clocks wait that nothing but the timer will see to.
TEST_F(TimerTest, EveryClockFiresOnceWhileOverdriveAndIntervalChange) {
    static std::atomic<int> fired;
    static std::atomic<int> misplaced;  // on the thread that the other mode has
    fired = misplaced = 0;
    std::vector<Clock *> clocks(8);
    for (Clock *&clock : clocks) {
        clock = clock_new(nullptr, method(+[](void *) {
                              misplaced += (systhread_ismainthread() != 0) == overdrive_get();
                              fired.fetch_add(1);
                              main_wake();
                          }));
    }
    system_timer_start();
    for (int round = 1; round <= 1000; ++round) {
        for (Clock *const clock : clocks) {
            clock_fdelay(clock, 0.3);
        }
        overdrive_set(round % 2 != 0);
        ASSERT_TRUE(interval_set(1.0 + round % 3));
        while (fired.load() < 8 * round) {
            if (!overdrive_get()) {
                scheduler_poll();
            }
            main_wait(-1.0);
        }
    }
    scheduler_poll();
    system_timer_stop();
    interval_set(1.0);
    EXPECT_EQ(fired.load(), 8000);
    EXPECT_LT(misplaced.load(), 2000);  // some, where a switch came late
    for (Clock *const clock : clocks) {
        object_free(clock);
    }
    EXPECT_FALSE(interval_set(0.5));
    EXPECT_FALSE(interval_set(20.5));
}

TEST_F(TimerTest, AnIntervalSetWhileItRunsHoldsFromTheNextTickOn) {
    static Clock *clock;
    clock = clock_new(nullptr, method(+[](void *) { clock_fdelay(clock, 0.5); }));
    const auto wait_for_passes = [](int64_t count) {
        for (const int64_t last = scheduler_passes(false) + count;
             scheduler_passes(false) < last;) {
            systhread_sleep(1);
        }
    };
    overdrive_set(true);
    system_timer_start();
    clock_fdelay(clock, 0.5);
    wait_for_passes(3);
    interval_set(20.0);
    wait_for_passes(2);
    const double start = time_now();
    wait_for_passes(5);
    EXPECT_GT(time_now() - start, 50.0);
    system_timer_stop();
    overdrive_set(false);
    interval_set(1.0);
    object_free(clock);
}

TEST_F(TimerTest, WithNothingDueNothingRuns) {
    Clock *const late = clock_new(nullptr, method(+[](void *) {}));
    for (const bool overdrive : {false, true}) {
        overdrive_set(overdrive);
        system_timer_start();
        clock_fdelay(late, 1e7);
        main_wait(50.0);  // what starting has woken
        main_wait(50.0);
        const double start = time_now();
        const double used = test::processor_ms();
        const int64_t passes = scheduler_passes(false);
        main_wait(1000.0);
        EXPECT_GE(time_now() - start, 999.0) << "something woke the main thread";
        EXPECT_LT(test::processor_ms() - used, 100.0);
        EXPECT_EQ(scheduler_passes(false), passes);
        system_timer_stop();
    }
    overdrive_set(false);
    object_free(late);
}

// As a metro does it, for half a second.
TEST_F(TimerTest, AClockInOverdriveKeepsItsCount) {
    struct Metro {
        Clock *clock;
        std::vector<double> times;
        int on_timer_thread;
        double least_late;  // of the later half: some come late on a busy machine, hardly all
    };
    static constexpr size_t count = 50;
    static std::atomic<bool> done;
    done = false;
    Metro metro{nullptr, {}, 0, 1e9};
    metro.clock = clock_new(&metro, method(+[](Metro *m) {
        double now = 0.0;
        scheduler_gettime(nullptr, &now);
        m->times.push_back(now);
        m->on_timer_thread += systhread_istimerthread();
        if (m->times.size() > count / 2) {
            m->least_late = std::min(m->least_late, time_now() - now);
        }
        if (m->times.size() < count) {
            clock_fdelay(m->clock, 10.0);
        }
        done = m->times.size() == count;
    }));
    slop_set(1e5);  // however late a tick comes, the next one counts from when it was due
    overdrive_set(true);
    system_timer_start();
    clock_fdelay(metro.clock, 10.0);
    while (!done) {
        systhread_sleep(1);
    }
    system_timer_stop();
    overdrive_set(false);
    slop_set(25.0);
    for (size_t i = 1; i < count; ++i) {
        EXPECT_NEAR(metro.times[i] - metro.times[0], 10.0 * static_cast<double>(i), 1e-6);
    }
    EXPECT_EQ(metro.on_timer_thread, int{count});
    EXPECT_LT(metro.least_late, 5.0);
    object_free(metro.clock);
}

}  // namespace
}  // namespace kiv
