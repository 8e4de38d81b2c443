#pragma once

namespace orvel {

// How samples of sound lie in memory. Integers and floats are in the machine's byte order.
struct PcmFormat {
    enum class Sample { float32, float64, int16, int32 };

    double sampleRate = 0;  // frames a second
    int channels = 0;
    Sample sample = Sample::float32;
    bool isInterleaved = false;  // all channels in one buffer, frame by frame; else a buffer each
    bool operator==(const PcmFormat&) const = default;
};

// What is compressed, and what a phone decompresses to: left, then right.
inline constexpr PcmFormat canonicalPcm{48'000, 2, PcmFormat::Sample::float32, false};

// The stream that AudioPackets carry.
struct OpusFormat {
    static constexpr int sampleRate = 48'000;
    static constexpr int channels = 2;
    static constexpr int framesPerPacket = 960;  // 20 ms
    OpusFormat() = delete;
};

}  // namespace orvel
