// Threads known by a 32-bit identifier, their priorities and thread-local slots.
//
// Identifiers count up and are not used again. Every thread that has asked for its own identifier
// or was started here has a record in one table, under one lock. The record of a started thread
// outlives it, with its exit code, until it is joined or detached (the oldest is dropped when more
// than `max_ended` wait); the record of any other thread goes with the thread.
//
// A thread has ended when its slots' destructors have run, whatever way it took out of its entry.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <pthread.h>
#include <sched.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>

#include "platform/platform.h"
#include "platform/posix/posix.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace kiv::platform {

namespace {

struct Thread {
    uint32_t id;
    Thread *next;              // in its chain of the table
    Thread *newer;             // among the ended ones
    int references;            // the thread itself while it runs, the table, and those who join
    std::atomic<int> running;  // 1 until it has ended; whoever joins waits for the 0
    int end_rounds;            // of destructors that are to come
    bool started;              // by thread_start
    bool terminated;           // before it ran
    bool detached;
    bool in_table;
    Thread *joins;  // the one it waits for
    uint32_t exit_code;
    int32_t priority;
    pthread_t handle;
    long system_id;  // 0 until the thread runs
    ThreadEntry entry;
    void *argument;
    sigjmp_buf end;  // where thread_exit and thread_terminate go on
};

constexpr size_t chains = 256;
constexpr int max_ended = 1024;

struct Threads {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    uint32_t last_id = 0;
    Thread *table[chains] = {};
    Thread *oldest_ended = nullptr;
    Thread *newest_ended = nullptr;
    int ended_count = 0;
};

// Never destroyed: threads may still end while the process does.
Threads &threads() {
    alignas(Threads) static std::byte storage[sizeof(Threads)];
    static auto *instance = new (storage) Threads;
    return *instance;
}

thread_local Thread *self_record = nullptr;  // of a thread in its entry
thread_local uint32_t self_id = 0;

class Lock {
  public:
    Lock() { pthread_mutex_lock(&threads().mutex); }
    ~Lock() { pthread_mutex_unlock(&threads().mutex); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    PutOffEnd put_off_;  // outlives the lock
};

// --- The table; the caller holds the lock --------------------------------------------------------

void release(Thread *thread) {
    if (--thread->references == 0) {
        std::free(thread);
    }
}

void add(Thread *thread) {
    do {
        thread->id = ++threads().last_id;
    } while (thread->id == 0);
    Thread *&chain = threads().table[thread->id % chains];
    thread->next = chain;
    chain = thread;
    thread->in_table = true;
    ++thread->references;
}

Thread *find(uint32_t id) {
    Thread *thread = threads().table[id % chains];
    while (thread && thread->id != id) {
        thread = thread->next;
    }
    return id == 0 ? nullptr : thread;
}

void unlink_ended(Thread *thread) {
    Thread *previous = nullptr;
    for (Thread *at = threads().oldest_ended; at; previous = at, at = at->newer) {
        if (at == thread) {
            (previous ? previous->newer : threads().oldest_ended) = at->newer;
            if (threads().newest_ended == at) {
                threads().newest_ended = previous;
            }
            --threads().ended_count;
            return;
        }
    }
}

void remove(Thread *thread) {
    if (!thread->in_table) {
        return;
    }
    Thread **link = &threads().table[thread->id % chains];
    while (*link != thread) {
        link = &(*link)->next;
    }
    *link = thread->next;
    thread->in_table = false;
    if (!thread->running) {
        unlink_ended(thread);
    }
    release(thread);
}

void keep_ended(Thread *thread) {
    Threads &all = threads();
    thread->newer = nullptr;
    (all.newest_ended ? all.newest_ended->newer : all.oldest_ended) = thread;
    all.newest_ended = thread;
    if (++all.ended_count > max_ended) {
        remove(all.oldest_ended);
    }
}

// --- A thread's life -----------------------------------------------------------------------------

Thread *make_record() {
    void *memory = std::malloc(sizeof(Thread));
    if (!memory) {
        return nullptr;
    }
    auto *thread = new (memory) Thread{};
    thread->running.store(1);
    thread->references = 1;
    return thread;
}

void thread_ended(Thread *thread) {
    const Lock lock;
    thread->running.store(0);
    thread->running.notify_all();
    if (thread->joins) {  // it was terminated meanwhile
        release(thread->joins);
    }
    if (thread->started && !thread->detached) {
        keep_ended(thread);
    } else {
        remove(thread);
    }
    release(thread);
}

// The last round is left to others: a sanitizer takes leave of the thread in it.
constexpr int end_rounds = PTHREAD_DESTRUCTOR_ITERATIONS - 1;

pthread_key_t end_key() {
    static const pthread_key_t key = [] {
        pthread_key_t made;
        must(pthread_key_create(&made,
                                [](void *value) {
                                    auto *thread = static_cast<Thread *>(value);
                                    if (--thread->end_rounds == 0) {
                                        thread_ended(thread);
                                    } else {
                                        pthread_setspecific(end_key(), thread);
                                    }
                                }),
             "pthread_key_create");
        return made;
    }();
    return key;
}

// From here on the thread is known by its record, and marked as ended when it is gone.
void enter_record(Thread *thread) {
    self_id = thread->id;
    thread->handle = pthread_self();
    thread->system_id = syscall(SYS_gettid);
    thread->end_rounds = end_rounds;
    pthread_setspecific(end_key(), thread);
}

// Priorities count from the one the process was given.
int nice_of(int32_t priority) {
    static const int base = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    return std::clamp(base - priority, -20, 19);
}

// Raising a priority needs rights that most users lack: then the system's share stays as it is.
void apply_priority(const Thread *thread) {
    if (thread->system_id != 0) {
        setpriority(PRIO_PROCESS, static_cast<id_t>(thread->system_id), nice_of(thread->priority));
    }
}

// While it lives the thread can be ended. However the entry is left, forced unwinding included, it
// is destroyed.
struct InEntry {
    explicit InEntry(Thread *thread) { self_record = thread; }
    ~InEntry() { self_record = nullptr; }
    InEntry(const InEntry &) = delete;
    InEntry &operator=(const InEntry &) = delete;
};

void *run_thread(void *argument) {
    auto *thread = static_cast<Thread *>(argument);
    const InEntry in_entry(thread);
    if (sigsetjmp(thread->end, 1) == 0) {
        bool terminated = false;
        {
            const Lock lock;
            enter_record(thread);
            apply_priority(thread);
            terminated = thread->terminated;
        }
        // It ends when it first uses this folder: its entry has taken over the argument by then.
        ending.wanted = terminated;
        thread->exit_code = thread->entry(thread->argument);
    }
    return nullptr;
}

// The record of a thread that somebody else started, made when it first asks who it is.
Thread *adopt_self() {
    Thread *thread = make_record();
    if (thread) {
        const Lock lock;
        add(thread);
        enter_record(thread);
    }
    return thread;
}

// Threads with less would not survive a signal's frame.
constexpr size_t smallest_stack = 256 * 1024;

int start(Thread *thread, size_t stack_size) {
    pthread_attr_t attributes;
    int result = pthread_attr_init(&attributes);
    if (result != 0) {
        return result;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stack_size != 0) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t wanted = std::max(stack_size, smallest_stack);
        result = wanted > PTRDIFF_MAX - page
                     ? EAGAIN
                     : pthread_attr_setstacksize(&attributes, (wanted + page - 1) / page * page);
    }
    if (result == 0) {
        pthread_t handle;
        result = pthread_create(&handle, &attributes, run_thread, thread);
    }
    pthread_attr_destroy(&attributes);
    return result;
}

}  // namespace

uint32_t thread_start(ThreadEntry entry, void *argument, size_t stack_size, uint32_t *id) noexcept {
    if (id) {
        *id = 0;
    }
    Thread *thread = make_record();
    if (!thread) {
        return ENOMEM;
    }
    thread->started = true;
    thread->entry = entry;
    thread->argument = argument;
    {
        const Lock lock;
        add(thread);
        if (id) {
            *id = thread->id;  // before the thread runs, so that it may read it
        }
    }
    const int result = start(thread, stack_size);
    if (result != 0) {
        const Lock lock;
        if (id) {
            *id = 0;
        }
        remove(thread);
        release(thread);
    }
    return static_cast<uint32_t>(result);
}

uint32_t thread_self() noexcept {
    if (self_id == 0) {
        adopt_self();
    }
    return self_id;
}

bool thread_join(uint32_t id, uint32_t *exit_code) noexcept {
    Thread *thread = nullptr;
    {
        const Lock lock;
        thread = id == self_id ? nullptr : find(id);
        if (!thread) {
            return false;
        }
        ++thread->references;
        if (self_record) {
            self_record->joins = thread;
        }
    }
    thread->running.wait(1);
    const Lock lock;
    if (self_record) {
        self_record->joins = nullptr;
    }
    if (exit_code) {
        *exit_code = thread->exit_code;
    }
    remove(thread);
    release(thread);
    return true;
}

bool thread_detach(uint32_t id) noexcept {
    const Lock lock;
    Thread *thread = find(id);
    if (!thread) {
        return false;
    }
    thread->detached = true;
    if (!thread->running) {
        remove(thread);
    }
    return true;
}

constinit thread_local Ending ending{};

void end_self() noexcept {
    if (self_record) {
        ending.wanted = 0;
        siglongjmp(self_record->end, 1);
    }
}

void thread_exit(uint32_t status) noexcept {
    if (self_record) {
        self_record->exit_code = status;
        end_self();
    }
}

namespace {

// The last but one real-time signal, which neither the C library nor debuggers use.
int terminate_signal() {
    return SIGRTMAX - 1;
}

void on_terminate(int) {
    if (ending.put_off == 0) {
        end_self();
        return;
    }
    ending.wanted = 1;
    if (std::atomic<int> *const word = ending.sleeps_on) {
        int expected = asleep;
        word->compare_exchange_strong(expected, woken_by_time);
    }
}

}  // namespace

bool thread_terminate(uint32_t id) noexcept {
    static const bool installed = [] {
        struct sigaction action {};
        action.sa_handler = on_terminate;
        sigemptyset(&action.sa_mask);
        return sigaction(terminate_signal(), &action, nullptr) == 0;
    }();
    const Lock lock;
    Thread *thread = id == self_id ? nullptr : find(id);
    if (!installed || !thread || !thread->started || !thread->running) {
        return false;
    }
    if (thread->system_id == 0) {
        thread->terminated = true;
        return true;
    }
    return pthread_kill(thread->handle, terminate_signal()) == 0;
}

void thread_sleep(double ms) noexcept {
    const double seconds = std::clamp(ms / 1e3, 0.0, 1e9);
    const auto whole = static_cast<time_t>(seconds);
    timespec left;
    left.tv_sec = whole;
    left.tv_nsec = static_cast<long>((seconds - static_cast<double>(whole)) * 1e9);
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void thread_set_priority(uint32_t id, int32_t priority) noexcept {
    const Lock lock;
    if (Thread *thread = find(id)) {
        thread->priority = std::clamp(priority, -15, 15);
        if (thread->running) {
            apply_priority(thread);
        }
    }
}

int32_t thread_priority(uint32_t id) noexcept {
    const Lock lock;
    const Thread *thread = find(id);
    return thread ? thread->priority : 0;
}

void thread_flush_denormals() noexcept {
#if defined(__x86_64__)
    _mm_setcsr(_mm_getcsr() | (1u << 15) | (1u << 6));  // flush to zero, denormals are zero
#elif defined(__aarch64__)
    uint64_t control;
    asm volatile("mrs %0, fpcr" : "=r"(control));
    asm volatile("msr fpcr, %0" : : "r"(control | (uint64_t{1} << 24)));  // both in one bit
#endif
}

uint32_t processor_count() noexcept {
    const long count = sysconf(_SC_NPROCESSORS_ONLN);
    return count < 1 ? 1 : static_cast<uint32_t>(count);
}

void *stack_base() noexcept {
    thread_local void *base = nullptr;
    if (!base) {
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            size_t size;
            if (pthread_attr_getstack(&attributes, &base, &size) != 0) {
                base = nullptr;
            }
            pthread_attr_destroy(&attributes);
        }
    }
    return base;
}

// --- Slots ---------------------------------------------------------------------------------------

struct ThreadSlot {
    pthread_key_t key;
};

ThreadSlot *slot_create(void (*destructor)(void *value)) noexcept {
    auto *slot = static_cast<ThreadSlot *>(std::malloc(sizeof(ThreadSlot)));
    if (slot && pthread_key_create(&slot->key, destructor) != 0) {
        std::free(slot);
        slot = nullptr;
    }
    return slot;
}

void slot_delete(ThreadSlot *slot) noexcept {
    if (slot) {
        pthread_key_delete(slot->key);
        std::free(slot);
    }
}

void *slot_get(ThreadSlot *slot) noexcept {
    return pthread_getspecific(slot->key);
}

bool slot_set(ThreadSlot *slot, void *value) noexcept {
    return pthread_setspecific(slot->key, value) == 0;
}

}  // namespace kiv::platform
