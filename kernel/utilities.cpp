// Small services of the kernel: the pseudo-random generator and the verbose switch. Any thread.
#include <atomic>

#include "kernel/internal.h"

namespace kiv {

namespace {

struct Utilities {
    std::atomic<uint64_t> random{0};  // 0: not seeded yet
    std::atomic<bool> verbose{false};
};
constinit Utilities utilities;

constexpr uint64_t random_step = 0x9e3779b97f4a7c15u;

}  // namespace

// A counter through a mixing function: each call takes its own step, so threads never share one.
uint32_t kernel_random() noexcept {
    uint64_t state = utilities.random.load(std::memory_order_relaxed);
    if (state == 0) {
        const auto seed = static_cast<uint64_t>(platform::time_ms() * 1e6) | 1;
        utilities.random.compare_exchange_strong(state, seed, std::memory_order_relaxed);
    }
    state = utilities.random.fetch_add(random_step, std::memory_order_relaxed) + random_step;
    state = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9u;
    state = (state ^ (state >> 27)) * 0x94d049bb133111ebu;
    return static_cast<uint32_t>((state ^ (state >> 31)) >> 32);
}

void kernel_random_seed(uint64_t seed) noexcept {
    utilities.random.store(seed ? seed : 1, std::memory_order_relaxed);
}

bool verbose_get() noexcept {
    return utilities.verbose.load(std::memory_order_relaxed);
}

void verbose_set(bool on) noexcept {
    utilities.verbose.store(on, std::memory_order_relaxed);
}

}  // namespace kiv
