#pragma once

#include <cstdint>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"

namespace orvel {

// Which parts of a picture changed, in tiles of 16 by 16 pixels from its top left: the encoder's
// blocks. However many rectangles are added, memory and the work of taking them out are bounded by
// the number of tiles, and no pixel is named twice.
class ChangedTiles {
public:
    static constexpr int tileSize = 16;  // pixels; even, so that chroma is never halved

    ChangedTiles(int width, int height);  // pixels; nothing changed yet

    void add(const Rect& changed);          // what lies outside of the picture is left out
    void add(const ChangedTiles& changed);  // of a picture of the same size
    void addAll();
    void clear();
    bool isEmpty() const;

    // The changed tiles, clipped to the picture, as few rectangles without overlap.
    std::vector<Rect> rects() const;

private:
    int width, height;  // pixels
    int columns, rows;  // tiles
    int wordsPerRow;
    std::vector<std::uint64_t> bits;  // a row of tiles begins a new word
};

}  // namespace orvel
