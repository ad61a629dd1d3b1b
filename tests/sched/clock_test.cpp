#include <kiv/class.h>

#include <atomic>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <thread>
#include <utility>

#include "kernel/internal.h"
#include "sched/ticker.h"
#include "support/console.h"
#include "support/time.h"

namespace kiv {
namespace {

using test::Ticker;
class ClockTest : public test::TickerTest {};

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

// Place and lateness go by the time with the offset; what the clock sees is its time without.
TEST_F(ClockTest, AnOffsetMovesTheClockNotTheTimeItStandsFor) {
    const test::OfflineTime offline;
    Ticker later(1, scheduler_global());
    Ticker sooner(2, scheduler_global());
    Ticker very_late(3, scheduler_global());
    clock_fset2(later.clock, 100.0, 50.0);
    clock_fset2(sooner.clock, 300.0, -50.0);
    clock_fset2(very_late.clock, 500.0, -50.0);
    std::vector<size_t> counts;
    for (const double now : {149.0, 160.0, 249.0, 274.9, 475.0}) {
        time_advance_to(now);
        scheduler_poll();
        counts.push_back(Ticker::fired.size());
    }
    EXPECT_EQ(counts, (std::vector<size_t>{0, 1, 1, 2, 3}));
    // What is run by hand stops by the time itself.
    Ticker own(4, scheduler);
    clock_fset2(own.clock, 100.0, 50.0);
    scheduler_run(scheduler, 99.0);
    EXPECT_EQ(Ticker::fired.size(), 3u);
    scheduler_run(scheduler, 100.0);
    EXPECT_EQ(Ticker::fired, (test::Fired{{1, 100.0}, {2, 300.0}, {3, 475.0}, {4, 100.0}}));
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

TEST_F(ClockTest, OlderFormsDoTheSame) {
    const test::OfflineTime offline;
    Ticker ticker(1, scheduler_global());
    clock_xdelay(ticker.clock, -5);
    EXPECT_EQ(ticker.clock->time, 0.0);
    clock_delay(ticker.clock, -5);
    EXPECT_EQ(ticker.clock->time, -5.0);
    clock_xset(ticker.clock, 7);
    EXPECT_EQ(ticker.clock->time, 7.0);
    for (void (*const unset)(Clock *) : {clock_unset, clock_xunset, clock_getextfmt}) {
        clock_set(ticker.clock, 7);
        unset(ticker.clock);
        unset(nullptr);
        EXPECT_EQ(ticker.clock->queue_slot, nullptr);
    }
}

TEST_F(ClockTest, FiringNamesTheOwnerOrSetsTheDeferralElement) {
    Ticker ticker(1, scheduler);
    const void *owner = nullptr;
    ticker.also = [&] { owner = event_context()->owner; };
    clock_fset(ticker.clock, 1.0);
    scheduler_run(scheduler, 1.0);
    EXPECT_EQ(owner, &ticker);
    EXPECT_EQ(event_context(), nullptr);
    Qelem *const element = qelem_new(&ticker, method(Ticker::tick));
    ticker.clock->deferral = element;
    clock_fset(ticker.clock, 2.0);
    scheduler_run(scheduler, 2.0);
    EXPECT_EQ(Ticker::fired.size(), 1u);
    main_queues_pass();
    EXPECT_EQ(Ticker::fired.size(), 2u);
    qelem_free(element);
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

// The function sets its clock when its freeing has begun.
TEST_F(ClockTest, AClockFreedWhileItSetsItselfElsewhereIsGone) {
    struct Self {
        Clock *clock;
        std::atomic<bool> runs{false};
    };
    Self self;
    self.clock = clock_new_withscheduler(&self, method(+[](Self *x) {
        x->runs.store(true);
        systhread_sleep(20);
        clock_fset(x->clock, 2.0);
    }),
                                         scheduler);
    clock_fset(self.clock, 1.0);
    std::thread runner([this] { scheduler_run(scheduler, 1.0); });
    while (!self.runs.load()) {
        std::this_thread::yield();
    }
    object_free(self.clock);
    EXPECT_EQ(scheduler->arrival_count, 0);
    runner.join();
    EXPECT_EQ(scheduler->queue, nullptr);
}

TEST_F(ClockTest, AnOwnerIsFreedAfterItsFunctionThoughItsClockIsBeingFreed) {
    static std::atomic<int> step;
    step = 0;
    Class *const c = class_new("clock_owner", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_register("nobox"_sym, c);
    void *const owner = object_alloc(c);
    Clock *const clock = clock_new_withscheduler(owner, method(+[](void *) {
                                                     step = 1;
                                                     systhread_sleep(40);
                                                     step = 2;
                                                 }),
                                                 scheduler);
    clock_fset(clock, 1.0);
    std::thread runner([this] { scheduler_run(scheduler, 1.0); });
    while (step == 0) {
        std::this_thread::yield();
    }
    std::thread freeing([clock] { object_free(clock); });
    systhread_sleep(10);
    object_free(owner);
    EXPECT_EQ(step, 2);
    freeing.join();
    runner.join();
    class_free(c);
}

// The new clock stands where the freed one stood, and nobody fires it.
TEST_F(ClockTest, AClockMadeByTheFunctionOfAFreedOneIsFreedElsewhere) {
    struct Self {
        Scheduler *scheduler;
        Clock *clock;
    };
    Self self{scheduler, nullptr};
    self.clock = clock_new_withscheduler(&self, method(+[](Self *x) {
        object_free(x->clock);
        Clock *const made = clock_new_withscheduler(x, method(+[](Self *) {}), x->scheduler);
        std::thread([made] { object_free(made); }).join();
    }),
                                         scheduler);
    clock_fset(self.clock, 1.0);
    scheduler_run(scheduler, 1.0);
    EXPECT_EQ(scheduler->queue, nullptr);
}

// Settings, moves, unsettings and runs in any order, against a multimap that keeps equal keys in
// order, while the queue grows and shrinks by turns. None of them asks for memory.
TEST_F(ClockTest, AgreesWithAModel) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    constexpr int count = 3000;
    std::vector<std::unique_ptr<Ticker>> tickers;
    for (int i = 0; i < count; ++i) {
        tickers.push_back(std::make_unique<Ticker>(i, scheduler));
    }
    const int64_t blocks = memory_live_blocks();
    std::multimap<double, int> model;
    std::vector<std::multimap<double, int>::iterator> places(count, model.end());
    const auto forget = [&](int number) {
        auto &place = places[static_cast<size_t>(number)];
        if (place != model.end()) {
            model.erase(std::exchange(place, model.end()));
        }
    };
    const auto run = [&](double until) {
        std::vector<int> expected;
        while (expected.size() < 40 && !model.empty() && model.begin()->first <= until) {
            expected.push_back(model.begin()->second);
            forget(expected.back());
        }
        Ticker::fired.clear();
        scheduler_run(scheduler, until);
        return order() == expected;
    };
    for (int step = 0; step < 56000; ++step) {
        const int stage = step / 8000;
        const bool shrinks = stage % 2 == 1;
        const bool far_apart = stage == 2 || stage == 3;
        const uint32_t rarity = stage == 2 || stage == 4 ? 20 : 1;  // of looks
        const int number = static_cast<int>(random() % count);
        Clock *const clock = tickers[static_cast<size_t>(number)]->clock;
        forget(number);
        if (random() % 8 < (shrinks ? 7 : 1)) {
            clock_unset(clock);
        } else {
            double time = static_cast<double>(random() % (random() % 2 == 0 ? 20 : 100000));
            if (far_apart && random() % 16 == 0) {
                time = random() % 2 == 0 ? -1e308 : 1e308;
            }
            clock_fset(clock, time);
            places[static_cast<size_t>(number)] = model.emplace(time, number);
        }
        if (random() % (50 * rarity) == 0) {
            ASSERT_STREQ(clock_queue_check(scheduler), nullptr) << step;
        }
        if (random() % (200 * rarity) == 0) {
            ASSERT_TRUE(run(static_cast<double>(random() % 100000))) << step;
        }
    }
    scheduler_shift(scheduler, 0.0);
    ASSERT_STREQ(clock_queue_check(scheduler), nullptr);
    EXPECT_EQ(memory_live_blocks(), blocks);
    while (!model.empty()) {
        ASSERT_TRUE(run(1e308));
    }
    EXPECT_EQ(scheduler->queue, nullptr);
}

TEST_F(ClockTest, WithoutMemoryNoClockIsMade) {
    const int64_t blocks = memory_live_blocks();
    Clock *clock = nullptr;
    int failed = 0;
    while (!clock) {
        memory_fail_at(++failed);
        clock = clock_new_withscheduler(nullptr, method(+[](void *) {}), scheduler);
        memory_fail_at(0);
        EXPECT_TRUE(clock || memory_live_blocks() == blocks);
    }
    EXPECT_GT(failed, 1);
    object_free(clock);
    EXPECT_EQ(memory_live_blocks(), blocks);
}

TEST_F(ClockTest, AClockOfNoSchedulerCountsFromTheTakeoverTime) {
    const test::OfflineTime offline;
    Clock *const clock = clock_new_withscheduler(nullptr, method(+[](void *) {}), nullptr);
    scheduler_settime(nullptr, 500.0);
    clock_delay(clock, 20);
    EXPECT_EQ(clock->time, 520.0);
    EXPECT_EQ(scheduler_global()->time.load(), 500.0);
    object_free(clock);
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
}  // namespace
}  // namespace kiv
