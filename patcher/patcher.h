// The parts of class `jpatcher`, for the files that make it up.
#pragma once

#include "containers/internal.h"
#include "patcher/records.h"

namespace kiv {

void patcher_class_start() noexcept;
void box_font_start() noexcept;                // box_font.cpp
void patcher_add_messages(Class *c) noexcept;  // patcher_messages.cpp

void patcher_walks_skip(Patcher *patcher, Jbox *box) noexcept;
void patcher_walks_end(Patcher *patcher) noexcept;

// --- patcher_resolve.cpp -------------------------------------------------------------------------

// A box of the patcher itself by scripting name, else by id.
Jbox *patcher_named_box(Patcher *patcher, Symbol *name) noexcept;
// The same along a path of names separated by "::", into subpatchers.
Jbox *patcher_box_at_path(Patcher *patcher, Symbol *path) noexcept;
// The path of a box from the top-level patcher.
Symbol *box_path(Jbox *box) noexcept;

}  // namespace kiv
