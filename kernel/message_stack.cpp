// Message debugging: what the sends under way are, and a debugger that may stop them.
//
// Each debugged send has an entry on its thread's stack, from before its first delivery until it
// ends, and the debugger is asked before each delivery. While debugging is off the send path reads
// one flag. A send that was under way when debugging was switched on has no entry.
//
// Thread safety: the debugger is set on the main thread and called on the sending one.
#include <kiv/attr.h>
#include <kiv/dictionary.h>

#include <utility>

#include "kernel/inlets.h"
#include "sched/internal.h"

namespace kiv {

namespace {

struct State {
    std::atomic<MessageDebugger> debugger{nullptr};
    std::atomic<void *> argument{nullptr};
};
constinit State state;

thread_local bool asking = false;

Symbol *class_symbol(const void *x) {
    return object_valid(x) ? class_of(x)->name : ""_sym;
}

}  // namespace

bool message_debugged_here() noexcept {
    const bool passes_on_main = !overdrive_get() && scheduler_count() <= 1;
    return passes_on_main || systhread_ismainthread();
}

bool message_pauses(MessageEntry *entry, Object *receiver) noexcept {
    const MessageDebugger debugger = state.debugger.load(std::memory_order_acquire);
    if (!debugger || std::exchange(asking, true)) {
        return false;
    }
    entry->breakpoint = debugger(entry, receiver, state.argument.load(std::memory_order_relaxed));
    asking = false;
    return entry->breakpoint;
}

void message_debugging_set(MessageDebugger debugger, void *argument) noexcept {
    state.argument.store(argument, std::memory_order_relaxed);
    state.debugger.store(debugger, std::memory_order_release);
    watch_set(watch::debugging, debugger != nullptr);
}

const MessageEntry *message_stack() noexcept {
    return this_send_state ? this_send_state->messages : nullptr;
}

void *message_entry_dictionary(const MessageEntry *entry, Object *receiver) noexcept {
    Dictionary *const made = dictionary_new();
    if (!made) {
        return nullptr;
    }
    auto *const patcher_of = kernel_hooks().patcher_of;
    const bool lives = object_valid(entry->sender);
    void *const patcher = lives && patcher_of ? patcher_of(entry->sender) : nullptr;
    const struct {
        Symbol *key;
        Symbol *value;
    } fields[] = {
        {"classsym"_sym, class_symbol(receiver)},
        {"messagesym"_sym, entry->selector ? entry->selector : ""_sym},
        {"patchersym"_sym, patcher ? object_attr_getsym(patcher, "name"_sym) : ""_sym},
        {"senderclasssym"_sym, class_symbol(entry->sender)},
    };
    ErrorCode result = dictionary_appendlong(made, "breakpoint"_sym, entry->breakpoint);
    for (const auto &field : fields) {
        result = result == ErrorNone ? dictionary_appendsym(made, field.key, field.value) : result;
    }
    if (result != ErrorNone) {
        object_free(made);
        return nullptr;
    }
    return made;
}

}  // namespace kiv
