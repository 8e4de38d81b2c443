#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <span>
#include <vector>

namespace orvel {

// A sine, from its beginning.
inline std::vector<double> tone(double frequency, double sampleRate, std::size_t frames,
                                double amplitude = 0.5) {
    std::vector<double> channel(frames);
    for (std::size_t i = 0; i < frames; ++i) {
        const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / sampleRate;
        channel[i] = amplitude * std::sin(phase);
    }
    return channel;
}

// How much of `frequency` there is, as amplitude and phase at the first sample. Exact for whole
// periods.
inline std::complex<double> toneIn(std::span<const double> channel, double frequency,
                                   double sampleRate = 48'000) {
    const auto step = std::polar(1.0, -2 * std::numbers::pi * frequency / sampleRate);
    std::complex<double> sum, turned = 1;
    for (const double sample : channel) {
        sum += sample * turned;
        turned *= step;
    }
    return sum * 2.0 / static_cast<double>(channel.size());
}

}  // namespace orvel
