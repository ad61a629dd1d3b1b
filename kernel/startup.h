// Start and end of the whole runtime in a process.
#pragma once

namespace kiv {

// Makes every family's state, from the ground floor up. Once in a process, on the main thread.
void startup() noexcept;
// Runs the quit tasks and stops the timer. Symbols, classes and what others still hold stay.
void shutdown() noexcept;

}  // namespace kiv
