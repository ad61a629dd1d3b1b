#include <gtest/gtest.h>
#include <kiv/systhread.h>

#include <atomic>
#include <limits>
#include <stdexcept>
#include <thread>

#include "platform/platform.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"

namespace kiv {
namespace {

constexpr uint32_t failed = 0xffffffff;

// What a thread saw of itself.
struct Report {
    std::atomic<ThreadId> self{0};
    int32_t priority = -1;
    int32_t is_main = -1;
    double denormal_result = -1.0, denormal_input = -1.0;
    std::atomic<bool> go_on{false};
};

void *report(Report *out) {
    out->self = systhread_self();
    out->priority = systhread_getpriority(systhread_self());
    out->is_main = systhread_ismainthread();
    volatile double smallest = std::numeric_limits<double>::min();
    out->denormal_result = smallest / 2.0;
    volatile double denormal = std::numeric_limits<double>::denorm_min();
    out->denormal_input = denormal * 1e300;
    return out;
}

TEST(Threads, RunWithTheirPriorityAndWithoutDenormals) {
    const int64_t live = memory_live_blocks();
    Report seen;
    ThreadId id = 0;
    ASSERT_EQ(systhread_create(method(report), &seen, 0, 21, 0, &id), 0u);
    uint32_t code = 77;
    EXPECT_EQ(systhread_join(id, &code), 0u);
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(seen.self, id);
    EXPECT_EQ(seen.priority, 20);
    EXPECT_EQ(seen.is_main, 0);
    EXPECT_EQ(seen.denormal_result, 0.0);
    EXPECT_EQ(seen.denormal_input, 0.0);
    EXPECT_EQ(memory_live_blocks(), live);  // the start record is gone

    EXPECT_NE(systhread_self(), id);
    EXPECT_TRUE(systhread_ismainthread());
    volatile double smallest = std::numeric_limits<double>::min();
    EXPECT_NE(smallest / 2.0, 0.0);
    std::thread foreign([&] { seen.is_main = systhread_ismainthread(); });
    foreign.join();
    EXPECT_FALSE(seen.is_main);
}

TEST(Threads, JoiningWhatCannotBeJoined) {
    ThreadId id = 0;
    Report seen;
    ASSERT_EQ(systhread_create(method(report), &seen, 1, 0, 0, &id), 0u);  // the stack is enough
    EXPECT_EQ(systhread_join(id, nullptr), 0u);
    for (const ThreadId thread : {ThreadId{0}, systhread_self(), id, ThreadId{0xfffffff0}}) {
        EXPECT_EQ(systhread_join(thread, nullptr), failed) << thread;
    }
    EXPECT_EQ(systhread_detach(id), failed);
    EXPECT_EQ(systhread_terminate(id), failed);
    EXPECT_EQ(systhread_terminate(systhread_self()), failed);
}

TEST(Threads, CannotStart) {
    ThreadId id = 99;
    EXPECT_EQ(systhread_create(nullptr, nullptr, 0, 0, 0, &id), failed);
    EXPECT_EQ(id, 0u);
    const int64_t live = memory_live_blocks();
    for (const bool memory : {false, true}) {
        id = 99;
        test::debug_capture_start();
        memory_fail_at(memory ? 0 : 1);
        const uint32_t result = systhread_create(method(report), nullptr, INT64_MAX, 0, 0, &id);
        test::debug_capture_end();
        EXPECT_EQ(result == failed, !memory);
        EXPECT_NE(result, 0u);
        EXPECT_EQ(id, 0u);
    }
    EXPECT_EQ(memory_live_blocks(), live);
}

TEST(Threads, PrioritiesLoseTheirLowestBit) {
    const ThreadId self = systhread_self();
    for (const auto &[set, read] : {std::pair{7, 6},
                                    {-7, -6},
                                    {1, 0},
                                    {-1, 0},
                                    {30, 30},
                                    {-30, -30},
                                    {31, 30},
                                    {1000, 30},
                                    {INT32_MIN, -30},
                                    {0, 0}}) {
        systhread_setpriority(self, set);
        EXPECT_EQ(systhread_getpriority(self), read) << set;
    }
    EXPECT_EQ(systhread_getpriority(0), 0);
    systhread_setpriority(0, 5);
}

// --- How threads end -----------------------------------------------------------------------------

void *return_at_once(void *) {
    return nullptr;
}
void *exit_with_5(void *) {
    systhread_exit(5);
    return nullptr;
}
void *throw_out(void *) {
    throw std::runtime_error("out");
}

TEST(Threads, EndWithTheirExitCodes) {
    const struct {
        Method entry;
        uint32_t code;
    } cases[] = {{method(return_at_once), 0}, {method(exit_with_5), 5}, {method(throw_out), 0}};
    test::debug_capture_start();
    for (const auto &entry : cases) {
        ThreadId id = 0;
        uint32_t code = 99;
        ASSERT_EQ(systhread_create(entry.entry, nullptr, 0, 0, 0, &id), 0u);
        EXPECT_EQ(systhread_join(id, &code), 0u);
        EXPECT_EQ(code, entry.code);
    }
    EXPECT_NE(test::debug_capture_end().find("exception"), std::string::npos);
    test::debug_capture_start();
    systhread_exit(1);  // not on a thread like this
    EXPECT_NE(test::debug_capture_end().find("systhread_exit"), std::string::npos);
}

void *wait_for_go(Report *out) {
    while (!out->go_on) {
        systhread_sleep(1);
    }
    return nullptr;
}

// What a thread may be waiting for when it is terminated, for ever as it believes.
struct Waits {
    ThreadId joined = 0;
    MutexRef mutex = nullptr;
    ConditionRef condition = nullptr;
    std::atomic<bool> waits{false};
};

void *wait_asleep(Waits *w) {
    for (w->waits = true;;) {
        systhread_sleep(1000000);
    }
}
void *wait_in_join(Waits *w) {
    w->waits = true;
    systhread_join(w->joined, nullptr);
    return nullptr;
}
void *wait_for_condition(Waits *w) {
    systhread_mutex_lock(w->mutex);
    for (w->waits = true;;) {
        systhread_cond_wait(w->condition, w->mutex);
    }
}
void *wait_for_mutex(Waits *w) {
    w->waits = true;
    systhread_mutex_lock(w->mutex);
    return nullptr;
}

TEST(Threads, CanBeTerminated) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer's runtime does not let a sleeping thread be cancelled";
#endif
    Waits w;
    ASSERT_EQ(systhread_mutex_new(&w.mutex, 0), 0u);
    ASSERT_EQ(systhread_cond_new(&w.condition, 0), 0u);
    Report seen;
    ASSERT_EQ(systhread_create(method(wait_for_go), &seen, 0, 0, 0, &w.joined), 0u);
    for (const Method entry : {method(wait_asleep), method(wait_in_join),
                               method(wait_for_condition), method(wait_for_mutex)}) {
        ThreadId id = 0;
        const bool locked = entry == method(wait_for_mutex);
        w.waits = false;
        if (locked) {
            systhread_mutex_lock(w.mutex);
        }
        ASSERT_EQ(systhread_create(entry, &w, 0, 0, 0, &id), 0u);
        while (!w.waits) {
            systhread_sleep(1);
        }
        systhread_sleep(5);  // so that it really waits; when not, the test shows less
        EXPECT_EQ(systhread_terminate(id), 0u);
        EXPECT_EQ(systhread_join(id, nullptr), 0u);
        if (locked) {
            systhread_mutex_unlock(w.mutex);
        }
    }
    // Nothing is left of the waiter: the condition works on for others, on its old stack perhaps.
    for (int i = 0; i < 10; ++i) {
        ThreadId id = 0;
        ASSERT_EQ(systhread_create(method(return_at_once), &w, 0, 0, 0, &id), 0u);
        systhread_cond_signal(w.condition);
        systhread_cond_broadcast(w.condition);
        EXPECT_EQ(systhread_join(id, nullptr), 0u);
    }
    seen.go_on = true;
    EXPECT_EQ(systhread_join(w.joined, nullptr), 0u);
    systhread_cond_free(w.condition);
    systhread_mutex_free(w.mutex);
}

TEST(Threads, DetachedOnesLeaveNothing) {
    Report seen;
    ThreadId id = 0;
    ASSERT_EQ(systhread_create(method(wait_for_go), &seen, 0, 0, 0, &id), 0u);
    EXPECT_EQ(systhread_detach(id), 0u);
    EXPECT_EQ(systhread_detach(id), 0u);  // as long as it runs it is known
    seen.go_on = true;
    while (systhread_detach(id) == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(systhread_join(id, nullptr), failed);
}

// --- Marks and slots -----------------------------------------------------------------------------

TEST(Threads, AudioMarksNestPerThread) {
    EXPECT_FALSE(systhread_isaudiothread());
    systhread_markasaudiothread_begin();
    systhread_markasaudiothread_begin();
    systhread_markasaudiothread_end();
    EXPECT_TRUE(systhread_isaudiothread());
    std::thread([] { EXPECT_FALSE(systhread_isaudiothread()); }).join();
    systhread_markasaudiothread_end();
    EXPECT_FALSE(systhread_isaudiothread());
}

TEST(Threads, SlotsHoldAValuePerThreadAndDestroyIt) {
    static std::atomic<int> destroyed;
    destroyed = 0;
    ThreadKeyRef key = nullptr;
    ASSERT_EQ(
        systhread_key_create(&key, [](void *value) { destroyed += *static_cast<int *>(value); }),
        0u);
    int mine = 1, theirs = 10;
    EXPECT_EQ(systhread_setspecific(key, &mine), 0u);
    std::thread([&] {
        EXPECT_EQ(systhread_getspecific(key), nullptr);
        systhread_setspecific(key, &theirs);
        EXPECT_EQ(systhread_getspecific(key), &theirs);
    }).join();
    EXPECT_EQ(destroyed, 10);
    EXPECT_EQ(systhread_getspecific(key), &mine);
    EXPECT_EQ(systhread_key_delete(key), 0u);
    EXPECT_EQ(destroyed, 10);
    EXPECT_EQ(systhread_key_create(nullptr, nullptr), failed);
    EXPECT_EQ(systhread_getspecific(nullptr), nullptr);
    EXPECT_EQ(systhread_setspecific(nullptr, &mine), failed);
}

ThreadKeyRef slow_key = nullptr;
std::atomic<bool> slow_done{false};

void *set_slow_key(void *value) {
    systhread_setspecific(slow_key, value);
    return nullptr;
}

// Whoever has joined a thread may free what its slots refer to, or unload their code.
TEST(Threads, AreJoinedAfterTheirSlotsWereDestroyed) {
    const auto slow = [](void *) {
        systhread_sleep(20);
        slow_done = true;
    };
    ASSERT_EQ(systhread_key_create(&slow_key, slow), 0u);
    ThreadId id = 0;
    ASSERT_EQ(systhread_create(method(set_slow_key), &id, 0, 0, 0, &id), 0u);
    EXPECT_EQ(systhread_join(id, nullptr), 0u);
    EXPECT_TRUE(slow_done);
    systhread_key_delete(slow_key);
}

}  // namespace
}  // namespace kiv
