// The start of the built-in object-box classes: one line for each family's file.
#pragma once

namespace kiv {

void objects_builtin_start() noexcept;

}  // namespace kiv
