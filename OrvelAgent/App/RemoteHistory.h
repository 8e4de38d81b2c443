#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "OrvelKit/Base/Defaults.h"

namespace orvel {

// What happened to the way in from the internet, as lines for people, newest first; kept under the
// user default "remoteEvents". Main queue.
class RemoteHistory {
public:
    static constexpr std::size_t maxLines = 30;  // then the oldest goes

    explicit RemoteHistory(Defaults& defaults);

    const std::vector<std::string>& lines() const { return kept; }
    void add(std::string line);  // stored before it returns

private:
    Defaults& defaults;
    std::vector<std::string> kept;
};

}  // namespace orvel
