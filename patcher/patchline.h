// Class `jpatchline`, for the files of this folder.
#pragma once

#include "patcher/records.h"

namespace kiv {

void patchline_start() noexcept;
// The cord an object pointer is, or null when it is no live cord.
Patchline *as_patchline(void *x) noexcept;
// A cord's document form, added to `dictionary`. False when memory ran out.
bool line_write_dictionary(Patchline *line, Dictionary *dictionary) noexcept;
// The elements of "lines" as cords, connected so that each outlet serves them in document order.
void patcher_read_lines(Patcher *patcher, int32_t count, const Atom *elements) noexcept;
bool patcher_write_lines(Patcher *patcher, Dictionary *dictionary) noexcept;

}  // namespace kiv
