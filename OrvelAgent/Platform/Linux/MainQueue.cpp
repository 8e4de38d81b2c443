#include "OrvelAgent/Platform/MainQueue.h"

namespace orvel {

std::unique_ptr<SerialQueue> makeMainQueue() {
    return std::make_unique<SerialQueue>("main", SerialQueue::Kind::callersThread);
}

}  // namespace orvel
