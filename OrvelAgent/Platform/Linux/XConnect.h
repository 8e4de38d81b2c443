#pragma once

#include <mutex>

struct xcb_connection_t;

namespace orvel {

// xcb_connect() for a program with several threads: the library underneath builds the name of the
// authority file in a static buffer, so two connections must not be opened at once. Everything here
// that connects to an X server does it through this. Never null; see xcb_connection_has_error().
xcb_connection_t* connectToXServer(const char* display, int* screenNumber);

// For libraries that connect by themselves: to be held while one of them may.
std::unique_lock<std::mutex> holdXConnecting();

}  // namespace orvel
