// Many threads against the timer and the main thread, for the thread sanitizer above all. What is
// asserted holds in whatever order the threads run.
#include <gtest/gtest.h>
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/clock.h>
#include <kiv/defer.h>
#include <kiv/object.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "sched/scheduler.h"
#include "sched/small_blocks.h"
#include "support/time.h"

namespace kiv {
namespace {

constexpr int most_calls = 64;  // deferred and scheduled, of one object

enum Stage { Alive, BeingFreed, Freed };

// What happened to an object, told after its end.
struct Record {
    std::atomic<int> stage{Alive};
    std::atomic<double> due{0.0};  // no firing may come before
    std::atomic<int> set{0};
    std::atomic<int> fired{0};
    std::atomic<bool> restless{true};  // the clock's function sets its clock again
    std::atomic<int> requested{0};
    std::atomic<int> seen{0};  // the last request that a run of the element has seen
    std::atomic<int> runs{0};
    std::atomic<int> early{0};
    std::atomic<int> after_its_end{0};
    int calls = 0;  // asked for
    std::atomic<int> made[most_calls] = {};
};

struct Subject {
    Object ob;
    Record *record;
    Clock *clock;
    Qelem *element;
};

// A function that is called for an object: it neither begins nor ends once the object has come to
// a stage.
class Called {
  public:
    Called(Record *record, Stage end) : record_(record), end_(end) {
        check();
        std::this_thread::yield();
    }
    ~Called() { check(); }
    Called(const Called &) = delete;
    Called &operator=(const Called &) = delete;

  private:
    void check() { record_->after_its_end.fetch_add(record_->stage.load() >= end_ ? 1 : 0); }
    Record *record_;
    Stage end_;
};

void set_clock(Subject *x, double delay) {
    x->record->set.fetch_add(1);
    clock_fdelay(x->clock, delay);
}

void subject_tick(Subject *x) {
    Record *const record = x->record;
    const Called called(record, BeingFreed);
    record->early.fetch_add(time_now() < record->due.load() ? 1 : 0);
    qelem_set(x->element);
    record->fired.fetch_add(1);
    if (record->restless.load()) {
        set_clock(x, 0.5);
    }
}

void subject_run(Subject *x) {
    Record *const record = x->record;
    const Called called(record, Freed);
    record->seen.store(record->requested.load());
    record->runs.fetch_add(1);
}

void subject_deferred(Subject *x, Symbol *, int32_t, Atom *argv) {
    Record *const record = x->record;
    const Called called(record, BeingFreed);
    record->made[atom_getlong(argv)].fetch_add(1);
}

void subject_free(Subject *x) {
    Record *const record = x->record;
    record->stage.store(BeingFreed);
    object_free(x->clock);
    qelem_free(x->element);
    record->stage.store(Freed);
}

Class *subject_class;

Subject *subject_new(Record *record) {
    auto *x = static_cast<Subject *>(object_alloc(subject_class));
    x->record = record;
    x->clock = clock_new(x, method(subject_tick));
    x->element = qelem_new(x, method(subject_run));
    return x;
}

void set_element(Subject *x) {
    x->record->requested.fetch_add(1);
    qelem_set(x->element);
}

// An element of all threads that nobody withdraws, and one with which everything is done.
Qelem *shared, *tossed;
std::atomic<int> shared_requested, shared_seen, shared_runs;

template <class Ask>
int call(Subject *x, Ask ask) {
    const int number = x->record->calls++;
    Atom atom;
    atom_setlong(&atom, number);
    ask(method(subject_deferred), &atom);
    return number;
}

void call_somehow(Subject *x, std::mt19937 &random) {
    if (x->record->calls > most_calls - 8) {
        return;
    }
    call(x, [&](Method function, Atom *atom) {
        const auto delay = static_cast<int64_t>(random() % 2);
        switch (random() % 5) {
            case 0:
                defer(x, function, nullptr, 1, atom);
                break;
            case 1:
                defer_low(x, function, nullptr, 1, atom);
                break;
            case 2:
                defer_front(x, function, nullptr, 1, atom);
                break;
            case 3:
                schedule_delay(x, function, delay, nullptr, 1, atom);
                break;
            default:
                schedule_defer(x, function, delay, nullptr, 1, atom);
        }
    });
}

void toss(Qelem *element, std::mt19937 &random) {
    void (*const operations[])(Qelem *) = {qelem_set,     qelem_unset,     qelem_front,
                                           qelem_idleset, qelem_idlefront, qelem_idleunset};
    operations[random() % 6](element);
}

void anything(Subject *x, std::mt19937 &random) {
    switch (random() % 10) {
        case 0:
            clock_unset(x->clock);
            break;
        case 1:
            qelem_unset(x->element);
            break;
        case 2:
            x->record->requested.fetch_add(1);
            qelem_front(x->element);
            break;
        case 3:
            set_element(x);
            break;
        case 4:
        case 5:
            call_somehow(x, random);
            break;
        case 6:
            shared_requested.fetch_add(1);
            qelem_set(shared);
            break;
        case 7:
            toss(tossed, random);
            break;
        default:
            set_clock(x, static_cast<double>(random() % 3));
    }
}

void clock_to_rest(Subject *x) {
    x->record->restless.store(false);
    while (clock_withdraw(x->clock)) {
        std::this_thread::yield();
    }
}

// With the clock at rest, one setting fires once and not before its time.
void fire_exactly_once(Subject *x) {
    clock_to_rest(x);
    const int before = x->record->fired.load();
    const double due = time_now() + 1.0;
    x->record->due.store(due);
    x->record->set.fetch_add(1);
    clock_fset(x->clock, due);
    while (x->record->fired.load() == before) {
        systhread_sleep(1);
    }
    systhread_sleep(2);  // as long as a second time would take
    EXPECT_EQ(x->record->fired.load(), before + 1);
}

// Waits until the low-priority queue has run what waits in it now.
void wait_for_queue(Subject *x) {
    const int number =
        call(x, [x](Method function, Atom *atom) { defer_low(x, function, nullptr, 1, atom); });
    while (x->record->made[number].load() == 0) {
        systhread_sleep(1);
    }
}

// With the element at rest, one setting is one run, which sees what was written before it.
void run_exactly_once(Subject *x) {
    clock_to_rest(x);
    qelem_unset(x->element);
    wait_for_queue(x);
    const int before = x->record->runs.load();
    set_element(x);
    wait_for_queue(x);
    EXPECT_EQ(x->record->runs.load(), before + 1);
    EXPECT_EQ(x->record->seen.load(), x->record->requested.load());
    wait_for_queue(x);
    EXPECT_EQ(x->record->runs.load(), before + 1);
}

void make_every_call(Subject *x) {
    for (int i = 0; i < x->record->calls; ++i) {
        while (x->record->made[i].load() == 0) {
            systhread_sleep(1);
        }
    }
}

// Often with everything still set, on any of the threads that its functions run on.
void subject_end(Subject *x, std::mt19937 &random) {
    Record *const record = x->record;
    const Method end =
        method(+[](void *, Symbol *, int32_t, Atom *argv) { object_free(atom_getobj(argv)); });
    Atom subject;
    atom_setobj(&subject, x);
    switch (random() % 3) {
        case 0:
            object_free(x);
            break;
        case 1:
            defer(nullptr, end, nullptr, 1, &subject);
            break;
        default:
            schedule_delay(nullptr, end, 0, nullptr, 1, &subject);
    }
    while (record->stage.load() != Freed) {
        systhread_sleep(1);
    }
}

void live_and_die(Record *record, std::mt19937 &random) {
    Subject *const x = subject_new(record);
    for (int step = 0; step < 60; ++step) {
        anything(x, random);
    }
    if (random() % 2) {
        fire_exactly_once(x);
        run_exactly_once(x);
        make_every_call(x);
    }
    subject_end(x, random);
}

void check(const Record &record) {
    EXPECT_EQ(record.after_its_end.load(), 0);
    EXPECT_EQ(record.early.load(), 0);
    EXPECT_LE(record.fired.load(), record.set.load());
    EXPECT_LE(record.runs.load(), record.requested.load() + record.fired.load());
    for (const std::atomic<int> &made : record.made) {
        EXPECT_LE(made.load(), 1);
    }
}

TEST(Stress, ObjectsComeAndGoWhileTheirClocksAndElementsRun) {
    constexpr int thread_count = 8;
    constexpr int lives = 20;
    subject_class = class_new("stressed", nullptr, method(subject_free),
                              static_cast<int32_t>(sizeof(Subject)), nullptr, 0);
    class_register("nobox"_sym, subject_class);
    shared_requested = shared_seen = shared_runs = 0;
    shared = qelem_new(nullptr, method(+[](void *) {
                           shared_seen.store(shared_requested.load());
                           shared_runs.fetch_add(1);
                       }));
    tossed = qelem_new(nullptr, method(+[](void *) {}));
    auto records = std::make_unique<Record[]>(thread_count * lives);
    std::atomic<int> working{thread_count};
    overdrive_set(true);
    system_timer_start();
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(static_cast<unsigned>(t));
            for (int i = 0; i < lives; ++i) {
                live_and_die(&records[t * lives + i], random);
            }
            working.fetch_sub(1);
            main_wake();
        });
    }
    while (working.load() > 0 || !main_queues_empty()) {
        if (main_queues_pass() < 0.0 && working.load() > 0) {
            main_wait(-1.0);  // a lost request to wake would end the test
        }
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    system_timer_stop();
    overdrive_set(false);
    EXPECT_EQ(clock_queue_check(scheduler_global()), nullptr);
    for (int i = 0; i < thread_count * lives; ++i) {
        check(records[i]);
    }
    EXPECT_EQ(shared_seen.load(), shared_requested.load());
    EXPECT_LE(shared_runs.load(), shared_requested.load());
    qelem_free(shared);
    qelem_free(tossed);
    class_free(subject_class);
}

// What is set, called and freed again and again leaves nothing behind, whether it runs or goes
// with its owner.
TEST(Stress, MemoryStaysFlat) {
    constexpr int rounds = 20000;
    const test::OfflineTime offline;
    Class *const c = class_new("served", nullptr, nullptr, sizeof(Object), nullptr, 0);
    void *const kept = object_alloc(c);
    Clock *const clock = clock_new(kept, method(+[](void *) {}));
    Qelem *const element = qelem_new(kept, method(+[](void *) {}));
    const Method function = method(+[](void *, Symbol *, int32_t, Atom *) {});
    Atom atoms[3];
    for (Atom &atom : atoms) {
        atom_setlong(&atom, 1);
    }
    const auto call_for = [&](void *owner) {
        defer_low(owner, function, nullptr, 3, atoms);
        defer_sys_low(owner, function, nullptr, 3, atoms);
        schedule_delay(owner, function, 0, nullptr, 3, atoms);
        schedule_defer(owner, function, 0, nullptr, 3, atoms);
    };
    const auto round = [&] {
        clock_fdelay(clock, 0.0);
        qelem_set(element);
        call_for(nullptr);
        call_for(kept);
        void *const freed = object_alloc(c);
        call_for(freed);
        object_free(freed);
        scheduler_poll();
        for (double wanted = 0.0; (wanted = main_queues_pass()) >= 0.0;) {
            time_advance_to(time_now() + wanted);
        }
    };
    for (int i = 0; i < 1000; ++i) {
        round();
    }
    const int64_t before = memory_live_blocks();
    for (int i = 0; i < rounds; ++i) {
        round();
    }
    EXPECT_EQ(memory_live_blocks(), before);
    object_free(clock);
    qelem_free(element);
    object_free(kept);
    class_free(c);
}

// What one thread asks for and the main thread frees goes back to where it is taken from.
TEST(Stress, NoPoolGrowsBetweenThreads) {
    if (!use_small_blocks) {
        GTEST_SKIP() << "a sanitizer keeps what is freed";
    }
    static std::atomic<int> ran;
    ran = 0;
    constexpr int at_most_waiting = 1000;
    constexpr int warm_up = 20000;
    constexpr int calls = 200000;
    std::thread other([] {
        const Method counting =
            method(+[](void *, Symbol *, int32_t, Atom *) { ran.fetch_add(1); });
        Atom atom;
        atom_setlong(&atom, 1);
        for (int i = 0; i < calls; ++i) {
            while (i - ran.load() > at_most_waiting) {
                std::this_thread::yield();
            }
            defer(nullptr, counting, nullptr, 1, &atom);
        }
    });
    int64_t before = 0;
    while (ran.load() < calls) {
        if (main_queues_pass() < 0.0 && ran.load() < calls) {
            main_wait(-1.0);
        }
        if (before == 0 && ran.load() >= warm_up) {
            before = test::resident_memory();
        }
    }
    other.join();
    constexpr int64_t less_than_a_slot_each = calls * 8;
    EXPECT_LT(test::resident_memory(), before + less_than_a_slot_each);
}

}  // namespace
}  // namespace kiv
