// Background tasks: routines run on worker threads, their completions on the main thread.
//
// Life of a task: queued, running, finished (its completion waits for the main thread), gone. One
// lock guards the queue, the list of active tasks and every task's state; it is never held while a
// routine or a completion runs. A task's pointer that comes from a caller is only compared until it
// is found among the tasks. Workers are started when more tasks wait than workers are idle, up to
// the processor count (at least two), and stay.
//
// A worker that waits for a queued task runs it itself: tasks that join others cannot use up the
// workers. Routines and completions are called as function(owner, argument). An owner that was an
// object when the task was made is not called for once it is gone.
#include <kiv/console.h>
#include <kiv/defer.h>
#include <kiv/object.h>
#include <kiv/sysparallel.h>
#include <kiv/task.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "kernel/internal.h"
#include "sched/condition.h"

struct BackgroundTask {
    uint32_t flags;  // the caller's, and BackgroundFlag bits
    uint32_t state;
    uint32_t sequence;
    void *owner;
    void *argument;
    Method routine;
    Method completion;
};
static_assert(sizeof(BackgroundTask) == 48);

namespace kiv {

namespace {

constexpr uint32_t failed = 0xffffffff;

enum TaskState : uint32_t { Queued = 1, Running = 2, Finished = 3 };

enum BackgroundFlag : uint32_t {
    OwnerIsObject = 0x80000000,
    SendsMessage = 0x40000000,  // the argument is a MessageBlock of the task's own
    Cancelled = 0x20000000      // no completion
};
constexpr uint32_t caller_flags = 0x1fffffff;

struct MessageBlock {
    Symbol *selector;
    int32_t count;
    Atom atoms[1];
};

// By sequence number: in the order in which they were made.
using Tasks = Map<uint32_t, BackgroundTask *>;

struct Service {
    platform::CriticalSection lock;
    Condition work;  // a task was queued
    Condition done;  // a task finished or was taken away
    Tasks queue;
    Tasks active;  // running or finished
    int32_t workers = 0;
    int32_t idle = 0;
    bool ending = false;  // takes no more tasks
};
Service &service() noexcept {
    return immortal<Service>();
}

std::atomic<uint32_t> last_sequence{0};

// What a worker runs: the task it took, and above it the ones it helps with while that one waits.
struct RunFrame {
    const BackgroundTask *task;
    const RunFrame *outer;
};
thread_local const RunFrame *frames = nullptr;
thread_local bool is_worker = false;

bool owner_lives(const BackgroundTask *task) noexcept {
    return !(task->flags & OwnerIsObject) || object_valid(task->owner);
}

void task_free(BackgroundTask *task) noexcept {
    if (task->flags & SendsMessage) {
        sysmem_freeptr(task->argument);
    }
    sysmem_freeptr(task);
}

void call(const char *what, Method function, void *owner, void *argument) noexcept {
    try {
        reinterpret_cast<void *(*)(void *, void *)>(function)(owner, argument);
    } catch (...) {
        object_error(object_valid(owner) ? owner : nullptr,
                     "background task: the %s threw an exception", what);
    }
}

// --- Lists; the caller holds the lock ------------------------------------------------------------

template <class Fits>
BackgroundTask *find(Service &s, Fits fits) noexcept {
    for (const Tasks *tasks : {&s.queue, &s.active}) {
        const auto found = std::find_if(tasks->begin(), tasks->end(),
                                        [&](const auto &entry) { return fits(entry.second); });
        if (found != tasks->end()) {
            return found->second;
        }
    }
    return nullptr;
}

// The task a caller means, or null when it is gone.
BackgroundTask *known(Service &s, const BackgroundTask *task) noexcept {
    return find(s, [task](const BackgroundTask *other) { return other == task; });
}

template <class Fits>
BackgroundTask *find_unfinished(Service &s, Fits fits) noexcept {
    return find(s,
                [&](const BackgroundTask *task) { return task->state != Finished && fits(task); });
}

// Frees the tasks that fit.
template <class Fits>
void drop(Tasks &tasks, Fits fits) noexcept {
    std::erase_if(tasks, [&](const auto &entry) {
        const bool fit = fits(entry.second);
        if (fit) {
            task_free(entry.second);
        }
        return fit;
    });
}

// --- Running -------------------------------------------------------------------------------------

// Main thread. The atom holds the task's sequence number: the task may be gone.
void deliver(void *, Symbol *, int32_t, Atom *argv) noexcept {
    Service &s = service();
    BackgroundTask *task = nullptr;
    {
        const Guard guard(s.lock);
        const auto found = s.active.find(static_cast<uint32_t>(argv->value.i));
        if (found == s.active.end()) {
            return;
        }
        task = found->second;
        s.active.erase(found);
    }
    if (owner_lives(task)) {
        call("completion", task->completion, task->owner,
             task->flags & SendsMessage ? nullptr : task->argument);
    }
    task_free(task);
}

bool request_delivery(const BackgroundTask *task) noexcept {
    Atom sequence{};
    sequence.type = TypeLong;
    sequence.value.i = task->sequence;
    return defer_low(nullptr, method(deliver), nullptr, 1, &sequence) != nullptr;
}

// Runs a queued task on this thread. The caller holds the lock, which is let go meanwhile.
void run(Service &s, BackgroundTask *task) noexcept {
    s.active.insert(s.queue.extract(task->sequence));
    task->state = Running;
    {
        const Unguarded running(s.lock);
        const RunFrame frame{task, frames};
        frames = &frame;
        if (owner_lives(task)) {
            call("routine", task->routine, task->owner, task->argument);
        }
        frames = frame.outer;
    }
    task->state = Finished;
    if (!task->completion || (task->flags & Cancelled) || !request_delivery(task)) {
        s.active.erase(task->sequence);
        task_free(task);
    }
    systhread_cond_broadcast(&s.done);
}

void *work(void *) {
    Service &s = service();
    service_thread_mark();
    is_worker = true;
    s.lock.enter();
    for (;;) {
        while (s.queue.empty()) {
            ++s.idle;
            condition_wait(s.work, s.lock);
            --s.idle;
        }
        run(s, s.queue.begin()->second);
    }
}

// Starts a worker when tasks would wait for none; the error only when there is no worker at all.
uint32_t need_worker(Service &s) noexcept {
    if (static_cast<int64_t>(s.queue.size()) <= s.idle ||
        s.workers >= std::max(2, sysparallel_processorcount())) {
        return 0;
    }
    ThreadId id;
    const uint32_t result = systhread_create(method(work), nullptr, 0, 0, 0, &id);
    if (result != 0) {
        return s.workers > 0 ? 0 : result;
    }
    systhread_detach(id);
    ++s.workers;
    return 0;
}

uint32_t hand_over(BackgroundTask *task) noexcept {
    Service &s = service();
    const Guard guard(s.lock);
    if (s.ending) {
        return failed;
    }
    try {
        s.queue.emplace(task->sequence, task);
    } catch (const std::bad_alloc &) {
        return failed;
    }
    const uint32_t result = need_worker(s);
    if (result != 0) {
        s.queue.erase(task->sequence);
        return result;
    }
    systhread_cond_broadcast(&s.work);
    return 0;
}

// Makes a task and hands it over; `flags` with the private bits.
uint32_t execute(const BackgroundTask &values, BackgroundTask **out) noexcept {
    if (out) {
        *out = nullptr;
    }
    auto *task = static_cast<BackgroundTask *>(sysmem_newptr(sizeof(BackgroundTask)));
    if (!task) {
        return failed;
    }
    *task = values;
    task->state = Queued;
    task->sequence = last_sequence.fetch_add(1) + 1;
    if (object_valid(task->owner)) {
        task->flags |= OwnerIsObject;
    }
    if (out) {
        *out = task;
    }
    const uint32_t result = hand_over(task);
    if (result != 0) {
        if (out) {
            *out = nullptr;
        }
        sysmem_freeptr(task);
    }
    return result;
}

void *send_message(void *owner, void *argument) {
    auto *message = static_cast<MessageBlock *>(argument);
    return typedmess(owner, message->selector, message->count, message->atoms);
}

// --- Waiting -------------------------------------------------------------------------------------

// True for a task below on this thread's own stack: waiting for it would never end.
bool runs_here(const BackgroundTask *task) noexcept {
    const RunFrame *frame = frames;
    while (frame && frame->task != task) {
        frame = frame->outer;
    }
    return frame != nullptr;
}

// Waits until no unfinished task fits; false when one of them is the caller itself.
template <class Fits>
bool wait_until_none(Service &s, Fits fits) noexcept {
    const auto other = [&](const BackgroundTask *task) { return !runs_here(task) && fits(task); };
    while (BackgroundTask *task = find_unfinished(s, other)) {
        if (is_worker && task->state == Queued) {
            run(s, task);
        } else {
            condition_wait(s.done, s.lock);
        }
    }
    return find_unfinished(s, fits) == nullptr;
}

// How long the end of the process waits for routines that run.
constexpr double end_wait_ms = 2000.0;

bool routine_runs(Service &s) noexcept {
    const Guard guard(s.lock);
    return find_unfinished(s, [](const BackgroundTask *) { return true; }) != nullptr;
}

}  // namespace

void background_tasks_end() noexcept {
    Service &s = service();
    {
        const Guard guard(s.lock);
        s.ending = true;
        drop(s.queue, [](const BackgroundTask *) { return true; });
        systhread_cond_broadcast(&s.done);
    }
    const double end = platform::time_ms() + end_wait_ms;
    while (routine_runs(s) && platform::time_ms() < end) {
        systhread_sleep(1);
    }
}

}  // namespace kiv

using namespace kiv;

uint32_t backgroundtask_execute(void *owner, void *argument, Method routine, Method completion,
                                BackgroundTask **task, int32_t flags) noexcept {
    if (!routine) {
        if (task) {
            *task = nullptr;
        }
        return failed;
    }
    return execute(
        {static_cast<uint32_t>(flags) & caller_flags, 0, 0, owner, argument, routine, completion},
        task);
}

uint32_t backgroundtask_execute_method(void *owner, Symbol *selector, int32_t argc, Atom *argv,
                                       Method completion, BackgroundTask **task,
                                       int32_t flags) noexcept {
    if (task) {
        *task = nullptr;
    }
    const int32_t count = argv ? std::max(argc, 0) : 0;
    if (!selector || !object_valid(owner)) {
        return failed;
    }
    auto *message = static_cast<MessageBlock *>(sysmem_newptrclear(
        static_cast<int64_t>(sizeof(MessageBlock)) + count * static_cast<int64_t>(sizeof(Atom))));
    if (!message) {
        return failed;
    }
    message->selector = selector;
    message->count = count;
    if (count > 0) {
        std::memcpy(message->atoms, argv, static_cast<size_t>(count) * sizeof(Atom));
    }
    const uint32_t result = execute({(static_cast<uint32_t>(flags) & caller_flags) | SendsMessage,
                                     0, 0, owner, message, method(send_message), completion},
                                    task);
    if (result != 0) {
        sysmem_freeptr(message);
    }
    return result;
}

uint32_t backgroundtask_cancel(BackgroundTask *task) noexcept {
    Service &s = service();
    const Guard guard(s.lock);
    if (!known(s, task)) {
        return failed;
    }
    if (task->state == Running) {
        task->flags |= Cancelled;
        return 0;
    }
    (task->state == Queued ? s.queue : s.active).erase(task->sequence);
    task_free(task);
    systhread_cond_broadcast(&s.done);
    return 0;
}

uint32_t backgroundtask_join(BackgroundTask *task) noexcept {
    if (!task) {
        return failed;
    }
    Service &s = service();
    const Guard guard(s.lock);
    if (!known(s, task)) {
        return 0;
    }
    const uint32_t sequence = task->sequence;  // the block may be another task's when it is gone
    return wait_until_none(
               s, [sequence](const BackgroundTask *other) { return other->sequence == sequence; })
               ? 0
               : failed;
}

uint32_t backgroundtask_join_object(void *owner) noexcept {
    if (!owner) {
        return failed;
    }
    Service &s = service();
    const Guard guard(s.lock);
    return wait_until_none(s, [owner](const BackgroundTask *task) { return task->owner == owner; })
               ? 0
               : failed;
}

uint32_t backgroundtask_purge_object(void *owner) noexcept {
    if (!owner) {
        return failed;
    }
    Service &s = service();
    const auto owned = [owner](const BackgroundTask *task) { return task->owner == owner; };
    const Guard guard(s.lock);
    drop(s.queue, owned);
    drop(s.active, [&](BackgroundTask *task) {
        if (owned(task)) {
            task->flags |= Cancelled;
        }
        return owned(task) && task->state == Finished;
    });
    systhread_cond_broadcast(&s.done);
    return wait_until_none(s, owned) ? 0 : failed;
}
