#include "fuzz/fuzz.h"

#include <cstdio>
#include <cstdlib>

#include "console/internal.h"
#include "kernel/startup.h"

int LLVMFuzzerInitialize(int *, char ***) {
    kiv::startup();
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

void settle() noexcept {
    console_drain();
}

}  // namespace kiv::fuzz
