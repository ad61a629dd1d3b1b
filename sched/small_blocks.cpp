// The central store behind the threads' caches of free slots, and the life of the caches.
//
// Each class has its lock; the list of caches has another. No lock is taken inside another.
#include "sched/small_blocks.h"

#include <cstdlib>
#include <new>

#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

constinit thread_local SlotCache *own_slot_cache = nullptr;

namespace {

constexpr size_t chunk_size = 64 * 1024;

struct alignas(64) CentralStore {
    platform::CriticalSection lock;
    FreeSlot *batches = nullptr;  // full batches
    FreeSlot *loose = nullptr;    // what ended threads left
    char *chunk = nullptr;        // not yet cut
    char *chunk_end = nullptr;
    int64_t handed = 0;  // slots that are in caches or given out
};

struct Store {
    CentralStore classes[small_class_count];
    platform::CriticalSection lock;
    SlotCache *caches = nullptr;
    platform::ThreadSlot *slot = nullptr;
};

Store &store() noexcept {
    return immortal<Store>();
}

// --- Slots ---------------------------------------------------------------------------------------

bool cut_chunk(CentralStore &central) noexcept {
    // Slots are multiples of 16, and so is the alignment of what malloc gives.
    central.chunk = static_cast<char *>(std::malloc(chunk_size));
    central.chunk_end = central.chunk ? central.chunk + chunk_size : nullptr;
    return central.chunk != nullptr;
}

// Fills a list with loose slots and then from the chunk; a new chunk only when there is none.
void take_single(CentralStore &central, size_t slot_size, int wanted, SlotList &list) noexcept {
    while (list.count.load(std::memory_order_relaxed) < wanted) {
        FreeSlot *slot = central.loose;
        if (slot) {
            central.loose = slot->next;
        } else if (static_cast<size_t>(central.chunk_end - central.chunk) >= slot_size ||
                   (!list.first && cut_chunk(central))) {
            slot = new (central.chunk) FreeSlot{};
            central.chunk += slot_size;
        } else {
            return;
        }
        slot->next = list.first;
        list.first = slot;
        list.count_add(1);
        ++central.handed;
    }
}

void leave_all(SlotList &list, size_t size_class) noexcept {
    CentralStore &central = store().classes[size_class];
    const Guard guard(central.lock);
    while (FreeSlot *slot = list.first) {
        list.first = slot->next;
        slot->next = central.loose;
        central.loose = slot;
    }
    central.handed -= list.count.exchange(0);
}

}  // namespace

bool slots_refill(SlotList &list, size_t size_class) noexcept {
    CentralStore &central = store().classes[size_class];
    const Guard guard(central.lock);
    if (FreeSlot *batch = central.batches) {
        central.batches = batch->next_batch;
        list.first = batch;
        list.count.store(small_batches[size_class], std::memory_order_relaxed);
        central.handed += small_batches[size_class];
    } else {
        take_single(central, small_slot_sizes[size_class], small_batches[size_class], list);
    }
    return list.first != nullptr;
}

// Gives the older half of a list of two batches back: what was freed last stays at hand.
void slots_give_back(SlotList &list, size_t size_class) noexcept {
    const int batch = small_batches[size_class];
    FreeSlot *last_kept = list.first;
    for (int i = 1; i < list.count.load(std::memory_order_relaxed) - batch; ++i) {
        last_kept = last_kept->next;
    }
    FreeSlot *given = last_kept->next;
    last_kept->next = nullptr;

    CentralStore &central = store().classes[size_class];
    const Guard guard(central.lock);
    list.count_add(-batch);
    central.handed -= batch;
    given->next_batch = central.batches;
    central.batches = given;
}

// --- Caches --------------------------------------------------------------------------------------

namespace {

// Blocks that later destructors of the thread free make a cache once more, and bring this back.
void thread_ends(void *value) {
    auto *cache = static_cast<SlotCache *>(value);
    own_slot_cache = nullptr;
    for (size_t i = 0; i < small_class_count; ++i) {
        leave_all(cache->lists[i], i);
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
        const auto aligned = (reinterpret_cast<uintptr_t>(memory) + alignof(SlotCache) - 1) /
                             alignof(SlotCache) * alignof(SlotCache);
        cache = new (reinterpret_cast<void *>(aligned)) SlotCache{};
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
