#include <gtest/gtest.h>
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/task.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kernel/internal.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "support/console.h"

namespace kiv {
namespace {

constexpr uint32_t failed = 0xffffffff;

// --- Quit tasks ----------------------------------------------------------------------------------

std::vector<int> quit_order;
int numbers[] = {0, 1, 2, 3, 4};

void *note(int *number) {
    quit_order.push_back(*number);
    return nullptr;
}
void *note_and_change(int *number) {
    note(number);
    quittask_install(method(note), &numbers[4]);
    quittask_remove2(method(note), &numbers[0]);
    throw std::runtime_error("out");
}

TEST(QuitTasks, RunNewestFirstAndMayChangeTheList) {
    const int64_t live = memory_live_blocks();
    quit_order.clear();
    for (int i = 0; i < 3; ++i) {
        quittask_install(method(note), &numbers[i]);
    }
    quittask_install(method(note_and_change), &numbers[3]);
    quittask_install(method(note), &numbers[0]);
    quittask_install(nullptr, nullptr);
    quittask_remove(method(note));  // the newest of them
    quittask_remove2(method(note), &numbers[2]);
    quittask_remove2(method(note), &numbers[2]);
    test::debug_capture_start();
    quittasks_run();
    EXPECT_NE(test::debug_capture_end(), "");
    EXPECT_EQ(quit_order, (std::vector<int>{3, 4, 1}));
    quittasks_run();
    EXPECT_EQ(quit_order.size(), 3u);
    EXPECT_EQ(memory_live_blocks(), live);
}

// --- Background tasks ----------------------------------------------------------------------------

struct Job {
    std::atomic<int> ran{0}, completed{0};
    std::atomic<bool> on_main{true}, completed_on_main{false};
    std::atomic<bool> started{false}, may_end{true};
};

void *run_job(void *, Job *job) {
    job->started = true;
    while (!job->may_end) {
        std::this_thread::yield();
    }
    job->on_main = systhread_ismainthread() != 0;
    ++job->ran;
    return nullptr;
}
void *complete_job(void *, Job *job) {
    job->completed_on_main = systhread_ismainthread() != 0;
    ++job->completed;
    return nullptr;
}

uint32_t start(void *owner, Job &job, BackgroundTask **task = nullptr) {
    return backgroundtask_execute(owner, &job, method(run_job), method(complete_job), task, 0);
}

void run_queues() {
    while (!main_queues_empty()) {
        main_queues_pass();
    }
}

TEST(BackgroundTasks, RunOnAWorkerAndCompleteOnTheMainThread) {
    std::vector<Job> jobs(200);
    std::vector<BackgroundTask *> tasks(jobs.size());
    int owner = 0;
    for (size_t i = 0; i < jobs.size(); ++i) {
        ASSERT_EQ(start(&owner, jobs[i], &tasks[i]), 0u);
        ASSERT_NE(tasks[i], nullptr);
    }
    EXPECT_EQ(backgroundtask_join(tasks[17]), 0u);
    EXPECT_EQ(jobs[17].ran, 1);
    EXPECT_EQ(backgroundtask_join_object(&owner), 0u);
    for (Job &job : jobs) {
        EXPECT_EQ(job.ran, 1);
        EXPECT_FALSE(job.on_main);
        EXPECT_EQ(job.completed, 0);  // the main thread has not served its queues
    }
    run_queues();
    for (Job &job : jobs) {
        EXPECT_EQ(job.completed, 1);
        EXPECT_TRUE(job.completed_on_main);
    }
    EXPECT_EQ(backgroundtask_join(tasks[0]), 0u);
    EXPECT_EQ(backgroundtask_cancel(tasks[0]), failed);
}

// Keeps every worker busy until it is let go, so that what comes later waits.
struct Blockade {
    std::vector<Job> jobs = std::vector<Job>(64);
    Blockade() {
        for (Job &job : jobs) {
            job.may_end = false;
            backgroundtask_execute(this, &job, method(run_job), nullptr, nullptr, 0);
        }
        while (!jobs[0].started) {
            std::this_thread::yield();
        }
    }
    void lift() {
        for (Job &job : jobs) {
            job.may_end = true;
        }
        backgroundtask_join_object(this);
    }
};

TEST(BackgroundTasksDeathTest, EndDropsWhatWaitsAndWaitsForWhatRuns) {
    const auto end = [] {
        Blockade blockade;
        int owner = 0;
        Job waiting;
        start(&owner, waiting);
        std::thread release([&] { blockade.jobs[0].may_end = true; });
        for (size_t i = 1; i < blockade.jobs.size(); ++i) {
            blockade.jobs[i].may_end = blockade.jobs[i].started.load();
        }
        background_tasks_end();
        const bool right =
            blockade.jobs[0].ran == 1 && waiting.ran == 0 && start(&owner, waiting) == failed;
        release.join();
        std::_Exit(right ? 0 : 1);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "");
}

TEST(BackgroundTasks, CancelAndPurge) {
    int64_t live = 0;
    {
        Blockade().lift();  // makes the service, whose memory stays
        Job job;
        start(&job, job);
        backgroundtask_join_object(&job);
        run_queues();
        live = memory_live_blocks();
    }
    {
        Blockade blockade;
        int first = 0, second = 0;
        Job cancelled, purged, kept, dropped_late;
        BackgroundTask *task = nullptr;
        start(&first, cancelled, &task);
        EXPECT_EQ(backgroundtask_cancel(task), 0u);
        EXPECT_EQ(backgroundtask_cancel(task), failed);
        start(&first, purged);
        start(&second, kept);
        EXPECT_EQ(backgroundtask_purge_object(&first), 0u);
        blockade.lift();
        backgroundtask_join_object(&second);
        start(&first, dropped_late);
        backgroundtask_join_object(&first);
        EXPECT_EQ(backgroundtask_purge_object(&first), 0u);  // its completion waits, and goes
        run_queues();
        EXPECT_EQ(cancelled.ran + purged.ran, 0);
        EXPECT_EQ(dropped_late.ran, 1);
        EXPECT_EQ(cancelled.completed + purged.completed + dropped_late.completed, 0);
        EXPECT_EQ(kept.completed, 1);

        // One that runs is waited for by purge, and only loses its completion by cancel.
        Job running;
        running.may_end = false;
        start(&first, running, &task);
        while (!running.started) {
            std::this_thread::yield();
        }
        EXPECT_EQ(backgroundtask_cancel(task), 0u);
        std::thread release([&] { running.may_end = true; });
        EXPECT_EQ(backgroundtask_purge_object(&first), 0u);
        EXPECT_EQ(running.ran, 1);
        release.join();
        run_queues();
        EXPECT_EQ(running.completed, 0);
    }
    EXPECT_EQ(backgroundtask_join_object(nullptr), failed);
    EXPECT_EQ(backgroundtask_purge_object(nullptr), failed);
    EXPECT_EQ(backgroundtask_join(nullptr), failed);
    EXPECT_EQ(backgroundtask_cancel(nullptr), failed);
    EXPECT_LE(memory_live_blocks(), live + 4);  // the queue may keep a spare block or two
}

// Tasks that wait for tasks, more of them than there are workers; each also tries to wait for
// itself.
struct Nest {
    int depth;
    std::atomic<int> *ran;
};

void *run_nest(void *owner, Nest *nest) {
    if (nest->depth > 0) {
        Nest inner{nest->depth - 1, nest->ran};
        BackgroundTask *task = nullptr;
        backgroundtask_execute(owner, &inner, method(run_nest), nullptr, &task, 0);
        backgroundtask_join(task);
    }
    ++*nest->ran;
    return nullptr;
}

void *join_own_owner(void *owner, std::atomic<uint32_t> *result) {
    *result = backgroundtask_join_object(owner);
    return nullptr;
}

TEST(BackgroundTasks, MayWaitForOthersButNotForThemselves) {
    std::atomic<int> ran{0};
    int owner = 0, other = 0;
    Nest nest{40, &ran};
    backgroundtask_execute(&owner, &nest, method(run_nest), nullptr, nullptr, 0);
    EXPECT_EQ(backgroundtask_join_object(&owner), 0u);
    EXPECT_EQ(ran, 41);
    std::atomic<uint32_t> result{0};
    backgroundtask_execute(&other, &result, method(join_own_owner), nullptr, nullptr, 0);
    EXPECT_EQ(backgroundtask_join_object(&other), 0u);
    EXPECT_EQ(result, failed);
}

struct Receiver {
    Object ob;
    int64_t sum;
    int completed;
};

void *receive(Receiver *x, Symbol *, int32_t argc, Atom *argv) {
    for (int32_t i = 0; i < argc; ++i) {
        x->sum += argv[i].value.i;
    }
    return nullptr;
}
void *receiver_done(Receiver *x, void *argument) {
    x->completed += argument == nullptr;
    return nullptr;
}

TEST(BackgroundTasks, SendMessagesAndForgetFreedOwners) {
    Class *c = class_new("background_receiver", nullptr, nullptr, sizeof(Receiver), nullptr, 0);
    class_addmethod(c, method(receive), "list", TypeGimme, 0);
    class_register("nobox"_sym, c);
    auto *x = static_cast<Receiver *>(object_alloc(c));
    Atom atoms[2] = {{TypeLong, {20}}, {TypeLong, {22}}};
    const auto send = [&](Receiver *owner) {
        return backgroundtask_execute_method(owner, "list"_sym, 2, atoms, method(receiver_done),
                                             nullptr, 0);
    };
    EXPECT_EQ(send(x), 0u);
    atoms[0].value.i = 0;  // the task has its own copy
    EXPECT_EQ(backgroundtask_join_object(x), 0u);
    EXPECT_EQ(x->sum, 42);
    run_queues();
    EXPECT_EQ(x->completed, 1);
    EXPECT_EQ(send(nullptr), failed);

    Job job;
    {
        Blockade blockade;
        EXPECT_EQ(start(x, job), 0u);
        object_free(x);
        blockade.lift();
        backgroundtask_join_object(x);
        run_queues();
    }
    EXPECT_EQ(job.ran + job.completed, 0);
    EXPECT_EQ(send(x), failed);
    class_free(c);
}

TEST(BackgroundTasks, ReportWhatARoutineThrowsAndWhatHasNoMemory) {
    int owner = 0;
    test::take_posts();
    const auto thrower = [](void *, void *) -> void * { throw std::runtime_error("out"); };
    void *(*routine)(void *, void *) = thrower;
    EXPECT_EQ(backgroundtask_execute(&owner, nullptr, method(routine), nullptr, nullptr, 0), 0u);
    backgroundtask_join_object(&owner);
    EXPECT_EQ(test::take_texts(),
              std::vector<std::string>{"background task: the routine threw an exception"});
    Job job;
    auto *task = reinterpret_cast<BackgroundTask *>(&job);
    test::debug_capture_start();
    memory_fail_at(1);
    EXPECT_EQ(start(&owner, job, &task), failed);
    EXPECT_EQ(task, nullptr);
    test::debug_capture_end();
    EXPECT_EQ(backgroundtask_execute(&owner, nullptr, nullptr, nullptr, &task, 0), failed);
}

}  // namespace
}  // namespace kiv
