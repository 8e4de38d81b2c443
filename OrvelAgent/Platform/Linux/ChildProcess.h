#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Another program that is started and goes on by itself: it does not end with this one, and nobody
// waits for it but the completion.
class ChildProcess {
public:
    // The exit status; nullopt: it was not found, or a signal ended it.
    using Completion = std::function<void(std::optional<int> status)>;

    // `command`: the program, looked up in PATH, and its arguments. Its input is empty and its
    // outputs are ours. Completes on the queue (one in real time), never inside the call, and not
    // after the queue's end.
    static void start(SerialQueue& queue, const std::vector<std::string>& command,
                      Completion completion);

    // Runs a program that ends soon and gives what it printed, without its errors; nullopt when it
    // fails, prints more than 4 KiB, or has not ended after `limit` (then it is killed).
    static std::optional<std::string> output(const std::vector<std::string>& command,
                                             Duration limit);
};

}  // namespace orvel
