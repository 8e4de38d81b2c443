#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace orvel {

// Pixels, origin top left, y down. Empty when either length is 0.
struct Rect {
    int x = 0, y = 0, width = 0, height = 0;
    bool isEmpty() const { return width <= 0 || height <= 0; }
    bool operator==(const Rect&) const = default;
};

// One captured picture in 420v: 8-bit luma plane, then interleaved Cb Cr at half size; BT.601
// limited range. Width and height are even. Shared between capture, encoder and sinks; nobody
// writes to it while more than its producer holds it, so a reader needs no lock.
class PixelBuffer {
public:
    virtual ~PixelBuffer() = default;

    int width = 0, height = 0;           // pixels
    const std::uint8_t* luma = nullptr;  // valid while the buffer lives
    const std::uint8_t* chroma = nullptr;
    int lumaStride = 0, chromaStride = 0;  // bytes a row

    // Which capture of its source this is, counting up by one. When the buffer follows number
    // sequence - 1, all that differs from that picture lies inside `changed` (clipped to the
    // picture, in any order, may overlap); an encoder that skipped a number treats everything as
    // changed.
    std::uint64_t sequence = 0;
    std::vector<Rect> changed;
};

}  // namespace orvel
