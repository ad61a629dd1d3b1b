// Hooks between sched/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/clock.h>
#include <kiv/critical.h>
#include <kiv/scheduler.h>
#include <kiv/sysmem.h>
#include <kiv/systhread.h>

#include <cstddef>
#include <map>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

namespace kiv::platform {
class CriticalSection;
}

namespace kiv {

// --- Memory (memory.cpp, small_blocks.cpp) -------------------------------------------------------

// Lets the n-th allocation from now fail once (1 = the next one); 0 switches this off. Tests only.
void memory_fail_at(int64_t n) noexcept;
// Blocks handed out and not yet freed; exact while no other thread allocates. Tests compare it
// before and after.
int64_t memory_live_blocks() noexcept;

// Standard containers take their memory from sysmem_newptr through this allocator, so that one
// hook sees every allocation. A failed allocation throws std::bad_alloc inside; interface
// functions catch it and answer with their failure value.
template <class T>
struct SysAllocator {
    using value_type = T;
    SysAllocator() noexcept = default;
    template <class U>
    SysAllocator(const SysAllocator<U> &) noexcept {}
    T *allocate(size_t n) {
        if (void *block = sysmem_newptr(static_cast<int64_t>(n * sizeof(T)))) {
            return static_cast<T *>(block);
        }
        throw std::bad_alloc();
    }
    void deallocate(T *block, size_t) noexcept { sysmem_freeptr(block); }
    bool operator==(const SysAllocator &) const noexcept { return true; }
};
template <class T>
using Vector = std::vector<T, SysAllocator<T>>;
using Text = std::basic_string<char, std::char_traits<char>, SysAllocator<char>>;
template <class K, class V, class Less = std::less<K>>
using Map = std::map<K, V, Less, SysAllocator<std::pair<const K, V>>>;

// The one instance of T, a family's state. It is never destroyed: threads may still run, and call
// in, while the process ends.
template <class T>
T &immortal() noexcept {
    alignas(T) static std::byte storage[sizeof(T)];
    static T *const instance = new (storage) T;
    return *instance;
}

// --- Locks and threads (locks.cpp, threads.cpp) --------------------------------------------------

// Holds a lock for a scope: a critical region (null or all ones: the global one), or a mutex or a
// critical section, which are the same thing by other names.
class Guard {
  public:
    explicit Guard(CriticalRef region) noexcept : region_(region) { critical_enter(region_); }
    explicit Guard(MutexRef mutex) noexcept : Guard(reinterpret_cast<CriticalRef>(mutex)) {}
    explicit Guard(platform::CriticalSection &section) noexcept
        : Guard(reinterpret_cast<CriticalRef>(&section)) {}
    ~Guard() { critical_exit(region_); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

  private:
    CriticalRef region_;
};
inline const CriticalRef global_region = nullptr;

// Leaves a lock, which the thread holds once, for a scope.
class Unguarded {
  public:
    explicit Unguarded(platform::CriticalSection &section) noexcept
        : region_(reinterpret_cast<CriticalRef>(&section)) {
        critical_exit(region_);
    }
    ~Unguarded() { critical_enter(region_); }
    Unguarded(const Unguarded &) = delete;
    Unguarded &operator=(const Unguarded &) = delete;

  private:
    CriticalRef region_;
};

// Start-up calls it first of all, on the thread that is to be the main thread.
void threads_start() noexcept;
// Marks the calling thread as the runtime's own, which no function that it calls may end with
// systhread_exit; the timer's also for systhread_istimerthread.
void service_thread_mark() noexcept;
void timer_thread_mark() noexcept;
// Runs the quit tasks, newest first. The host calls it once, when it ends.
void quittasks_run() noexcept;
// Takes no more background tasks, drops those that wait, and gives those that run two seconds to
// end. Shutdown calls it after the quit tasks, while everything a routine may call still stands.
void background_tasks_end() noexcept;

// --- Scheduler (scheduler.cpp) -------------------------------------------------------------------

void scheduler_start() noexcept;
// Stops the timer; every later pass drops the queue.
void scheduler_shutdown() noexcept;
Scheduler *scheduler_global() noexcept;
int32_t scheduler_count() noexcept;  // of all there are, the global one included
// The lock that a pass holds and under which connections change.
CriticalRef scheduler_run_lock(Scheduler *scheduler) noexcept;
// Starts and stops the periodic system timer; the host's main loop owns it. Once it is stopped, no
// thread of it is in a pass any more, unless one of them stopped it.
void system_timer_start() noexcept;
void system_timer_stop() noexcept;
void overdrive_set(bool on) noexcept;  // stays off while the time is offline
bool overdrive_get() noexcept;

// Tuning, with the ranges of the application messages: false when the value is out of range.
bool slop_set(double ms) noexcept;
bool interval_set(double ms) noexcept;
bool sysqelem_throttle_set(int64_t value) noexcept;
double slop() noexcept;
double interval() noexcept;
uint32_t sysqelem_throttle() noexcept;

// One pass of the global scheduler at the present time. Main thread, when not in overdrive.
void scheduler_poll() noexcept;
// When the next pass of the global scheduler has something to do: the time of its earliest clock,
// or of the earliest MIDI packet. False when nothing waits, or the scheduler is suspended.
bool next_clock_time(double *time) noexcept;
// True when nothing waits in the global scheduler's queue and no run of it is under way. The main
// thread is woken when that comes true on the timer's.
bool scheduler_is_idle() noexcept;
// The passes made so far on the main thread, or on others.
int64_t scheduler_passes(bool on_main) noexcept;

// The time base (time_base.cpp): ms since the start time. Offline it stands still but for
// time_advance_to, which the host calls with the time of the next clock once the queues are empty.
// Both changes begin the time anew, at 0; until then no clock may be set.
double time_now() noexcept;
void time_offline_begin() noexcept;
void time_offline_end() noexcept;  // tests only
void time_advance_to(double time) noexcept;

// --- Deferred execution (qelem.cpp, qelem_statistics.cpp) ----------------------------------------

void deferred_start() noexcept;
// While the low-priority queue is disabled, its passes run nothing and ask for another.
void low_queue_disable(bool on) noexcept;
// On: counts how queue elements and deferred calls are used, from zero. Off: posts the counts of
// those that were set. The receiver "kiv" has a message for it. Main thread.
void queue_statistics(bool on) noexcept;
// One pass of each main-thread queue. The result says when the next one is wanted: in so many ms,
// 0 at once, negative when nothing waits.
double main_queues_pass() noexcept;
bool main_queues_empty() noexcept;
// The main thread sleeps in main_wait until main_wake (any thread, also a signal handler's thread)
// or until the time has passed; a negative time waits without limit.
void main_wake() noexcept;
void main_wait(double ms) noexcept;

}  // namespace kiv
