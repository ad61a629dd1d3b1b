// The main thread's loop: scheduler passes, queue passes, and sleep between them.
#pragma once

#include "app/options.h"

namespace kiv::app {

// Runs until a quit request, or as long as the options say.
void main_loop(const Options &options);

}  // namespace kiv::app
