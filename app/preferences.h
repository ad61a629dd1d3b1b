// What the user prefers, read when the program starts.
#pragma once

namespace kiv::app {

// Reads "translation.kivpref" from the search path, when it is there: a JSON document with
// "current_translation", the name of a language, and "translations", a dictionary of texts and
// their translations for each. English ("en") is what the texts are in.
void preferences_read();

}  // namespace kiv::app
