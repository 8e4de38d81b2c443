#include "OrvelAgent/Platform/Linux/BlockMap.h"

#include <algorithm>
#include <cstring>

namespace orvel {

BlockMap::BlockMap(int pictureWidth, int pictureHeight)
    : width(pictureWidth),
      height(pictureHeight),
      blockColumns((pictureWidth + edge - 1) / edge),
      blockRows((pictureHeight + edge - 1) / edge),
      flags(static_cast<std::size_t>(blockColumns) * blockRows),
      qps(flags.size(), maxQp) {
    markAll();
}

void BlockMap::markAll() {
    std::fill(flags.begin(), flags.end(), std::uint8_t{0});
    changed = count();
}

void BlockMap::markNone() {
    std::fill(flags.begin(), flags.end(), constantFlag);
    changed = 0;
}

void BlockMap::mark(const std::vector<Rect>& areas) {
    markNone();
    for (const Rect& area : areas) {
        // In 64 bits: the sums of a rectangle far outside must not overflow.
        const auto left = std::max<std::int64_t>(0, area.x);
        const auto top = std::max<std::int64_t>(0, area.y);
        const auto right = std::min<std::int64_t>(width, std::int64_t{area.x} + area.width);
        const auto bottom = std::min<std::int64_t>(height, std::int64_t{area.y} + area.height);
        if (left >= right || top >= bottom) continue;
        const auto first = left / edge, last = (right - 1) / edge;
        for (auto row = top / edge; row <= (bottom - 1) / edge; ++row) {
            std::memset(&flags[static_cast<std::size_t>(row * blockColumns + first)], 0,
                        static_cast<std::size_t>(last - first + 1));
        }
    }
    changed = static_cast<int>(std::count(flags.begin(), flags.end(), std::uint8_t{0}));
}

std::array<int, BlockMap::maxQp + 1> BlockMap::unchangedByQp() const {
    std::array<int, maxQp + 1> counts{};
    for (std::size_t i = 0; i < flags.size(); ++i) {
        if (flags[i] != 0) ++counts[qps[i]];
    }
    return counts;
}

void BlockMap::coded(int qp, bool anew) {
    const auto coarse = static_cast<std::uint8_t>(qp);
    for (std::size_t i = 0; i < flags.size(); ++i)
        qps[i] = anew || flags[i] == 0 ? coarse : std::min(qps[i], coarse);
}

}  // namespace orvel
