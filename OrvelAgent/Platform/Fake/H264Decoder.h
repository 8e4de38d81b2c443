#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// An H.264 decoder that shares nothing with the encoder (libavcodec's own), fed with the samples
// of a CompressionSession.
class H264Decoder {
public:
    struct Picture {
        int width = 0, height = 0;               // pixels
        std::vector<std::uint8_t> luma, cb, cr;  // rows without gaps
        bool isKeyframe = false;
    };
    // What the stream says of its colours, as the numbers of ITU-T H.273.
    struct Colours {
        int primaries = 0, transfer = 0, matrix = 0;
        bool fullRange = false;
        bool operator==(const Colours&) const = default;
    };

    H264Decoder();
    ~H264Decoder();

    // One sample in, the picture that it makes out; nullopt: the decoder has none, or complains.
    std::optional<Picture> decode(const std::vector<ByteView>& parameterSets, ByteView data);
    Colours colours() const;
    int profile() const;  // 100 High, with 512 added when constrained
    int delay() const;    // pictures that the decoder holds back

private:
    struct Implementation;
    std::unique_ptr<Implementation> av;
};

// Peak signal-to-noise ratio of the luma inside `area` in dB, at most 99.
double lumaPsnr(const PixelBuffer& source, const H264Decoder::Picture& decoded, const Rect& area);
double lumaPsnr(const PixelBuffer& source, const H264Decoder::Picture& decoded);
double chromaPsnr(const PixelBuffer& source, const H264Decoder::Picture& decoded);

}  // namespace orvel
