#pragma once

#include <memory>

#include "OrvelAgent/Core/Connection.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The real listener, on the event loop of `queue`, which must be one in real time.
std::unique_ptr<Listener> makeTcpListener(SerialQueue& queue);

}  // namespace orvel
