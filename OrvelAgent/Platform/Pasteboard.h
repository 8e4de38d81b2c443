#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The desktop's clipboard. Made with the main queue; every call is made there, completions come
// there, and no call waits for another program: what has to be asked for arrives later.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;
    // Another number than before whenever something has been copied since, the same text again
    // included. From memory.
    virtual std::int64_t changeCount() = 0;
    // The text on it, as UTF-8. nullopt: there is none, its owner does not give it within a few
    // seconds, or it is longer than `maxBytes` and is not fetched. `completion` is called once,
    // never from inside the call, and not after the pasteboard is gone.
    virtual void readString(std::size_t maxBytes,
                            std::function<void(std::optional<std::string>)> completion) = 0;
    // Replaces what is on it by plain text. The answer is the change count that stands for this:
    // a system that does not count its own program's writes returns the one that it has.
    virtual std::int64_t setString(std::string text) = 0;

    static std::unique_ptr<Pasteboard> create(SerialQueue& mainQueue);
};

}  // namespace orvel
