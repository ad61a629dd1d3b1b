// What tests that count live blocks do before they count.
#pragma once

#include <kiv/kiv.h>

#include <vector>

namespace kiv::test {

// The table of extension records takes its parts one by one, as objects happen to fall into them;
// so many objects at once touch them all.
inline void warm_extension_records() {
    Class *const c = class_new("warm", nullptr, nullptr, sizeof(Object), nullptr, 0);
    std::vector<void *> objects(4000);
    for (void *&x : objects) {
        x = object_alloc(c);
        object_retain(x);
    }
    for (void *const x : objects) {
        object_free(x);
        object_free(x);
    }
    class_free(c);
}

}  // namespace kiv::test
