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
// Fills class, box and patcher of a source. Registered by patcher/, which knows boxes.
void console_set_origin_hook(void (*hook)(Object *source, ConsoleOrigin *origin)) noexcept;
// Receives every entry on the main thread, in posting order. Registered by the host and by tests.
void console_set_display(void (*show)(const ConsoleEntry *entry, void *argument),
                         void *argument) noexcept;
// Moves every pending entry to the display now. Main thread.
void console_drain() noexcept;
void console_set_echo(bool on) noexcept;
void console_set_immediate(bool on) noexcept;
void console_set_listener(Object *listener) noexcept;
// Called when the entry of a patcher's overflow state is cleared from the display.
void console_clear() noexcept;

}  // namespace kiv
