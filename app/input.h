// Message text from the command line and from standard input.
#pragma once

#include <string>

namespace kiv::app {

// Evaluates message text with no receiver, on the main thread.
void evaluate(const std::string &text);

// Starts a thread that hands every line of standard input to evaluate on the main thread, and asks
// the main loop to end at the end of input. The thread lasts as long as the process.
void interactive_start();

std::string read_standard_input();

}  // namespace kiv::app
