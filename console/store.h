// What posting and the console store share.
#pragma once

#include <string_view>

#include "console/internal.h"
#include "console/pending.h"

namespace kiv {

// The common back end of every posting function: makes the entry, queues it and has it shown.
// Cuts the text to what an entry holds. Any thread.
void console_post(void *source, int32_t kind, int32_t level, std::string_view text) noexcept;
// Tells the error listener and counts the error.
void console_count_error(void *source, const char *text) noexcept;

}  // namespace kiv
