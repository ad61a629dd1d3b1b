// The time as tests have it.
#pragma once

#include "sched/internal.h"

namespace kiv::test {

// For a scope the time stands still, from 0, but for time_advance_to.
class OfflineTime {
  public:
    OfflineTime() noexcept { time_offline_begin(); }
    ~OfflineTime() { time_offline_end(); }
    OfflineTime(const OfflineTime &) = delete;
    OfflineTime &operator=(const OfflineTime &) = delete;
};

}  // namespace kiv::test
