#pragma once

#include <memory>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The main queue of a program without windows, for its main thread, which makes, runs and destroys
// it. Where the system's services call back in a run loop of that thread, this is that loop.
std::unique_ptr<SerialQueue> makeMainQueue();

}  // namespace orvel
