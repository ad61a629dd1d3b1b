// Making sure that text is UTF-8.
#pragma once

#include <string_view>

#include "sched/internal.h"

namespace kiv {

bool is_utf8(std::string_view text) noexcept;
// The text with each byte that is not part of a valid character taken as a character of Latin-1.
// Throws std::bad_alloc.
Text to_utf8(std::string_view text);

}  // namespace kiv
