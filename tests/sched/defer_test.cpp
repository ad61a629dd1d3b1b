#include <gtest/gtest.h>
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/defer.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "support/console.h"
#include "support/time.h"

namespace kiv {
namespace {

std::vector<int> ran;

struct Task {
    int number;
    Qelem *element = nullptr;
    bool set_again = false;
    Qelem *front = nullptr;
};

void run_task(Task *task) {
    ran.push_back(task->number);
    if (task->set_again) {
        qelem_set(task->element);
    }
    if (task->front) {
        qelem_front(std::exchange(task->front, nullptr));
    }
}

struct Tasks {
    explicit Tasks(int count) {
        for (int i = 0; i < count; ++i) {
            tasks.push_back(std::make_unique<Task>());
            tasks.back()->number = i;
            tasks.back()->element = qelem_new(tasks.back().get(), method(run_task));
        }
        ran.clear();
        while (!main_queues_empty()) {
            main_queues_pass();
        }
    }
    ~Tasks() {
        for (auto &task : tasks) {
            qelem_free(task->element);
        }
    }
    Qelem *element(int index) { return tasks[static_cast<size_t>(index)]->element; }
    std::vector<std::unique_ptr<Task>> tasks;
};

TEST(Qelem, ManySettingsRunOnceAtThePlaceOfTheFirst) {
    Tasks tasks(3);
    for (int index : {0, 1, 2, 0, 1, 0}) {
        qelem_set(tasks.element(index));
    }
    qelem_front(tasks.element(2));
    main_queues_pass();
    EXPECT_EQ(ran, (std::vector<int>{2, 0, 1}));
    main_queues_pass();
    EXPECT_EQ(ran.size(), 3u);
}

TEST(Qelem, APassIsBoundedAndAsksForTheNext) {
    Tasks tasks(150);
    for (auto &task : tasks.tasks) {
        qelem_set(task->element);
    }
    EXPECT_EQ(main_queues_pass(), 0.0);
    EXPECT_EQ(ran.size(), 100u);
    EXPECT_LT(main_queues_pass(), 0.0);
    EXPECT_EQ(ran.size(), 150u);
}

TEST(Qelem, WhatIsSetDuringAPassWaitsButTheFrontGoesFirst) {
    Tasks tasks(3);
    tasks.tasks[0]->set_again = true;
    tasks.tasks[0]->front = tasks.element(2);
    qelem_set(tasks.element(0));
    qelem_set(tasks.element(1));
    main_queues_pass();
    EXPECT_EQ(ran, (std::vector<int>{0, 2}));
    tasks.tasks[0]->set_again = false;
    main_queues_pass();
    EXPECT_EQ(ran, (std::vector<int>{0, 2, 1, 0}));
}

TEST(Qelem, UnsetAndFreedElementsDoNotRun) {
    Tasks tasks(2);
    qelem_set(tasks.element(0));
    qelem_set(tasks.element(1));
    qelem_unset(tasks.element(0));
    qelem_free(tasks.element(1));
    tasks.tasks.pop_back();
    main_queues_pass();
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(main_queues_empty());
}

TEST(Qelem, TheIdleQueueRunsBesideWaitingWork) {
    Tasks tasks(2);
    qelem_idleset(tasks.element(0));
    sched_idledequeue();
    EXPECT_TRUE(ran.empty());  // nothing waits in the low-priority queue
    qelem_set(tasks.element(1));
    sched_idledequeue();
    EXPECT_EQ(ran, (std::vector<int>{0}));
    qelem_unset(tasks.element(1));
}

TEST(Qelem, ADisabledQueueOnlyAsksForAnotherPass) {
    Tasks tasks(1);
    qelem_set(tasks.element(0));
    low_queue_disable(true);
    EXPECT_GT(main_queues_pass(), 0.0);
    EXPECT_TRUE(ran.empty());
    low_queue_disable(false);
    main_queues_pass();
    EXPECT_EQ(ran, (std::vector<int>{0}));
}

TEST(Qelem, StatisticsCountSetsRepetitionsAndRuns) {
    queue_statistics(true);
    Tasks tasks(2);
    for (int i = 0; i < 3; ++i) {
        qelem_set(tasks.element(0));
    }
    main_queues_pass();
    qelem_set(tasks.element(0));
    qelem_unset(tasks.element(0));
    test::take_texts();
    queue_statistics(false);
    const std::vector<std::string> texts = test::take_texts();
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].find("queue element: 2 sets, 2 while set, 1 runs, waited "), 0u) << texts[0];
}

// --- deferred and scheduled calls ----------------------------------------------------------------

std::vector<std::string> called;

void note(void *, Symbol *selector, int32_t argc, Atom *argv) {
    called.push_back(selector->name + (argc ? std::to_string(atom_getlong(argv)) : ""));
}

void run_queues() {
    while (!main_queues_empty()) {
        main_queues_pass();
    }
}

TEST(Defer, RunsAtOnceOnTheMainThreadOrLaterInOrder) {
    Atom five;
    atom_setlong(&five, 5);
    called.clear();
    EXPECT_EQ(defer(nullptr, method(note), "now"_sym, 1, &five), nullptr);
    EXPECT_EQ(called, (std::vector<std::string>{"now5"}));
    defer_low(nullptr, method(note), "low"_sym, 1, &five);
    defer_front(nullptr, method(note), "front"_sym, 0, nullptr);
    defer_sys_low(nullptr, method(note), "system"_sym, 0, nullptr);
    atom_setlong(&five, 6);  // the calls have copies
    EXPECT_EQ(called.size(), 1u);
    const test::OfflineTime offline;  // the system queue's pause between passes does not apply
    run_queues();
    EXPECT_EQ(called, (std::vector<std::string>{"now5", "front", "low5", "system"}));
}

TEST(Defer, CallsForAFreedOwnerAreDropped) {
    Class *const c = class_new("deferring", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_register("nobox"_sym, c);
    called.clear();
    void *const owner = object_alloc(c);
    defer_low(owner, method(note), "dropped"_sym, 0, nullptr);
    schedule_delay(owner, method(note), -5, "dropped"_sym, 0, nullptr);
    object_free(owner);
    void *const another = object_alloc(c);  // often at the same address
    schedule_delay(another, method(note), -5, "kept"_sym, 0, nullptr);
    run_queues();
    scheduler_poll();
    EXPECT_EQ(called, (std::vector<std::string>{"kept"}));
    object_free(another);
    class_free(c);
}

TEST(Defer, LongListsArriveWholeAndThrowingFunctionsAreReported) {
    static int32_t arrived = 0;
    std::vector<Atom> atoms(40000);
    defer_low(nullptr, method(+[](void *, Symbol *, int32_t argc, Atom *) { arrived = argc; }),
              ""_sym, 40000, atoms.data());
    defer_low(nullptr, method(+[](void *, Symbol *, int32_t, Atom *) { throw 1; }), ""_sym, 0,
              nullptr);
    run_queues();
    EXPECT_EQ(arrived, 40000);
    EXPECT_EQ(test::take_texts(),
              (std::vector<std::string>{"deferred call: the function threw an exception"}));
}

TEST(Defer, ACallThatCannotCopyItsAtomsSaysSo) {
    Atom atom;
    atom_setlong(&atom, 1);
    defer_low(nullptr, method(note), ""_sym, 1, &atom);  // what is made once is there from now on
    run_queues();
    test::debug_capture_start();
    memory_fail_at(2);  // the record is the first allocation
    EXPECT_EQ(defer_low(nullptr, method(note), ""_sym, 1, &atom), nullptr);
    memory_fail_at(0);
    test::debug_capture_end();
    EXPECT_EQ(test::take_texts(),
              (std::vector<std::string>{"sysmem_newptr: unable to allocate block of size 16!"}));
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

TEST(Defer, FromManyThreadsEveryCallRunsOnceOnTheMainThread) {
    static std::atomic<int> count;
    static std::atomic<int> elsewhere;
    count = elsewhere = 0;
    const Method counting = method(+[](void *, Symbol *, int32_t, Atom *) {
        count.fetch_add(1);
        elsewhere.fetch_add(systhread_ismainthread() ? 0 : 1);
    });
    static Method shared;
    shared = counting;
    ThreadId threads[4];
    for (ThreadId &thread : threads) {
        systhread_create(method(+[](void *) {
                             for (int i = 0; i < 500; ++i) {
                                 defer(nullptr, shared, "n"_sym, 0, nullptr);
                             }
                         }),
                         nullptr, 0, 0, 0, &thread);
    }
    while (count.load() < 2000) {
        main_wait(10.0);
        run_queues();
    }
    for (const ThreadId thread : threads) {
        systhread_join(thread, nullptr);
    }
    EXPECT_EQ(count.load(), 2000);
    EXPECT_EQ(elsewhere.load(), 0);
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
