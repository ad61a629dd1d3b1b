#include <gtest/gtest.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/clock.h>
#include <kiv/object.h>
#include <kiv/scheduler.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "kernel/internal.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "sched/midi_queue.h"
#include "sched/scheduler.h"
#include "support/console.h"
#include "support/time.h"

namespace kiv {
namespace {

// A clock that notes its number and the time it saw, on a scheduler run by hand.
struct Ticker {
    static inline std::vector<std::pair<int, double>> fired;

    Ticker(int number_, Scheduler *scheduler_) : number(number_), scheduler(scheduler_) {
        clock = clock_new_withscheduler(this, method(tick), scheduler);
    }
    ~Ticker() { object_free(clock); }
    Ticker(const Ticker &) = delete;
    Ticker &operator=(const Ticker &) = delete;

    static void tick(Ticker *ticker) {
        double now = 0.0;
        scheduler_gettime(ticker->scheduler, &now);
        fired.emplace_back(ticker->number, now);
        if (ticker->again >= 0.0) {
            clock_fdelay(ticker->clock, ticker->again);
        }
    }

    int number;
    Scheduler *scheduler;
    Clock *clock;
    double again = -1.0;  // set itself again after so many ms
};

class ClockTest : public testing::Test {
  protected:
    void SetUp() override {
        Ticker::fired.clear();
        scheduler = scheduler_new();
    }
    void TearDown() override { object_free(scheduler); }

    std::vector<int> order() const {
        std::vector<int> numbers;
        for (const auto &[number, time] : Ticker::fired) {
            numbers.push_back(number);
        }
        return numbers;
    }

    Scheduler *scheduler = nullptr;
};

TEST_F(ClockTest, EqualTimesFireInTheOrderOfSetting) {
    Ticker first(1, scheduler);
    Ticker second(2, scheduler);
    Ticker third(3, scheduler);
    for (Ticker *ticker : {&first, &second, &third}) {
        clock_fset(ticker->clock, 10.0);
    }
    clock_fset(first.clock, 10.0);  // goes behind those already waiting
    scheduler_run(scheduler, 9.9);
    EXPECT_TRUE(Ticker::fired.empty());
    scheduler_run(scheduler, 10.0);
    EXPECT_EQ(order(), (std::vector<int>{2, 3, 1}));
}

TEST_F(ClockTest, SlopDecidesWhichTimeALateClockSees) {
    Ticker a_little_late(1, scheduler);
    Ticker very_late(2, scheduler);
    clock_fset(a_little_late.clock, 90.0);
    clock_fset(very_late.clock, 70.0);
    scheduler_settime(scheduler, 100.0);
    scheduler_run(scheduler, 100.0);
    ASSERT_EQ(Ticker::fired.size(), 2u);
    EXPECT_EQ(Ticker::fired[0], std::make_pair(2, 100.0));
    EXPECT_EQ(Ticker::fired[1], std::make_pair(1, 90.0));
}

TEST_F(ClockTest, APassFiresNoMoreThanTheThrottle) {
    std::vector<std::unique_ptr<Ticker>> tickers;
    for (int i = 0; i < 50; ++i) {
        tickers.push_back(std::make_unique<Ticker>(i, scheduler));
        clock_fset(tickers.back()->clock, 1.0);
    }
    scheduler_run(scheduler, 2.0);
    EXPECT_EQ(Ticker::fired.size(), 40u);
    scheduler_run(scheduler, 2.0);
    EXPECT_EQ(Ticker::fired.size(), 50u);

    uint32_t previous = 0;
    EXPECT_EQ(sched_setpollthrottle(0xffffffff, &previous), 40u);
    EXPECT_EQ(previous, 40u);
}

TEST_F(ClockTest, AClockThatSetsItselfToNowFiresInTheSamePass) {
    Ticker ticker(1, scheduler);
    ticker.again = 0.0;
    clock_fset(ticker.clock, 5.0);
    scheduler_run(scheduler, 5.0);
    EXPECT_EQ(Ticker::fired.size(), 40u);
}

TEST_F(ClockTest, RepetitionCountsFromTheDueTime) {
    Ticker ticker(1, scheduler);
    ticker.again = 10.0;
    clock_fset(ticker.clock, 10.0);
    for (double until : {13.0, 27.5, 41.0}) {
        scheduler_run(scheduler, until);
    }
    std::vector<double> times;
    for (const auto &entry : Ticker::fired) {
        times.push_back(entry.second);
    }
    EXPECT_EQ(times, (std::vector<double>{10.0, 20.0, 30.0, 40.0}));
}

TEST_F(ClockTest, ShiftKeepsTheRemainingWait) {
    Ticker ticker(1, scheduler);
    clock_fset(ticker.clock, 50.0);
    scheduler_shift(scheduler, 100.0);
    scheduler_run(scheduler, 149.0);
    EXPECT_TRUE(Ticker::fired.empty());
    scheduler_run(scheduler, 150.0);
    EXPECT_EQ(Ticker::fired.size(), 1u);
}

TEST_F(ClockTest, OddTimesNeverBreakTheQueue) {
    Ticker a(1, scheduler);
    Ticker b(2, scheduler);
    Ticker c(3, scheduler);
    clock_fset(a.clock, std::numeric_limits<double>::quiet_NaN());
    clock_fset(b.clock, -std::numeric_limits<double>::infinity());
    clock_fset(c.clock, std::numeric_limits<double>::infinity());
    EXPECT_EQ(clock_queue_check(scheduler), nullptr);
    scheduler_run(scheduler, 1.0);
    EXPECT_EQ(order(), (std::vector<int>{2, 1}));
}

struct Owner {
    Object ob;
    Clock *clock;
};

TEST_F(ClockTest, NothingFiresForAFreedOwner) {
    Class *const c =
        class_new("clock_owner", nullptr, nullptr, static_cast<int32_t>(sizeof(Owner)), nullptr, 0);
    class_register("nobox"_sym, c);
    auto *owner = static_cast<Owner *>(object_alloc(c));
    static int fired = 0;
    owner->clock = clock_new(owner, method(+[](Owner *) { ++fired; }));
    clock_fdelay(owner->clock, 0.0);
    Clock *const clock = owner->clock;
    object_free(owner);
    scheduler_poll();
    EXPECT_EQ(fired, 0);
    object_free(clock);
    class_free(c);
}

TEST_F(ClockTest, AClockMayFreeItselfAndItsNeighbour) {
    struct Pair {
        Clock *self;
        Clock *neighbour;
    };
    static int fired;
    fired = 0;
    Pair pair{};
    pair.self = clock_new_withscheduler(&pair, method(+[](Pair *p) {
        ++fired;
        object_free(p->neighbour);
        object_free(p->self);
    }),
                                        scheduler);
    pair.neighbour = clock_new_withscheduler(&pair, method(+[](Pair *) { ++fired; }), scheduler);
    clock_fset(pair.self, 1.0);
    clock_fset(pair.neighbour, 1.0);
    scheduler_run(scheduler, 2.0);
    EXPECT_EQ(fired, 1);
}

// Settings, moves and unsettings in any order, against a multimap that keeps equal keys in order.
TEST_F(ClockTest, AgreesWithAModel) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    constexpr int count = 200;
    std::vector<std::unique_ptr<Ticker>> tickers;
    for (int i = 0; i < count; ++i) {
        tickers.push_back(std::make_unique<Ticker>(i, scheduler));
    }
    std::multimap<double, int> model;
    const auto forget = [&model](int number) {
        for (auto it = model.begin(); it != model.end(); ++it) {
            if (it->second == number) {
                model.erase(it);
                return;
            }
        }
    };
    for (int step = 0; step < 5000; ++step) {
        const int number = static_cast<int>(random() % count);
        forget(number);
        if (random() % 4 == 0) {
            clock_unset(tickers[static_cast<size_t>(number)]->clock);
        } else {
            const double time = static_cast<double>(random() % 50);
            clock_fset(tickers[static_cast<size_t>(number)]->clock, time);
            model.emplace(time, number);
        }
    }
    ASSERT_EQ(clock_queue_check(scheduler), nullptr);
    for (int pass = 0; pass < 10; ++pass) {
        scheduler_run(scheduler, 100.0);
    }
    std::vector<int> expected;
    for (const auto &entry : model) {
        expected.push_back(entry.second);
    }
    EXPECT_EQ(order(), expected);
}

TEST_F(ClockTest, TheOutsideEstimateMovesInSteps) {
    const test::OfflineTime offline;
    scheduler_poll();
    double first = 0.0;
    double second = 0.0;
    time_advance_to(10.0);
    clock_getftime(&first);
    time_advance_to(11.5);
    clock_getftime(&second);
    EXPECT_EQ(first, second);
    clock_getftime_nocache(&second);
    EXPECT_EQ(second, 11.5);
    time_advance_to(12.5);
    clock_getftime(&second);
    EXPECT_EQ(second, 12.5);
}

// A reading while a pass begins elsewhere must not pair the new logical time with the old real
// time.
TEST_F(ClockTest, TheOutsideEstimateIsNeverAheadOfTheTimeBase) {
    std::atomic<bool> done{false};
    std::thread passes([&done] {
        while (!done.load()) {
            scheduler_poll();
        }
    });
    double ahead = 0.0;
    for (int i = 0; i < 5000; ++i) {
        double estimate = 0.0;
        clock_getftime_nocache(&estimate);
        ahead = std::max(ahead, estimate - time_now());
    }
    done.store(true);
    passes.join();
    EXPECT_LE(ahead, 1e-6);
}

// --- Schedulers ----------------------------------------------------------------------------------

TEST_F(ClockTest, ClocksFollowTheirSchedulerIntoTheGlobalQueueAndBack) {
    const test::OfflineTime offline;
    Ticker first(1, scheduler);
    Ticker second(2, scheduler);
    clock_fset(first.clock, 1.0);
    clock_fset(second.clock, 2.0);
    object_attr_setlong(scheduler, "chaintoglobal"_sym, 1);
    EXPECT_EQ(clock_queue_check(scheduler_global()), nullptr);
    EXPECT_EQ(scheduler->queue, nullptr);
    clock_unset(second.clock);
    clock_fset(second.clock, 1.0);
    time_advance_to(1.0);
    scheduler_poll();
    EXPECT_EQ(order(), (std::vector<int>{1, 2}));
    clock_fset(second.clock, 3.0);
    object_attr_setlong(scheduler, "chaintoglobal"_sym, 0);
    scheduler_run(scheduler, 3.0);
    EXPECT_EQ(Ticker::fired.size(), 3u);
}

TEST_F(ClockTest, ClocksOutliveTheirScheduler) {
    Scheduler *const brief = scheduler_new();
    Clock *const kept =
        clock_new_withscheduler(brief, method(+[](Scheduler *x) {
                                    object_free(x);  // the run that called must not touch it again
                                }),
                                brief);
    clock_fset(kept, 1.0);
    scheduler_run(brief, 2.0);
    EXPECT_EQ(kept->scheduler, scheduler_global());
    clock_fset(kept, 1e9);
    EXPECT_EQ(kept->queue_slot, &scheduler_global()->queue);
    object_free(kept);
}

TEST_F(ClockTest, AClockOfNoSchedulerCountsFromTheTakeoverTime) {
    const test::OfflineTime offline;
    Clock *const clock = clock_new_withscheduler(nullptr, method(+[](void *) {}), nullptr);
    scheduler_settime(nullptr, 500.0);
    clock_delay(clock, 20);
    EXPECT_EQ(clock->time, 520.0);
    object_free(clock);
}

TEST_F(ClockTest, AnObjectsSchedulerIsItsOwnThenItsPatchers) {
    Class *const c = class_new("scheduled", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_register("nobox"_sym, c);
    void *const x = object_alloc(c);
    void *const patcher = object_alloc(c);
    EXPECT_EQ(scheduler_fromobject(x), scheduler_global());
    object_obex_storeflags(patcher, "#S"_sym, reinterpret_cast<Object *>(scheduler),
                           ContainerReference);
    "#P"_sym->thing = patcher;
    EXPECT_EQ(scheduler_fromobject(x), scheduler);
    "#P"_sym->thing = nullptr;
    EXPECT_EQ(scheduler_fromobject(x), scheduler);  // it has been stored
    object_obex_storeflags(x, "#S"_sym, static_cast<Object *>(patcher), ContainerReference);
    EXPECT_EQ(scheduler_fromobject(x), scheduler_global());  // no scheduler
    EXPECT_EQ(scheduler_fromobject(this), scheduler_global());
    object_free(x);
    object_free(patcher);
    class_free(c);
}

TEST_F(ClockTest, ASuspendedSchedulerFiresLateAfterItResumes) {
    const test::OfflineTime offline;
    Ticker ticker(1, scheduler_global());
    clock_fdelay(ticker.clock, 5.0);
    sched_suspend();
    time_advance_to(50.0);
    scheduler_poll();
    double next = 0.0;
    EXPECT_FALSE(next_clock_time(&next));
    EXPECT_TRUE(Ticker::fired.empty());
    sched_resume();
    ASSERT_TRUE(next_clock_time(&next));
    EXPECT_EQ(next, 5.0);
    scheduler_poll();
    EXPECT_EQ(Ticker::fired, (std::vector<std::pair<int, double>>{{1, 50.0}}));
}

TEST_F(ClockTest, WhatAFunctionThrowsIsReportedAndEndsNothing) {
    Clock *const thrower =
        clock_new_withscheduler(nullptr, method(+[](void *) { throw 1; }), scheduler);
    Ticker after(2, scheduler);
    clock_fset(thrower, 1.0);
    clock_fset(after.clock, 2.0);
    test::take_texts();
    scheduler_run(scheduler, 2.0);
    EXPECT_EQ(test::take_texts(),
              (std::vector<std::string>{"clock: the function threw an exception"}));
    EXPECT_EQ(order(), (std::vector<int>{2}));
    object_free(thrower);
}

// --- Takeover ------------------------------------------------------------------------------------

// The beginning of the record, as a driver sees it.
struct Takeover {
    void (*poll)();
    void (*set)(int32_t);
    double time;
    double rate;
    int32_t *timer_running;
    double ms_per_sample;
    int32_t *overdrive;
};

TEST_F(ClockTest, ADriverRunsTheSchedulerInOverdriveAlone) {
    auto *const driver = static_cast<Takeover *>("__takeover"_sym->thing);
    ASSERT_NE(driver, nullptr);
    Ticker ticker(1, scheduler_global());
    system_timer_start();
    EXPECT_EQ(*driver->timer_running, 1);
    overdrive_set(true);
    EXPECT_EQ(*driver->overdrive, 1);
    driver->set(1);
    EXPECT_EQ(*driver->timer_running, 0);
    EXPECT_NEAR(driver->time, time_now(), 60000.0);
    driver->time = 500000.0;  // far off: the time base follows
    clock_fset(ticker.clock, 500010.0);
    driver->poll();
    EXPECT_TRUE(Ticker::fired.empty());
    EXPECT_GE(time_now(), 500000.0);
    driver->time = 500010.0;
    driver->poll();
    EXPECT_EQ(Ticker::fired.size(), 1u);
    driver->set(0);
    EXPECT_EQ(*driver->timer_running, 1);
    EXPECT_GE(time_now(), 500010.0);
    system_timer_stop();
    overdrive_set(false);
    clock_fset(ticker.clock, 0.0);
    driver->poll();  // does nothing outside overdrive
    EXPECT_EQ(Ticker::fired.size(), 1u);
}

// --- MIDI ----------------------------------------------------------------------------------------

TEST_F(ClockTest, MidiPacketsShareThePass) {
    const test::OfflineTime offline;
    scheduler_poll();
    MidiMemoryOutput output;
    MidiMemoryOutput closed;
    const std::vector<uint8_t> on{0x90, 60, 100};
    const std::vector<uint8_t> off{0x80, 60, 0};
    Ticker ticker(1, scheduler_global());
    clock_fset(ticker.clock, 3000.0);
    EXPECT_TRUE(midi_queue_add(&output, 2500.0, off));
    EXPECT_TRUE(midi_queue_add(&output, 10.0, on));
    EXPECT_TRUE(midi_queue_add(&output, 2500.0, on));
    EXPECT_TRUE(midi_queue_add(&output, 9000.0, on));
    EXPECT_TRUE(midi_queue_add(&closed, 20.0, on));
    midi_queue_forget(&closed);
    double next = 0.0;
    ASSERT_TRUE(next_clock_time(&next));
    EXPECT_EQ(next, 10.0);
    time_advance_to(3000.0);
    scheduler_poll();
    ASSERT_EQ(output.sent().size(), 3u);
    EXPECT_EQ(output.sent()[0].time, 2000.0);  // never more than a second late
    EXPECT_EQ(output.sent()[1].time, 2500.0);
    EXPECT_EQ(output.sent()[1].bytes[0], 0x80);  // in the order of adding
    EXPECT_EQ(output.sent()[2].bytes[0], 0x90);
    EXPECT_EQ(Ticker::fired.size(), 1u);
    EXPECT_TRUE(closed.sent().empty());
    midi_queue_forget(&output);
}

// --- The timer -----------------------------------------------------------------------------------

TEST_F(ClockTest, ATimerThatRunsWakesForWhatComesFirst) {
    static std::atomic<int> fired;
    fired = 0;
    Clock *const late = clock_new(nullptr, method(+[](void *) {}));
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
    system_timer_stop();
    overdrive_set(false);
    object_free(early);
    object_free(late);
}

TEST_F(ClockTest, EveryClockFiresOnceWhileOverdriveAndIntervalChange) {
    std::vector<std::atomic<int>> fired(300);
    std::vector<Clock *> clocks;
    system_timer_start();
    for (size_t i = 0; i < fired.size(); ++i) {
        clocks.push_back(
            clock_new(&fired[i], method(+[](std::atomic<int> *count) { count->fetch_add(1); })));
        clock_fdelay(clocks[i], static_cast<double>(i) / 10.0);
    }
    for (int round = 0; round < 1000; ++round) {
        overdrive_set(round % 2 == 0);
        ASSERT_TRUE(interval_set(1.0 + round % 3));
        main_queues_pass();
        if (!overdrive_get()) {
            scheduler_poll();
        }
    }
    const auto all_fired = [&fired] {
        return std::all_of(fired.begin(), fired.end(), [](auto &count) { return count.load(); });
    };
    while (!all_fired()) {
        scheduler_poll();
        systhread_sleep(1);
    }
    system_timer_stop();
    for (size_t i = 0; i < fired.size(); ++i) {
        object_free(clocks[i]);
        EXPECT_EQ(fired[i].load(), 1) << i;
    }
    EXPECT_FALSE(interval_set(0.5));
    EXPECT_FALSE(interval_set(20.5));
}

TEST_F(ClockTest, WithNothingDueNothingRuns) {
    Clock *const late = clock_new(nullptr, method(+[](void *) {}));
    for (const bool overdrive : {false, true}) {
        overdrive_set(overdrive);
        system_timer_start();
        clock_fdelay(late, 1e7);
        main_wait(50.0);  // what starting has woken
        main_wait(50.0);
        const double start = time_now();
        const double used = test::processor_ms();
        main_wait(1000.0);
        EXPECT_GE(time_now() - start, 999.0) << "something woke the main thread";
        EXPECT_LT(test::processor_ms() - used, 100.0);
        system_timer_stop();
    }
    overdrive_set(false);
    object_free(late);
}

// As a metro does it, for half a second.
TEST_F(ClockTest, AClockInOverdriveKeepsItsCount) {
    struct Metro {
        Clock *clock;
        std::vector<double> times;
        double least_late;  // of the later half: some come late on a busy machine, hardly all
    };
    static constexpr size_t count = 50;
    static std::atomic<bool> done;
    done = false;
    Metro metro{nullptr, {}, 1e9};
    metro.clock = clock_new(&metro, method(+[](Metro *m) {
        double now = 0.0;
        scheduler_gettime(nullptr, &now);
        m->times.push_back(now);
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
    EXPECT_LT(metro.least_late, 5.0);
    object_free(metro.clock);
}

}  // namespace
}  // namespace kiv
