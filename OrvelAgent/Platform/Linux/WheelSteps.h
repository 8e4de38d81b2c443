#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "OrvelKit/Wire/Control.h"

namespace orvel {

// Turns scrolling in pixels, of which an X server's XTEST pointer knows nothing, into whole clicks
// of a wheel; what is left is kept for the next call, on each axis. A new gesture starts with
// nothing left.
class WheelSteps {
public:
    // About a line of text.
    static constexpr std::int64_t pixelsPerClick = 15;
    // What a phone can ask for at once; the rest of more is forgotten.
    static constexpr std::int64_t mostClicks = 200;

    struct Clicks {
        int left = 0, up = 0;  // negative: right, down
        bool operator==(const Clicks&) const = default;
    };
    Clicks add(std::int32_t dx, std::int32_t dy, ScrollPhase phase) {
        if (phase == ScrollPhase::began) restX = restY = 0;
        return {whole(restX, dx), whole(restY, dy)};
    }

private:
    static int whole(std::int64_t& rest, std::int32_t pixels) {
        rest += pixels;
        const std::int64_t clicks = rest / pixelsPerClick;
        rest -= clicks * pixelsPerClick;
        return static_cast<int>(std::clamp(clicks, -mostClicks, mostClicks));
    }
    std::int64_t restX = 0, restY = 0;
};

}  // namespace orvel
