// Message text from the command line and from standard input.
#pragma once

#include <string>

namespace kiv::app {

// Evaluates message text with no receiver, on the main thread.
void evaluate(const std::string &text);

// Starts a thread that hands every line of standard input to evaluate on the main thread. The end
// of input asks the main loop to end, unless `ends_when_idle`: then the loop goes on until it is
// idle. The thread lasts as long as the process.
void interactive_start(bool ends_when_idle);
// True while lines of standard input are still to come. Main thread.
bool input_open();

std::string read_standard_input();

}  // namespace kiv::app
