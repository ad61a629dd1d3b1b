// Class `jpatchline`, for the files of this folder.
#pragma once

#include "patcher/records.h"

namespace kiv {

void patchline_start() noexcept;
// The cord an object pointer is, or null when it is no live cord.
Patchline *as_patchline(void *x) noexcept;
// Which side of a box a cord ends at.
enum class Side { inlet, outlet };
// Gives the cords at one side of a box new indices: `index_of` answers the new one for each old
// one, or -1 to delete the cord. Their connections are broken already (patcher_detach_lines).
void patcher_renumber_lines(Patcher *patcher, Jbox *box, Side side,
                            const Vector<int32_t> &index_of) noexcept;
// "freelinesconnectedto": an inlet or outlet is about to go, and those behind it move up.
void patcher_free_lines_at(Patcher *patcher, void *end) noexcept;
// A cord's document form, added to `dictionary`. False when memory ran out.
bool line_write_dictionary(Patchline *line, Dictionary *dictionary) noexcept;
// The elements of "lines" as cords, connected so that each outlet serves them in document order.
void patcher_read_lines(Patcher *patcher, int32_t count, const Atom *elements) noexcept;
bool patcher_write_lines(Patcher *patcher, Dictionary *dictionary) noexcept;

}  // namespace kiv
