// The send state of each thread, and the memory of records that a send may still hold.
//
// A send walks connections without a lock while receivers and other threads free connections,
// outlets, inlets and proxies. Their memory is therefore retired, not freed:
// 1. A thread reads such records only inside a section, which an outermost send or proxy message
//    opens. The section count of its send state is odd meanwhile.
// 2. Whoever frees a record first makes it unreachable, then retires it.
// 3. A retired block is freed once every thread that was inside a section after the retirement has
//    been seen outside of it, or in a later one.
// A section's count, the list heads and the links are all sequentially consistent: a thread whose
// count is read as even before the release cannot find the record any more.
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
constinit std::atomic<int32_t> retired_blocks{0};

namespace {

constexpr ptrdiff_t stack_margin = 65536;
constexpr ptrdiff_t stack_without_base = 250000;

struct State {
    platform::CriticalSection lock;
    SendState *threads = nullptr;
    Object *fresh = nullptr;
    Object *waiting = nullptr;
};
State &state() {
    static State instance;
    return instance;
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

}  // namespace

void send_state_free() noexcept {
    SendState *mine = this_send_state;
    if (!mine) {
        return;
    }
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
    if (retired_blocks.load(std::memory_order_relaxed) != 0) {
        memory_reclaim();
    }
}

namespace {

// Whether every thread has left the section that the waiting blocks wait for. Under the lock.
bool waiting_is_over() {
    for (const SendState *thread = state().threads; thread; thread = thread->next) {
        if (thread->awaited &&
            thread->sections.load(std::memory_order_seq_cst) == thread->awaited) {
            return false;
        }
    }
    return true;
}

// Lets the fresh blocks wait for the sections that are open now. Under the lock.
void wait_for_fresh() {
    state().waiting = std::exchange(state().fresh, nullptr);
    for (SendState *thread = state().threads; thread; thread = thread->next) {
        const uint64_t count = thread->sections.load(std::memory_order_seq_cst);
        thread->awaited = count & 1 ? count : 0;
    }
}

}  // namespace

SendState *send_state_make() noexcept {
    void *block = sysmem_newptrclear(sizeof(SendState));
    if (!block) {
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

void memory_retire(void *block) noexcept {
    auto *record = static_cast<Object *>(block);
    {
        Lock lock;
        record->magic = reinterpret_cast<uintptr_t>(state().fresh);
        state().fresh = record;
        retired_blocks.fetch_add(1, std::memory_order_relaxed);
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
    }
    while (done) {
        Object *block = std::exchange(done, linked(done));
        retired_blocks.fetch_sub(1, std::memory_order_relaxed);
        sysmem_freeptr(block);
    }
}

}  // namespace kiv
