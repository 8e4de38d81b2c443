#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "OrvelAgent/Media/AudioSamples.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Wire/AudioFormat.h"
#include "OrvelKit/Wire/Media.h"

struct OpusEncoder;
struct soxr;

namespace orvel {

// Turns captured sound of any format into Opus packets of 20 ms at 96 kbit/s. Of more than two
// channels the first two are heard; one channel is heard on both sides. Sound that cannot be used
// is dropped without a word. Belongs to the queue given to it, "orvel.audio".
class AudioEncoder {
public:
    static constexpr int bitrate = 96'000;  // bits a second

    explicit AudioEncoder(SerialQueue& audioQueue);
    ~AudioEncoder();
    AudioEncoder(const AudioEncoder&) = delete;
    AudioEncoder& operator=(const AudioEncoder&) = delete;

    // Receiver of the packets. They are numbered from 1 on, also while nobody receives them.
    std::function<void(AudioPacket)> onPacket;

    // Gives a packet whenever 960 frames have come together; what is left waits for the next call.
    void encode(const AudioSamples& samples);

    // The sound was interrupted: what waits is forgotten, the next packet does not build on the
    // last. The numbers go on.
    void reset();

private:
    static constexpr std::size_t chunkFrames = OpusFormat::framesPerPacket;
    using Stereo = std::array<std::vector<float>, 2>;

    struct Resampler {
        PcmFormat input;
        std::unique_ptr<soxr, void (*)(soxr*)> stream;
    };

    bool resample(const PcmFormat& format) RUNS_ON(queue);  // `source` to `resampled`
    void append(const Stereo& sound) RUNS_ON(queue);
    void compress() RUNS_ON(queue);

    SerialQueue& queue;
    const std::unique_ptr<OpusEncoder, void (*)(OpusEncoder*)> encoder OWNED_BY(queue);
    std::optional<Resampler> resampler OWNED_BY(queue);             // for the last other rate
    Stereo source OWNED_BY(queue);                                  // kept for their memory
    Stereo resampled OWNED_BY(queue);                               // likewise
    std::array<float, 2 * chunkFrames> chunk OWNED_BY(queue) = {};  // left and right in turn
    std::size_t filled OWNED_BY(queue) = 0;                         // frames of the chunk
    std::uint32_t sequence OWNED_BY(queue) = 0;                     // of the last packet
};

}  // namespace orvel
