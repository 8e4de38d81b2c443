#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "OrvelKit/Wire/Media.h"
#include "Phone/H264.h"
#include "Phone/Picture.h"

namespace orvel::phone {

// H.264 as an agent sends it, one frame in, one picture out, nothing held back. Bytes that do not
// decode are counted, never fatal. One thread.
class VideoDecoder {
public:
    VideoDecoder();
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    enum class Outcome {
        picture,  // a new one
        skipped,  // cannot be decoded before a format and a keyframe have come: ask for one
        damaged   // does not decode; everything up to the next keyframe will be skipped
    };

    // Opens anew when the parameter sets differ from those in use; false when they make no sense,
    // and then every frame is skipped until better ones come.
    bool setFormat(const VideoFormat& format);
    Outcome decode(const VideoFrame& frame);

    // Of the pictures that should have come, how many had lost a reference on the way.
    std::uint64_t gaps() const { return gapCount; }

    // The newest picture, until the next call of decode(); nothing before the first.
    bool hasPicture() const;
    int width() const;  // pixels
    int height() const;
    // 0 to 255, as coded (16 is black, 235 white).
    std::uint8_t luma(int x, int y) const;
    // Colours by the matrix and range that the stream names; BT.601 limited where it names none.
    Picture picture() const;

private:
    struct Codec;
    std::unique_ptr<Codec> codec;
    std::optional<VideoFormat> format;
    bool waitsForKeyframe = true;
    FrameNumbers numbers;
    std::uint64_t gapCount = 0;
};

}  // namespace orvel::phone
