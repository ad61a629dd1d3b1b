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
    double denormal = -1.0;
    std::atomic<bool> go_on{false};
};

void *report(Report *out) {
    out->self = systhread_self();
    out->priority = systhread_getpriority(systhread_self());
    out->is_main = systhread_ismainthread();
    volatile double smallest = std::numeric_limits<double>::min();
    out->denormal = smallest / 2.0;
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
    EXPECT_EQ(seen.denormal, 0.0);
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

std::atomic<int> ended{0};

void count_end() {
    ++ended;
}

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

TEST(Threads, EveryEndCallsTheHookOnce) {
    const ThreadEndHook former = set_thread_end_hook(count_end);
    const struct {
        Method entry;
        uint32_t code;
    } cases[] = {{method(return_at_once), 0}, {method(exit_with_5), 5}, {method(throw_out), 0}};
    test::debug_capture_start();
    for (const auto &entry : cases) {
        ended = 0;
        ThreadId id = 0;
        uint32_t code = 99;
        ASSERT_EQ(systhread_create(entry.entry, nullptr, 0, 0, 0, &id), 0u);
        EXPECT_EQ(systhread_join(id, &code), 0u);
        EXPECT_EQ(code, entry.code);
        EXPECT_EQ(ended, 1);
    }
    EXPECT_NE(test::debug_capture_end().find("exception"), std::string::npos);
    EXPECT_EQ(set_thread_end_hook(former), count_end);
}

void *wait_for_ever(Report *out) {
    out->self = systhread_self();
    for (;;) {
        systhread_sleep(1000000);
    }
}

TEST(Threads, CanBeTerminated) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer's runtime does not let a sleeping thread be cancelled";
#endif
    Report seen;
    ThreadId id = 0;
    ASSERT_EQ(systhread_create(method(wait_for_ever), &seen, 0, 0, 0, &id), 0u);
    while (seen.self == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(systhread_terminate(id), 0u);
    EXPECT_EQ(systhread_join(id, nullptr), 0u);
}

void *wait_for_go(Report *out) {
    while (!out->go_on) {
        systhread_sleep(1);
    }
    return nullptr;
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
    EXPECT_EQ(systhread_key_create(nullptr, nullptr), failed);
    EXPECT_EQ(systhread_getspecific(nullptr), nullptr);
    EXPECT_EQ(systhread_setspecific(nullptr, &mine), failed);
}

}  // namespace
}  // namespace kiv
