#include "OrvelAgent/Platform/Linux/PictureScaler.h"

#include <libyuv/scale_argb.h>

#include <algorithm>
#include <utility>

namespace orvel {

namespace {

// Beyond the last pixel; SIMD code may read a little ahead.
constexpr std::size_t padding = 64;

int roundedUp(std::int64_t numerator, std::int64_t denominator) {
    return static_cast<int>((numerator + denominator - 1) / denominator);
}

}  // namespace

PictureScaler::Step::Step(int fromWidth, int fromHeight, int toWidth, int toHeight)
    : sourceWidth(fromWidth),
      sourceHeight(fromHeight),
      width(toWidth),
      height(toHeight),
      pixels(static_cast<std::size_t>(toWidth) * toHeight * 4 + padding),
      changed(toWidth, toHeight) {}

// What of the result depends on `source`: a filter reads up to one pixel beyond, which is one more
// of the result's when shrinking and some more when growing; another for the rounding.
Rect PictureScaler::Step::reach(const Rect& source) const {
    const auto margin = [](int from, int to) { return roundedUp(to, from) + 1; };
    const int marginX = margin(sourceWidth, width), marginY = margin(sourceHeight, height);
    const auto first = [](int at, int from, int to) {
        return static_cast<int>(std::int64_t{at} * to / from);
    };
    const int left = first(source.x, sourceWidth, width) - marginX;
    const int top = first(source.y, sourceHeight, height) - marginY;
    const int right =
        roundedUp(std::int64_t{source.x + source.width} * width, sourceWidth) + marginX;
    const int bottom =
        roundedUp(std::int64_t{source.y + source.height} * height, sourceHeight) + marginY;
    return {left, top, right - left, bottom - top};
}

void PictureScaler::Step::scale(const BgrxPixels& source, const std::vector<Rect>& parts) {
    changed.clear();
    for (const Rect& part : parts)
        changed.add(reach(part));
    for (const Rect& part : changed.rects()) {
        libyuv::ARGBScaleClip(source.data, source.stride, sourceWidth, sourceHeight, pixels.data(),
                              width * 4, width, height, part.x, part.y, part.width, part.height,
                              libyuv::kFilterBox);
    }
}

BgrxPixels PictureScaler::Step::result() const {
    return {pixels.data(), width * 4, width, height};
}

PictureScaler::PictureScaler(int sourceWidth, int sourceHeight, int pictureWidth,
                             int pictureHeight) {
    const bool sameWidth = sourceWidth / 2 == pictureWidth / 2;
    const bool sameHeight = sourceHeight / 2 == pictureHeight / 2;
    if (sameWidth && sameHeight && sourceWidth >= pictureWidth && sourceHeight >= pictureHeight)
        return;
    // Exactly half is an average of four pixels; between half and whole, interpolation loses
    // nothing; below half it would leave pixels out.
    while (sourceWidth > 2 * pictureWidth && sourceHeight > 2 * pictureHeight) {
        const int halfWidth = sourceWidth / 2, halfHeight = sourceHeight / 2;
        steps.emplace_back(halfWidth * 2, halfHeight * 2, halfWidth, halfHeight);
        sourceWidth = halfWidth;
        sourceHeight = halfHeight;
    }
    steps.emplace_back(sourceWidth, sourceHeight, pictureWidth, pictureHeight);
}

void PictureScaler::update(const BgrxPixels& source, const std::vector<Rect>& changed,
                           ChangedTiles& changedPicture) {
    shown = source;
    std::vector<Rect> parts = changed;
    if (std::exchange(isFirst, false)) parts = {{0, 0, source.width, source.height}};
    for (auto& step : steps) {
        step.scale(shown, parts);
        shown = step.result();
        parts = step.changed.rects();
    }
    if (steps.empty()) {
        for (const Rect& part : parts)
            changedPicture.add(part);
    } else {
        changedPicture.add(steps.back().changed);
    }
}

}  // namespace orvel
