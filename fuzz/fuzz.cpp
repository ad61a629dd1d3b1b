#include "fuzz/fuzz.h"

#include <kiv/symbol.h>

#include <cstdio>
#include <cstdlib>

#include "console/internal.h"
#include "kernel/internal.h"
#include "kernel/startup.h"
#include "sched/internal.h"

#ifdef KIV_FUZZER
#include <sanitizer/lsan_interface.h>
#endif

// The first ten thousand unique names that are given back wait before they are used again; with
// them there already, an input that names objects leaves nothing behind.
static void fill_pool_of_unique_names() {
    for (int i = 0; i < 10100; ++i) {
        kiv::symbol_unique_release(symbol_unique());
    }
}

int LLVMFuzzerInitialize(int *, char ***) {
    kiv::startup();
    fill_pool_of_unique_names();
    kiv::console_set_display([](const kiv::ConsoleEntry *, void *) {}, nullptr);
    return 0;
}

namespace kiv::fuzz {

void require(bool holds, const char *what) noexcept {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

namespace {

// A replay under the address sanitizer has its leaks reported when it ends.
bool leaks() noexcept {
#ifdef KIV_FUZZER
    return __lsan_do_recoverable_leak_check() != 0;
#else
    return false;
#endif
}

}  // namespace

// Names stay, so the fuzzer's own test, which looks for leaks whenever less was freed than
// allocated, would look after nearly every input, and each look takes longer than hundreds of
// inputs. Names live in large blocks: when more blocks live than at the last look, another is worth
// its time.
void settle() noexcept {
    constexpr int64_t slack = 64;  // pools grow and shrink
    static int64_t most_blocks = 0;
    console_drain();
    const int64_t blocks = memory_live_blocks();
    if (blocks > most_blocks + slack) {
        most_blocks = blocks;
        require(!leaks(), "nothing leaks");
    }
}

}  // namespace kiv::fuzz
