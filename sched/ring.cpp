// Rings between one writer thread and one reader thread, and the scheduled queues built on them.
//
// Each side's counter advances by 2 per element and is odd while that side copies. The writer alone
// changes `written`, the reader alone `taken`; each reads the other's with acquire, so a slot's
// bytes are complete before the other side sees the counter move past it.
#include <atomic>
#include <bit>
#include <cstring>
#include <utility>

#include "sched/guarded.h"
#include "sched/plain_class.h"
#include "sched/scheduler.h"

// Each side's counter has a cache line to itself, with what that side last saw of the other's: it
// looks again only when the ring seems full, or empty.
struct LockfreeQueue {
    std::atomic<uint32_t> written;
    uint32_t taken_seen;  // private to the writer
    char reader_apart[64];
    std::atomic<uint32_t> taken;
    uint32_t written_seen;  // private to the reader
    char rest_apart[64];
    uint32_t capacity;        // elements, a power of two
    uint32_t twice_capacity;  // the distance at which the ring is full
    uint32_t element_size;    // bytes from slot to slot, a power of two
    char *storage;
    // Private from here on.
    uint32_t copied_size;  // bytes of an element that are copied
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

char *slot(LockfreeQueue *queue, uint32_t counter) {
    return queue->storage + size_t{(counter / 2) & (queue->capacity - 1)} * queue->element_size;
}

// The usual sizes without a call.
void copy_element(void *to, const void *from, uint32_t size) {
    switch (size) {
        case 4:
            std::memcpy(to, from, 4);
            break;
        case 8:
            std::memcpy(to, from, 8);
            break;
        case 16:
            std::memcpy(to, from, 16);
            break;
        default:
            std::memcpy(to, from, size);
    }
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

}  // namespace kiv

using namespace kiv;

LockfreeQueue *lockfreequeue_new(uint32_t count, uint32_t element_size) noexcept {
    if (count == 0 || element_size == 0 || count > largest_ring || element_size > largest_ring) {
        return nullptr;
    }
    const uint32_t capacity = std::bit_ceil(count);
    const uint32_t stride = std::bit_ceil(element_size);
    auto *queue = static_cast<LockfreeQueue *>(sysmem_newptrclear(sizeof(LockfreeQueue)));
    auto *storage = static_cast<char *>(sysmem_newptrclear(int64_t{capacity} * stride));
    if (!queue || !storage) {
        sysmem_freeptr(queue);
        sysmem_freeptr(storage);
        return nullptr;
    }
    queue->capacity = capacity;
    queue->twice_capacity = capacity * 2;
    queue->element_size = stride;
    queue->storage = storage;
    queue->copied_size = element_size;
    return queue;
}

void lockfreequeue_free(LockfreeQueue *queue) noexcept {
    if (queue) {
        sysmem_freeptr(queue->storage);
        sysmem_freeptr(queue);
    }
}

int32_t lockfreequeue_push(LockfreeQueue *queue, const void *element) noexcept {
    if (!queue || !element) {
        return 1;
    }
    const uint32_t written = queue->written.load(std::memory_order_relaxed);
    uint32_t distance = written - queue->taken_seen;
    if (distance >= queue->twice_capacity - 1) {
        queue->taken_seen = queue->taken.load(std::memory_order_acquire);
        distance = written - queue->taken_seen;
    }
    if (distance == queue->twice_capacity) {
        return 1;
    }
    if (distance == queue->twice_capacity - 1) {
        return 2;
    }
    queue->written.store(written + 1, std::memory_order_relaxed);
    copy_element(slot(queue, written), element, queue->copied_size);
    queue->written.store(written + 2, std::memory_order_release);
    return 0;
}

int32_t lockfreequeue_pop(LockfreeQueue *queue, void *element) noexcept {
    if (!queue || !element) {
        return 1;
    }
    const uint32_t taken = queue->taken.load(std::memory_order_relaxed);
    uint32_t distance = queue->written_seen - taken;
    if (distance <= 1) {
        queue->written_seen = queue->written.load(std::memory_order_acquire);
        distance = queue->written_seen - taken;
    }
    if (distance == 0) {
        return 1;
    }
    if (distance == 1) {
        return 2;
    }
    queue->taken.store(taken + 1, std::memory_order_relaxed);
    copy_element(element, slot(queue, taken), queue->copied_size);
    queue->taken.store(taken + 2, std::memory_order_release);
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
    if (!queue || (queue->ring->written.load(std::memory_order_relaxed) & 1) ||
        lockfreequeue_push(queue->ring, &value) != 0) {
        return refused;
    }
    clock_fdelay(queue->clock, 0.0);
    return 0;
}
