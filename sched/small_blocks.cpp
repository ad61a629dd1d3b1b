// Size classes, a cache of free slots for each thread, and a central store behind the caches.
//
// 1. A cache belongs to one thread; only its count of live blocks is read by others. Taking and
//    giving back a slot is a few loads and stores: no lock, no atomic read-modify-write.
// 2. A slot may be given back on any thread: it goes to that thread's cache.
// 3. A cache that is empty takes a batch from the central store of its class, one that holds two
//    batches gives one back; so slots freed by a consumer flow back to the producer. A batch is a
//    chain linked through the slots, handed over whole under the class's lock.
// 4. The central store cuts slots from chunks and never gives a chunk back to the system: peak use
//    is kept for what comes.
// 5. A thread that ends gives its slots to the central store and its cache to the next thread.
//
// In a free slot the header's second word (the tag) stays 0, so that a stale pointer is known as
// such; links stand where the block's memory was.
#include "sched/small_blocks.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "platform/platform.h"

namespace kiv {

namespace {

struct FreeSlot {
    BlockHeader header;
    FreeSlot *next;
    FreeSlot *next_batch;  // in the first slot of a batch in the central store
};
static_assert(sizeof(FreeSlot) == small_slot_sizes[0]);

constexpr size_t chunk_size = 64 * 1024;

constexpr int batch_count(size_t size_class) {
    return size_class < 7 ? 64 : size_class < 15 ? 32 : 16;
}

struct CacheList {
    FreeSlot *first;
    int count;
};

struct alignas(64) Cache {
    CacheList lists[small_class_count];
    std::atomic<int64_t> live;  // may be negative: blocks are freed where they were not made
    Cache *next;                // among all caches, for ever
    bool used;                  // by a living thread; guarded by the caches' lock
};

struct alignas(64) CentralStore {
    platform::CriticalSection lock;
    FreeSlot *batches;  // full batches
    FreeSlot *loose;    // what ended threads left
    char *chunk;        // not yet cut
    char *chunk_end;
};

// Never destroyed: threads may end after the process began to.
struct Store {
    CentralStore classes[small_class_count] = {};
    platform::CriticalSection lock;
    Cache *caches = nullptr;
    std::atomic<int64_t> live{0};  // of threads without a cache
    platform::ThreadSlot *slot = nullptr;
};

Store &store() noexcept {
    alignas(Store) static std::byte storage[sizeof(Store)];
    static auto *instance = new (storage) Store;
    return *instance;
}

class Lock {
  public:
    explicit Lock(platform::CriticalSection &section) noexcept : section_(section) {
        section_.enter();
    }
    ~Lock() { section_.exit(); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    platform::CriticalSection &section_;
};

thread_local Cache *own_cache = nullptr;

// --- The central store ---------------------------------------------------------------------------

bool cut_chunk(CentralStore &central) noexcept {
    // Slots are multiples of 16, and so is the alignment of what malloc gives.
    central.chunk = static_cast<char *>(std::malloc(chunk_size));
    central.chunk_end = central.chunk ? central.chunk + chunk_size : nullptr;
    return central.chunk != nullptr;
}

// Moves up to `wanted` slots from the loose ones and then the chunk to the front of a list.
void take_single(CentralStore &central, size_t slot_size, int wanted, CacheList &list) noexcept {
    while (list.count < wanted) {
        FreeSlot *slot = central.loose;
        if (slot) {
            central.loose = slot->next;
        } else if (static_cast<size_t>(central.chunk_end - central.chunk) >= slot_size ||
                   (list.count == 0 && cut_chunk(central))) {
            slot = new (central.chunk) FreeSlot{};
            central.chunk += slot_size;
        } else {
            return;
        }
        slot->next = list.first;
        list.first = slot;
        ++list.count;
    }
}

void refill(CacheList &list, size_t size_class) noexcept {
    CentralStore &central = store().classes[size_class];
    const Lock lock(central.lock);
    if (FreeSlot *batch = central.batches) {
        central.batches = batch->next_batch;
        list.first = batch;
        list.count = batch_count(size_class);
        return;
    }
    take_single(central, small_slot_sizes[size_class], batch_count(size_class), list);
}

// Gives the older half of a list of two batches back: what was freed last stays at hand.
void give_back(CacheList &list, size_t size_class) noexcept {
    const int batch = batch_count(size_class);
    FreeSlot *last_kept = list.first;
    for (int i = 1; i < list.count - batch; ++i) {
        last_kept = last_kept->next;
    }
    FreeSlot *given = last_kept->next;
    last_kept->next = nullptr;
    list.count -= batch;

    CentralStore &central = store().classes[size_class];
    const Lock lock(central.lock);
    given->next_batch = central.batches;
    central.batches = given;
}

void give_back_all(CacheList &list, size_t size_class) noexcept {
    CentralStore &central = store().classes[size_class];
    const Lock lock(central.lock);
    while (FreeSlot *slot = list.first) {
        list.first = slot->next;
        slot->next = central.loose;
        central.loose = slot;
    }
    list.count = 0;
}

// --- Caches --------------------------------------------------------------------------------------

void thread_ends(void *value) {
    auto *cache = static_cast<Cache *>(value);
    own_cache = nullptr;
    for (size_t i = 0; i < small_class_count; ++i) {
        give_back_all(cache->lists[i], i);
    }
    const Lock lock(store().lock);
    cache->used = false;
}

// Out of line: a thread's first block, and the blocks of other destructors at its end.
[[gnu::noinline]] Cache *make_cache() noexcept {
    Store &all = store();
    const Lock lock(all.lock);
    if (!all.slot && !(all.slot = platform::slot_create(thread_ends))) {
        return nullptr;
    }
    Cache *cache = all.caches;
    while (cache && cache->used) {
        cache = cache->next;
    }
    if (!cache) {
        void *memory = std::aligned_alloc(alignof(Cache), sizeof(Cache));
        if (!memory) {
            return nullptr;
        }
        cache = new (memory) Cache{};
        cache->next = all.caches;
        all.caches = cache;
    }
    if (!platform::slot_set(all.slot, cache)) {
        return nullptr;
    }
    cache->used = true;
    own_cache = cache;
    return cache;
}

inline Cache *cache_of_thread() noexcept {
    Cache *cache = own_cache;
    return cache ? cache : make_cache();
}

inline void count(Cache *cache, int64_t difference) noexcept {
    cache->live.store(cache->live.load(std::memory_order_relaxed) + difference,
                      std::memory_order_relaxed);
}

}  // namespace

void *small_block_new(size_t size) noexcept {
    Cache *cache = cache_of_thread();
    if (!cache) {
        return nullptr;
    }
    const size_t size_class = small_block_class(size);
    CacheList &list = cache->lists[size_class];
    if (!list.first) {
        refill(list, size_class);
        if (!list.first) {
            return nullptr;
        }
    }
    FreeSlot *slot = list.first;
    list.first = slot->next;
    --list.count;
    count(cache, 1);
    return slot;
}

void small_block_free(void *memory, size_t size) noexcept {
    Cache *cache = cache_of_thread();
    if (!cache) {
        return;  // a thread whose cache cannot be made: the slot is lost
    }
    const size_t size_class = small_block_class(size);
    CacheList &list = cache->lists[size_class];
    auto *slot = static_cast<FreeSlot *>(memory);
    slot->next = list.first;
    list.first = slot;
    count(cache, -1);
    if (++list.count >= 2 * batch_count(size_class)) {
        give_back(list, size_class);
    }
}

void blocks_live_add(int64_t difference) noexcept {
    if (Cache *cache = cache_of_thread()) {
        count(cache, difference);
    } else {
        store().live.fetch_add(difference, std::memory_order_relaxed);
    }
}

int64_t small_blocks_live() noexcept {
    Store &all = store();
    const Lock lock(all.lock);
    int64_t live = all.live.load(std::memory_order_relaxed);
    for (const Cache *cache = all.caches; cache; cache = cache->next) {
        live += cache->live.load(std::memory_order_relaxed);
    }
    return live;
}

}  // namespace kiv
