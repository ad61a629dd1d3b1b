#include <gtest/gtest.h>
#include <kiv/sysmem.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/testing/testing.h"
#include "sched/internal.h"
#include "sched/small_blocks.h"

namespace kiv {
namespace {

std::string bad_pointer(const char *what, const void *ptr) {
    char text[100];
    std::snprintf(text, sizeof text, "%s bad ptr %p\n", what, ptr);
    return text;
}

TEST(Memory, HeaderHoldsSizeAndTag) {
    for (const int64_t size : {int64_t{1}, int64_t{1008}, int64_t{1009}, int64_t{1} << 20}) {
        char *ptr = static_cast<char *>(sysmem_newptr(size));
        ASSERT_NE(ptr, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(ptr) % 16, 0u);
        int64_t stored;
        std::memcpy(&stored, ptr - 16, 8);
        EXPECT_EQ(stored, size);
        const bool small = use_small_blocks && size <= 1008;
        EXPECT_EQ(std::string(ptr - 8, 8),
                  std::string(small ? "LAMS" : "GRAL") + std::string(4, 0));
        EXPECT_EQ(sysmem_ptrsize(ptr), size);
        std::memset(ptr, 0xff, static_cast<size_t>(size));
        sysmem_freeptr(ptr);
    }
}

TEST(Memory, RefusesWhatIsNoBlock) {
    alignas(16) char foreign[64] = {};
    void *freed_small = sysmem_newptr(40);
    sysmem_freeptr(freed_small);
    for (void *ptr : {static_cast<void *>(foreign + 16), static_cast<void *>(foreign + 17),
                      freed_small, reinterpret_cast<void *>(uintptr_t{4096})}) {
        const int64_t live = memory_live_blocks();
        test::debug_capture_start();
        sysmem_freeptr(ptr);
        EXPECT_EQ(test::debug_capture_end(), bad_pointer("sysmem_freeptr: trying to free", ptr));
        test::debug_capture_start();
        EXPECT_EQ(sysmem_resizeptr(ptr, 10), nullptr);
        EXPECT_EQ(test::debug_capture_end(),
                  bad_pointer("sysmem_resizeptr: trying to resize", ptr));
        EXPECT_EQ(sysmem_ptrsize(ptr), 0);
        EXPECT_EQ(memory_live_blocks(), live);
    }
    test::debug_capture_start();
    sysmem_freeptr(nullptr);
    EXPECT_EQ(test::debug_capture_end(), "");
}

TEST(Memory, FailureGivesNullAndAMessage) {
    EXPECT_EQ(sysmem_newptr(0), nullptr);
    for (const int64_t size : {int64_t{-1}, INT64_MIN, INT64_MAX, INT64_MAX - 16}) {
        test::debug_capture_start();
        EXPECT_EQ(sysmem_newptr(size), nullptr);
        EXPECT_EQ(test::debug_capture_end(), "sysmem_newptr: unable to allocate block of size " +
                                                 std::to_string(size) + "!\n");
    }
    // The n-th from now, and only that one; resizing counts when it allocates.
    void *kept = sysmem_newptrclear(2000);
    const int64_t live = memory_live_blocks();
    test::debug_capture_start();
    memory_fail_at(2);
    void *first = sysmem_newptr(8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(sysmem_resizeptrclear(kept, 4000), nullptr);
    EXPECT_EQ(sysmem_ptrsize(kept), 2000);
    sysmem_freeptr(sysmem_newptr(8));
    test::debug_capture_end();
    sysmem_freeptr(first);
    EXPECT_EQ(memory_live_blocks(), live);
    sysmem_freeptr(kept);
}

// Blocks of all sizes, resized at random across classes, keep their content and never overlap.
TEST(Memory, BlocksKeepTheirContentThroughEveryResize) {
    struct Block {
        unsigned char *ptr = nullptr;
        int64_t size = 0;
        unsigned char fill = 0;
    };
    const int64_t live = memory_live_blocks();
    std::mt19937 random(1);
    std::vector<Block> blocks(200);
    for (int step = 0; step < 20000; ++step) {
        Block &block = blocks[random() % blocks.size()];
        const int64_t size = static_cast<int64_t>(random() % (step % 10 ? 1100 : 20000));
        block.ptr = static_cast<unsigned char *>(sysmem_resizeptrclear(block.ptr, size));
        ASSERT_EQ(block.ptr == nullptr, size == 0);
        int64_t kept = 0;
        while (kept < size && block.ptr[kept] == (kept < block.size ? block.fill : 0)) {
            ++kept;
        }
        ASSERT_EQ(kept, size);
        block.size = size;
        block.fill = static_cast<unsigned char>(random());
        if (size > 0) {
            std::memset(block.ptr, block.fill, static_cast<size_t>(size));
        }
    }
    for (const Block &block : blocks) {
        sysmem_freeptr(block.ptr);
    }
    EXPECT_EQ(memory_live_blocks(), live);
}

// One thread makes, another frees, threads come and go: slots return and the count stays right.
TEST(Memory, BlocksMayBeFreedOnAnotherThread) {
    const int64_t live = memory_live_blocks();
    for (int round = 0; round < 4; ++round) {
        std::vector<std::vector<char *>> made(3);
        std::vector<std::thread> threads;
        for (auto &list : made) {
            threads.emplace_back([&list] {
                for (int i = 0; i < 3000; ++i) {
                    const int size = 1 + i * 7 % 1500;
                    list.push_back(static_cast<char *>(sysmem_newptr(size)));
                    std::memset(list.back(), size & 0x7f, static_cast<size_t>(size));
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(memory_live_blocks(), live + 9000);
        threads.clear();
        for (auto &list : made) {
            threads.emplace_back([&list] {
                for (int i = 0; i < 3000; ++i) {
                    const int size = 1 + i * 7 % 1500;
                    char *ptr = list[static_cast<size_t>(i)];
                    ASSERT_EQ(ptr[size - 1], static_cast<char>(size & 0x7f));
                    sysmem_freeptr(ptr);
                    sysmem_freeptr(sysmem_newptr(size));
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(memory_live_blocks(), live);
    }
}

// After a peak of one size the same memory serves another; also where its pages were given back to
// the system, a freed block can be looked at.
TEST(Memory, WhatOneSizeGaveBackServesAnother) {
    if (!use_small_blocks) {
        GTEST_SKIP() << "no small blocks under sanitizers";
    }
    constexpr size_t peak = 48 << 20;
    const auto page = [](const void *ptr) { return reinterpret_cast<uintptr_t>(ptr) >> 16; };
    std::set<uintptr_t> pages;
    for (const size_t size : {32u, 1000u, 100u}) {
        std::vector<void *> blocks(peak / (size + 16));
        for (void *&block : blocks) {
            block = sysmem_newptr(static_cast<int64_t>(size));
            std::memset(block, 0x53, size);
        }
        for (const void *block : blocks) {
            pages.insert(page(block));
        }
        for (void *block : blocks) {
            sysmem_freeptr(block);
        }
        for (const void *block : blocks) {
            ASSERT_EQ(sysmem_ptrsize(block), 0);
            ASSERT_TRUE(platform::readable_32(block));
        }
    }
    EXPECT_LT(pages.size(), 2 * (peak >> 16));
}

// --- Handles -------------------------------------------------------------------------------------

std::string content(Handle handle) {
    return {*handle, static_cast<size_t>(sysmem_handlesize(handle))};
}

TEST(Handles, GrowAtBothEnds) {
    const int64_t live = memory_live_blocks();
    Handle handle = sysmem_newhandle(0);
    EXPECT_EQ(sysmem_handlesize(handle), 0);
    EXPECT_EQ(sysmem_ptrandhand("middle", handle, 6), 0);
    EXPECT_EQ(sysmem_ptrbeforehand("start ", handle, 6), 0);
    EXPECT_EQ(content(handle), "start middle");
    // From the handle itself, which moves while it grows.
    EXPECT_EQ(sysmem_ptrandhand(*handle + 5, handle, 4), 0);
    EXPECT_EQ(sysmem_ptrbeforehand(*handle + 6, handle, 6), 0);
    EXPECT_EQ(content(handle), "middlestart middle mid");
    EXPECT_EQ(sysmem_ptrbeforehand(*handle, handle, sysmem_handlesize(handle)), 0);
    EXPECT_EQ(content(handle), "middlestart middle midmiddlestart middle mid");

    EXPECT_EQ(sysmem_resizehandle(handle, 6), 0);
    EXPECT_EQ(sysmem_nullterminatehandle(handle), 0);
    EXPECT_EQ(sysmem_nullterminatehandle(handle), 0);
    EXPECT_EQ(sysmem_handlesize(handle), 7);
    EXPECT_STREQ(*handle, "middle");

    EXPECT_EQ(sysmem_lockhandle(handle, 1), 0);
    char *place = *handle;
    EXPECT_EQ(sysmem_resizehandle(handle, 100000), ErrorGeneric);
    EXPECT_EQ(sysmem_resizehandle(handle, 3), 0);
    EXPECT_EQ(*handle, place);
    EXPECT_EQ(sysmem_lockhandle(handle, 0), 1);
    EXPECT_EQ(sysmem_resizehandle(handle, 0), 0);
    EXPECT_EQ(sysmem_resizehandle(handle, -1), ErrorGeneric);
    EXPECT_EQ(sysmem_ptrandhand("x", handle, -1), ErrorGeneric);
    sysmem_freehandle(handle);
    EXPECT_EQ(memory_live_blocks(), live);
}

TEST(Handles, SurviveFailedAllocationsAndStrangers) {
    Handle handle = sysmem_newhandleclear(2);
    EXPECT_EQ(content(handle), std::string(2, 0));
    test::debug_capture_start();
    const std::string large(5000, 'x');
    memory_fail_at(1);
    EXPECT_EQ(sysmem_ptrandhand(large.data(), handle, 5000), ErrorOutOfMemory);
    EXPECT_EQ(content(handle), std::string(2, 0));
    memory_fail_at(1);
    EXPECT_EQ(sysmem_newhandle(10), nullptr);
    memory_fail_at(2);
    EXPECT_EQ(sysmem_newhandle(10), nullptr);
    void *block = sysmem_newptrclear(32);
    for (Handle stranger : {static_cast<Handle>(nullptr), static_cast<Handle>(block)}) {
        EXPECT_EQ(sysmem_handlesize(stranger), 0);
        EXPECT_EQ(sysmem_resizehandle(stranger, 4), ErrorInvalidPointer);
        EXPECT_EQ(sysmem_ptrandhand("a", stranger, 1), ErrorInvalidPointer);
        EXPECT_EQ(sysmem_nullterminatehandle(stranger), ErrorInvalidPointer);
    }
    sysmem_freeptr(block);
    sysmem_freehandle(handle);
    test::debug_capture_end();
}

}  // namespace
}  // namespace kiv
