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

#include "sched/internal.h"
#include "sched/scheduler.h"
#include "support/time.h"

namespace kiv {
namespace {

// What happened to an object, told after its end.
struct Record {
    std::atomic<bool> freed{false};
    std::atomic<double> due{0.0};  // no firing may come before
    std::atomic<int> set{0};
    std::atomic<int> fired{0};
    std::atomic<bool> restless{true};  // the clock's function sets its clock again
    std::atomic<int> requested{0};
    std::atomic<int> seen{0};  // the last request that a run of the element has seen
    std::atomic<int> runs{0};
    std::atomic<int> early{0};
    std::atomic<int> after_its_end{0};
};

struct Subject {
    Object ob;
    Record *record;
    Clock *clock;
    Qelem *element;
};

// From its beginning to its end a call finds its subject alive.
class Call {
  public:
    explicit Call(const Subject *x) : record_(x->record) { note(); }
    ~Call() {
        std::this_thread::yield();
        note();
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

  private:
    void note() { record_->after_its_end.fetch_add(record_->freed.load() ? 1 : 0); }
    Record *record_;
};

void set_clock(Subject *x, double delay) {
    x->record->set.fetch_add(1);
    clock_fdelay(x->clock, delay);
}

void subject_tick(Subject *x) {
    const Call call(x);
    x->record->early.fetch_add(time_now() < x->record->due.load() ? 1 : 0);
    qelem_set(x->element);
    x->record->fired.fetch_add(1);
    if (x->record->restless.load()) {
        set_clock(x, 0.5);
    }
}

void subject_run(Subject *x) {
    const Call call(x);
    x->record->seen.store(x->record->requested.load());
    x->record->runs.fetch_add(1);
}

void subject_deferred(Subject *x, Symbol *, int32_t, Atom *) {
    const Call call(x);
}

void subject_free(Subject *x) {
    object_free(x->clock);
    qelem_free(x->element);
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

void anything(Subject *x, std::mt19937 &random) {
    switch (random() % 8) {
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
            defer_low(x, method(subject_deferred), nullptr, 0, nullptr);
            break;
        case 5:
            schedule_delay(x, method(subject_deferred), static_cast<int64_t>(random() % 2), nullptr,
                           0, nullptr);
            break;
        default:
            set_clock(x, static_cast<double>(random() % 3));
    }
}

// With the clock at rest, one setting fires once and not before its time.
void fire_exactly_once(Subject *x) {
    x->record->restless.store(false);
    while (clock_withdraw(x->clock)) {
        std::this_thread::yield();
    }
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

void run_after_the_last_request(Subject *x) {
    set_element(x);
    const int wanted = x->record->requested.load();
    while (x->record->seen.load() < wanted) {
        systhread_sleep(1);
    }
}

void live_and_die(Record *record, std::mt19937 &random) {
    Subject *const x = subject_new(record);
    for (int step = 0; step < 40; ++step) {
        anything(x, random);
    }
    if (random() % 2) {
        fire_exactly_once(x);
        run_after_the_last_request(x);
    }
    object_free(x);  // often with everything still set
    record->freed.store(true);
}

TEST(Stress, ObjectsComeAndGoWhileTheirClocksAndElementsRun) {
    constexpr int thread_count = 8;
    constexpr int lives = 20;
    subject_class = class_new("stressed", nullptr, method(subject_free),
                              static_cast<int32_t>(sizeof(Subject)), nullptr, 0);
    class_register("nobox"_sym, subject_class);
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
        });
    }
    while (working.load() > 0 || !main_queues_empty()) {
        main_queues_pass();
        main_wait(1.0);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    system_timer_stop();
    overdrive_set(false);
    EXPECT_EQ(clock_queue_check(scheduler_global()), nullptr);
    for (int i = 0; i < thread_count * lives; ++i) {
        EXPECT_EQ(records[i].after_its_end.load(), 0);
        EXPECT_EQ(records[i].early.load(), 0);
        EXPECT_LE(records[i].fired.load(), records[i].set.load());
        EXPECT_LE(records[i].runs.load(), records[i].requested.load() + records[i].fired.load());
    }
    class_free(subject_class);
}

// What is set, called and freed again and again leaves nothing behind.
TEST(Stress, MemoryStaysFlat) {
    constexpr int rounds = 20000;
    const test::OfflineTime offline;
    Class *const c = class_new("served", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_register("nobox"_sym, c);
    void *const owner = object_alloc(c);
    Clock *const clock = clock_new(owner, method(+[](void *) {}));
    Qelem *const element = qelem_new(owner, method(+[](void *) {}));
    const Method function = method(+[](void *, Symbol *, int32_t, Atom *) {});
    Atom atoms[3];
    for (Atom &atom : atoms) {
        atom_setlong(&atom, 1);
    }
    const auto round = [&] {
        clock_fdelay(clock, 0.0);
        qelem_set(element);
        defer_low(owner, function, nullptr, 3, atoms);
        schedule_delay(owner, function, 0, nullptr, 3, atoms);
        schedule_defer(owner, function, 0, nullptr, 3, atoms);
        scheduler_poll();
        main_queues_pass();
    };
    round();
    const int64_t before = memory_live_blocks();
    for (int i = 0; i < rounds; ++i) {
        round();
    }
    EXPECT_EQ(memory_live_blocks(), before);
    object_free(clock);
    qelem_free(element);
    object_free(owner);
    class_free(c);
}

}  // namespace
}  // namespace kiv
