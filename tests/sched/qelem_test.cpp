// Queue elements and the main thread's queues.
#include <gtest/gtest.h>
#include <kiv/defer.h>
#include <kiv/object.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kernel/internal.h"
#include "sched/internal.h"
#include "sched/scheduler.h"
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

TEST(Qelem, AFunctionMayFreeItsElementAndOneThatWaits) {
    static Qelem *elements[3];
    ran.clear();
    elements[0] = qelem_new(nullptr, method(+[](void *) {
                                ran.push_back(0);
                                qelem_free(elements[0]);
                                qelem_free(elements[1]);
                            }));
    elements[1] = qelem_new(nullptr, method(+[](void *) { ran.push_back(1); }));
    elements[2] = qelem_new(nullptr, method(+[](void *) { ran.push_back(2); }));
    for (Qelem *element : elements) {
        qelem_set(element);
    }
    EXPECT_LT(main_queues_pass(), 0.0);
    EXPECT_EQ(ran, (std::vector<int>{0, 2}));
    qelem_free(elements[2]);
}

// What is made in the place of an element that its function has freed is not what runs: freeing it
// on another thread waits for nothing.
TEST(Qelem, MemoryOfAFreedElementIsNotTakenForIt) {
    static Qelem *element;
    element = qelem_new(nullptr, method(+[](void *) {
                            qelem_free(element);
                            Qelem *const next = qelem_new(nullptr, method(+[](void *) {}));
                            std::thread([next] { qelem_free(next); }).join();
                        }));
    qelem_set(element);
    main_queues_pass();
}

TEST(Qelem, FreeingItOnAnotherThreadWaitsForItsFunction) {
    static std::atomic<int> stage;
    stage = 0;
    Qelem *const element = qelem_new(nullptr, method(+[](void *) {
                                         stage.store(1);
                                         systhread_sleep(30);
                                         stage.store(2);
                                     }));
    qelem_set(element);
    int stage_when_freed = 0;
    std::thread other([&] {
        while (stage.load() == 0) {
            std::this_thread::yield();
        }
        qelem_free(element);
        stage_when_freed = stage.load();
    });
    main_queues_pass();
    other.join();
    EXPECT_EQ(stage_when_freed, 2);
}

TEST(Qelem, TheIdleQueueRunsAsManyAsWaitInTheOther) {
    Tasks tasks(6);
    for (int i : {0, 1, 2, 3}) {
        qelem_idleset(tasks.element(i));
    }
    sched_idledequeue();
    EXPECT_TRUE(ran.empty());  // nothing waits in the low-priority queue
    qelem_set(tasks.element(4));
    qelem_set(tasks.element(5));
    std::thread(sched_idledequeue).join();  // the main thread's alone
    EXPECT_TRUE(ran.empty());
    sched_idledequeue();
    EXPECT_EQ(ran, (std::vector<int>{0, 1}));
    uint32_t throttle = 0;
    sched_setqueuethrottle(1, &throttle);
    sched_idledequeue();
    sched_setqueuethrottle(throttle, nullptr);
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
    main_queues_pass();  // the idle queue first
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST(Qelem, AnElementWaitsInOneQueueAtATime) {
    Tasks tasks(3);
    const auto idle_then_low = [] {
        ran.clear();
        sched_idledequeue();
        ran.push_back(-1);
        main_queues_pass();
        return ran;
    };
    qelem_set(tasks.element(0));
    qelem_idleset(tasks.element(0));  // keeps its place
    qelem_idleset(tasks.element(1));
    qelem_set(tasks.element(1));
    EXPECT_EQ(idle_then_low(), (std::vector<int>{1, -1, 0}));
    qelem_set(tasks.element(0));
    qelem_set(tasks.element(2));
    qelem_idlefront(tasks.element(0));  // moves to the other
    qelem_idleset(tasks.element(1));
    qelem_front(tasks.element(1));
    EXPECT_EQ(idle_then_low(), (std::vector<int>{0, -1, 1, 2}));
    qelem_set(tasks.element(0));
    qelem_idleunset(tasks.element(0));
    qelem_idleset(tasks.element(1));
    qelem_unset(tasks.element(1));
    qelem_set(tasks.element(2));
    EXPECT_EQ(idle_then_low(), (std::vector<int>{-1, 2}));
}

TEST(Qelem, AQueueThatMayRunNothingOnlyAsksForAnotherPass) {
    Tasks tasks(1);
    qelem_set(tasks.element(0));
    low_queue_disable(true);
    EXPECT_GT(main_queues_pass(), 0.0);
    low_queue_disable(false);
    uint32_t throttle = 0;
    sched_setqueuethrottle(0, &throttle);
    EXPECT_GT(main_queues_pass(), 0.0);
    sched_setqueuethrottle(throttle, nullptr);
    EXPECT_TRUE(ran.empty());
    main_queues_pass();
    EXPECT_EQ(ran, (std::vector<int>{0}));
}

// Three passes' worth of system elements. Logical time stands still between the steps.
TEST(Qelem, TheSystemQueueRunsThirtyTimesASecondInBoundedPasses) {
    static int runs;
    runs = 0;
    const test::OfflineTime offline;
    time_advance_to(500000.0);  // long after any system pass
    const uint32_t throttle = sysqelem_throttle();
    sysqelem_throttle_set(2);
    for (int i = 0; i < 5; ++i) {
        defer_sys_low(nullptr, method(+[](void *, Symbol *, int32_t, Atom *) { ++runs; }), nullptr,
                      0, nullptr);
    }
    const double again = main_queues_pass();
    EXPECT_EQ(runs, 2);
    EXPECT_GT(again, 33.0);
    EXPECT_LE(again, 34.0);
    time_advance_to(500033.0);
    EXPECT_GT(main_queues_pass(), 0.0);
    EXPECT_EQ(runs, 2);
    time_advance_to(500033.4);
    main_queues_pass();
    EXPECT_EQ(runs, 4);
    const test::OfflineTime anew;  // back at 0: as far away as forwards
    EXPECT_LT(main_queues_pass(), 0.0);
    EXPECT_EQ(runs, 5);
    sysqelem_throttle_set(throttle);
}

TEST(Qelem, AFunctionRunsInItsQueueAndForItsOwner) {
    static std::vector<int32_t> in_queue;
    static std::vector<void *> owners;
    in_queue.clear();
    owners.clear();
    const Method noting = method(+[](void *owner) {
        in_queue.push_back(sched_isinqueue());
        owners.push_back(event_context()->owner);
        if (owner) {
            throw 1;
        }
    });
    int owner = 0;
    EventContext *const before = event_context();
    Qelem *const low = qelem_new(&owner, noting);
    Qelem *const idle = qelem_new(nullptr, noting);
    qelem_set(low);
    qelem_idleset(idle);
    main_queues_pass();
    EXPECT_EQ(in_queue, (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(owners, (std::vector<void *>{nullptr, &owner}));
    EXPECT_EQ(event_context(), before);
    EXPECT_EQ(sched_isinqueue(), 0);
    EXPECT_EQ(test::take_texts(),
              (std::vector<std::string>{"queue element: the function threw an exception"}));
    qelem_free(low);
    qelem_free(idle);
}

// However the settings and the passes meet, the main thread sleeps only when nothing waits.
TEST(Qelem, ASleepingMainThreadIsWokenForEverySetting) {
    static std::atomic<int> runs;
    static Qelem *element;
    runs = 0;
    element = qelem_new(nullptr, method(+[](void *) { runs.fetch_add(1); }));
    constexpr int rounds = 2000;
    std::thread other([] {
        for (int i = 1; i <= rounds; ++i) {
            qelem_set(element);
            while (runs.load() < i) {
                std::this_thread::yield();
            }
        }
    });
    while (runs.load() < rounds) {
        if (main_queues_pass() < 0.0 && runs.load() < rounds) {
            main_wait(-1.0);
        }
    }
    other.join();
    EXPECT_EQ(runs.load(), rounds);
    qelem_free(element);
}

std::vector<std::string> statistics_lines() {
    test::take_texts();
    queue_statistics(false);
    std::vector<std::string> texts = test::take_texts();
    for (std::string &text : texts) {
        text.resize(std::min(text.size(), text.find(" waited ")));
    }
    return texts;
}

TEST(Qelem, StatisticsCountEveryElementAndTheDeferredCalls) {
    Tasks tasks(2);  // one is made before they are switched on, and one while they are
    qelem_free(tasks.element(1));
    queue_statistics(true);
    tasks.tasks[1]->element = qelem_new(tasks.tasks[1].get(), method(run_task));
    for (int i = 0; i < 3; ++i) {
        qelem_set(tasks.element(0));
    }
    qelem_front(tasks.element(0));
    main_queues_pass();
    qelem_set(tasks.element(0));
    qelem_unset(tasks.element(0));
    qelem_set(tasks.element(1));
    for (int i = 0; i < 2; ++i) {
        defer_low(nullptr, method(+[](void *, Symbol *, int32_t, Atom *) {}), nullptr, 0, nullptr);
    }
    main_queues_pass();
    EXPECT_EQ(statistics_lines(),
              (std::vector<std::string>{"low-priority queue: 2 passes",
                                        "deferred calls: 2 sets, 0 while set, 2 runs,",
                                        "queue element: 1 sets, 0 while set, 1 runs,",
                                        "queue element: 2 sets, 3 while set, 1 runs,"}));
    qelem_set(tasks.element(0));  // not counted
    main_queues_pass();
    queue_statistics(true);
    qelem_set(tasks.element(0));
    EXPECT_EQ(statistics_lines(),
              (std::vector<std::string>{"low-priority queue: 0 passes",
                                        "queue element: 1 sets, 0 while set, 0 runs,"}));
}

}  // namespace
}  // namespace kiv
