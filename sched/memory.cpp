// Kernel memory blocks.
//
// A block is a 16-byte header (requested size, tag) and the memory handed out, aligned to 16. Large
// blocks come from malloc and carry 'LARG'; small ones come from small_blocks.h and carry 'SMAL'.
// Freeing clears the tag, so that a second free is refused by the same test as a foreign pointer.
// Nothing here takes a lock or counts atomically; small_blocks.h says when it takes a lock.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "sched/internal.h"
#include "sched/small_blocks.h"

namespace kiv {

namespace {

// First character in the highest byte: in memory the tags read "GRAL" and "LAMS".
constexpr uint64_t four_characters(const char (&code)[5]) {
    uint64_t value = 0;
    for (int i = 0; i < 4; ++i) {
        value = value << 8 | static_cast<unsigned char>(code[i]);
    }
    return value;
}
constexpr uint64_t tag_large = four_characters("LARG");
constexpr uint64_t tag_small = four_characters("SMAL");

// No machine serves more; the sum with the header stays far from overflow.
constexpr int64_t max_size = int64_t{1} << 39;

std::atomic<int64_t> allocations_until_failure{0};

BlockHeader *header_of(const void *ptr) noexcept {
    return static_cast<BlockHeader *>(const_cast<void *>(ptr)) - 1;
}

// Reads a header that may belong to nobody, or to a block that was freed: not for the sanitizers.
#if KIV_SANITIZED
__attribute__((no_sanitize("address", "thread"), noinline))
#else
inline
#endif
BlockHeader
peek(const void *ptr) noexcept {
    const BlockHeader *header = header_of(ptr);
    return {header->size, header->tag};
}

bool is_block(const void *ptr, BlockHeader *header) noexcept {
    if (reinterpret_cast<uintptr_t>(ptr) % alignof(std::max_align_t) != 0 ||
        !platform::readable_32(header_of(ptr))) {
        return false;
    }
    *header = peek(ptr);
    return header->tag == tag_small ? header->size <= max_small_size : header->tag == tag_large;
}

// True for the one allocation that a test asked to fail.
bool fails_now() noexcept {
    return allocations_until_failure.load(std::memory_order_relaxed) > 0 &&
           allocations_until_failure.fetch_sub(1, std::memory_order_relaxed) == 1;
}

// Reports stay out of line: their frames would burden the paths that are always taken.
[[gnu::cold, gnu::noinline]] void report_failure(int64_t size) noexcept {
    char text[96];
    std::snprintf(text, sizeof text, "sysmem_newptr: unable to allocate block of size %lld!\n",
                  static_cast<long long>(size));
    platform::debug_output(text);
}

[[gnu::cold, gnu::noinline]] void report_bad(const char *call, const char *action,
                                             const void *ptr) noexcept {
    char text[96];
    std::snprintf(text, sizeof text, "%s: trying to %s bad ptr %p\n", call, action, ptr);
    platform::debug_output(text);
}

void *finish(void *block, int64_t size, uint64_t tag) noexcept {
    auto *header = static_cast<BlockHeader *>(block);
    header->size = static_cast<uint64_t>(size);
    header->tag = tag;
    return header + 1;
}

// Atomic, or compilers leave out what is written to memory that is freed next.
void set_tag(BlockHeader *header, uint64_t tag) noexcept {
    std::atomic_ref(header->tag).store(tag, std::memory_order_relaxed);
}

size_t large_block_size(int64_t size) noexcept {
    // At least 32 bytes: what the readability probe of the header looks at.
    return sizeof(BlockHeader) + std::max<size_t>(static_cast<size_t>(size), sizeof(BlockHeader));
}

void *large_block_resize(BlockHeader *header, int64_t size) noexcept {
    if (!fails_now()) {
        set_tag(header, 0);  // what stays behind is no block
        if (void *block = std::realloc(header, large_block_size(size))) {
            return finish(block, size, tag_large);
        }
        set_tag(header, tag_large);
    }
    report_failure(size);
    return nullptr;
}

bool is_small(int64_t size) noexcept {
    return use_small_blocks && static_cast<uint64_t>(size) <= max_small_size;
}

template <class LargeNew>
void *block_new(int64_t size, LargeNew large_new) noexcept {
    if (size == 0) {
        return nullptr;
    }
    if (!fails_now()) {
        if (is_small(size)) {
            if (void *block = small_block_new(static_cast<size_t>(size))) {
                return finish(block, size, tag_small);
            }
        } else if (size > 0 && size <= max_size) {
            if (void *block = large_new(large_block_size(size))) {
                large_blocks_add(1);
                return finish(block, size, tag_large);
            }
        }
    }
    report_failure(size);
    return nullptr;
}

}  // namespace

void memory_fail_at(int64_t n) noexcept {
    allocations_until_failure.store(n);
}

}  // namespace kiv

using namespace kiv;

// --- Blocks --------------------------------------------------------------------------------------

void *sysmem_newptr(int64_t size) noexcept {
    return block_new(size, std::malloc);
}

void *sysmem_newptrclear(int64_t size) noexcept {
    void *ptr = block_new(size, [](size_t bytes) { return std::calloc(1, bytes); });
    if (ptr && is_small(size)) {
        std::memset(ptr, 0, static_cast<size_t>(size));
    }
    return ptr;
}

void sysmem_freeptr(void *ptr) noexcept {
    if (!ptr) {
        return;
    }
    BlockHeader header;
    if (!is_block(ptr, &header)) {
        report_bad("sysmem_freeptr", "free", ptr);
        return;
    }
    set_tag(header_of(ptr), 0);
    if (header.tag == tag_small) {
        small_block_free(header_of(ptr), header.size);
    } else {
        large_blocks_add(-1);
        std::free(header_of(ptr));
    }
}

void *sysmem_resizeptr(void *ptr, int64_t size) noexcept {
    if (!ptr) {
        return sysmem_newptr(size);
    }
    BlockHeader header;
    if (!is_block(ptr, &header)) {
        report_bad("sysmem_resizeptr", "resize", ptr);
        return nullptr;
    }
    if (size == 0) {
        sysmem_freeptr(ptr);
        return nullptr;
    }
    if (header.tag == tag_small && is_small(size) &&
        small_block_class(static_cast<size_t>(size)) == small_block_class(header.size)) {
        header_of(ptr)->size = static_cast<uint64_t>(size);
        return ptr;
    }
    if (header.tag == tag_large && size > 0 && size <= max_size && !is_small(size)) {
        return large_block_resize(header_of(ptr), size);
    }
    void *moved = sysmem_newptr(size);
    if (moved) {
        std::memcpy(moved, ptr, std::min(static_cast<size_t>(size), size_t{header.size}));
        sysmem_freeptr(ptr);
    }
    return moved;
}

void *sysmem_resizeptrclear(void *ptr, int64_t size) noexcept {
    const int64_t before = sysmem_ptrsize(ptr);
    void *resized = sysmem_resizeptr(ptr, size);
    if (resized && size > before) {
        std::memset(static_cast<char *>(resized) + before, 0, static_cast<size_t>(size - before));
    }
    return resized;
}

int64_t sysmem_ptrsize(const void *ptr) noexcept {
    BlockHeader header;
    return ptr && is_block(ptr, &header) ? static_cast<int64_t>(header.size) : 0;
}

void sysmem_copyptr(const void *source, void *target, int64_t size) noexcept {
    if (source && target && size > 0) {
        std::memmove(target, source, static_cast<size_t>(size));
    }
}
