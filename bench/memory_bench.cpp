// Kernel memory blocks beside malloc, on one thread and on two: the same sizes in the same order.
// Blocks are written to, as callers do. It cannot show what a long-running process's heap looks
// like.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <array>
#include <cstdlib>
#include <random>

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

BENCHMARK(Same<Kernel>)->Arg(32)->Arg(256)->Arg(4096)->ThreadRange(1, 2);
BENCHMARK(Same<Malloc>)->Arg(32)->Arg(256)->Arg(4096)->ThreadRange(1, 2);
BENCHMARK(Mixed<Kernel>)->ThreadRange(1, 2);
BENCHMARK(Mixed<Malloc>)->ThreadRange(1, 2);

}  // namespace
}  // namespace kiv
