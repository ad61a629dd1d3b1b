// Rings between one writer thread and one reader thread, and the scheduled queues built on them.
//
// Each side's counter advances by 2 per element and is odd while that side copies, but for elements
// of a word, which are copied at once. The writer alone changes its counter, the reader alone its
// own; each reads the other's with acquire, so a slot's bytes are complete before the other side
// sees the counter move past it.
#include <atomic>
#include <bit>
#include <cstring>
#include <utility>

#include "sched/guarded.h"
#include "sched/plain_class.h"
#include "sched/scheduler.h"

namespace kiv {

// What one side writes, away from what the other does. It looks at the other's counter only when
// the ring seems full, or empty.
struct RingSide {
    std::atomic<uint32_t> counter;
    uint32_t other_seen;
    uint32_t word_mask;  // of a ring of 8-byte elements: its counter_mask; of others: 0
    char apart[128 - 3 * sizeof(uint32_t)];
};

}  // namespace kiv

// The slots lie behind it, in its block.
struct alignas(16) LockfreeQueue {
    kiv::RingSide writer;
    kiv::RingSide reader;
    uint32_t counter_mask;  // twice the capacity, a power of two, less 1
    uint32_t element_size;  // bytes of an element that are copied
    uint32_t stride;        // bytes from slot to slot, a power of two

    char *storage() noexcept { return reinterpret_cast<char *>(this + 1); }
};

struct ScheduleQueue {
    Object ob;
    void *owner;
    void (*function)(void *owner, int64_t value);
    Clock *clock;
    LockfreeQueue *ring;
    // Private from here on.
    bool *freed;  // of the drain under way, on the stack of the thread it runs on; null: none
};

namespace kiv {

namespace {

constexpr uint32_t scheduled_values = 32;
constexpr uint32_t largest_ring = 1u << 30;  // bytes, and elements
constexpr uint32_t word_size = 8;

// The slot of a masked counter, which is even, among words.
char *word(LockfreeQueue *queue, uint32_t masked) {
    return queue->storage() + size_t{masked} * (word_size / 2);
}

char *slot(LockfreeQueue *queue, uint32_t counter) {
    return queue->storage() + size_t{(counter & queue->counter_mask) / 2} * queue->stride;
}

// Counts a side on by one element, which copy() moves in or out meanwhile.
template <class Copy>
void count_on(RingSide &side, uint32_t counter, Copy copy) {
    side.counter.store(counter + 1, std::memory_order_relaxed);
    copy();
    side.counter.store(counter + 2, std::memory_order_release);
}

// Elements of any size, and rings that seem full.
[[gnu::noinline]] int32_t push_any(LockfreeQueue *queue, const void *element) noexcept {
    RingSide &side = queue->writer;
    const uint32_t written = side.counter.load(std::memory_order_relaxed);
    side.other_seen = queue->reader.counter.load(std::memory_order_acquire);
    const uint32_t distance = written - side.other_seen;
    if (distance >= queue->counter_mask) {
        return distance == queue->counter_mask ? 2 : 1;
    }
    if (side.word_mask != 0) {
        return lockfreequeue_push(queue, element);  // which finds room now
    }
    count_on(side, written,
             [=] { std::memcpy(slot(queue, written), element, queue->element_size); });
    return 0;
}

[[gnu::noinline]] int32_t pop_any(LockfreeQueue *queue, void *element) noexcept {
    const uint32_t taken = queue->reader.counter.load(std::memory_order_relaxed);
    count_on(queue->reader, taken,
             [=] { std::memcpy(element, slot(queue, taken), queue->element_size); });
    return 0;
}

// Deliberately, a value found after a full drain's worth is dropped, not kept. The function may
// free the queue, which ends the drain.
void drain(ScheduleQueue *queue) {
    bool freed = false;
    bool *const outer = std::exchange(queue->freed, &freed);
    int64_t value = 0;
    for (uint32_t delivered = 0;
         lockfreequeue_pop(queue->ring, &value) == 0 && delivered < scheduled_values; ++delivered) {
        guarded("schedule_queue", queue->owner, [&] { queue->function(queue->owner, value); });
        if (freed) {
            if (outer) {
                *outer = true;
            }
            return;
        }
    }
    queue->freed = outer;
}

void schedule_queue_free(ScheduleQueue *queue) {
    object_free(queue->clock);  // waits for a drain on another thread
    lockfreequeue_free(queue->ring);
    if (queue->freed) {
        *queue->freed = true;
    }
}

Class *schedule_queue_class() {
    static Class *const c = make_plain_class("schedule_queue", schedule_queue_free);
    return c;
}

}  // namespace

void schedule_queues_start() noexcept {
    schedule_queue_class();
}

}  // namespace kiv

using namespace kiv;

LockfreeQueue *lockfreequeue_new(uint32_t count, uint32_t element_size) noexcept {
    if (count == 0 || element_size == 0 || count > largest_ring || element_size > largest_ring) {
        return nullptr;
    }
    const uint32_t capacity = std::bit_ceil(count);
    const uint32_t stride = std::bit_ceil(element_size);
    auto *queue = static_cast<LockfreeQueue *>(sysmem_newptrclear(
        static_cast<int64_t>(sizeof(LockfreeQueue)) + int64_t{capacity} * stride));
    if (!queue) {
        return nullptr;
    }
    queue->counter_mask = 2 * capacity - 1;
    queue->element_size = element_size;
    queue->stride = stride;
    if (element_size == word_size) {
        queue->writer.word_mask = queue->reader.word_mask = queue->counter_mask;
    }
    return queue;
}

void lockfreequeue_free(LockfreeQueue *queue) noexcept {
    sysmem_freeptr(queue);
}

int32_t lockfreequeue_push(LockfreeQueue *queue, const void *element) noexcept {
    if (!queue || !element) [[unlikely]] {
        return 1;
    }
    RingSide &side = queue->writer;
    const uint32_t written = side.counter.load(std::memory_order_relaxed);
    const uint32_t mask = side.word_mask;
    if (written - side.other_seen >= mask) [[unlikely]] {
        return push_any(queue, element);
    }
    std::memcpy(word(queue, written & mask), element, word_size);
    side.counter.store(written + 2, std::memory_order_release);
    return 0;
}

int32_t lockfreequeue_pop(LockfreeQueue *queue, void *element) noexcept {
    if (!queue || !element) [[unlikely]] {
        return 1;
    }
    RingSide &side = queue->reader;
    const uint32_t taken = side.counter.load(std::memory_order_relaxed);
    const uint32_t mask = side.word_mask;
    if (side.other_seen - taken <= 1) {
        side.other_seen = queue->writer.counter.load(std::memory_order_acquire);
        const uint32_t distance = side.other_seen - taken;
        if (distance <= 1) {
            return distance == 0 ? 1 : 2;
        }
    }
    if (mask == 0) [[unlikely]] {
        return pop_any(queue, element);
    }
    std::memcpy(element, word(queue, taken & mask), word_size);
    side.counter.store(taken + 2, std::memory_order_release);
    return 0;
}

ScheduleQueue *schedule_queue_new(void *owner, Method function) noexcept {
    if (!function) {
        return nullptr;
    }
    auto *queue = static_cast<ScheduleQueue *>(object_alloc(schedule_queue_class()));
    if (!queue) {
        return nullptr;
    }
    queue->owner = owner;
    queue->function = reinterpret_cast<void (*)(void *, int64_t)>(function);
    queue->ring = lockfreequeue_new(scheduled_values, sizeof(int64_t));
    queue->clock = clock_make(queue, method(drain), scheduler_fromobject(owner),
                              object_valid(owner) ? static_cast<Object *>(owner) : nullptr, true);
    if (!queue->ring || !queue->clock) {
        object_free(queue);
        return nullptr;
    }
    return queue;
}

uint32_t schedule_queue(ScheduleQueue *queue, int64_t value) noexcept {
    constexpr uint32_t refused = 0xffffffff;
    if (!queue || lockfreequeue_push(queue->ring, &value) != 0) {
        return refused;
    }
    clock_fdelay(queue->clock, 0.0);
    return 0;
}
