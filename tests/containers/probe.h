// An object to put into containers: it counts how many of its kind were freed, and may call out
// when it is.
#pragma once

#include <kiv/class.h>
#include <kiv/object.h>

#include "containers/families.h"

namespace kiv::test {

struct Probe {
    Object ob;
    void (*on_free)(Probe *probe);
    void *context;
};
inline int probes_freed = 0;

inline void probe_free(Probe *probe) {
    ++probes_freed;
    if (probe->on_free) {
        probe->on_free(probe);
    }
}

inline Class *probe_class() {
    static Class *const c =
        class_new("probe", nullptr, method(probe_free), sizeof(Probe), nullptr, 0);
    return c;
}

inline Probe *probe_new() {
    return static_cast<Probe *>(object_alloc(probe_class()));
}

}  // namespace kiv::test
