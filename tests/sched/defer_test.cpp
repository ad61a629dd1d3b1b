// Deferred and scheduled calls, rings and scheduled queues.
#include <gtest/gtest.h>
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/defer.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "kernel/internal.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "support/console.h"
#include "support/time.h"

namespace kiv {
namespace {

std::vector<std::string> called;

void note(void *, Symbol *selector, int32_t argc, Atom *argv) {
    called.push_back(selector->name + (argc ? std::to_string(atom_getlong(argv)) : ""));
}

// Time that stands still moves on to the next pass of the system queue.
void run_queues() {
    for (double wanted = 0.0; (wanted = main_queues_pass()) >= 0.0;) {
        time_advance_to(time_now() + wanted);
    }
}

// An object that tells when its free function has run.
struct Owner {
    Object ob;
    void *extension;  // not in a table, which would grow
    std::atomic<bool> *freed;
};

class OwnerClass {
  public:
    OwnerClass() {
        const Method release = method(+[](Owner *x) {
            if (x->freed) {
                x->freed->store(true);
            }
        });
        class_ =
            class_new("owner", nullptr, release, static_cast<int32_t>(sizeof(Owner)), nullptr, 0);
        class_obexoffset_set(class_, offsetof(Owner, extension));
    }
    ~OwnerClass() { class_free(class_); }
    Owner *make(std::atomic<bool> *freed = nullptr) const {
        auto *const x = static_cast<Owner *>(object_alloc(class_));
        x->freed = freed;
        return x;
    }

  private:
    Class *class_;
};

TEST(Defer, RunsAtOnceOnTheMainThreadOrLaterInOrder) {
    Atom five;
    atom_setlong(&five, 5);
    called.clear();
    EXPECT_EQ(defer(nullptr, method(note), "now"_sym, 1, &five), nullptr);
    EXPECT_EQ(called, (std::vector<std::string>{"now5"}));
    EXPECT_NE(defer_low(nullptr, method(note), "low"_sym, 1, &five), nullptr);
    EXPECT_NE(defer_front(nullptr, method(note), "front"_sym, 0, nullptr), nullptr);
    EXPECT_NE(defer_sys_low(nullptr, method(note), "system"_sym, 1, &five), nullptr);
    atom_setlong(&five, 6);  // the calls have copies
    EXPECT_EQ(called.size(), 1u);
    run_queues();
    EXPECT_EQ(called, (std::vector<std::string>{"now5", "front", "low5", "system5"}));
}

TEST(Defer, CallsForAFreedOwnerAreDropped) {
    run_queues();
    called.clear();
    const test::OfflineTime offline;
    const OwnerClass owners;
    const auto freed_with_calls = [&owners](Symbol *selector) {
        const bool marks = selector != "idlepriority"_sym;
        Owner *const x = owners.make();
        defer_low(x, method(note), selector, 0, nullptr);
        defer_front(x, method(note), selector, 0, nullptr);
        defer_sys_low(x, method(note), selector, 0, nullptr);
        schedule_delay(x, method(note), -5, selector, 0, nullptr);
        schedule_delay(x, method(note), 1000, selector, 0, nullptr);
        EXPECT_EQ(obex_flags(&x->ob), marks ? 32u : 0u);
        object_free(x);
        // What marked the owner goes with it; what did not, when it comes up.
        double time = 0.0;
        EXPECT_EQ(next_clock_time(&time), !marks);
        EXPECT_EQ(main_queues_empty(), marks);
        time_advance_to(time_now() + 1000.0);
        scheduler_poll();
        run_queues();
    };
    constexpr int rounds = 100;
    const int64_t before = memory_live_blocks();
    for (int i = 0; i < rounds; ++i) {
        freed_with_calls("dropped"_sym);
        freed_with_calls("idlepriority"_sym);
    }
    EXPECT_LT(memory_live_blocks(), before + rounds);  // tables may have grown
    EXPECT_TRUE(called.empty());
    // Made anew, often at the same address.
    Owner *const x = owners.make();
    defer_low(x, method(note), "kept"_sym, 0, nullptr);
    run_queues();
    EXPECT_EQ(called, (std::vector<std::string>{"kept"}));
    object_free(x);
}

// Nor has the owner's free function begun before the function has ended.
TEST(Defer, FreeingTheOwnerOnAnotherThreadWaitsForItsCall) {
    static std::atomic<bool> freed, began, freed_meanwhile;
    freed = began = freed_meanwhile = false;
    const OwnerClass owners;
    Owner *const owner = owners.make(&freed);
    defer_low(owner, method(+[](void *, Symbol *, int32_t, Atom *) {
                  began.store(true);
                  systhread_sleep(30);
                  freed_meanwhile.store(freed.load());
              }),
              nullptr, 0, nullptr);
    defer_low(owner, method(note), "dropped"_sym, 0, nullptr);
    called.clear();
    std::thread other([owner] {
        while (!began.load()) {
            std::this_thread::yield();
        }
        object_free(owner);
    });
    run_queues();
    other.join();
    EXPECT_FALSE(freed_meanwhile.load());
    EXPECT_TRUE(freed.load());
    EXPECT_TRUE(called.empty());
}

TEST(Defer, ACallMayFreeItsOwnerAndIsMadeInItsName) {
    static void *named;
    std::atomic<bool> freed{false};
    const OwnerClass owners;
    const auto free_owner = [](Owner *x, Symbol *, int32_t, Atom *) {
        named = event_context()->owner;
        object_free(x);
    };
    called.clear();
    Owner *const owner = owners.make(&freed);
    EventContext *const before = event_context();
    defer_low(owner, method(+free_owner), nullptr, 0, nullptr);
    defer_low(owner, method(note), "dropped"_sym, 0, nullptr);
    run_queues();
    EXPECT_TRUE(freed.load());
    EXPECT_EQ(named, owner);
    EXPECT_EQ(event_context(), before);
    Owner *const scheduled = owners.make();
    schedule_delay(scheduled, method(+free_owner), 0, nullptr, 0, nullptr);
    scheduler_poll();
    EXPECT_EQ(named, scheduled);
    EXPECT_TRUE(called.empty());
}

TEST(Defer, ListsArriveWholeWhateverTheirCountAndThrowingFunctionsAreReported) {
    static std::vector<int32_t> arrived;
    arrived.clear();
    const Method count = method(+[](void *, Symbol *, int32_t argc, Atom *argv) {
        arrived.push_back(argv ? argc : -argc);
    });
    std::vector<Atom> atoms(40000);
    defer_low(nullptr, count, nullptr, 40000, atoms.data());
    defer_low(nullptr, count, nullptr, -3, atoms.data());
    defer_low(nullptr, count, nullptr, 3, nullptr);
    defer_low(nullptr, method(+[](void *, Symbol *, int32_t, Atom *) { throw 1; }), ""_sym, 0,
              nullptr);
    run_queues();
    EXPECT_EQ(arrived, (std::vector<int32_t>{40000, 0, 0}));
    EXPECT_EQ(test::take_texts(),
              (std::vector<std::string>{"deferred call: the function threw an exception"}));
}

// Each allocation that a call makes fails once: the call is then refused, which is posted.
TEST(Defer, ACallThatFindsNoMemorySaysSo) {
    static int runs;
    const OwnerClass owners;
    const Method counting = method(+[](void *, Symbol *, int32_t, Atom *) { ++runs; });
    Atom atoms[2];
    atom_setlong_array(2, atoms, 2, std::vector<int64_t>{1, 2}.data());
    const test::OfflineTime offline;
    const std::function<void(Owner *)> calls[] = {
        [&](Owner *x) { defer_low(x, counting, nullptr, 2, atoms); },
        [&](Owner *x) { defer_sys_low(x, counting, nullptr, 2, atoms); },
        [&](Owner *x) { schedule_delay(x, counting, 0, nullptr, 2, atoms); },
    };
    const auto run = [&] {
        time_advance_to(time_now() + 100.0);
        scheduler_poll();
        run_queues();
    };
    for (const auto &call : calls) {
        int refused = 0;
        for (int64_t n = 0;; ++n) {  // 0: nothing fails, and what is made once is made
            Owner *const x = owners.make();
            test::take_texts();
            const int64_t before = memory_live_blocks();
            runs = 0;
            test::debug_capture_start();
            memory_fail_at(n);
            call(x);
            memory_fail_at(0);
            const bool failed = !test::debug_capture_end().empty();
            run();
            const std::vector<std::string> texts = test::take_texts();
            EXPECT_EQ(runs + static_cast<int>(texts.size()), 1) << n;
            refused += texts.empty() ? 0 : 1;
            object_free(x);
            if (n > 0) {
                EXPECT_LT(memory_live_blocks(), before) << n;  // x is gone too
            }
            if (n > 0 && !failed) {
                break;
            }
        }
        EXPECT_GE(refused, 2);
    }
}

TEST(Defer, ScheduledCallsRunInThePassOrAreHandedToTheMainThread) {
    called.clear();
    const test::OfflineTime offline;
    schedule_fdelay(nullptr, method(note), 20.0, "later"_sym, 0, nullptr);
    schedulef(nullptr, method(note), 10.0, "at"_sym, 0, nullptr);
    schedule_defer(nullptr, method(note), 30, "deferred"_sym, 0, nullptr);
    for (double time : {9.0, 10.0, 20.0, 30.0}) {
        time_advance_to(time);
        scheduler_poll();
    }
    EXPECT_EQ(called, (std::vector<std::string>{"at", "later", "deferred"}));
}

// At its time exactly; at once when that is past or no time at all, behind what was set before.
TEST(Defer, ScheduledCallsKeepToTheirTimes) {
    static std::vector<double> times;
    times.clear();
    const Method noting = method(+[](void *, Symbol *, int32_t, Atom *) {
        double now = 0.0;
        clock_getftime(&now);
        times.push_back(now);
    });
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const test::OfflineTime offline;
    time_advance_to(100.1);
    scheduler_poll();
    const OwnerClass owners;
    Owner *const x = owners.make();
    for (double time : {infinite, 100.7, std::nan(""), 50.0, -infinite}) {
        schedulef(x, noting, time, nullptr, 0, nullptr);
    }
    for (double delay : {infinite, std::nan(""), -5.0, -infinite}) {
        schedule_fdelay(x, noting, delay, nullptr, 0, nullptr);
    }
    schedule(x, noting, std::numeric_limits<int64_t>::min(), nullptr, 0, nullptr);
    scheduler_poll();
    EXPECT_EQ(times, std::vector<double>(7, 100.1));
    double next = 0.0;
    EXPECT_TRUE(next_clock_time(&next));
    EXPECT_EQ(next, 100.7);
    time_advance_to(1e15);
    scheduler_poll();
    EXPECT_EQ(times.size(), 8u);
    EXPECT_FALSE(next_clock_time(&next));  // the others never come up
    object_free(x);
}

TEST(Defer, WhatFiresOnTheTimerThreadIsHandedToTheMainThread) {
    static std::atomic<int> elsewhere, on_main;
    elsewhere = on_main = 0;
    const Method noting = method(+[](void *, Symbol *, int32_t, Atom *) {
        (systhread_ismainthread() ? on_main : elsewhere).fetch_add(1);
        main_wake();
    });
    overdrive_set(true);
    system_timer_start();
    const OwnerClass owners;
    Owner *const owner = owners.make();
    schedule_delay(owner, noting, 1, nullptr, 0, nullptr);
    schedule_defer(owner, noting, 1, nullptr, 0, nullptr);
    while (elsewhere.load() + on_main.load() < 2) {
        main_queues_pass();
        main_wait(-1.0);
    }
    system_timer_stop();
    overdrive_set(false);
    EXPECT_EQ(elsewhere.load(), 1);
    EXPECT_EQ(on_main.load(), 1);
    object_free(owner);
}

TEST(Defer, FromManyThreadsEveryCallRunsOnceOnTheMainThread) {
    static std::atomic<int> count, elsewhere, out_of_order;
    static int64_t last[4];
    count = elsewhere = out_of_order = 0;
    std::fill(std::begin(last), std::end(last), 0);
    const Method counting = method(+[](void *, Symbol *, int32_t, Atom *argv) {
        count.fetch_add(1);
        elsewhere.fetch_add(systhread_ismainthread() ? 0 : 1);
        int64_t &before = last[atom_getlong(argv)];
        out_of_order.fetch_add(atom_getlong(argv + 1) == before + 1 ? 0 : 1);
        before = atom_getlong(argv + 1);
    });
    std::vector<std::thread> threads;
    for (int64_t t = 0; t < 4; ++t) {
        threads.emplace_back([t, counting] {
            for (int64_t i = 1; i <= 500; ++i) {
                Atom atoms[2];
                atom_setlong(atoms, t);
                atom_setlong(atoms + 1, i);
                defer(nullptr, counting, "n"_sym, 2, atoms);
            }
        });
    }
    while (count.load() < 2000) {
        if (main_queues_pass() < 0.0 && count.load() < 2000) {
            main_wait(-1.0);
        }
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count.load(), 2000);
    EXPECT_EQ(elsewhere.load(), 0);
    EXPECT_EQ(out_of_order.load(), 0);
}

// --- rings ---------------------------------------------------------------------------------------

TEST(Ring, ReportsFullAndEmpty) {
    LockfreeQueue *const ring = lockfreequeue_new(3, 8);  // becomes 4
    int64_t value = 77;
    EXPECT_EQ(lockfreequeue_pop(ring, &value), 1);
    EXPECT_EQ(value, 77);
    for (int64_t i = 0; i < 4; ++i) {
        EXPECT_EQ(lockfreequeue_push(ring, &i), 0);
    }
    EXPECT_EQ(lockfreequeue_push(ring, &value), 1);
    for (int64_t i = 0; i < 4; ++i) {
        EXPECT_EQ(lockfreequeue_pop(ring, &value), 0);
        EXPECT_EQ(value, i);
    }
    lockfreequeue_free(ring);
    EXPECT_EQ(lockfreequeue_new(0, 8), nullptr);
}

// Element(i) is the i-th value, and `capacity` how many the ring holds.
template <class Element, uint32_t capacity>
void pass_in_order() {
    LockfreeQueue *const ring = lockfreequeue_new(capacity, sizeof(Element));
    constexpr int32_t count = 20000;
    ThreadId thread = 0;
    systhread_create(method(+[](void *argument) {
                         auto *const to = static_cast<LockfreeQueue *>(argument);
                         for (int32_t i = 0; i < count;) {
                             const Element element(i);
                             if (lockfreequeue_push(to, &element) == 0) {
                                 ++i;
                             } else {
                                 std::this_thread::yield();
                             }
                         }
                     }),
                     ring, 0, 0, 0, &thread);
    int32_t wrong = 0;
    for (int32_t i = 0; i < count;) {
        Element element(-1);
        if (lockfreequeue_pop(ring, &element) == 0) {
            wrong += element == Element(i) ? 0 : 1;
            ++i;
        } else {
            std::this_thread::yield();
        }
    }
    systhread_join(thread, nullptr);
    EXPECT_EQ(wrong, 0);
    lockfreequeue_free(ring);
}

TEST(Ring, PassesEveryValueInOrderBetweenTwoThreads) {
    struct Three {
        explicit Three(int32_t i) : a(i), b(-i), c(i ^ 5) {}
        bool operator==(const Three &) const = default;
        int32_t a, b, c;
    };
    pass_in_order<Three, 16>();
    pass_in_order<int64_t, 16>();
    pass_in_order<int64_t, 1>();
}

TEST(ScheduleQueue, ADrainDeliversThirtyTwoAndDropsTheNext) {
    static ScheduleQueue *queue;
    static std::vector<int64_t> delivered;
    delivered.clear();
    queue = schedule_queue_new(nullptr, method(+[](void *, int64_t value) {
                                   delivered.push_back(value);
                                   if (value < 8) {
                                       schedule_queue(queue, 32 + value);
                                   }
                               }));
    for (int64_t i = 0; i < 32; ++i) {
        EXPECT_EQ(schedule_queue(queue, i), 0u);
    }
    EXPECT_EQ(schedule_queue(queue, 99), 0xffffffffu);
    uint32_t previous = 0;
    sched_setpollthrottle(1, &previous);  // one drain, not those the deliveries asked for
    scheduler_poll();
    sched_setpollthrottle(previous, nullptr);
    EXPECT_EQ(delivered.size(), 32u);
    scheduler_poll();
    ASSERT_EQ(delivered.size(), 39u);
    EXPECT_EQ(delivered[32], 33);  // 32 was dropped
    object_free(queue);
}

TEST(ScheduleQueue, ItsFunctionMayFreeIt) {
    static ScheduleQueue *queue;
    static int delivered;
    delivered = 0;
    queue = schedule_queue_new(nullptr, method(+[](void *, int64_t) {
                                   ++delivered;
                                   object_free(queue);
                               }));
    schedule_queue(queue, 1);
    schedule_queue(queue, 2);
    scheduler_poll();
    EXPECT_EQ(delivered, 1);
}

}  // namespace
}  // namespace kiv
