// Threads of the interface: start records, marks and thread-local slots over platform threads.
#include <cxxabi.h>
#include <atomic>

#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

namespace {

constexpr uint32_t failed = 0xffffffff;

struct StartRecord {
    Method entry;
    void *argument;
    int32_t priority;
};
static_assert(sizeof(StartRecord) == 24);

struct Marks {
    int32_t audio = 0;
    bool timer = false;
    bool may_exit = false;  // its entry is a caller's
};
thread_local Marks marks;

std::atomic<ThreadId> main_thread{0};

// Forced unwinding (a module that ends its thread by the system's own call) must pass through.
void call_entry(Method entry, void *argument) {
    try {
        reinterpret_cast<void *(*)(void *)>(entry)(argument);
    } catch (abi::__forced_unwind &) {
        throw;
    } catch (...) {
        platform::debug_output("systhread_create: the thread's function threw an exception\n");
    }
}

uint32_t run_thread(void *argument) {
    auto *record = static_cast<StartRecord *>(argument);
    const StartRecord start = *record;
    sysmem_freeptr(record);
    systhread_setpriority(systhread_self(), start.priority);
    systhread_eliminatedenormals();
    marks.may_exit = true;
    call_entry(start.entry, start.argument);
    return 0;
}

}  // namespace

void threads_start() noexcept {
    main_thread.store(platform::thread_self());
}

void service_thread_mark() noexcept {
    marks.may_exit = false;
}

void timer_thread_mark() noexcept {
    service_thread_mark();
    marks.timer = true;
}

}  // namespace kiv

using namespace kiv;

// --- Threads -------------------------------------------------------------------------------------

uint32_t systhread_create(Method entry, void *argument, int64_t stack_size, int32_t priority,
                          int32_t, ThreadId *thread) noexcept {
    if (thread) {
        *thread = 0;
    }
    if (!entry) {
        return failed;
    }
    auto *record = static_cast<StartRecord *>(sysmem_newptr(sizeof(StartRecord)));
    if (!record) {
        return failed;
    }
    *record = {entry, argument, priority};
    const uint32_t result = platform::thread_start(
        run_thread, record, stack_size > 0 ? static_cast<size_t>(stack_size) : 0, thread);
    if (result != 0) {
        sysmem_freeptr(record);
    }
    return result;
}

uint32_t systhread_join(ThreadId thread, uint32_t *exit_code) noexcept {
    return thread != 0 && platform::thread_join(thread, exit_code) ? 0 : failed;
}

uint32_t systhread_detach(ThreadId thread) noexcept {
    return platform::thread_detach(thread) ? 0 : failed;
}

void systhread_exit(uint32_t status) noexcept {
    if (marks.may_exit) {
        platform::thread_exit(status);
    }
    platform::debug_output("systhread_exit: this thread was not made by systhread_create\n");
}

uint32_t systhread_terminate(ThreadId thread) noexcept {
    return platform::thread_terminate(thread) ? 0 : failed;
}

void systhread_sleep(uint32_t ms) noexcept {
    platform::thread_sleep(ms);
}

void systhread_setpriority(ThreadId thread, int32_t priority) noexcept {
    platform::thread_set_priority(thread, priority / 2);
}

int32_t systhread_getpriority(ThreadId thread) noexcept {
    return 2 * platform::thread_priority(thread);
}

ThreadId systhread_self() noexcept {
    return platform::thread_self();
}

int32_t systhread_ismainthread() noexcept {
    return platform::thread_self() == main_thread.load(std::memory_order_relaxed);
}

int32_t systhread_istimerthread() noexcept {
    return marks.timer;
}

int32_t systhread_isaudiothread() noexcept {
    return marks.audio != 0;
}

void systhread_markasaudiothread_begin() noexcept {
    ++marks.audio;
}

void systhread_markasaudiothread_end() noexcept {
    --marks.audio;
}

void systhread_eliminatedenormals() noexcept {
    platform::thread_flush_denormals();
}

// --- Slots ---------------------------------------------------------------------------------------

uint32_t systhread_key_create(ThreadKeyRef *key, void (*destructor)(void *value)) noexcept {
    if (!key) {
        return failed;
    }
    *key = reinterpret_cast<ThreadKeyRef>(platform::slot_create(destructor));
    return *key ? 0 : failed;
}

uint32_t systhread_key_delete(ThreadKeyRef key) noexcept {
    if (!key) {
        return failed;
    }
    platform::slot_delete(reinterpret_cast<platform::ThreadSlot *>(key));
    return 0;
}

void *systhread_getspecific(ThreadKeyRef key) noexcept {
    return key ? platform::slot_get(reinterpret_cast<platform::ThreadSlot *>(key)) : nullptr;
}

uint32_t systhread_setspecific(ThreadKeyRef key, const void *value) noexcept {
    return key && platform::slot_set(reinterpret_cast<platform::ThreadSlot *>(key),
                                     const_cast<void *>(value))
               ? 0
               : failed;
}
