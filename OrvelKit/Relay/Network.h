#pragma once

#include <functional>
#include <string>

namespace orvel {

// What the relay's clients need of the system beside its sockets.
struct Network {
    // Given each connected socket's descriptor: the keepalive that asio has no portable name for.
    std::function<void(int descriptor)> prepareSocket;
    // Whom certificates have to come from: the system's store, or this file (PEM) instead of it.
    std::string certificateFile;
};

}  // namespace orvel
