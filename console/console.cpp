// The console store: entries from any thread wait here until the main thread shows them.
//
// Thread safety: the pending entries, and nothing else, are guarded by `lock`, which is held only
// to copy an entry in or out: never while a hook, the display or an object runs. The display is
// set and called on the main thread alone. Switches are atomic.
//
// An entry is shown by one of two queue elements, both set with every entry: the first shows what
// waits, the second what was refused meanwhile. In immediate mode the main thread shows it at once.
// Posting from inside the display is allowed: such entries wait for the next pass.
#include <kiv/class.h>
#include <kiv/defer.h>
#include <kiv/object.h>

#include <atomic>
#include <cstring>

#include "console/store.h"
#include "kernel/internal.h"
#include "sched/internal.h"

namespace kiv {

namespace {

using DisplayFunction = void (*)(const ConsoleEntry *entry, void *argument);

struct ConsoleStore {
    CriticalRef lock = nullptr;  // null (the global region) until start-up has made it
    PendingEntries pending;

    // Main thread only.
    DisplayFunction show = nullptr;
    void *argument = nullptr;
    bool showing = false;

    // Constant once start-up has set `started`.
    Object *object = nullptr;
    Qelem *show_task = nullptr;
    Qelem *report_task = nullptr;
    std::atomic<bool> started{false};

    std::atomic<int32_t> nonplain{0};  // errors, warnings and bugs
    std::atomic<int32_t> errors{0};
    std::atomic<bool> echo{false};
    std::atomic<bool> immediate{false};
    std::atomic<Object *> listener{nullptr};
    std::atomic<OriginHook> origin_hook{nullptr};
};
constinit ConsoleStore store;

bool take(int64_t limit, TakenEntry *out) noexcept {
    const Guard guard(store.lock);
    return store.pending.take(limit, out);
}

bool take_report(TakenEntry *out) noexcept {
    const Guard guard(store.lock);
    return store.pending.take_report(out);
}

int64_t youngest_stamp() noexcept {
    const Guard guard(store.lock);
    return store.pending.stamp();
}

// Shows what waits now; entries posted meanwhile wait for the next call, so it ends although the
// display posts. Without a display everything goes on waiting.
void show_pending(bool with_report) noexcept {
    if (!store.show || store.showing || !systhread_ismainthread()) {
        return;
    }
    store.showing = true;
    TakenEntry taken;
    for (const int64_t limit = youngest_stamp(); store.show && take(limit, &taken);) {
        store.show(&taken.entry, store.argument);
    }
    while (with_report && store.show && take_report(&taken)) {
        store.nonplain.fetch_add(1, std::memory_order_relaxed);
        store.show(&taken.entry, store.argument);
    }
    store.showing = false;
}

void show_task(Object *) noexcept {
    show_pending(false);
}

void report_task(Object *) noexcept {
    show_pending(true);
}

void schedule_showing() noexcept {
    if (!store.started.load(std::memory_order_acquire)) {
        return;
    }
    if (store.immediate.load(std::memory_order_relaxed) && systhread_ismainthread() &&
        !store.showing) {
        object_method(store.object, "set"_sym);
        return;
    }
    qelem_set(store.show_task);
    qelem_set(store.report_task);
}

// False when the entry is refused; it is then counted as dropped if `final`.
bool push(const ConsoleEntry &entry, std::string_view text, bool final) noexcept {
    const Guard guard(store.lock);
    if (store.pending.push(entry, text)) {
        return true;
    }
    if (final) {
        store.pending.drop(entry);
    }
    return false;
}

// The main thread has the right to show entries, so its own flood is shown rather than dropped.
void push_or_show(const ConsoleEntry &entry, std::string_view text) noexcept {
    const bool can_show = systhread_ismainthread() && store.show && !store.showing;
    if (!push(entry, text, !can_show) && can_show) {
        show_pending(true);
        push(entry, text, true);
    }
}

void echo(std::string_view text) noexcept {
    char line[console_text_size + 1];
    std::memcpy(line, text.data(), text.size());
    line[text.size()] = '\n';
    line[text.size() + 1] = '\0';
    platform::debug_output(line);
}

ConsoleOrigin origin_of(Object *source) noexcept {
    ConsoleOrigin origin{""_sym, ""_sym, ""_sym};
    if (!object_valid(source)) {
        return origin;
    }
    origin.class_name = object_classname(source);
    if (const OriginHook hook = store.origin_hook.load(std::memory_order_acquire)) {
        hook(source, &origin);
    }
    return origin;
}

}  // namespace

void console_post(void *source, int32_t kind, int32_t level, std::string_view text) noexcept {
    ConsoleEntry entry{};
    entry.source = static_cast<Object *>(source);
    entry.level = static_cast<uint8_t>(level);
    if (kind == PostInfo) {
        if (object_valid(source)) {
            object_method(source, "info"_sym, &entry.source, &entry.extra);
        }
        kind = PostPlain;
    }
    entry.kind = static_cast<uint8_t>(kind);
    if (entry.kind != PostPlain) {
        store.nonplain.fetch_add(1, std::memory_order_relaxed);
    }
    entry.origin = origin_of(entry.source);
    text = text.substr(0, console_text_size - 1);
    push_or_show(entry, text);
    schedule_showing();
    if (store.echo.load(std::memory_order_relaxed)) {
        echo(text);
    }
}

void console_count_error(void *source, const char *text) noexcept {
    // A listener that posts an error while it is told of one is not told again.
    static thread_local bool telling = false;
    Object *listener = store.listener.load(std::memory_order_acquire);
    if (listener && !telling && object_valid(listener)) {
        telling = true;
        object_method(listener, "error"_sym, text, source);
        telling = false;
    }
    store.errors.fetch_add(1, std::memory_order_relaxed);
}

void console_start() noexcept {
    critical_new(&store.lock);
    Class *c = class_new("console", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_obexoffset_set(c, -1);
    class_addmethod(c, reinterpret_cast<Method>(report_task), "set", TypeCant, 0);
    class_register("nobox"_sym, c);
    store.object = static_cast<Object *>(object_alloc(c));
    store.show_task = qelem_new(store.object, reinterpret_cast<Method>(show_task));
    store.report_task = qelem_new(store.object, reinterpret_cast<Method>(report_task));
    store.started.store(true, std::memory_order_release);
}

OriginHook console_set_origin_hook(OriginHook hook) noexcept {
    return store.origin_hook.exchange(hook, std::memory_order_acq_rel);
}

void console_set_display(DisplayFunction show, void *argument) noexcept {
    store.show = show;
    store.argument = argument;
    schedule_showing();
}

void console_drain() noexcept {
    show_pending(true);
}

void console_set_echo(bool on) noexcept {
    store.echo.store(on, std::memory_order_relaxed);
}

void console_set_immediate(bool on) noexcept {
    store.immediate.store(on, std::memory_order_relaxed);
}

void console_set_listener(Object *listener) noexcept {
    store.listener.store(listener, std::memory_order_release);
}

int32_t console_nonplain_count() noexcept {
    return store.nonplain.load(std::memory_order_relaxed);
}

void console_clear() noexcept {
    store.nonplain.store(0, std::memory_order_relaxed);
    overflow_clear();
}

}  // namespace kiv

int32_t errorcount_get() noexcept {
    return kiv::store.errors.load(std::memory_order_relaxed);
}

void errorcount_set(int32_t count) noexcept {
    kiv::store.errors.store(count, std::memory_order_relaxed);
}
