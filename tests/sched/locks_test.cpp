#include <gtest/gtest.h>
#include <kiv/critical.h>
#include <kiv/syssem.h>
#include <kiv/systhread.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"

namespace kiv {
namespace {

const auto all_ones = static_cast<uintptr_t>(-1);

template <class Function>
void on_threads(int count, Function function) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([=] { function(i); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

bool enters_elsewhere(CriticalRef region) {
    bool entered = false;
    on_threads(1, [&entered, region](int) {
        entered = critical_tryenter(region) != 0;
        if (entered) {
            critical_exit(region);
        }
    });
    return entered;
}

TEST(CriticalRegions, NestAndExclude) {
    CriticalRef made = nullptr;
    critical_new(&made);
    ASSERT_NE(made, nullptr);
    for (CriticalRef region : {made, global_region, reinterpret_cast<CriticalRef>(all_ones)}) {
        critical_enter(region);
        EXPECT_TRUE(critical_tryenter(region));
        critical_exit(region);
        EXPECT_FALSE(enters_elsewhere(region));
        critical_exit(region);
        EXPECT_TRUE(enters_elsewhere(region));
    }
    // Null and all ones are one region, and a made one is another.
    critical_enter(nullptr);
    EXPECT_FALSE(enters_elsewhere(reinterpret_cast<CriticalRef>(all_ones)));
    EXPECT_TRUE(enters_elsewhere(made));
    critical_exit(nullptr);
    critical_free(made);
    critical_free(nullptr);
}

TEST(Mutexes, WithoutMemoryMeanTheGlobalRegion) {
    test::debug_capture_start();
    MutexRef mutex = reinterpret_cast<MutexRef>(1);
    memory_fail_at(1);
    EXPECT_EQ(systhread_mutex_new(&mutex, 0), 1u);
    EXPECT_EQ(mutex, nullptr);
    // What newlock locked, unlocking the slot unlocks, though memory has come back since.
    memory_fail_at(1);
    EXPECT_EQ(systhread_mutex_newlock(&mutex, 0), 0u);
    EXPECT_FALSE(enters_elsewhere(global_region));
    EXPECT_EQ(systhread_mutex_newlock(&mutex, 0), 0u);
    systhread_mutex_unlock(mutex);
    systhread_mutex_unlock(mutex);
    EXPECT_TRUE(enters_elsewhere(global_region));
    EXPECT_EQ(systhread_mutex_free(mutex), 0u);
    test::debug_capture_end();
}

TEST(Mutexes, AreMadeOnceByWhoeverComesFirst) {
    for (int round = 0; round < 20; ++round) {
        const int64_t live = memory_live_blocks();
        MutexRef slot = nullptr;
        int shared = 0;
        on_threads(4, [&](int) {
            for (int i = 0; i < 200; ++i) {
                systhread_mutex_newlock(&slot, 0);
                ++shared;
                systhread_mutex_unlock(slot);
            }
        });
        EXPECT_EQ(shared, 800);
        EXPECT_EQ(memory_live_blocks(), live + 1);
        systhread_mutex_free(slot);
    }
}

// --- Conditions ----------------------------------------------------------------------------------

struct Gate {
    MutexRef mutex = nullptr;
    ConditionRef condition = nullptr;
    int waiting = 0, wakes = 0, tickets = 0, passed = 0;

    Gate() {
        systhread_mutex_new(&mutex, 0);
        systhread_cond_new(&condition, 0);
    }
    ~Gate() {
        systhread_cond_free(condition);
        systhread_mutex_free(mutex);
    }
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;
    // So many threads, which wait at the gate.
    std::vector<std::thread> crowd(int count) {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([this] { pass(); });
        }
        await(waiting, count);
        return threads;
    }
    // Lets so many pass, and wakes one thread or all.
    void open(int count, uint32_t (*wake)(ConditionRef) noexcept) {
        systhread_mutex_lock(mutex);
        tickets = count;
        wake(condition);
        systhread_mutex_unlock(mutex);
    }
    void pass() {
        systhread_mutex_lock(mutex);
        ++waiting;
        while (tickets == 0) {
            systhread_cond_wait(condition, mutex);
            ++wakes;
        }
        --tickets;
        ++passed;
        systhread_mutex_unlock(mutex);
    }
    // Waits, under the mutex, until `value` has reached `wanted`.
    void await(const int &value, int wanted) {
        systhread_mutex_lock(mutex);
        while (value < wanted) {
            systhread_mutex_unlock(mutex);
            std::this_thread::yield();
            systhread_mutex_lock(mutex);
        }
        systhread_mutex_unlock(mutex);
    }
};

TEST(Conditions, SignalWakesOneAndBroadcastAll) {
    constexpr int count = 4;
    Gate gate;
    std::vector<std::thread> threads = gate.crowd(count);
    gate.open(1, systhread_cond_signal);
    gate.await(gate.passed, 1);
    gate.open(count - 1, systhread_cond_broadcast);
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(gate.passed, count);
}

// Broadcasts race with waiters that come back at once: none may be lost to a late reset.
TEST(Conditions, LoseNoBroadcastToAWaiterThatComesBack) {
    Gate gate;
    constexpr int passers = 3, rounds = 300;
    std::vector<std::thread> threads;
    for (int i = 0; i < passers; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                gate.pass();
            }
        });
    }
    for (int i = 0; i < passers * rounds; ++i) {
        gate.await(gate.passed, i);
        systhread_mutex_lock(gate.mutex);
        ++gate.tickets;
        systhread_cond_broadcast(gate.condition);
        systhread_mutex_unlock(gate.mutex);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(gate.passed, passers * rounds);
}

// What finds nothing to do and waits again must not keep the broadcast going, and be woken by it.
TEST(Conditions, ABroadcastEndsAlthoughItsWaitersComeBack) {
    constexpr int count = 50;
    Gate gate;
    std::vector<std::thread> threads = gate.crowd(count);
    systhread_cond_broadcast(gate.condition);
    gate.await(gate.wakes, count);
    for (int before = 0, now = -1; now != before;) {
        before = now;
        systhread_sleep(50);
        systhread_mutex_lock(gate.mutex);
        now = gate.wakes;
        systhread_mutex_unlock(gate.mutex);
    }
    EXPECT_LT(gate.wakes, 500 * count);  // some hundreds; thousands a millisecond without end
    gate.open(count, systhread_cond_broadcast);
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// The last thread that a broadcast wakes resets it: who waits afterwards is not woken by it, nor by
// what was signalled when nobody waited.
TEST(Conditions, ABroadcastIsOverWhenAllHaveLeft) {
    Gate gate;
    std::vector<std::thread> threads = gate.crowd(3);
    gate.open(3, systhread_cond_broadcast);
    for (std::thread &thread : threads) {
        thread.join();
    }
    systhread_cond_signal(gate.condition);  // nobody waits: lost
    systhread_cond_broadcast(gate.condition);
    int wakes = 0;
    std::thread later([&] {
        systhread_mutex_lock(gate.mutex);
        ++gate.waiting;
        while (gate.tickets == 0) {
            systhread_cond_wait(gate.condition, gate.mutex);
            ++wakes;
        }
        systhread_mutex_unlock(gate.mutex);
    });
    gate.await(gate.waiting, 4);
    for (int i = 0; i < 200; ++i) {  // time enough to be woken wrongly, over and over
        systhread_mutex_lock(gate.mutex);
        systhread_mutex_unlock(gate.mutex);
        std::this_thread::yield();
    }
    gate.open(1, systhread_cond_signal);
    later.join();
    EXPECT_EQ(wakes, 1);
}

// --- Read-write locks ----------------------------------------------------------------------------

struct Tries {
    int32_t read, write;
    bool operator==(const Tries &) const = default;
};

// What another thread can do with the lock now.
Tries elsewhere(RwlockRef lock) {
    Tries tries{};
    on_threads(1, [&tries, lock](int) {
        tries.read = systhread_rwlock_tryrdlock(lock);
        if (tries.read == 0) {
            systhread_rwlock_rdunlock(lock);
        }
        tries.write = systhread_rwlock_trywrlock(lock);
        if (tries.write == 0) {
            systhread_rwlock_wrunlock(lock);
        }
    });
    return tries;
}

TEST(Rwlocks, KindsAndNulls) {
    RwlockRef lock = nullptr;
    for (const int32_t kind : {-1, 2, 3}) {
        EXPECT_EQ(systhread_rwlock_new(&lock, kind), -1);
        EXPECT_EQ(lock, nullptr);
    }
    EXPECT_EQ(systhread_rwlock_new(nullptr, 1), -1);
    EXPECT_EQ(systhread_rwlock_rdlock(nullptr), -1);
    EXPECT_EQ(systhread_rwlock_free(nullptr), -1);
    ASSERT_EQ(systhread_rwlock_new(&lock, 0), 0);
    double ms = -1.0;
    EXPECT_EQ(systhread_rwlock_getspintime(lock, &ms), 0);
    EXPECT_EQ(ms, 0.0);
    EXPECT_EQ(systhread_rwlock_setspintime(lock, 0.5), 0);
    for (const double bad : {-0.1, std::nan(""), HUGE_VAL}) {
        EXPECT_EQ(systhread_rwlock_setspintime(lock, bad), -1);
    }
    systhread_rwlock_getspintime(lock, &ms);
    EXPECT_EQ(ms, 0.5);
    EXPECT_EQ(systhread_rwlock_free(lock), 0);
}

TEST(Rwlocks, WhoMayJoinWhom) {
    RwlockRef lock = nullptr;
    ASSERT_EQ(systhread_rwlock_new(&lock, 1), 0);
    EXPECT_EQ(elsewhere(lock), (Tries{0, 0}));
    systhread_rwlock_rdlock(lock);
    systhread_rwlock_rdlock(lock);
    EXPECT_EQ(elsewhere(lock), (Tries{0, -1}));
    EXPECT_EQ(systhread_rwlock_trywrlock(lock), -1);
    systhread_rwlock_rdunlock(lock);
    EXPECT_EQ(elsewhere(lock), (Tries{0, -1}));
    systhread_rwlock_rdunlock(lock);
    EXPECT_EQ(systhread_rwlock_rdunlock(lock), -1);
    systhread_rwlock_wrlock(lock);
    systhread_rwlock_wrlock(lock);
    systhread_rwlock_rdlock(lock);
    EXPECT_EQ(systhread_rwlock_wrunlock(lock), 0);
    EXPECT_EQ(elsewhere(lock), (Tries{-1, -1}));
    EXPECT_EQ(systhread_rwlock_wrunlock(lock), 0);
    EXPECT_EQ(elsewhere(lock), (Tries{0, -1}));  // it went on as a reader
    systhread_rwlock_rdunlock(lock);
    EXPECT_EQ(systhread_rwlock_wrunlock(lock), -1);
    EXPECT_EQ(elsewhere(lock), (Tries{0, 0}));
    systhread_rwlock_free(lock);
}

TEST(Rwlocks, ReadersNeverSeeAWriterHalfway) {
    for (const double spin_ms : {0.0, 0.2}) {
        RwlockRef lock = nullptr;
        ASSERT_EQ(systhread_rwlock_new(&lock, 1), 0);
        systhread_rwlock_setspintime(lock, spin_ms);
        int first = 0, second = 0;
        std::atomic<int> torn{0};
        on_threads(4, [&](int number) {
            for (int i = 0; i < 2000; ++i) {
                if (number < 2) {
                    systhread_rwlock_wrlock(lock);
                    ++first;
                    ++second;
                    systhread_rwlock_wrunlock(lock);
                } else {
                    systhread_rwlock_rdlock(lock);
                    torn += first != second;
                    systhread_rwlock_rdunlock(lock);
                }
            }
        });
        EXPECT_EQ(first, 4000);
        EXPECT_EQ(torn, 0);
        systhread_rwlock_free(lock);
    }
}

// --- Semaphores ----------------------------------------------------------------------------------

std::string unique_name(const char *name) {
    std::random_device random;
    return name + std::to_string(random()) + std::to_string(random());
}

TEST(Semaphores, CountFromTheirFirstValueToTheMaximum) {
    const std::string name = unique_name("count / with odd bytes \xc3\xa9 ");
    SyssemRef semaphore = nullptr, again = nullptr;
    EXPECT_EQ(syssem_create(nullptr, name.c_str(), 0, 1), -1);
    EXPECT_EQ(syssem_create(&semaphore, nullptr, 0, 1), -1);
    EXPECT_EQ(syssem_create(&semaphore, name.c_str(), 0, -1), -1);
    EXPECT_EQ(syssem_create(&semaphore, name.c_str(), 0, 32769), -1);
    EXPECT_EQ(syssem_create(&semaphore, std::string(1000, 'x').c_str(), 0, 1), -1);
    EXPECT_EQ(semaphore, nullptr);
    EXPECT_EQ(syssem_open(&again, name.c_str(), 0), -1);

    ASSERT_EQ(syssem_create(&semaphore, name.c_str(), 0, 32767), 0);
    ASSERT_EQ(syssem_open(&again, name.c_str(), 0), 0);
    EXPECT_EQ(syssem_post(semaphore), 0);
    EXPECT_EQ(syssem_post(again), -1);
    for (int i = 0; i < 32768; ++i) {
        ASSERT_EQ(i % 2 ? syssem_wait(semaphore) : syssem_trywait(again), 0);
    }
    EXPECT_EQ(syssem_trywait(semaphore), -1);
    // Creating what is there opens it: the count stays.
    SyssemRef third = nullptr;
    ASSERT_EQ(syssem_create(&third, name.c_str(), 0, 5), 0);
    EXPECT_EQ(syssem_trywait(third), -1);
    for (SyssemRef handle : {semaphore, again, third}) {
        EXPECT_EQ(syssem_close(handle), 0);
    }
    EXPECT_EQ(syssem_open(&again, name.c_str(), 0), -1);  // it went with its last handle
    EXPECT_EQ(syssem_close(nullptr), -1);
}

// A name that a test shares with the process it starts, which may run the test from its beginning.
std::string shared_name() {
    constexpr const char *variable = "KIV_TEST_SEMAPHORE";
    if (testing::internal::InDeathTestChild()) {
        return platform::environment(variable);
    }
    const std::string name = unique_name("process");
    test::environment_set(variable, name);
    return name;
}

TEST(SemaphoresDeathTest, ReachOtherProcesses) {
    const std::string name = shared_name();
    SyssemRef semaphore = nullptr;
    ASSERT_EQ(syssem_create(&semaphore, name.c_str(), 0, 0), 0);
    const auto post_twice = [&] {
        SyssemRef other = nullptr;
        const bool posted = syssem_open(&other, name.c_str(), 0) == 0 && syssem_post(other) == 0 &&
                            syssem_post(other) == 0;
        std::_Exit(posted ? 0 : 1);
    };
    EXPECT_EXIT(post_twice(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(syssem_wait(semaphore), 0);
    EXPECT_EQ(syssem_wait(semaphore), 0);
    EXPECT_EQ(syssem_trywait(semaphore), -1);
    syssem_close(semaphore);
}

TEST(SemaphoresDeathTest, GoWithAProcessThatLeavesThemBehind) {
    const std::string name = shared_name();
    const auto leave_behind = [&] {
        SyssemRef other = nullptr;
        std::_Exit(syssem_create(&other, name.c_str(), 0, 7) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(leave_behind(), testing::ExitedWithCode(0), "");
    SyssemRef semaphore = nullptr;
    ASSERT_EQ(syssem_create(&semaphore, name.c_str(), 0, 1), 0);
    EXPECT_EQ(syssem_wait(semaphore), 0);
    EXPECT_EQ(syssem_trywait(semaphore), -1);
    syssem_close(semaphore);
}

}  // namespace
}  // namespace kiv
