#include <gtest/gtest.h>
#include <kiv/attr.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysparallel.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "support/console.h"

namespace kiv {
namespace {

struct Work {
    std::atomic<int> ran[64] = {};
    std::atomic<int> arrived{0};
    std::thread::id last_on;
    SysparallelTask *task = nullptr;
    std::atomic<int32_t> nested{0};

    int total() const {
        int sum = 0;
        for (const auto &count : ran) {
            sum += count;
        }
        return sum;
    }
};

Work *work_of(SysparallelWorker *worker) {
    return static_cast<Work *>(worker->data);
}

void count(SysparallelWorker *worker) {
    ++work_of(worker)->ran[worker->id];
    if (worker->id == sysparallel_task_workercount(worker->task) - 1) {
        work_of(worker)->last_on = std::this_thread::get_id();
    }
}

TEST(Parallel, WorkerCounts) {
    const int32_t processors = sysparallel_processorcount();
    EXPECT_GE(processors, 1);
    for (const auto &[asked, given] : {std::pair{0, std::min(processors, 64)},
                                       {1, 1},
                                       {64, 64},
                                       {65, 64},
                                       {100, 64},
                                       {-4, 4},
                                       {INT32_MIN, 64},
                                       {INT32_MAX, 64}}) {
        SysparallelTask *task = sysparallel_task_new(nullptr, count, asked);
        EXPECT_EQ(sysparallel_task_workercount(task), given) << asked;
        sysparallel_task_free(task);
    }
    EXPECT_EQ(sysparallel_task_new(nullptr, nullptr, 4), nullptr);
}

// Each worker waits for all the others: they must run side by side, whatever the processor count.
void meet(SysparallelWorker *worker) {
    Work *work = work_of(worker);
    ++work->arrived;
    while (work->arrived < sysparallel_task_workercount(worker->task)) {
        std::this_thread::yield();
    }
}

TEST(Parallel, RunsEveryWorkerOnceAndTheLastOneHere) {
    Work all;
    SysparallelTask *first = sysparallel_task_new(&all, meet, 64);  // starts every pool thread
    ASSERT_EQ(sysparallel_task_execute(first), 0);
    sysparallel_task_free(first);
    const int64_t live = memory_live_blocks();
    for (const int32_t workers : {1, 2, 7, 64}) {
        Work work, other;
        SysparallelTask *task = sysparallel_task_new(&other, count, workers);
        sysparallel_task_data(task, &work);
        for (int run = 1; run <= 50; ++run) {
            ASSERT_EQ(sysparallel_task_execute(task), 0);
            for (int id = 0; id < workers; ++id) {
                ASSERT_EQ(work.ran[id], run);
            }
        }
        EXPECT_EQ(work.total(), 50 * workers);
        EXPECT_EQ(work.last_on, std::this_thread::get_id());
        EXPECT_EQ(other.total(), 0);
        sysparallel_task_free(task);
    }
    EXPECT_EQ(memory_live_blocks(), live);
}

TEST(Parallel, WorkersMayWaitForEachOther) {
    Work work;
    SysparallelTask *task = sysparallel_task_new(&work, meet, 8);
    EXPECT_EQ(sysparallel_task_execute(task), 0);
    EXPECT_EQ(work.arrived, 8);
    sysparallel_task_free(task);
}

void execute_again(SysparallelWorker *worker) {
    systhread_exit(1);  // refused on the pool's threads, and on the main thread
    work_of(worker)->nested += sysparallel_task_execute(worker->task);
    sysparallel_task_free(worker->task);  // refused
}

void throw_out(SysparallelWorker *worker) {
    ++work_of(worker)->ran[worker->id];
    throw std::runtime_error("out");
}

TEST(Parallel, RefusesABusyPoolAndSurvivesItsWorkers) {
    Work work;
    SysparallelTask *task = sysparallel_task_new(&work, execute_again, 3);
    test::take_posts();
    test::debug_capture_start();
    EXPECT_EQ(sysparallel_task_execute(task), 0);
    test::debug_capture_end();
    EXPECT_EQ(work.nested, -3);
    EXPECT_EQ(test::take_texts(),
              std::vector<std::string>(3, "a task cannot be freed by its own worker"));
    sysparallel_task_workerproc(task, throw_out);
    EXPECT_EQ(sysparallel_task_execute(task), 0);
    EXPECT_EQ(work.total(), 3);
    EXPECT_EQ(test::take_posts().size(), 3u);
    EXPECT_EQ(sysparallel_task_execute(nullptr), -1);
    sysparallel_task_free(task);
    EXPECT_EQ(sysparallel_task_execute(task), -1);
}

// Frees while another thread executes: that waits, also for what is noted of the run.
TEST(Parallel, FreeingWaitsForTheRun) {
    for (int round = 0; round < 20; ++round) {
        Work work;
        SysparallelTask *task = sysparallel_task_new(&work, count, 2);
        object_attr_setlong(task, "benchmark"_sym, 1);
        sysparallel_task_workerproc(task, [](SysparallelWorker *worker) {
            ++work_of(worker)->arrived;
            systhread_sleep(2);
            ++work_of(worker)->ran[worker->id];
        });
        std::thread executes([task] { EXPECT_EQ(sysparallel_task_execute(task), 0); });
        while (work.arrived == 0) {
            std::this_thread::yield();
        }
        sysparallel_task_free(task);
        EXPECT_EQ(work.total(), 2);
        executes.join();
    }
}

// The first worker cancels before it lets the others start: with 64 workers on the pool and the
// calling thread at least those that come later are left out.
void cancel_first(SysparallelWorker *worker) {
    sysparallel_task_cancel(worker->task);
    ++work_of(worker)->ran[worker->id];
}

TEST(Parallel, CancelLeavesOutWhatHasNotStartedAndEndsWithTheRun) {
    Work work;
    SysparallelTask *task = sysparallel_task_new(&work, cancel_first, 64);
    EXPECT_EQ(sysparallel_task_execute(task), 0);
    EXPECT_GE(work.total(), 1);
    Work next;
    sysparallel_task_data(task, &next);
    sysparallel_task_workerproc(task, count);
    EXPECT_EQ(sysparallel_task_execute(task), 0);
    EXPECT_EQ(next.total(), 64);
    sysparallel_task_free(task);
}

TEST(Parallel, WorkersByHandAndTiming) {
    Work work;
    SysparallelTask *task = sysparallel_task_new(&work, count, 2);
    SysparallelWorker *worker = sysparallel_worker_new(task);
    ASSERT_NE(worker, nullptr);
    sysparallel_worker_execute(worker);
    EXPECT_EQ(work.ran[0], 1);
    sysparallel_worker_free(worker);
    EXPECT_EQ(sysparallel_worker_new(nullptr), nullptr);

    object_attr_setlong(task, "benchmark"_sym, 1);
    sysparallel_task_workerproc(task, [](SysparallelWorker *) { systhread_sleep(3); });
    sysparallel_task_execute(task);
    test::take_posts();
    sysparallel_task_benchprint(task);
    const std::vector<std::string> texts = test::take_texts();
    ASSERT_EQ(texts.size(), 1u);
    double ms = 0.0;
    ASSERT_EQ(std::sscanf(texts[0].c_str(), "2 workers: %lf ms", &ms), 1) << texts[0];
    EXPECT_GE(ms, 3.0);
    sysparallel_task_free(task);
}

}  // namespace
}  // namespace kiv
