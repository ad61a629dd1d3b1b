// Critical regions, mutexes and their lazy creation.
//
// A region and a mutex are the same thing: a critical section in a kernel block. Null and all ones
// stand for the global region, so that a lock nobody could make still excludes. The lock-creation
// lock is held only while a mutex is made, never while anything else is locked inside it.
#include <atomic>
#include <new>

#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

namespace {

// Made on first use, by whichever start-up code comes first, and never destroyed.
platform::CriticalSection &global_section() noexcept {
    alignas(platform::CriticalSection) static std::byte storage[sizeof(platform::CriticalSection)];
    static auto *section = new (storage) platform::CriticalSection;
    return *section;
}

platform::CriticalSection &creation_section() noexcept {
    alignas(platform::CriticalSection) static std::byte storage[sizeof(platform::CriticalSection)];
    static auto *section = new (storage) platform::CriticalSection;
    return *section;
}

template <class Ref>
bool is_global(Ref region) noexcept {
    return region == nullptr || reinterpret_cast<uintptr_t>(region) == UINTPTR_MAX;
}

template <class Ref>
platform::CriticalSection &section_of(Ref region) noexcept {
    return is_global(region) ? global_section()
                             : *reinterpret_cast<platform::CriticalSection *>(region);
}

platform::CriticalSection *section_new() noexcept {
    void *block = sysmem_newptr(sizeof(platform::CriticalSection));
    return block ? new (block) platform::CriticalSection : nullptr;
}

template <class Ref>
void section_free(Ref region) noexcept {
    if (!is_global(region)) {
        section_of(region).~CriticalSection();
        sysmem_freeptr(region);
    }
}

}  // namespace

}  // namespace kiv

using namespace kiv;

// --- Critical regions ----------------------------------------------------------------------------

void critical_new(CriticalRef *region) noexcept {
    if (region) {
        *region = reinterpret_cast<CriticalRef>(section_new());
    }
}

void critical_enter(CriticalRef region) noexcept {
    section_of(region).enter();
}

void critical_exit(CriticalRef region) noexcept {
    section_of(region).exit();
}

int32_t critical_tryenter(CriticalRef region) noexcept {
    return section_of(region).try_enter();
}

void critical_free(CriticalRef region) noexcept {
    section_free(region);
}

// --- Mutexes -------------------------------------------------------------------------------------

uint32_t systhread_mutex_new(MutexRef *mutex, int32_t) noexcept {
    if (!mutex) {
        return 1;
    }
    *mutex = reinterpret_cast<MutexRef>(section_new());
    return *mutex ? 0 : 1;
}

uint32_t systhread_mutex_free(MutexRef mutex) noexcept {
    section_free(mutex);
    return 0;
}

uint32_t systhread_mutex_lock(MutexRef mutex) noexcept {
    section_of(mutex).enter();
    return 0;
}

uint32_t systhread_mutex_unlock(MutexRef mutex) noexcept {
    section_of(mutex).exit();
    return 0;
}

uint32_t systhread_mutex_trylock(MutexRef mutex) noexcept {
    return section_of(mutex).try_enter() ? 0 : 0xffffffff;
}

uint32_t systhread_mutex_newlock(MutexRef *slot, int32_t flags) noexcept {
    if (!slot) {
        return systhread_mutex_lock(nullptr);
    }
    const std::atomic_ref<MutexRef> shared(*slot);
    MutexRef mutex = shared.load(std::memory_order_acquire);
    if (!mutex) {
        creation_section().enter();
        mutex = shared.load(std::memory_order_relaxed);
        if (!mutex) {
            if (systhread_mutex_new(&mutex, flags) != 0) {
                // The global region for good: whoever unlocks must find what was locked here.
                mutex = reinterpret_cast<MutexRef>(UINTPTR_MAX);
            }
            shared.store(mutex, std::memory_order_release);
        }
        creation_section().exit();
    }
    return systhread_mutex_lock(mutex);
}
