// The older text form of patcher documents.
#pragma once

#include <kiv/dictionary.h>

namespace kiv {

// True for a text that begins as documents of the text form do ("kiv v2;").
bool text_form_is(const char *text, int64_t length) noexcept;
// The document that a text describes, as a dictionary with the key "patcher", the caller's to free.
// Lines that say nothing known are reported and left out. Null, after saying why, without memory
// or when the text holds no patcher.
Dictionary *text_form_read(const char *file_name, const char *text, int64_t length) noexcept;

}  // namespace kiv
