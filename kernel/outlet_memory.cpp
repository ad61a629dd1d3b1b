// The send state of each thread, and the memory of records that a send may still hold.
//
// A send walks connections without a lock while receivers and other threads free connections,
// outlets, inlets and proxies. Their memory is therefore retired, not freed:
// 1. A thread reads such records only inside a section, which an outermost send or proxy message
//    opens. The position in its send state says so meanwhile.
// 2. Whoever frees a record first makes it unreachable, then retires it.
// 3. A retired block is freed once every thread that was inside a section after the retirement has
//    been seen outside of it, or in a later one.
// A thread that is read as outside cannot find the record any more: between making it
// unreachable and reading the positions, the memory of all threads is ordered (barrier_everywhere),
// so that a section, of which there are millions a second, has no barrier of its own. Where the
// system cannot do that, each section has one. With no other thread nothing has to be ordered; with
// others, blocks are collected to a batch, since ordering all threads takes a system call.
//
// Two lists suffice: `waiting` holds the blocks for which every state remembers the section to wait
// for, `fresh` those retired since. A retired block is linked through its validity mark, so that a
// late reader finds it invalid and everything else in it as it was.
//
// Thread safety: one lock guards the states' list and both lists of blocks; it is the innermost of
// all and calls only the allocator.
#include <utility>

#include "kernel/inlets.h"
#include "sched/internal.h"

namespace kiv {

constinit thread_local SendState *this_send_state = nullptr;
// Barriers until the system is known to do without (inlets_start).
constinit Watched watched{watch::barriers};

namespace {

constexpr int32_t batch = 64;  // of retired blocks
constexpr ptrdiff_t stack_margin = 65536;
constexpr ptrdiff_t stack_without_base = 250000;

struct State {
    platform::CriticalSection lock;
    SendState *threads = nullptr;
    platform::ThreadSlot *slot = nullptr;  // its destructor frees the send state
    Object *fresh = nullptr;
    Object *waiting = nullptr;
    int32_t retired = 0;  // blocks in both lists
};
State &state() {
    return immortal<State>();
}

class Lock {
  public:
    Lock() noexcept { state().lock.enter(); }
    ~Lock() { state().lock.exit(); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
};

Object *linked(const Object *block) {
    return reinterpret_cast<Object *>(block->magic);
}

const char *stack_limit() {
    if (const void *base = platform::stack_base()) {
        return static_cast<const char *>(base) + stack_margin;
    }
    error("Error querying stack base.");
    return static_cast<const char *>(__builtin_frame_address(0)) - stack_without_base;
}

// At the end of the thread, whoever started it.
void send_state_free(void *value) {
    auto *const mine = static_cast<SendState *>(value);
    this_send_state = nullptr;
    {
        Lock lock;
        (mine->previous ? mine->previous->next : state().threads) = mine->next;
        if (mine->next) {
            mine->next->previous = mine->previous;
        }
    }
    mine->~SendState();
    sysmem_freeptr(mine);
    memory_reclaim();
}

// Whether no other thread has a send state. Under the lock.
bool is_alone() {
    const SendState *const first = state().threads;
    return !first || (first == this_send_state && !first->next);
}

// Whether every thread has left the section that the waiting blocks wait for. Under the lock.
bool waiting_is_over() {
    for (const SendState *thread = state().threads; thread; thread = thread->next) {
        const uint64_t now = thread->position.load(std::memory_order_seq_cst);
        if (thread->awaited && position::is_inside(now) &&
            now / position::generation == thread->awaited / position::generation) {
            return false;
        }
    }
    return true;
}

// Lets the fresh blocks wait for the sections that are open now. Under the lock.
void wait_for_fresh() {
    if (!state().fresh) {
        state().waiting = nullptr;
        return;
    }
    if (!is_alone() && !watching(watch::barriers)) {
        platform::barrier_everywhere();
    }
    state().waiting = std::exchange(state().fresh, nullptr);
    for (SendState *thread = state().threads; thread; thread = thread->next) {
        const uint64_t now = thread->position.load(std::memory_order_seq_cst);
        thread->awaited = position::is_inside(now) ? now : 0;
    }
}

}  // namespace

void send_states_start() noexcept {
    state().slot = platform::slot_create(send_state_free);
}

SendState *send_state_make() noexcept {
    void *block = sysmem_newptrclear(sizeof(SendState));
    if (!block || !state().slot || !platform::slot_set(state().slot, block)) {
        sysmem_freeptr(block);
        return nullptr;
    }
    auto *made = new (block) SendState{};
    made->stack_limit = stack_limit();
    {
        Lock lock;
        made->next = state().threads;
        if (made->next) {
            made->next->previous = made;
        }
        state().threads = made;
    }
    this_send_state = made;
    return made;
}

void section_opened(SendState &state) noexcept {
    if (watching(watch::barriers)) {
        state.position.exchange(state.position.load(std::memory_order_relaxed),
                                std::memory_order_seq_cst);
    }
}

void section_closed(SendState &state) noexcept {
    const uint64_t at = state.position.load(std::memory_order_relaxed);
    if (state.overflow == UnwindingNow && position::sends(at) == 0) {
        overflow_end(state);
    }
    if (watching(watch::reclaim) && !position::is_inside(at)) {
        memory_reclaim();
    }
}

void memory_retire(void *block) noexcept {
    auto *record = static_cast<Object *>(block);
    {
        Lock lock;
        record->magic = reinterpret_cast<uintptr_t>(state().fresh);
        state().fresh = record;
        ++state().retired;
        if (state().retired < batch && !is_alone()) {
            return;
        }
    }
    memory_reclaim();
}

void memory_reclaim() noexcept {
    Object *done = nullptr;
    {
        Lock lock;
        if (!state().waiting) {
            wait_for_fresh();
        }
        while (state().waiting && waiting_is_over()) {
            Object *last = state().waiting;
            while (linked(last)) {
                last = linked(last);
            }
            last->magic = reinterpret_cast<uintptr_t>(done);
            done = state().waiting;
            wait_for_fresh();
        }
        for (const Object *block = done; block; block = linked(block)) {
            --state().retired;
        }
        watch_set(watch::reclaim, state().retired >= batch || (state().retired > 0 && is_alone()));
    }
    while (done) {
        Object *block = std::exchange(done, linked(done));
        sysmem_freeptr(block);
    }
}

}  // namespace kiv
