// Critical sections and events.
//
// An event knows its waiters: each stands in a list with a flag that exactly one setter (or the
// waiter's own time limit) claims. A setter touches a waiter only while it holds the event's lock,
// and a waiter leaves the lists under that lock, so its record can live on its stack.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>

#include "platform/platform.h"
#include "platform/posix/posix.h"

namespace kiv::platform {

namespace {

inline void spin_pause() noexcept {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

class Lock {
  public:
    explicit Lock(pthread_mutex_t &mutex) noexcept : mutex_(mutex) {
        must(pthread_mutex_lock(&mutex_), "pthread_mutex_lock");
    }
    ~Lock() { must(pthread_mutex_unlock(&mutex_), "pthread_mutex_unlock"); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    PutOffEnd put_off_;  // outlives the lock
    pthread_mutex_t &mutex_;
};

}  // namespace

// --- Critical sections ---------------------------------------------------------------------------

namespace {

constexpr int spin_count = 200;

// A lock of one word, so that taking and leaving a free one is one atomic exchange each.
struct Section {
    std::atomic<int> state{0};  // 0 free, 1 taken, 2 taken and somebody sleeps
    std::atomic<uint64_t> owner{0};
    int32_t depth = 0;  // the owner's
};

Section &section_of(std::byte *storage) noexcept {
    return *std::launder(reinterpret_cast<Section *>(storage));
}

// A number that no other thread has or had.
uint64_t thread_mark() noexcept {
    static std::atomic<uint64_t> last{0};
    static thread_local uint64_t mark = 0;
    if (mark == 0) [[unlikely]] {
        mark = last.fetch_add(1) + 1;
    }
    return mark;
}

bool take(Section &section) noexcept {
    int free = 0;
    return section.state.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                                 std::memory_order_relaxed);
}

void wait_and_take(Section &section) noexcept {
    static const int spins = processor_count() > 1 ? spin_count : 0;
    for (int i = 0; i < spins; ++i) {
        spin_pause();
        if (section.state.load(std::memory_order_relaxed) == 0 && take(section)) {
            return;
        }
    }
    while (section.state.exchange(2, std::memory_order_acquire) != 0) {
        section.state.wait(2, std::memory_order_relaxed);
    }
}

void become_owner(Section &section, uint64_t self) noexcept {
    section.owner.store(self, std::memory_order_relaxed);
    section.depth = 1;
}

}  // namespace

CriticalSection::CriticalSection() noexcept {
    static_assert(sizeof(Section) <= sizeof storage_);
    new (storage_) Section;
}

CriticalSection::~CriticalSection() = default;

void CriticalSection::enter() noexcept {
    Section &section = section_of(storage_);
    const uint64_t self = thread_mark();
    if (section.owner.load(std::memory_order_relaxed) == self) {
        ++section.depth;
        return;
    }
    if (!take(section)) {
        wait_and_take(section);
    }
    become_owner(section, self);
}

bool CriticalSection::try_enter() noexcept {
    Section &section = section_of(storage_);
    const uint64_t self = thread_mark();
    if (section.owner.load(std::memory_order_relaxed) == self) {
        ++section.depth;
        return true;
    }
    if (!take(section)) {
        return false;
    }
    become_owner(section, self);
    return true;
}

void CriticalSection::exit() noexcept {
    Section &section = section_of(storage_);
    if (section.owner.load(std::memory_order_relaxed) != thread_mark() || --section.depth > 0) {
        return;  // left by who does not hold it: ignored
    }
    section.owner.store(0, std::memory_order_relaxed);
    if (section.state.exchange(0, std::memory_order_release) == 2) {
        section.state.notify_one();
    }
}

// --- Events --------------------------------------------------------------------------------------

namespace {

// A thread that waits for one event or for either of two.
struct Waiter {
    // What ended its sleep: the index of an event, or woken_by_time. The thread sleeps on it.
    std::atomic<int> claim{asleep};
};
static_assert(sizeof(std::atomic<int>) == sizeof(uint32_t));  // as the system's call wants it

struct WaiterLink {
    Waiter *waiter;
    int index;  // what the waiter is told
    WaiterLink *next;
    WaiterLink **previous;
};

struct EventState {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    bool manual_reset;
    bool is_set = false;
    WaiterLink *waiters = nullptr;
    WaiterLink **last = &waiters;
};

EventState &event_state(std::byte *storage) noexcept {
    return *std::launder(reinterpret_cast<EventState *>(storage));
}

bool claim(Waiter &waiter, int index) noexcept {
    int expected = asleep;
    return waiter.claim.compare_exchange_strong(expected, index);
}

// Puts a waiter into an event's list, or claims it at once when the event is set.
void join_event(EventState &event, WaiterLink &link) noexcept {
    const Lock lock(event.mutex);
    if (event.is_set && claim(*link.waiter, link.index)) {
        event.is_set = event.manual_reset;
    }
    link.next = nullptr;
    link.previous = event.last;
    *event.last = &link;
    event.last = &link.next;
}

void leave_event(EventState &event, WaiterLink &link) noexcept {
    const Lock lock(event.mutex);
    *link.previous = link.next;
    (link.next ? link.next->previous : event.last) = link.previous;
}

timespec deadline_after(double ms) noexcept {
    constexpr double longest_ms = 1e12;  // some thirty years
    const auto ns = static_cast<int64_t>(std::clamp(ms, 0.0, longest_ms) * 1e6);
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(ns / 1000000000);
    deadline.tv_nsec += static_cast<long>(ns % 1000000000);
    if (deadline.tv_nsec >= 1000000000) {
        deadline.tv_nsec -= 1000000000;
        ++deadline.tv_sec;
    }
    return deadline;
}

void sleep_until_claimed(Waiter &waiter, double ms) noexcept {
    const timespec deadline = deadline_after(ms);
    ending.sleeps_on = &waiter.claim;
    while (waiter.claim.load() == asleep) {
        if (syscall(SYS_futex, &waiter.claim, FUTEX_WAIT_BITSET_PRIVATE, asleep,
                    ms < 0.0 ? nullptr : &deadline, nullptr, FUTEX_BITSET_MATCH_ANY) != 0 &&
            errno == ETIMEDOUT) {
            claim(waiter, woken_by_time);
        }
    }
    ending.sleeps_on = nullptr;
}

void wake(Waiter &waiter) noexcept {
    syscall(SYS_futex, &waiter.claim, FUTEX_WAKE_PRIVATE, 1);
}

int wait_for(EventState *events[], int count, double ms) noexcept {
    const PutOffEnd until_it_has_left_the_lists;
    Waiter waiter;
    WaiterLink links[2];
    for (int i = 0; i < count; ++i) {
        links[i].waiter = &waiter;
        links[i].index = i;
        join_event(*events[i], links[i]);
    }
    sleep_until_claimed(waiter, ms);
    for (int i = 0; i < count; ++i) {
        leave_event(*events[i], links[i]);
    }
    return waiter.claim.load();
}

}  // namespace

Event::Event(bool manual_reset) noexcept {
    static_assert(sizeof(EventState) <= sizeof storage_);
    (new (storage_) EventState)->manual_reset = manual_reset;
}

Event::~Event() {
    EventState &event = event_state(storage_);
    pthread_mutex_destroy(&event.mutex);
    event.~EventState();
}

void Event::set() noexcept {
    EventState &event = event_state(storage_);
    const Lock lock(event.mutex);
    event.is_set = true;
    for (WaiterLink *link = event.waiters; link && event.is_set; link = link->next) {
        if (claim(*link->waiter, link->index)) {
            event.is_set = event.manual_reset;
            wake(*link->waiter);
        }
    }
}

void Event::reset() noexcept {
    EventState &event = event_state(storage_);
    const Lock lock(event.mutex);
    event.is_set = false;
}

bool Event::wait(double ms) noexcept {
    EventState *events[] = {&event_state(storage_)};
    return wait_for(events, 1, ms) == 0;
}

int Event::wait_either(Event &first, Event &second, double ms) noexcept {
    EventState *events[] = {&event_state(first.storage_), &event_state(second.storage_)};
    return wait_for(events, 2, ms);
}

}  // namespace kiv::platform
