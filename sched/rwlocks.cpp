// Read-write locks of the default kind, reached through a table of operations.
//
// The state word counts the readers in its low half and the write locks of the one writer in its
// high half. A writer holds `mutex` from its first lock to its last unlock, so whoever gets the
// mutex and finds a writer counted is that writer. A reader counts itself without the mutex unless
// there is a writer to wait for. A thread that reads may read again, and one that writes may write
// or read again; one that reads must not write (it would wait for itself). Waiting threads have no
// order; readers that never let their count fall to 0 keep a writer waiting.
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
    std::atomic<int32_t> state;               // readers, and write locks in the high half
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

constexpr int32_t one_write = 1 << 16;
constexpr int32_t reader_mask = one_write - 1;

bool count_reader(RwlockRef lock) {
    int32_t state = lock->state.load();
    while (state < one_write) {
        if (lock->state.compare_exchange_weak(state, state + 1)) {
            return true;
        }
    }
    return false;
}

bool count_reader_holding_mutex(RwlockRef lock) {
    lock->state.fetch_add(1);
    systhread_mutex_unlock(lock->mutex);
    return true;
}

// Without waiting; the mutex is to be had only by the writer itself.
bool try_read(RwlockRef lock) {
    return count_reader(lock) ||
           (systhread_mutex_trylock(lock->mutex) == 0 && count_reader_holding_mutex(lock));
}

// The caller holds the mutex; it keeps it when it becomes (or is) the writer.
bool count_writer_holding_mutex(RwlockRef lock) {
    int32_t state = lock->state.load();
    while (state == 0 || state >= one_write) {
        if (lock->state.compare_exchange_weak(state, state + one_write)) {
            return true;
        }
    }
    systhread_mutex_unlock(lock->mutex);
    return false;
}

bool try_write(RwlockRef lock) {
    return systhread_mutex_trylock(lock->mutex) == 0 && count_writer_holding_mutex(lock);
}

int32_t default_read_lock(RwlockRef lock) {
    if (!spin(lock, [lock] { return try_read(lock); })) {
        systhread_mutex_lock(lock->mutex);
        count_reader_holding_mutex(lock);
    }
    return 0;
}

int32_t default_try_read_lock(RwlockRef lock) {
    return try_read(lock) ? 0 : -1;
}

int32_t default_read_unlock(RwlockRef lock) {
    int32_t state = lock->state.load();
    do {
        if ((state & reader_mask) == 0) {
            return -1;
        }
    } while (!lock->state.compare_exchange_weak(state, state - 1));
    if (state == 1) {
        lock->state.notify_all();
    }
    return 0;
}

// The mutex is free while the writer waits for the readers: one that was a writer may still need
// it.
int32_t default_write_lock(RwlockRef lock) {
    while (!spin(lock, [lock] { return try_write(lock); })) {
        systhread_mutex_lock(lock->mutex);
        if (count_writer_holding_mutex(lock)) {
            return 0;
        }
        const int32_t state = lock->state.load();
        if (state != 0) {
            lock->state.wait(state);
        }
    }
    return 0;
}

int32_t default_try_write_lock(RwlockRef lock) {
    return try_write(lock) ? 0 : -1;
}

int32_t default_write_unlock(RwlockRef lock) {
    if (lock->state.load() < one_write) {
        return -1;
    }
    if (lock->state.fetch_sub(one_write) == one_write) {
        lock->state.notify_all();
    }
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
