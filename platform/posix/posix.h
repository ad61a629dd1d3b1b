// What the files of this folder share: calls that cannot fail, and when thread_terminate may end a
// thread.
#pragma once

#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace kiv::platform {

// For calls that fail only on broken memory or a caller that unlocks what it does not hold.
inline void must(int result, const char *call) noexcept {
    if (result != 0) {
        std::fprintf(stderr, "%s failed: %d\n", call, result);
        std::abort();
    }
}

// The signal that ends a thread may come anywhere. While the thread holds a lock of this folder or
// stands in an event's list of waiters its end is put off, and its sleep, if it sleeps, cut short.
struct Ending {
    volatile sig_atomic_t put_off;         // how many reasons there are
    volatile sig_atomic_t wanted;          // the signal came meanwhile
    std::atomic<int> *volatile sleeps_on;  // `asleep` until somebody wakes the thread
};
extern constinit thread_local Ending ending;

inline constexpr int asleep = -2;
inline constexpr int woken_by_time = -1;

// Ends the calling thread when thread_start started it; otherwise it returns.
void end_self() noexcept;

// Puts the end of the calling thread off for a scope.
class PutOffEnd {
  public:
    PutOffEnd() noexcept { ending.put_off = ending.put_off + 1; }
    ~PutOffEnd() {
        ending.put_off = ending.put_off - 1;
        if (ending.wanted && ending.put_off == 0) [[unlikely]] {
            end_self();
        }
    }
    PutOffEnd(const PutOffEnd &) = delete;
    PutOffEnd &operator=(const PutOffEnd &) = delete;
};

}  // namespace kiv::platform
