// Kernel memory blocks beside malloc, on one thread and on two: the same sizes in the same order.
// Blocks are written to, as callers do. Besides: blocks that are freed by another thread than made
// them, and many blocks made and freed in bulk, as documents are. It cannot show what a
// long-running process's heap looks like.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

namespace kiv {
namespace {

struct Kernel {
    static void *allocate(size_t size) { return sysmem_newptr(static_cast<int64_t>(size)); }
    static void release(void *block) { sysmem_freeptr(block); }
};
struct Malloc {
    static void *allocate(size_t size) { return std::malloc(size); }
    static void release(void *block) { std::free(block); }
};

// One block of a fixed size, at once given back.
template <class Memory>
void Same(benchmark::State &state) {
    const auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *const block = Memory::allocate(size);
        *static_cast<char *>(block) = 1;
        benchmark::DoNotOptimize(block);
        Memory::release(block);
    }
}

// A thousand blocks of 16 to 512 bytes alive; each step replaces one.
template <class Memory>
void Mixed(benchmark::State &state) {
    constexpr size_t live = 1024;
    std::mt19937 random(static_cast<unsigned>(state.thread_index()) + 1);
    std::array<size_t, live> sizes{};
    std::array<size_t, live> order{};
    std::array<void *, live> blocks{};
    for (size_t i = 0; i < live; ++i) {
        sizes[i] = 16 + random() % 497;
        order[i] = random() % live;
        blocks[i] = Memory::allocate(sizes[i]);
    }
    size_t step = 0;
    for (auto _ : state) {
        void *&block = blocks[order[step % live]];
        Memory::release(block);
        block = Memory::allocate(sizes[(step * 7) % live]);
        *static_cast<char *>(block) = 1;
        ++step;
    }
    for (void *block : blocks) {
        Memory::release(block);
    }
}

// The first thread makes blocks of 16 to 271 bytes, the second frees them.
template <class Memory>
void HandedOver(benchmark::State &state) {
    constexpr size_t room = 1024;
    static std::array<std::atomic<char *>, room> ring{};
    const bool makes = state.thread_index() == 0;
    size_t step = 0;
    for (auto _ : state) {
        std::atomic<char *> &place = ring[step % room];
        const auto wait = [&](bool full) {
            char *block = place.load(std::memory_order_acquire);
            for (; (block != nullptr) != full; block = place.load(std::memory_order_acquire)) {
                std::this_thread::yield();
            }
            return block;
        };
        if (makes) {
            auto *const block = static_cast<char *>(Memory::allocate(16 + step * 37 % 256));
            *block = 1;
            wait(false);
            place.store(block, std::memory_order_release);
        } else {
            char *const block = wait(true);
            place.store(nullptr, std::memory_order_release);
            Memory::release(block);
        }
        ++step;
    }
}

// So many blocks of 16 to 271 bytes, all made, then all freed.
template <class Memory>
void InBulk(benchmark::State &state) {
    std::vector<void *> blocks(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        size_t step = 0;
        for (void *&block : blocks) {
            block = Memory::allocate(16 + step++ * 37 % 256);
            *static_cast<char *>(block) = 1;
        }
        for (void *block : blocks) {
            Memory::release(block);
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(Same<Kernel>)->Arg(32)->Arg(256)->Arg(4096)->ThreadRange(1, 2);
BENCHMARK(Same<Malloc>)->Arg(32)->Arg(256)->Arg(4096)->ThreadRange(1, 2);
BENCHMARK(Mixed<Kernel>)->ThreadRange(1, 2);
BENCHMARK(Mixed<Malloc>)->ThreadRange(1, 2);
BENCHMARK(HandedOver<Kernel>)->Threads(2);
BENCHMARK(HandedOver<Malloc>)->Threads(2);
BENCHMARK(InBulk<Kernel>)->Arg(1000)->Arg(100000);
BENCHMARK(InBulk<Malloc>)->Arg(1000)->Arg(100000);

}  // namespace
}  // namespace kiv
