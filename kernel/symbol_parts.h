// What the files of the symbol family share.
#pragma once

namespace kiv {

// The text that gensym interns for `text`: itself, or with the context number in place of "---".
const char *context_prefixed(const char *text) noexcept;

void unique_names_start() noexcept;

}  // namespace kiv
