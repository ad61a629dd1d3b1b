// Read-write locks of the default kind, reached through a table of operations.
//
// `state` counts the readers. A writer holds `mutex` from its lock to its unlock and writes only
// while `state` is 0; a reader holds the mutex just to count itself. So a writer keeps readers out,
// and readers keep writers out without keeping each other out. A thread that reads may read again,
// and one that writes may write or read again; one that reads must not write (nobody could).
// Waiting readers and writers have no order among them; readers that never let `state` fall to 0
// keep a writer waiting.
#include <atomic>
#include <cmath>
#include <new>

#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

namespace {

struct RwlockOperations {
    int32_t (*free)(RwlockRef lock);
    int32_t (*read_lock)(RwlockRef lock);
    int32_t (*try_read_lock)(RwlockRef lock);
    int32_t (*read_unlock)(RwlockRef lock);
    int32_t (*write_lock)(RwlockRef lock);
    int32_t (*try_write_lock)(RwlockRef lock);
    int32_t (*write_unlock)(RwlockRef lock);
    int32_t (*set_spin_time)(RwlockRef lock, double ms);
    int32_t (*get_spin_time)(RwlockRef lock, double *ms);
};

}  // namespace

}  // namespace kiv

struct Rwlock {
    const kiv::RwlockOperations *operations;  // shared by all locks of the kind
    std::atomic<int32_t> state;               // readers
    MutexRef mutex;                           // held by the writer
    std::atomic<double> spin_ms;              // how long a wait tries again before it sleeps
};

namespace kiv {

namespace {

int32_t default_free(RwlockRef lock) {
    systhread_mutex_free(lock->mutex);
    lock->~Rwlock();
    sysmem_freeptr(lock);
    return 0;
}

// Tries until it succeeds or the lock's spin time is over.
template <class Attempt>
bool spin(RwlockRef lock, Attempt attempt) {
    const double spin_ms = lock->spin_ms.load(std::memory_order_relaxed);
    if (attempt()) {
        return true;
    }
    if (spin_ms > 0.0) {
        const double end = platform::time_ms() + spin_ms;
        do {
            if (attempt()) {
                return true;
            }
        } while (platform::time_ms() < end);
    }
    return false;
}

void take_mutex(RwlockRef lock) {
    if (!spin(lock, [lock] { return systhread_mutex_trylock(lock->mutex) == 0; })) {
        systhread_mutex_lock(lock->mutex);
    }
}

int32_t default_read_lock(RwlockRef lock) {
    take_mutex(lock);
    lock->state.fetch_add(1);
    systhread_mutex_unlock(lock->mutex);
    return 0;
}

int32_t default_try_read_lock(RwlockRef lock) {
    if (systhread_mutex_trylock(lock->mutex) != 0) {
        return -1;
    }
    lock->state.fetch_add(1);
    systhread_mutex_unlock(lock->mutex);
    return 0;
}

int32_t default_read_unlock(RwlockRef lock) {
    int32_t readers = lock->state.load();
    do {
        if (readers <= 0) {
            return -1;
        }
    } while (!lock->state.compare_exchange_weak(readers, readers - 1));
    if (readers == 1) {
        lock->state.notify_all();
    }
    return 0;
}

int32_t default_try_write_lock(RwlockRef lock) {
    if (systhread_mutex_trylock(lock->mutex) != 0) {
        return -1;
    }
    if (lock->state.load() != 0) {
        systhread_mutex_unlock(lock->mutex);
        return -1;
    }
    return 0;
}

// The mutex is free while the writer waits for the readers, so that one of them may read again.
int32_t default_write_lock(RwlockRef lock) {
    while (!spin(lock, [lock] { return default_try_write_lock(lock) == 0; })) {
        systhread_mutex_lock(lock->mutex);
        const int32_t readers = lock->state.load();
        if (readers == 0) {
            return 0;
        }
        systhread_mutex_unlock(lock->mutex);
        lock->state.wait(readers);
    }
    return 0;
}

int32_t default_write_unlock(RwlockRef lock) {
    systhread_mutex_unlock(lock->mutex);
    return 0;
}

int32_t default_set_spin_time(RwlockRef lock, double ms) {
    if (!(ms >= 0.0) || std::isinf(ms)) {
        return -1;
    }
    lock->spin_ms.store(ms);
    return 0;
}

int32_t default_get_spin_time(RwlockRef lock, double *ms) {
    if (!ms) {
        return -1;
    }
    *ms = lock->spin_ms.load();
    return 0;
}

constexpr int32_t default_kind = 1;
constexpr RwlockOperations default_operations = {
    default_free,         default_read_lock,     default_try_read_lock,
    default_read_unlock,  default_write_lock,    default_try_write_lock,
    default_write_unlock, default_set_spin_time, default_get_spin_time};

// Calls an operation of the lock's table; -1 without a lock or without the operation.
template <class... Parameters>
int32_t call(RwlockRef lock, int32_t (*RwlockOperations::*operation)(RwlockRef, Parameters...),
             Parameters... arguments) noexcept {
    if (!lock || !(lock->operations->*operation)) {
        return -1;
    }
    return (lock->operations->*operation)(lock, arguments...);
}

}  // namespace

}  // namespace kiv

using namespace kiv;

int32_t systhread_rwlock_new(RwlockRef *lock, int32_t kind) noexcept {
    if (!lock) {
        return -1;
    }
    *lock = nullptr;
    if (kind != 0 && kind != default_kind) {
        return -1;
    }
    void *block = sysmem_newptr(sizeof(Rwlock));
    MutexRef mutex = nullptr;
    if (!block || systhread_mutex_new(&mutex, 0) != 0) {
        sysmem_freeptr(block);
        return -1;
    }
    *lock = new (block) Rwlock{&default_operations, 0, mutex, 0.0};
    return 0;
}

int32_t systhread_rwlock_free(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::free);
}

int32_t systhread_rwlock_rdlock(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::read_lock);
}

int32_t systhread_rwlock_tryrdlock(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::try_read_lock);
}

int32_t systhread_rwlock_rdunlock(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::read_unlock);
}

int32_t systhread_rwlock_wrlock(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::write_lock);
}

int32_t systhread_rwlock_trywrlock(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::try_write_lock);
}

int32_t systhread_rwlock_wrunlock(RwlockRef lock) noexcept {
    return call(lock, &RwlockOperations::write_unlock);
}

int32_t systhread_rwlock_setspintime(RwlockRef lock, double ms) noexcept {
    return call(lock, &RwlockOperations::set_spin_time, ms);
}

int32_t systhread_rwlock_getspintime(RwlockRef lock, double *ms) noexcept {
    return call(lock, &RwlockOperations::get_spin_time, ms);
}
