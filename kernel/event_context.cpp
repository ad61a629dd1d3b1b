// On whose behalf the calling thread runs: a stack of owners for each thread, whose frames live on
// the callers' stacks. A frame is popped by whoever pushed it, in reverse order.
#include "kernel/internal.h"

namespace kiv {

namespace {

thread_local EventContext *innermost = nullptr;

}  // namespace

EventContext *event_context() noexcept {
    return innermost;
}

void event_context_push(EventContext *context) noexcept {
    context->outer = innermost;
    innermost = context;
}

void event_context_pop() noexcept {
    if (innermost) {
        innermost = innermost->outer;
    }
}

}  // namespace kiv
