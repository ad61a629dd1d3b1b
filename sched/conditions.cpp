// Conditions: two events, a count of waiting threads and a lock of their own.
//
// A waiter counts itself before it lets go of the mutex, so a signal given under the mutex is never
// lost to it. The events are flags, not counts: two signals in a row may wake one thread, a wake
// may come without a cause, and callers wait in a loop over what they wait for. Who waits again
// before a broadcast has woken the last of the others is not counted, or it might never end: that
// one's wait ends with the broadcast, or soon if the last of the others was terminated.
#include <new>

#include "sched/condition.h"

namespace kiv {

namespace {

constexpr uint32_t failed = 0xffffffff;
constexpr double longest_broadcast_ms = 1.0;  // that others wait for

// Sets an event of a condition that somebody waits for.
uint32_t wake(ConditionRef condition, platform::Event Condition::*event) noexcept {
    if (!condition) {
        return failed;
    }
    const Guard guard(condition->lock);
    if (condition->waiting != 0) {
        if (event == &Condition::all) {
            condition->broadcast = true;
            condition->over.reset();
        }
        (condition->*event).set();
    }
    return 0;
}

// The last one resets `all` inside the lock, or the broadcast for a new waiter could be lost.
void leave(ConditionRef condition) noexcept {
    const Guard guard(condition->lock);
    if (--condition->waiting == 0 && condition->broadcast) {
        condition->all.reset();
        condition->over.set();
        condition->broadcast = false;
    }
}

}  // namespace

}  // namespace kiv

using namespace kiv;

uint32_t systhread_cond_new(ConditionRef *condition, int32_t) noexcept {
    if (!condition) {
        return failed;
    }
    void *block = sysmem_newptr(sizeof(Condition));
    *condition = block ? new (block) Condition : nullptr;
    return *condition ? 0 : failed;
}

uint32_t systhread_cond_free(ConditionRef condition) noexcept {
    if (condition) {
        condition->~Condition();
        sysmem_freeptr(condition);
    }
    return 0;
}

uint32_t systhread_cond_wait(ConditionRef condition, MutexRef mutex) noexcept {
    if (!condition) {
        return failed;
    }
    condition->lock.enter();
    const bool joins = !condition->broadcast;
    condition->waiting += joins ? 1 : 0;
    condition->lock.exit();
    systhread_mutex_unlock(mutex);
    if (joins) {
        platform::Event::wait_either(condition->one, condition->all, platform::wait_forever);
        leave(condition);
    } else {
        condition->over.wait(longest_broadcast_ms);
    }
    systhread_mutex_lock(mutex);
    return 0;
}

uint32_t systhread_cond_signal(ConditionRef condition) noexcept {
    return wake(condition, &Condition::one);
}

uint32_t systhread_cond_broadcast(ConditionRef condition) noexcept {
    return wake(condition, &Condition::all);
}
