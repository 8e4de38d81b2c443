#pragma once

#include <future>
#include <type_traits>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// A main queue for a test that is not on it.
struct MainQueue {
    // Runs it there and waits.
    template <class Action>
    auto run(Action action) {
        std::packaged_task<std::invoke_result_t<Action>()> task(std::move(action));
        auto result = task.get_future();
        queue.post([&task] { task(); });
        return result.get();
    }

    SerialQueue queue{"main"};
};

}  // namespace orvel
