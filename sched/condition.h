// The record behind a condition, for the files of this folder that hold one in their state.
#pragma once

#include "platform/platform.h"
#include "sched/internal.h"

struct Condition {
    kiv::platform::Event one{false};  // wakes one waiter and resets itself
    kiv::platform::Event all{true};   // wakes all; the last one resets it
    kiv::platform::Event over{true};  // the last one sets it
    int64_t waiting = 0;              // guarded by `lock`, as what follows is
    bool broadcast = false;           // not all of those that `all` wakes have left
    kiv::platform::CriticalSection lock;
};

namespace kiv {

inline void condition_wait(Condition &condition, platform::CriticalSection &section) noexcept {
    systhread_cond_wait(&condition, reinterpret_cast<MutexRef>(&section));
}

}  // namespace kiv
