#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Platform/Linux/ChangedTiles.h"

namespace orvel {

// Pixels of four bytes: blue, green, red and one that is not looked at. Does not own them.
struct BgrxPixels {
    const std::uint8_t* data = nullptr;
    int stride = 0;  // bytes a row
    int width = 0, height = 0;
};

// Makes 420v pictures in buffers that are used again once nobody holds them. Only what a buffer
// does not show yet is converted into it: each one remembers all that changed since it was filled.
//
// Belongs to one thread; the pictures may be let go on any, also after the pool is gone.
class PixelBufferPool {
public:
    // `width` and `height` of the pictures, even; at most `depth` buffers, made when first needed.
    PixelBufferPool(int width, int height, int depth);
    ~PixelBufferPool();

    // Whether picture() would have a buffer.
    bool hasFree() const;

    // A buffer that shows the top left of `pixels`, which are at least of the pool's size.
    // `changed` is what differs from the pixels of the last call; the first call counts everything
    // as changed. `sequence` is the picture's, and rises. Only when hasFree().
    std::shared_ptr<const PixelBuffer> picture(const BgrxPixels& pixels,
                                               const ChangedTiles& changed, std::uint64_t sequence);

private:
    struct Slot;

    const int width, height, depth;
    std::vector<std::shared_ptr<Slot>> slots;
    bool isFirst = true;
};

}  // namespace orvel
