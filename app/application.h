// The application object: the receiver "kiv".
#pragma once

namespace kiv::app {

// Makes the object and binds it to the name "kiv".
void application_start();

// Asks the main loop to end; any thread.
void quit_request();
bool quit_requested();

}  // namespace kiv::app
