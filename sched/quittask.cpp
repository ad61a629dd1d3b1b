// Quit tasks: what modules want called when the application ends.
//
// The list runs from the newest task to the oldest. A task is taken off the list, and the lock let
// go, before it is called: it may install and remove others.
#include <kiv/task.h>

#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

namespace {

struct QuitTask {
    QuitTask *next;
    Method routine;
    void *argument;
};

struct State {
    platform::CriticalSection lock;
    QuitTask *newest = nullptr;
};
State &state() noexcept {
    return immortal<State>();
}

// Takes the newest task that fits off the list; the caller frees it.
template <class Fits>
QuitTask *take(Fits fits) noexcept {
    const Guard guard(state().lock);
    for (QuitTask **link = &state().newest; *link; link = &(*link)->next) {
        QuitTask *task = *link;
        if (fits(task)) {
            *link = task->next;
            return task;
        }
    }
    return nullptr;
}

void call(const QuitTask *task) noexcept {
    try {
        reinterpret_cast<void *(*)(void *)>(task->routine)(task->argument);
    } catch (...) {
        platform::debug_output("quittask_install: a quit task threw an exception\n");
    }
}

}  // namespace

void quittasks_run() noexcept {
    while (QuitTask *task = take([](const QuitTask *) { return true; })) {
        call(task);
        sysmem_freeptr(task);
    }
}

}  // namespace kiv

using namespace kiv;

void quittask_install(Method routine, void *argument) noexcept {
    if (!routine) {
        return;
    }
    auto *task = static_cast<QuitTask *>(sysmem_newptr(sizeof(QuitTask)));
    if (!task) {
        return;
    }
    const Guard guard(state().lock);
    *task = {state().newest, routine, argument};
    state().newest = task;
}

void quittask_remove(Method routine) noexcept {
    sysmem_freeptr(take([=](const QuitTask *task) { return task->routine == routine; }));
}

void quittask_remove2(Method routine, void *argument) noexcept {
    sysmem_freeptr(take([=](const QuitTask *task) {
        return task->routine == routine && task->argument == argument;
    }));
}
