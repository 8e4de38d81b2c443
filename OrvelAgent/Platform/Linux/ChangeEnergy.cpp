#include "OrvelAgent/Platform/Linux/ChangeEnergy.h"

#include <algorithm>
#include <cstdlib>

namespace orvel {

namespace {

constexpr int edge = BlockMap::edge;
constexpr int sampledRow = 7;

int difference(const std::uint8_t* left, const std::uint8_t* right, int count) {
    int sum = 0;
    for (int i = 0; i < count; ++i)
        sum += std::abs(left[i] - right[i]);
    return sum;
}

// Where the block's sampled pixels lie.
struct Strip {
    int x, y, length;
};

Strip stripOf(const PixelBuffer& picture, int column, int row) {
    const int x = column * edge, y = std::min(row * edge + sampledRow, picture.height - 1);
    // Whole blocks have a constant length, for which the compiler has one instruction.
    return {x, y, std::min(edge, picture.width - x)};
}

const std::uint8_t* at(const PixelBuffer& picture, int x, int y) {
    return picture.luma + static_cast<std::ptrdiff_t>(y) * picture.lumaStride + x;
}

int difference16(const std::uint8_t* left, const std::uint8_t* right, int count) {
    return count == edge ? difference(left, right, edge) : difference(left, right, count);
}

// Sum of the mean of horizontal and vertical steps over the strip.
int stepsIn(const PixelBuffer& picture, const Strip& strip) {
    const auto* pixels = at(picture, strip.x, strip.y);
    const auto* above = strip.y > 0 ? pixels - picture.lumaStride : pixels;
    // The last pixel of the picture has no right neighbour; the left one of the first will do.
    const auto* neighbours = strip.x > 0 ? pixels - 1 : pixels + 1;
    const int length = strip.x > 0 ? strip.length : std::min(strip.length, picture.width - 1);
    return (difference16(pixels, above, strip.length) +
            difference16(pixels, neighbours, std::max(0, length))) /
           2;
}

}  // namespace

double pictureEnergy(const PixelBuffer& picture) {
    long sum = 0;
    for (int row = 0; row * edge < picture.height; ++row) {
        for (int column = 0; column * edge < picture.width; ++column)
            sum += stepsIn(picture, stripOf(picture, column, row));
    }
    return static_cast<double>(sum) / edge;
}

double changeEnergy(const PixelBuffer& picture, const PixelBuffer& before, const BlockMap& blocks) {
    long sum = 0;
    for (int row = 0; row < blocks.rows(); ++row) {
        for (int column = 0; column < blocks.columns(); ++column) {
            if (!blocks.isChanged(column, row)) continue;
            const auto strip = stripOf(picture, column, row);
            const int inTime = difference16(at(picture, strip.x, strip.y),
                                            at(before, strip.x, strip.y), strip.length);
            sum += std::min(inTime, stepsIn(picture, strip));
        }
    }
    return static_cast<double>(sum) / edge;
}

}  // namespace orvel
