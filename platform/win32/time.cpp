// The time base.
#include "platform/platform.h"
#include "platform/win32/win32.h"

namespace kiv::platform {

double time_ms() noexcept {
    static const double ms_per_count = [] {
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);  // cannot fail on any system that runs this
        return 1e3 / static_cast<double>(frequency.QuadPart);
    }();
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return static_cast<double>(count.QuadPart) * ms_per_count;
}

}  // namespace kiv::platform
