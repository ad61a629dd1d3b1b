// The dictionary text syntax (docs/dictionary-text.md), shared by the dictobj files.
#pragma once

#include "containers/internal.h"

namespace kiv {

// Appends to `out` the JSON document that a dictionary text stands for. False when the text is
// wrong: then `message` (json_error_size bytes) says why. Throws std::bad_alloc.
bool json_from_dictionary_text(const char *text, JsonText &out, char *message);

}  // namespace kiv
