// The monotonic clock.
#include <sys/prctl.h>
#include <time.h>

#include "platform/platform.h"

namespace kiv::platform {

double time_ms() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

// Waits that a thread does not ask to be punctual may end up to 50 microseconds late, so that the
// system can end several at once.
void time_punctual() noexcept {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

}  // namespace kiv::platform
