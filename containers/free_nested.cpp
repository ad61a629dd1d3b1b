#include "containers/free_nested.h"

#include <kiv/object.h>
#include <kiv/sysmem.h>

namespace kiv {

namespace {

constexpr int deepest = 64;

struct Postponed {
    void *object;
    Postponed *next;
};

// Each thread frees what it has put aside itself.
thread_local int depth = 0;
thread_local Postponed *waiting = nullptr;

bool postpone(void *object) noexcept {
    auto *postponed = static_cast<Postponed *>(sysmem_newptr(sizeof(Postponed)));
    if (!postponed) {
        return false;
    }
    *postponed = {object, waiting};
    waiting = postponed;
    return true;
}

}  // namespace

void free_nested(void *object) noexcept {
    // Without memory to remember the object there is only the stack.
    if (depth >= deepest && postpone(object)) {
        return;
    }
    ++depth;
    freeobject(object);
    while (depth == 1 && waiting) {
        Postponed *postponed = waiting;
        waiting = postponed->next;
        void *next = postponed->object;
        sysmem_freeptr(postponed);
        freeobject(next);
    }
    --depth;
}

}  // namespace kiv
