// Prints console entries: the display of a runtime without a window.
#pragma once

#include "app/options.h"

namespace kiv::app {

// From now on every entry that reaches the display is printed in the given form.
void console_output_start(ConsoleForm form);

}  // namespace kiv::app
