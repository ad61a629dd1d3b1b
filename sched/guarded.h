// Calls into what modules registered: an exception is reported where it was called, and goes no
// further.
#pragma once

#include <kiv/console.h>

#include "kernel/internal.h"

namespace kiv {

// `what` names the function in the report, "clock" say; `owner` may be anything.
template <class Call>
void guarded(const char *what, void *owner, Call call) noexcept {
    try {
        call();
    } catch (...) {
        object_error(object_valid(owner) ? owner : nullptr, "%s: the function threw an exception",
                     what);
    }
}

}  // namespace kiv
