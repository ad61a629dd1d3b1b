// Hooks between console/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/console.h>

#include <cstdint>

namespace kiv {

// What is known of an entry's source, taken when it is posted, since the source may be gone when
// the entry is shown. Empty symbols where there is none.
struct ConsoleOrigin {
    Symbol *class_name;
    Symbol *box_id;
    Symbol *patcher_name;
};

struct ConsoleEntry {
    Object *source;  // may be freed by the time the entry is shown: compare, never follow
    uint8_t kind;
    uint8_t level;
    const char *text;
    int32_t extra;
    int64_t stamp;
    ConsoleOrigin origin;
};

void console_start() noexcept;
// Fills box and patcher of a live source, on the posting thread; the class is filled in already.
// Registered by patcher/, which knows boxes. The hook that was there before.
using OriginHook = void (*)(Object *source, ConsoleOrigin *origin);
OriginHook console_set_origin_hook(OriginHook hook) noexcept;
// Receives every entry on the main thread, in posting order; the entry and its text last for the
// call. Until a display is set, entries wait. Registered by the host and by tests. Main thread.
void console_set_display(void (*show)(const ConsoleEntry *entry, void *argument),
                         void *argument) noexcept;
// Moves every pending entry to the display now. Main thread.
void console_drain() noexcept;
// Writes every entry to the system's debug output as well.
void console_set_echo(bool on) noexcept;
// Shows what the main thread posts at once, before posting returns.
void console_set_immediate(bool on) noexcept;
// Sends each error to an object as error(listener, text, source), on the posting thread; null for
// nobody. The listener is not told of errors that it posts itself meanwhile.
void console_set_listener(Object *listener) noexcept;
// The errors, warnings and bugs posted since the console was last cleared. Any thread.
int32_t console_nonplain_count() noexcept;
// The user cleared the console: patchers whose outlets a stack overflow had silenced send again.
// Called by the host. Main thread.
void console_clear() noexcept;

}  // namespace kiv
