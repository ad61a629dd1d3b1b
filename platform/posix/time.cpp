// The monotonic clock.
#include <time.h>

#include "platform/platform.h"

namespace kiv::platform {

double time_ms() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

}  // namespace kiv::platform
