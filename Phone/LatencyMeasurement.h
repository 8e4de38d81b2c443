#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "OrvelKit/Base/Clock.h"

namespace orvel::phone {

class VideoDecoder;

// How long a change on the agent's screen takes to a decoded picture: has a square switch between
// black and white at random moments, and looks for each switch in every picture. Where the square
// lies in the picture it finds out by itself, from a few slow switches at first; so any scale and
// any origin will do. No clock of its own; one thread.
class LatencyMeasurement {
public:
    // Draws the square and answers when that was; nullopt: it cannot be drawn any more.
    using Show = std::function<std::optional<MonotonicTime>(bool white)>;

    LatencyMeasurement(Show show, std::size_t samplesWanted, std::uint32_t seed);

    // To be called with each new picture, and when the time of nextStep() has come.
    void look(const VideoDecoder& decoder, MonotonicTime decodedAt);
    void step(MonotonicTime now);
    MonotonicTime nextStep() const { return due; }

    bool isDone() const { return !trouble.empty() || latencies.size() + lostCount >= wanted; }
    const std::string& problem() const { return trouble; }
    const std::vector<double>& samples() const { return latencies; }  // ms
    std::size_t lost() const { return lostCount; }  // switches not seen within two seconds

private:
    void draw(bool white);
    void keep(MonotonicTime now);
    bool findPlace();

    struct Plane {
        int width = 0, height = 0;
        std::vector<std::uint8_t> luma;
    };
    struct Place {
        int x = 0, y = 0, width = 0, height = 0;  // of the picture it holds for
    };

    const Show show;
    const std::size_t wanted;
    std::minstd_rand random;
    MonotonicTime due{};  // the epoch: at once
    bool isWhite = false;
    std::optional<MonotonicTime> drawnAt;  // of a switch that was not seen yet
    std::optional<Plane> newest;           // since that, while the place is looked for
    std::vector<Plane> kept;               // after the slow switches: black, white, black, white
    int picturesMissed = 0;                // slow switches that brought none in time
    std::optional<Place> place;
    std::vector<double> latencies;
    std::size_t lostCount = 0;
    std::string trouble;
};

}  // namespace orvel::phone
