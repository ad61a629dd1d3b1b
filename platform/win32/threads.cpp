// Threads by the system's identifiers, their priorities and thread-local slots.
//
// Every thread that was started here has a record in one table, under one lock. The record keeps
// the thread's handle, and so its identifier and its exit code, until the thread is joined or
// detached; of those that ended and that nobody asked for, the oldest is dropped when more than
// `max_ended` wait.
#include <process.h>
#include <xmmintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <new>
#include <unordered_map>
#include <utility>

#include "platform/platform.h"
#include "platform/win32/win32.h"

namespace kiv::platform {

namespace {

struct Thread {
    HANDLE handle;
    int32_t priority;
    bool ended;
    bool detached;
};

struct Start {
    ThreadEntry entry;
    void *argument;
};

constexpr size_t max_ended = 1024;

struct Threads {
    CriticalSection lock;
    std::unordered_map<uint32_t, Thread> table;
    std::deque<uint32_t> ended;  // the oldest first; may name threads that are gone
};

// Never destroyed: threads may still end while the process does.
Threads &threads() {
    alignas(Threads) static std::byte storage[sizeof(Threads)];
    static auto *instance = new (storage) Threads;
    return *instance;
}

class Lock {
  public:
    Lock() { threads().lock.enter(); }
    ~Lock() { threads().lock.exit(); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
};

// --- The table; the caller holds the lock --------------------------------------------------------

Thread *find(uint32_t id) {
    const auto found = threads().table.find(id);
    return found == threads().table.end() ? nullptr : &found->second;
}

void remove(uint32_t id) {
    Threads &all = threads();
    const auto found = all.table.find(id);
    if (found == all.table.end()) {
        return;
    }
    CloseHandle(found->second.handle);
    if (found->second.ended) {
        std::erase(all.ended, id);
    }
    all.table.erase(found);
}

void keep_ended(uint32_t id, Thread &thread) {
    Threads &all = threads();
    thread.ended = true;
    all.ended.push_back(id);
    if (all.ended.size() > max_ended) {
        remove(all.ended.front());
    }
}

void thread_ended() {
    const Lock lock;
    const uint32_t id = GetCurrentThreadId();
    Thread *thread = find(id);
    if (!thread || thread->ended) {
        return;
    }
    if (thread->detached) {
        remove(id);
    } else {
        keep_ended(id, *thread);
    }
}

// --- A thread's life -----------------------------------------------------------------------------

thread_local bool started_here = false;

unsigned __stdcall run_thread(void *argument) {
    const Start start = *static_cast<Start *>(argument);
    std::free(argument);
    started_here = true;
    const uint32_t exit_code = start.entry(start.argument);
    thread_ended();
    return exit_code;
}

// Of the 31 priorities the system knows seven.
int system_priority(int32_t priority) {
    if (priority <= -15) {
        return THREAD_PRIORITY_IDLE;
    }
    if (priority >= 15) {
        return THREAD_PRIORITY_TIME_CRITICAL;
    }
    return std::clamp<int>(priority, THREAD_PRIORITY_LOWEST, THREAD_PRIORITY_HIGHEST);
}

thread_local int32_t adopted_priority = 0;  // of a thread that was not started here

}  // namespace

uint32_t thread_start(ThreadEntry entry, void *argument, size_t stack_size, uint32_t *id) noexcept {
    if (id) {
        *id = 0;
    }
    auto *start = static_cast<Start *>(std::malloc(sizeof(Start)));
    if (!start || stack_size > UINT_MAX) {
        std::free(start);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    *start = {entry, argument};
    unsigned system_id = 0;
    // Suspended, so that its record and *id are there before it runs.
    const uintptr_t handle =
        _beginthreadex(nullptr, static_cast<unsigned>(stack_size), run_thread, start,
                       CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION, &system_id);
    if (handle == 0) {
        const DWORD error = GetLastError();
        std::free(start);
        return error ? error : ERROR_NOT_ENOUGH_MEMORY;
    }
    const auto thread = reinterpret_cast<HANDLE>(handle);
    try {
        const Lock lock;
        threads().table[system_id] = {thread, 0, false, false};
    } catch (const std::bad_alloc &) {
        TerminateThread(thread, 0);
        CloseHandle(thread);
        std::free(start);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    if (id) {
        *id = system_id;
    }
    ResumeThread(thread);
    return 0;
}

uint32_t thread_self() noexcept {
    return GetCurrentThreadId();
}

bool thread_join(uint32_t id, uint32_t *exit_code) noexcept {
    if (id == GetCurrentThreadId()) {
        return false;
    }
    HANDLE handle = nullptr;
    {
        const Lock lock;
        const Thread *thread = find(id);
        if (!thread || !DuplicateHandle(GetCurrentProcess(), thread->handle, GetCurrentProcess(),
                                        &handle, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
            return false;
        }
    }
    WaitForSingleObject(handle, INFINITE);
    DWORD code = 0;
    GetExitCodeThread(handle, &code);
    if (exit_code) {
        *exit_code = code;
    }
    {
        const Lock lock;  // while `handle` is open no other thread can have the identifier
        remove(id);
    }
    CloseHandle(handle);
    return true;
}

bool thread_detach(uint32_t id) noexcept {
    const Lock lock;
    Thread *thread = find(id);
    if (!thread) {
        return false;
    }
    thread->detached = true;
    if (thread->ended) {
        remove(id);
    }
    return true;
}

void thread_exit(uint32_t status) noexcept {
    if (started_here) {
        thread_ended();
        _endthreadex(status);
    }
}

bool thread_terminate(uint32_t id) noexcept {
    const Lock lock;
    Thread *thread = find(id);
    if (!thread || thread->ended || id == GetCurrentThreadId() ||
        !TerminateThread(thread->handle, 0)) {
        return false;
    }
    if (thread->detached) {
        remove(id);
    } else {
        keep_ended(id, *thread);
    }
    return true;
}

void thread_sleep(double ms) noexcept {
    SleepEx(static_cast<DWORD>(std::clamp(std::ceil(ms), 0.0, 4e9)), TRUE);
}

void thread_set_priority(uint32_t id, int32_t priority) noexcept {
    const int32_t wanted = std::clamp(priority, -15, 15);
    const Lock lock;
    if (Thread *thread = find(id)) {
        thread->priority = wanted;
        SetThreadPriority(thread->handle, system_priority(wanted));
    } else if (id == GetCurrentThreadId()) {
        adopted_priority = wanted;
        SetThreadPriority(GetCurrentThread(), system_priority(wanted));
    }
}

int32_t thread_priority(uint32_t id) noexcept {
    const Lock lock;
    if (const Thread *thread = find(id)) {
        return thread->priority;
    }
    return id == GetCurrentThreadId() ? adopted_priority : 0;
}

void thread_flush_denormals() noexcept {
    _mm_setcsr(_mm_getcsr() | (1u << 15) | (1u << 6));  // flush to zero, denormals are zero
}

uint32_t processor_count() noexcept {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return std::max<uint32_t>(info.dwNumberOfProcessors, 1);
}

// The stack is one reserved region, of which this address is a part.
void *stack_base() noexcept {
    thread_local void *base = nullptr;
    MEMORY_BASIC_INFORMATION region{};
    if (!base && VirtualQuery(&region, &region, sizeof region) != 0) {
        base = region.AllocationBase;
    }
    return base;
}

// --- Slots ---------------------------------------------------------------------------------------
//
// The system's own slots know no destructors (thread-local ones), or call them also when a slot is
// freed and once only, so that what a destructor sets stays for ever (fiber-local ones). So one of
// the latter holds a thread's table of all values.

struct ThreadSlot {
    void (*destructor)(void *value);
    std::atomic<uint64_t> generation;  // odd while in use; a value of another generation is null
};

namespace {

constexpr size_t max_slots = 256;
constexpr int destructor_rounds = 4;

struct Value {
    void *value;
    uint64_t generation;
};

struct Slots {
    CriticalSection lock;  // around making and deleting
    ThreadSlot slots[max_slots] = {};
    DWORD index = FLS_OUT_OF_INDEXES;  // of the pointer to a thread's values
};

void WINAPI values_end(void *values);

Slots &slots() {
    alignas(Slots) static std::byte storage[sizeof(Slots)];
    static auto *instance = [] {
        auto *made = new (storage) Slots;
        made->index = FlsAlloc(values_end);
        return made;
    }();
    return *instance;
}

Value *values_of_thread() {
    return static_cast<Value *>(FlsGetValue(slots().index));
}

// One round; false when there was nothing to destroy.
bool destroy_values(Value *values) {
    bool any = false;
    for (size_t i = 0; i < max_slots; ++i) {
        const ThreadSlot &slot = slots().slots[i];
        void *const value = std::exchange(values[i].value, nullptr);
        if (value && slot.destructor && values[i].generation == slot.generation) {
            slot.destructor(value);
            any = true;
        }
    }
    return any;
}

void WINAPI values_end(void *values) {
    // Set again for the destructors, which may look at slots and set them.
    FlsSetValue(slots().index, values);
    for (int i = 0; i < destructor_rounds && destroy_values(static_cast<Value *>(values)); ++i) {
    }
    FlsSetValue(slots().index, nullptr);
    std::free(values);
}

}  // namespace

ThreadSlot *slot_create(void (*destructor)(void *value)) noexcept {
    Slots &all = slots();
    all.lock.enter();
    ThreadSlot *const end = all.slots + max_slots;
    ThreadSlot *slot = std::find_if(
        all.slots, end, [](const ThreadSlot &candidate) { return candidate.generation % 2 == 0; });
    if (slot != end) {
        slot->destructor = destructor;
        ++slot->generation;
    }
    all.lock.exit();
    return slot == end ? nullptr : slot;
}

void slot_delete(ThreadSlot *slot) noexcept {
    if (slot) {
        slots().lock.enter();
        ++slot->generation;
        slots().lock.exit();
    }
}

void *slot_get(ThreadSlot *slot) noexcept {
    const Value *const values = values_of_thread();
    if (!values) {
        return nullptr;
    }
    const Value &held = values[slot - slots().slots];
    return held.generation == slot->generation ? held.value : nullptr;
}

bool slot_set(ThreadSlot *slot, void *value) noexcept {
    Value *values = values_of_thread();
    if (!values) {
        values = static_cast<Value *>(std::calloc(max_slots, sizeof(Value)));
        if (!values || !FlsSetValue(slots().index, values)) {
            std::free(values);
            return false;
        }
    }
    values[slot - slots().slots] = {value, slot->generation};
    return true;
}

}  // namespace kiv::platform
