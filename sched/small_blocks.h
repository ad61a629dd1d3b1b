// The small-block allocator under sysmem_newptr. Private to memory.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv {

struct BlockHeader {
    uint64_t size;  // as asked for
    uint64_t tag;
};

// Sanitizers see misuse only of blocks that come from malloc one by one.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool use_small_blocks = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
inline constexpr bool use_small_blocks = false;
#else
inline constexpr bool use_small_blocks = true;
#endif
#else
inline constexpr bool use_small_blocks = true;
#endif

inline constexpr size_t max_small_size = 1008;  // 1,024 with the header

// Slot sizes, header included: steps of 16 up to 256, then four steps for each doubling. A block
// wastes at most a quarter of its slot.
inline constexpr uint16_t small_slot_sizes[] = {32,  48,  64,  80,  96,  112, 128, 144,
                                                160, 176, 192, 208, 224, 240, 256, 320,
                                                384, 448, 512, 640, 768, 896, 1024};
inline constexpr size_t small_class_count = sizeof small_slot_sizes / sizeof small_slot_sizes[0];

// The size class of a block of `size` bytes, at most max_small_size.
inline size_t small_block_class(size_t size) noexcept {
    const size_t slot = size + sizeof(BlockHeader);
    if (slot <= 256) {
        return slot <= 32 ? 0 : (slot + 15) / 16 - 2;
    }
    if (slot <= 512) {
        return 15 + (slot - 257) / 64;
    }
    return 19 + (slot - 513) / 128;
}

// A slot for a header and `size` bytes, or null. Any thread.
void *small_block_new(size_t size) noexcept;
// Takes back a slot, also one that another thread got; `size` as it was given out.
void small_block_free(void *slot, size_t size) noexcept;

// The count of live blocks, large ones included: each thread counts its own.
void blocks_live_add(int64_t difference) noexcept;
int64_t small_blocks_live() noexcept;

}  // namespace kiv
