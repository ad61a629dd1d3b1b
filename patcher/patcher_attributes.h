// The attribute tables of patchers and boxes, for the files that declare, load and save them.
#pragma once

#include "patcher/fields.h"

namespace kiv {

void patcher_add_attributes(Class *c) noexcept;
// The attributes that documents hold when they differ from the default, in document order.
std::span<const Field> patcher_document_fields() noexcept;

void box_add_attributes(Class *c) noexcept;
// The attributes of the box part that a box dictionary may hold, in the order in which they are
// applied to a new box, with the class attribute each one is (for classes that replace it).
std::span<const Field> box_document_fields() noexcept;

}  // namespace kiv
