#pragma once

#include <memory>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"

namespace orvel {

// A picture in plain memory.
class FakePixelBuffer : public PixelBuffer {
public:
    FakePixelBuffer(int pictureWidth, int pictureHeight)
        : lumaPixels(static_cast<std::size_t>(pictureWidth) * pictureHeight, 16),
          chromaPixels(lumaPixels.size() / 2, 128) {
        width = lumaStride = chromaStride = pictureWidth;
        height = pictureHeight;
        luma = lumaPixels.data();
        chroma = chromaPixels.data();
    }
    FakePixelBuffer(const FakePixelBuffer& other) : PixelBuffer(other) {
        lumaPixels = other.lumaPixels;
        chromaPixels = other.chromaPixels;
        luma = lumaPixels.data();
        chroma = chromaPixels.data();
    }
    FakePixelBuffer& operator=(const FakePixelBuffer&) = delete;

    std::vector<std::uint8_t> lumaPixels, chromaPixels;

    // One grey, all of it changed.
    static std::shared_ptr<FakePixelBuffer> grey(int width, int height, std::uint64_t sequence,
                                                 std::uint8_t level = 128) {
        auto picture = std::make_shared<FakePixelBuffer>(width, height);
        picture->lumaPixels.assign(picture->lumaPixels.size(), level);
        picture->sequence = sequence;
        picture->changed = {{0, 0, width, height}};
        return picture;
    }
};

}  // namespace orvel
