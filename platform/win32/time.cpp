// The time base.
#include "platform/platform.h"
#include "platform/win32/win32.h"
// After windows.h, on which it rests.
#include <mmsystem.h>

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

// The resolution is the process's, and stays raised.
void time_punctual() noexcept {
    timeBeginPeriod(1);
}

}  // namespace kiv::platform
