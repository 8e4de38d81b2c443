#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The way to a queue for what a framework calls on a thread of its own, perhaps after the port, and
// then the queue, have gone. Shared by the port, which cuts it at its end, and those callbacks.
class QueueLink {
public:
    explicit QueueLink(SerialQueue& to) : queue(&to) {}

    void post(SerialQueue::Task task) {
        const std::lock_guard hold(mutex);
        if (queue) queue->post(std::move(task));
    }
    void cut() {
        const std::lock_guard hold(mutex);
        queue = nullptr;
    }

private:
    std::mutex mutex;  // guards the field below
    SerialQueue* queue;
};

}  // namespace orvel
