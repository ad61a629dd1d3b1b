// The small-block allocator under sysmem_newptr. Private to memory.cpp.
//
// 1. A cache belongs to one thread; only its counts are read by others. Taking and giving back a
//    slot is a few loads and stores: no lock, no atomic read-modify-write.
// 2. A slot may be given back on any thread: it goes to that thread's cache.
// 3. A cache that is empty takes a batch from the central store of its class, one that holds two
//    batches gives one back, under the class's lock; so slots freed by a consumer flow back to the
//    producer.
// 4. The central store cuts slots from chunks. A chunk whose slots are all back serves any class,
//    but stays readable for ever: whoever looks at a freed block finds some memory.
// 5. A thread that ends gives its slots to the central store and its cache to the next thread.
//
// In a free slot the header's second word (the tag) stays 0, so that a stale pointer is known as
// such; links stand where the block's memory was.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kiv {

struct BlockHeader {
    uint64_t size;  // as asked for
    uint64_t tag;
};

// Sanitizers see misuse only of blocks that come from malloc one by one.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KIV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define KIV_SANITIZED 1
#endif
#endif
#ifndef KIV_SANITIZED
#define KIV_SANITIZED 0
#endif
inline constexpr bool use_small_blocks = !KIV_SANITIZED;

inline constexpr size_t max_small_size = 1008;  // 1,024 with the header

// Slot sizes, header included: steps of 16 up to 256, then four steps for each doubling. A block
// wastes at most a quarter of its slot.
inline constexpr uint16_t small_slot_sizes[] = {32,  48,  64,  80,  96,  112, 128, 144,
                                                160, 176, 192, 208, 224, 240, 256, 320,
                                                384, 448, 512, 640, 768, 896, 1024};
inline constexpr size_t small_class_count = sizeof small_slot_sizes / sizeof small_slot_sizes[0];

static_assert(small_slot_sizes[small_class_count - 1] == max_small_size + sizeof(BlockHeader));

inline constexpr auto small_classes = [] {
    std::array<uint8_t, max_small_size / 16 + 1> classes{};
    uint8_t size_class = 0;
    for (size_t i = 0; i < classes.size(); ++i) {
        if (16 * i + sizeof(BlockHeader) > small_slot_sizes[size_class]) {
            ++size_class;
        }
        classes[i] = size_class;
    }
    return classes;
}();

// The size class of a block of `size` bytes, at most max_small_size.
inline size_t small_block_class(size_t size) noexcept {
    return small_classes[(size + 15) / 16];
}

// How many slots a batch of each class has.
inline constexpr auto small_batches = [] {
    std::array<uint8_t, small_class_count> batches{};
    for (size_t i = 0; i < small_class_count; ++i) {
        batches[i] = small_slot_sizes[i] <= 128 ? 64 : small_slot_sizes[i] <= 256 ? 32 : 16;
    }
    return batches;
}();

struct FreeSlot {
    BlockHeader header;
    FreeSlot *next;
};
static_assert(sizeof(FreeSlot) <= small_slot_sizes[0]);

struct SlotList {
    FreeSlot *first;
    std::atomic<int> count;  // written by the owner alone

    void count_add(int difference) noexcept {
        count.store(count.load(std::memory_order_relaxed) + difference, std::memory_order_relaxed);
    }
};

struct alignas(64) SlotCache {
    SlotList lists[small_class_count];
    std::atomic<int64_t> large_blocks;  // allocated less freed here; written by the owner alone
    SlotCache *next;                    // among all caches, for ever
    bool used;                          // by a living thread; guarded by the caches' lock
};

extern constinit thread_local SlotCache *own_slot_cache;

// Out of line: a thread's first block (null when there is no memory), an empty and a full list.
SlotCache *slot_cache_make() noexcept;
bool slots_refill(SlotList &list, size_t size_class) noexcept;
void slots_give_back(SlotList &list, size_t size_class) noexcept;

inline SlotCache *slot_cache() noexcept {
    SlotCache *cache = own_slot_cache;
    return cache ? cache : slot_cache_make();
}

// A slot for a header and `size` bytes, or null. Any thread.
inline void *small_block_new(size_t size) noexcept {
    SlotCache *cache = slot_cache();
    if (!cache) [[unlikely]] {
        return nullptr;
    }
    const size_t size_class = small_block_class(size);
    SlotList &list = cache->lists[size_class];
    if (!list.first && !slots_refill(list, size_class)) [[unlikely]] {
        return nullptr;
    }
    FreeSlot *slot = list.first;
    list.first = slot->next;
    list.count_add(-1);
    // The next one may be long out of the cache: it is fetched while this one is being used.
    __builtin_prefetch(list.first, 1);
    return slot;
}

// Takes back a slot, also one that another thread got; `size` as it was given out.
inline void small_block_free(void *memory, size_t size) noexcept {
    SlotCache *cache = slot_cache();
    if (!cache) [[unlikely]] {
        return;  // a thread whose cache cannot be made: the slot is lost
    }
    const size_t size_class = small_block_class(size);
    SlotList &list = cache->lists[size_class];
    auto *slot = static_cast<FreeSlot *>(memory);
    slot->next = list.first;
    list.first = slot;
    list.count_add(1);
    if (list.count.load(std::memory_order_relaxed) >= 2 * small_batches[size_class]) [[unlikely]] {
        slots_give_back(list, size_class);
    }
}

// Counts blocks that have no slot.
inline void large_blocks_add(int64_t difference) noexcept {
    if (SlotCache *cache = slot_cache()) [[likely]] {
        cache->large_blocks.store(cache->large_blocks.load(std::memory_order_relaxed) + difference,
                                  std::memory_order_relaxed);
    }
}

}  // namespace kiv
