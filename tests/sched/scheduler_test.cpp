#include <kiv/attr.h>
#include <kiv/class.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <thread>

#include "kernel/internal.h"
#include "sched/midi_queue.h"
#include "sched/ticker.h"
#include "support/console.h"
#include "support/time.h"

namespace kiv {
namespace {

using test::Fired;
using test::Ticker;
using test::time_of;
class SchedulerTest : public test::TickerTest {};

// --- Times ---------------------------------------------------------------------------------------

TEST_F(SchedulerTest, ShiftKeepsTheRemainingWait) {
    Ticker ticker(1, scheduler);
    clock_fset(ticker.clock, 50.0);
    scheduler_shift(scheduler, 100.0);
    scheduler_run(scheduler, 149.0);
    EXPECT_TRUE(Ticker::fired.empty());
    scheduler_run(scheduler, 150.0);
    EXPECT_EQ(Ticker::fired.size(), 1u);
}

TEST_F(SchedulerTest, TheOutsideEstimateMovesInSteps) {
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

TEST_F(SchedulerTest, OneThatNeverRanHasTheGlobalTime) {
    const test::OfflineTime offline;
    time_advance_to(40.0);
    scheduler_poll();
    scheduler_settime(scheduler, 7.0);
    EXPECT_EQ(time_of(scheduler), 40.0);
    scheduler->direct_time = 1;
    EXPECT_EQ(time_of(scheduler), 7.0);
    scheduler->direct_time = 0;
    scheduler_run(scheduler, 9.0);
    time_advance_to(45.0);
    EXPECT_EQ(time_of(scheduler), 14.0);
    scheduler_shift(scheduler, 10.0);
    EXPECT_EQ(time_of(scheduler), 24.0);
    scheduler_shift(scheduler, -20.0);
    scheduler_settime(scheduler, std::numeric_limits<double>::infinity());
    EXPECT_EQ(time_of(scheduler), 24.0);  // it never goes back
}

// Another thread that asks meanwhile does not take the clock's time for that of the last pass.
TEST_F(SchedulerTest, TheOutsideEstimateGoesOnWhileAClockFires) {
    const test::OfflineTime offline;
    double outside = 0.0;
    Ticker own(1, scheduler);
    own.also = [&] { std::thread([&] { outside = time_of(scheduler); }).join(); };
    scheduler_run(scheduler, 100.0);
    time_advance_to(50.0);
    clock_fset(own.clock, 140.0);
    scheduler_run(scheduler, 150.0);
    EXPECT_EQ(outside, 150.0);
    Ticker late(2, scheduler_global());
    late.also = [&] { std::thread([&] { clock_getftime_nocache(&outside); }).join(); };
    clock_fset(late.clock, 80.0);
    time_advance_to(100.0);
    uint32_t throttle = 0;
    sched_setpollthrottle(1, &throttle);  // the pass ends with the clock
    scheduler_poll();
    sched_setpollthrottle(throttle, nullptr);
    EXPECT_EQ(outside, 100.0);
    clock_getftime_nocache(&outside);
    EXPECT_EQ(outside, 100.0);
    EXPECT_EQ(Ticker::fired, (Fired{{1, 140.0}, {2, 80.0}}));
}

// A reading while a pass begins elsewhere must not pair the new logical time with the old real
// time.
TEST_F(SchedulerTest, TheOutsideEstimateIsNeverAheadOfTheTimeBase) {
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

TEST_F(SchedulerTest, AudioThreadsHaveATimeOfTheirOwn) {
    const test::OfflineTime offline;
    time_advance_to(10.0);
    scheduler_poll();
    EXPECT_EQ(scheduler_getaudioschedulertime(nullptr), 0.0);
    systhread_markasaudiothread_begin();
    scheduler_poll();
    EXPECT_EQ(scheduler_getaudioschedulertime(nullptr), 10.0);
    scheduler_setaudioschedulertime(nullptr, 99.0);
    scheduler_setaudioschedulertime(scheduler_global(), 20.0);
    EXPECT_EQ(time_of(nullptr), 20.0);
    Ticker ticker(1, scheduler_global());
    clock_delay(ticker.clock, 5);
    EXPECT_EQ(ticker.clock->time, 25.0);
    systhread_markasaudiothread_end();
    EXPECT_EQ(time_of(nullptr), 10.0);
}

TEST_F(SchedulerTest, IntegerTimesAreCutOff) {
    scheduler->direct_time = 1;
    EXPECT_EQ(scheduler_set(scheduler), scheduler_global());
    std::thread([] { EXPECT_EQ(scheduler_get(), scheduler_global()); }).join();
    constexpr int32_t most = std::numeric_limits<int32_t>::max();
    constexpr int32_t least = std::numeric_limits<int32_t>::min();
    for (const auto &[time, whole] : std::initializer_list<std::pair<double, int32_t>>{
             {-1.9, -1}, {2.9, 2}, {1e300, most}, {-1e300, least}}) {
        scheduler_settime(scheduler, time);
        EXPECT_EQ(gettime(), whole);
        EXPECT_EQ(getschedtime(), whole);
    }
    EXPECT_EQ(scheduler_set(nullptr), scheduler);
    EXPECT_EQ(scheduler_get(), scheduler_global());
}

// --- Whose clocks they are -----------------------------------------------------------------------

TEST_F(SchedulerTest, ClocksFollowTheirSchedulerIntoTheGlobalQueueAndBack) {
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

TEST_F(SchedulerTest, OneThatIsChainedStandsForTheGlobalOne) {
    const test::OfflineTime offline;
    time_advance_to(10.0);
    scheduler_poll();
    object_attr_setlong(scheduler, "chaintoglobal"_sym, 1);
    scheduler_settime(scheduler, 5.0);
    EXPECT_EQ(time_of(scheduler), 10.0);
    scheduler_setaudioschedulertime(scheduler, 3.0);
    EXPECT_EQ(scheduler_getaudioschedulertime(nullptr), 3.0);
    Ticker own(1, scheduler);
    Ticker other(2, scheduler_global());
    clock_fdelay(own.clock, 1.0);
    clock_fset(other.clock, 12.0);
    scheduler_shift(scheduler, 20.0);  // its own clock alone
    own.also = [] { EXPECT_TRUE(sched_isinpoll()); };
    scheduler_run(scheduler, 31.0);
    EXPECT_EQ(Ticker::fired, (Fired{{2, 12.0}, {1, 31.0}}));
}

TEST_F(SchedulerTest, ClocksOutliveTheirScheduler) {
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

TEST_F(SchedulerTest, FreeingAChainedOneWaitsForItsClock) {
    const test::OfflineTime offline;
    Scheduler *const brief = scheduler_new();
    object_attr_setlong(brief, "chaintoglobal"_sym, 1);
    Ticker ticker(1, brief);
    std::atomic<bool> fires{false};
    std::atomic<bool> freed{false};
    ticker.also = [&] {
        fires.store(true);
        systhread_sleep(20);
        EXPECT_FALSE(freed.load());
        clock_fset(ticker.clock, 5.0);
    };
    clock_fset(ticker.clock, 0.0);
    scheduler_set(brief);
    std::thread pass(scheduler_poll);
    while (!fires.load()) {
        std::this_thread::yield();
    }
    object_free(brief);
    freed.store(true);
    pass.join();
    EXPECT_EQ(ticker.clock->queue_slot, nullptr);
    EXPECT_EQ(ticker.clock->scheduler, scheduler_global());
    EXPECT_EQ(scheduler_get(), scheduler_global());
}

TEST_F(SchedulerTest, AnObjectsSchedulerIsItsOwnThenItsPatchers) {
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

// --- Passes --------------------------------------------------------------------------------------

TEST_F(SchedulerTest, OneThreadAtATimeIsInAPass) {
    const test::OfflineTime offline;
    std::vector<int> in_poll;
    Ticker own(1, scheduler);
    Ticker global(2, scheduler_global());
    own.also = [&] { in_poll.push_back(sched_isinpoll()); };
    global.also = [&] {
        in_poll.push_back(sched_isinpoll());
        std::thread([&] {
            in_poll.push_back(sched_isinpoll());
            EXPECT_FALSE(scheduler_is_idle());
            const int64_t passes = scheduler_passes(false);
            scheduler_poll();
            EXPECT_EQ(scheduler_passes(false), passes);
        }).join();
    };
    clock_fset(own.clock, 0.0);
    scheduler_run(scheduler, 0.0);
    clock_fset(global.clock, 0.0);
    scheduler_poll();
    clock_fset(global.clock, 0.0);
    std::thread(scheduler_poll).join();
    EXPECT_EQ(in_poll, (std::vector<int>{0, 1, 0, 1, 0}));
    EXPECT_FALSE(sched_isinpoll());
    EXPECT_TRUE(scheduler_is_idle());
}

TEST_F(SchedulerTest, ASuspendedSchedulerFiresLateAfterItResumes) {
    const test::OfflineTime offline;
    Ticker ticker(1, scheduler_global());
    clock_fdelay(ticker.clock, 5.0);
    verbose_set(true);
    test::take_texts();
    sched_suspend();
    time_advance_to(50.0);
    scheduler_poll();
    double next = 0.0;
    EXPECT_FALSE(next_clock_time(&next));
    EXPECT_TRUE(Ticker::fired.empty());
    sched_resume();
    verbose_set(false);
    EXPECT_EQ(test::take_texts(), (std::vector<std::string>{"sched_suspend", "sched_resume"}));
    ASSERT_TRUE(next_clock_time(&next));
    EXPECT_EQ(next, 5.0);
    scheduler_poll();
    EXPECT_EQ(Ticker::fired, (Fired{{1, 50.0}}));
}

// Shuts down while clocks fire in overdrive; the number of things wrong.
int shut_down(Scheduler *scheduler) {
    Ticker global(1, scheduler_global());
    Ticker own(2, scheduler);
    global.again = 0.0;
    overdrive_set(true);
    system_timer_start();
    clock_fset(global.clock, 0.0);
    while (scheduler_passes(false) < 3) {
        systhread_sleep(1);
    }
    scheduler_shutdown();
    const size_t count = Ticker::fired.size();
    int wrong = global.clock->queue_slot ? 1 : 0;
    clock_fset(global.clock, 0.0);
    clock_fset(own.clock, 0.0);
    scheduler_poll();
    scheduler_run(scheduler, 1.0);
    wrong += Ticker::fired.size() != count ? 1 : 0;
    wrong += global.clock->queue_slot || own.clock->queue_slot ? 1 : 0;
    return wrong;
}

TEST_F(SchedulerTest, ShutDownItFiresNothingAndDropsWhatWaits) {
    EXPECT_EXIT(std::_Exit(shut_down(scheduler)), testing::ExitedWithCode(0), "");
}

TEST_F(SchedulerTest, MidiPacketsShareThePass) {
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

// Each turn of a pass sends before it fires, and goes on after sending though no clock is due.
TEST_F(SchedulerTest, PacketsTakeTurnsWithClocks) {
    struct Noting final : MidiOutput {
        void send(double time, std::span<const uint8_t>) noexcept override {
            Ticker::fired.emplace_back(0, time);
            EXPECT_EQ(time_of(nullptr), 5.0);
        }
    } output;
    const test::OfflineTime offline;
    Ticker ticker(1, scheduler_global());
    clock_fset(ticker.clock, 1.0);
    for (const double time : {3.0, 4.0, 2.0}) {
        midi_queue_add(&output, time, {});
    }
    time_advance_to(5.0);
    scheduler_poll();
    EXPECT_EQ(Ticker::fired, (Fired{{0, 2.0}, {1, 1.0}, {0, 3.0}, {0, 4.0}}));
}

}  // namespace
}  // namespace kiv
