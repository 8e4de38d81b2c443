#include "Phone/LatencyMeasurement.h"

#include <cstddef>
#include <utility>

#include "Phone/VideoDecoder.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t slowSwitches = 4;
constexpr Duration settling = 800ms;  // longer than an agent takes to sharpen a still picture
constexpr Duration patience = 2s;
constexpr int mostPicturesMissed = 12;
constexpr int black = 60, white = 180;  // coded luma is 16 and 235, blurred by the scale
constexpr int middle = 126;
constexpr int margin = 3;  // pixels of the square around the one looked at

}  // namespace

LatencyMeasurement::LatencyMeasurement(Show showSquare, std::size_t samplesWanted,
                                       std::uint32_t seed)
    : show(std::move(showSquare)), wanted(samplesWanted), random(seed) {}

void LatencyMeasurement::draw(bool toWhite) {
    newest.reset();
    drawnAt = show(toWhite);
    isWhite = toWhite;
    if (!drawnAt) trouble = "The square cannot be drawn any more.";
}

void LatencyMeasurement::look(const VideoDecoder& decoder, MonotonicTime decodedAt) {
    if (!place) {
        Plane plane{decoder.width(), decoder.height(), {}};
        plane.luma.reserve(std::size_t(plane.width) * std::size_t(plane.height));
        for (int y = 0; y < plane.height; ++y) {
            for (int x = 0; x < plane.width; ++x)
                plane.luma.push_back(decoder.luma(x, y));
        }
        newest = std::move(plane);
        return;
    }
    if (!drawnAt || isDone()) return;
    if (decoder.width() != place->width || decoder.height() != place->height) {
        trouble = "The picture changed its size.";
        return;
    }
    if ((decoder.luma(place->x, place->y) > middle) != isWhite) return;
    latencies.push_back(
        std::chrono::duration<double, std::milli>(decodedAt - *std::exchange(drawnAt, {})).count());
    due = decodedAt +
          std::chrono::microseconds(std::uniform_int_distribution(50'000, 150'000)(random));
}

void LatencyMeasurement::step(MonotonicTime now) {
    if (now < due || isDone()) return;
    if (!place) {
        keep(now);
        if (!place) return;
    }
    if (drawnAt) ++lostCount;
    draw(!isWhite);
    due = now + patience;
}

// One of the slow switches: takes the picture that shows the one before.
void LatencyMeasurement::keep(MonotonicTime now) {
    due = now + settling;
    if (!drawnAt) return draw(false);
    if (!newest) {
        if (++picturesMissed == mostPicturesMissed) trouble = "The picture stands still.";
        return;
    }
    kept.push_back(*newest);
    if (kept.size() < slowSwitches) return draw(!isWhite);
    if (!findPlace()) {
        trouble = "The square is not in the picture: perhaps another display is shown.";
    }
    kept.clear();
    drawnAt.reset();
}

bool LatencyMeasurement::findPlace() {
    const int width = kept[0].width, height = kept[0].height;
    for (const Plane& plane : kept) {
        if (plane.width != width || plane.height != height) return false;
    }
    const auto follows = [&](int x, int y) {
        const auto at = std::size_t(y) * std::size_t(width) + std::size_t(x);
        return kept[0].luma[at] < black && kept[1].luma[at] > white && kept[2].luma[at] < black &&
               kept[3].luma[at] > white;
    };
    const auto isInside = [&](int x, int y) {
        for (int dy = -margin; dy <= margin; ++dy) {
            for (int dx = -margin; dx <= margin; ++dx) {
                if (!follows(x + dx, y + dy)) return false;
            }
        }
        return true;
    };
    for (int y = margin; y < height - margin; ++y) {
        for (int x = margin; x < width - margin; ++x) {
            if (!isInside(x, y)) continue;
            place = Place{x, y, width, height};
            return true;
        }
    }
    return false;
}

}  // namespace orvel::phone
