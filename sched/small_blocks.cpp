// The central store behind the threads' caches of free slots, and the life of the caches.
//
// Slots are cut from chunks. A chunk belongs to one class until all its slots have come back; then
// it goes to the stock, which serves all classes. What the stock has above its limit keeps its
// place, readable, but gives its pages back to the system.
//
// Each class has its lock; the stock and the list of caches have others, which are taken inside a
// class's or alone.
#include "sched/small_blocks.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

constinit thread_local SlotCache *own_slot_cache = nullptr;

namespace {

constexpr size_t chunk_size = 64 * 1024;  // and alignment, so that a slot tells its chunk
constexpr size_t region_size = 16 * chunk_size;
constexpr int stock_limit = 256;
constexpr int ready_limit = 4;

struct alignas(64) Chunk {
    Chunk *next;  // of the class's that have a slot to give; or in the stock
    Chunk *previous;
    FreeSlot *free;  // came back
    char *uncut;     // from here on no slots have been cut
    int given;       // slots cut less those in `free`

    char *end() noexcept { return reinterpret_cast<char *>(this) + chunk_size; }
    bool has_slot(size_t slot_size) noexcept {
        return free || static_cast<size_t>(end() - uncut) >= slot_size;
    }
};

struct alignas(64) CentralStore {
    platform::CriticalSection lock;
    FreeSlot *ready[ready_limit];  // whole batches, for the next cache that is empty
    int ready_count = 0;
    Chunk *chunks = nullptr;  // that have a slot to give; the fullest are in front, roughly
    int64_t handed = 0;       // slots that are in caches or in use
};

struct Store {
    CentralStore classes[small_class_count];

    platform::CriticalSection stock_lock;
    Chunk *stock = nullptr;
    int stock_count = 0;
    char *region = nullptr;  // what is left of it has never been a chunk
    char *region_end = nullptr;

    platform::CriticalSection lock;
    SlotCache *caches = nullptr;
    platform::ThreadSlot *slot = nullptr;
};

Store &store() noexcept {
    return immortal<Store>();
}

template <class T>
T *aligned(void *memory, size_t alignment) noexcept {
    const auto address = reinterpret_cast<uintptr_t>(memory);
    return reinterpret_cast<T *>((address + alignment - 1) / alignment * alignment);
}

// --- Chunks --------------------------------------------------------------------------------------

void *stock_take() noexcept {
    Store &all = store();
    const Guard guard(all.stock_lock);
    if (Chunk *chunk = all.stock) {
        all.stock = chunk->next;
        --all.stock_count;
        return chunk;
    }
    if (all.region == all.region_end) {
        void *memory = std::malloc(region_size + chunk_size);
        if (!memory) {
            return nullptr;
        }
        all.region = aligned<char>(memory, chunk_size);
        all.region_end = all.region + region_size;
    }
    return std::exchange(all.region, all.region + chunk_size);
}

void stock_put(Chunk *chunk) noexcept {
    Store &all = store();
    const Guard guard(all.stock_lock);
    if (all.stock_count >= stock_limit) {
        platform::memory_discard(chunk + 1, chunk_size - sizeof(Chunk));
    }
    chunk->next = all.stock;
    all.stock = chunk;
    ++all.stock_count;
}

// The following are called under the class's lock.

void link(CentralStore &central, Chunk *chunk) noexcept {
    chunk->previous = nullptr;
    chunk->next = central.chunks;
    if (chunk->next) {
        chunk->next->previous = chunk;
    }
    central.chunks = chunk;
}

void unlink(CentralStore &central, Chunk *chunk) noexcept {
    (chunk->previous ? chunk->previous->next : central.chunks) = chunk->next;
    if (chunk->next) {
        chunk->next->previous = chunk->previous;
    }
}

Chunk *chunk_new(CentralStore &central) noexcept {
    void *memory = stock_take();
    if (!memory) {
        return nullptr;
    }
    auto *chunk = new (memory) Chunk{};
    chunk->uncut = reinterpret_cast<char *>(chunk + 1);
    link(central, chunk);
    return chunk;
}

FreeSlot *slot_take(CentralStore &central, Chunk *chunk, size_t slot_size) noexcept {
    FreeSlot *slot = chunk->free;
    if (slot) {
        chunk->free = slot->next;
    } else {
        slot = new (chunk->uncut) FreeSlot{};
        chunk->uncut += slot_size;
    }
    ++chunk->given;
    if (!chunk->has_slot(slot_size)) {
        unlink(central, chunk);
    }
    return slot;
}

// A chunk whose slots are all back leaves the class, unless it is the last that has slots to give.
void slot_put(CentralStore &central, FreeSlot *slot, size_t slot_size) noexcept {
    auto *chunk =
        reinterpret_cast<Chunk *>(reinterpret_cast<uintptr_t>(slot) / chunk_size * chunk_size);
    if (!chunk->has_slot(slot_size)) {
        link(central, chunk);
    }
    slot->next = chunk->free;
    chunk->free = slot;
    if (--chunk->given == 0 && (chunk->next || chunk->previous)) {
        unlink(central, chunk);
        stock_put(chunk);
    }
}

void slots_put(CentralStore &central, FreeSlot *slot, size_t slot_size) noexcept {
    while (slot) {
        slot_put(central, std::exchange(slot, slot->next), slot_size);
    }
}

// Takes up to a batch from the chunks, a new one only for the first of its slots.
int slots_take(CentralStore &central, SlotList &list, int batch, size_t slot_size) noexcept {
    int count = 0;
    for (; count < batch; ++count) {
        Chunk *chunk = central.chunks;
        if (!chunk && (count > 0 || !(chunk = chunk_new(central)))) {
            break;
        }
        FreeSlot *slot = slot_take(central, chunk, slot_size);
        slot->next = list.first;
        list.first = slot;
    }
    return count;
}

}  // namespace

bool slots_refill(SlotList &list, size_t size_class) noexcept {
    CentralStore &central = store().classes[size_class];
    const Guard guard(central.lock);
    int count = small_batches[size_class];
    if (central.ready_count > 0) {
        list.first = central.ready[--central.ready_count];
    } else {
        count = slots_take(central, list, count, small_slot_sizes[size_class]);
    }
    list.count.store(count, std::memory_order_relaxed);
    central.handed += count;
    return count > 0;
}

// Gives the older half of a list of two batches back: what was freed last stays at hand.
void slots_give_back(SlotList &list, size_t size_class) noexcept {
    const int batch = small_batches[size_class];
    FreeSlot *last_kept = list.first;
    for (int i = 1; i < list.count.load(std::memory_order_relaxed) - batch; ++i) {
        last_kept = last_kept->next;
    }
    FreeSlot *given = std::exchange(last_kept->next, nullptr);
    list.count_add(-batch);

    CentralStore &central = store().classes[size_class];
    const Guard guard(central.lock);
    central.handed -= batch;
    if (central.ready_count < ready_limit) {
        central.ready[central.ready_count++] = given;
    } else {
        slots_put(central, given, small_slot_sizes[size_class]);
    }
}

// --- Caches --------------------------------------------------------------------------------------

namespace {

// Blocks that later destructors of the thread free make a cache once more, and bring this back.
void thread_ends(void *value) {
    auto *cache = static_cast<SlotCache *>(value);
    own_slot_cache = nullptr;
    for (size_t i = 0; i < small_class_count; ++i) {
        SlotList &list = cache->lists[i];
        CentralStore &central = store().classes[i];
        const Guard guard(central.lock);
        slots_put(central, std::exchange(list.first, nullptr), small_slot_sizes[i]);
        central.handed -= list.count.exchange(0);
    }
    const Guard guard(store().lock);
    cache->used = false;
}

}  // namespace

SlotCache *slot_cache_make() noexcept {
    Store &all = store();
    const Guard guard(all.lock);
    if (!all.slot && !(all.slot = platform::slot_create(thread_ends))) {
        return nullptr;
    }
    SlotCache *cache = all.caches;
    while (cache && cache->used) {
        cache = cache->next;
    }
    if (!cache) {
        void *memory = std::malloc(sizeof(SlotCache) + alignof(SlotCache));
        if (!memory) {
            return nullptr;
        }
        cache = new (aligned<void>(memory, alignof(SlotCache))) SlotCache{};
        cache->next = all.caches;
        all.caches = cache;
    }
    if (!platform::slot_set(all.slot, cache)) {
        return nullptr;
    }
    cache->used = true;
    own_slot_cache = cache;
    return cache;
}

int64_t memory_live_blocks() noexcept {
    Store &all = store();
    int64_t live = 0;
    for (CentralStore &central : all.classes) {
        const Guard guard(central.lock);
        live += central.handed;
    }
    const Guard guard(all.lock);
    for (const SlotCache *cache = all.caches; cache; cache = cache->next) {
        for (const SlotList &list : cache->lists) {
            live -= list.count.load(std::memory_order_relaxed);
        }
        live += cache->large_blocks.load(std::memory_order_relaxed);
    }
    return live;
}

}  // namespace kiv
