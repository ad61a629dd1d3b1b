#include <gtest/gtest.h>
#include <kiv/clock.h>
#include <kiv/object.h>
#include <kiv/scheduler.h>

#include <atomic>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "kernel/internal.h"
#include "sched/internal.h"
#include "sched/scheduler.h"

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
}

TEST_F(ClockTest, AClockMayFreeItselfAndItsNeighbour) {
    struct Pair {
        Clock *self;
        Clock *neighbour;
    };
    static int fired = 0;
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
    time_offline_begin();
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

// Threads set, move, unset and free clocks while the timer thread fires them. What a clock counts
// lives as long as the test; what fires after its clock was freed would count once too often.
TEST_F(ClockTest, ThreadsChangeClocksWhileTheTimerFires) {
    struct Counted {
        std::atomic<int> fired{0};
        std::atomic<bool> freed{false};
        std::atomic<int> late{0};
        static void tick(Counted *counted) {
            counted->fired.fetch_add(1);
            if (counted->freed.load()) {
                counted->late.fetch_add(1);
            }
        }
    };
    constexpr int thread_count = 4;
    constexpr int clock_count = 25;
    static Counted counted[thread_count][clock_count];
    overdrive_set(true);
    system_timer_start();
    struct Worker {
        ThreadId thread;
        int index;
        static void run(Worker *worker) {
            std::mt19937 random(static_cast<unsigned>(worker->index));
            for (Counted &target : counted[worker->index]) {
                Clock *const clock = clock_new(&target, method(Counted::tick));
                for (int step = 0; step < 40; ++step) {
                    if (random() % 5 == 0) {
                        clock_unset(clock);
                    } else {
                        clock_fdelay(clock, static_cast<double>(random() % 3));
                    }
                }
                clock_unset(clock);
                clock_fdelay(clock, 0.0);
                const int before = target.fired.load();
                while (target.fired.load() == before && before == 0) {
                    systhread_sleep(1);
                }
                object_free(clock);
                target.freed.store(true);
            }
        }
    };
    Worker workers[thread_count];
    for (int i = 0; i < thread_count; ++i) {
        workers[i].index = i;
        ASSERT_EQ(systhread_create(method(Worker::run), &workers[i], 0, 0, 0, &workers[i].thread),
                  0u);
    }
    for (Worker &worker : workers) {
        ASSERT_EQ(systhread_join(worker.thread, nullptr), 0u);
    }
    system_timer_stop();
    overdrive_set(false);
    EXPECT_EQ(clock_queue_check(scheduler_global()), nullptr);
    for (auto &row : counted) {
        for (Counted &target : row) {
            EXPECT_GE(target.fired.load(), 1);
            EXPECT_EQ(target.late.load(), 0);
        }
    }
}

TEST_F(ClockTest, OverdriveAndIntervalChangeWhileAClockWaits) {
    static std::atomic<int> fired{0};
    Clock *const clock = clock_new(nullptr, method(+[](void *) { fired.fetch_add(1); }));
    system_timer_start();
    for (int round = 0; round < 50; ++round) {
        overdrive_set(round % 2 == 0);
        interval_set(1.0 + round % 3);
        clock_fdelay(clock, 1.0);
        while (fired.load() <= round) {
            if (!overdrive_get()) {
                scheduler_poll();
            }
            systhread_sleep(1);
        }
    }
    system_timer_stop();
    EXPECT_EQ(fired.load(), 50);
    object_free(clock);
    EXPECT_FALSE(interval_set(0.5));
    EXPECT_FALSE(interval_set(21.0));
}

}  // namespace
}  // namespace kiv
