#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Platform/Linux/PixelBufferPool.h"

namespace orvel {

// What a screen should show: colours, 0xRRGGBB.
class Canvas {
public:
    Canvas(int canvasWidth, int canvasHeight)
        : width(canvasWidth),
          height(canvasHeight),
          colours(static_cast<std::size_t>(width) * height) {}

    void fill(const Rect& area, std::uint32_t colour) {
        for (int y = std::max(area.y, 0); y < std::min(area.y + area.height, height); ++y) {
            for (int x = std::max(area.x, 0); x < std::min(area.x + area.width, width); ++x)
                at(x, y) = colour;
        }
    }
    std::uint32_t& at(int x, int y) { return colours[static_cast<std::size_t>(y) * width + x]; }
    std::uint32_t at(int x, int y) const {
        return colours[static_cast<std::size_t>(y) * width + x];
    }
    BgrxPixels pixels() const {
        return {reinterpret_cast<const std::uint8_t*>(colours.data()), width * 4, width, height};
    }
    Canvas part(const Rect& area) const {
        Canvas cut(area.width, area.height);
        for (int y = 0; y < area.height; ++y) {
            for (int x = 0; x < area.width; ++x)
                cut.at(x, y) = at(area.x + x, area.y + y);
        }
        return cut;
    }
    Rect randomPart(std::mt19937& random) const {
        return {static_cast<int>(random() % static_cast<unsigned>(width)),
                static_cast<int>(random() % static_cast<unsigned>(height)),
                1 + static_cast<int>(random() % static_cast<unsigned>(width / 3)),
                1 + static_cast<int>(random() % static_cast<unsigned>(height / 3))};
    }

    const int width, height;
    std::vector<std::uint32_t> colours;
};

struct Yuv {
    double luma, cb, cr;
};

// BT.601 with limited range, from its definition.
inline Yuv yuvOf(double red, double green, double blue) {
    const double y = 0.299 * red + 0.587 * green + 0.114 * blue;
    return {16 + y * 219 / 255, 128 + (blue - y) / 1.772 * 224 / 255,
            128 + (red - y) / 1.402 * 224 / 255};
}

// Whether the picture is the canvas, but for what rounding may do.
inline testing::AssertionResult shows(const PixelBuffer& picture, const Canvas& canvas,
                                      double tolerance = 2) {
    if (picture.width > canvas.width || picture.height > canvas.height)
        return testing::AssertionFailure() << "it is larger than the canvas";
    const auto channel = [&](int x, int y, int shift) {
        return static_cast<double>(canvas.at(x, y) >> shift & 255);
    };
    for (int y = 0; y < picture.height; y += 2) {
        for (int x = 0; x < picture.width; x += 2) {
            double red = 0, green = 0, blue = 0;
            for (const auto& [dx, dy] : {std::pair(0, 0), {1, 0}, {0, 1}, {1, 1}}) {
                const double r = channel(x + dx, y + dy, 16), g = channel(x + dx, y + dy, 8),
                             b = channel(x + dx, y + dy, 0);
                const double want = yuvOf(r, g, b).luma;
                const double got = picture.luma[(y + dy) * picture.lumaStride + x + dx];
                if (std::abs(got - want) > tolerance) {
                    return testing::AssertionFailure() << "luma " << got << " instead of " << want
                                                       << " at " << x + dx << "," << y + dy;
                }
                red += r / 4;
                green += g / 4;
                blue += b / 4;
            }
            const Yuv want = yuvOf(red, green, blue);
            const auto* got = &picture.chroma[y / 2 * picture.chromaStride + x];
            if (std::abs(got[0] - want.cb) > tolerance || std::abs(got[1] - want.cr) > tolerance) {
                return testing::AssertionFailure()
                       << "chroma " << int{got[0]} << "," << int{got[1]} << " instead of "
                       << want.cb << "," << want.cr << " at " << x << "," << y;
            }
        }
    }
    return testing::AssertionSuccess();
}

}  // namespace orvel
