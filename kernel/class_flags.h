// The flags of a class that is in use: two of them (ClassUsesProxies, ClassReceives) are set when
// they first become true, on any thread, while others read the word.
#pragma once

#include <atomic>

#include "kernel/internal.h"

namespace kiv {

inline uint32_t class_flags(const Class *c) noexcept {
    return std::atomic_ref(const_cast<Class *>(c)->flags).load(std::memory_order_relaxed);
}

// Sets a flag of an object's class.
inline void mark_class(const void *x, ClassFlag flag) noexcept {
    Class *const c = class_of(x);
    if (!(class_flags(c) & flag)) {
        std::atomic_ref(c->flags).fetch_or(flag);
    }
}

}  // namespace kiv
