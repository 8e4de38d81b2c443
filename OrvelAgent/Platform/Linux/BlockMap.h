#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"

namespace orvel {

// The 16×16 blocks (macroblocks) of a stream's pictures, row by row: which of them changed in the
// picture to be encoded, and how finely each was coded last. Plain state of one session.
class BlockMap {
public:
    static constexpr int edge = 16;                  // pixels
    static constexpr int maxQp = 51;                 // quantizers go from 0, the finest, to this
    static constexpr std::uint8_t constantFlag = 1;  // as x264 wants it

    // Lengths in pixels; the last blocks of a row and column may reach beyond the picture.
    BlockMap(int pictureWidth, int pictureHeight);

    int columns() const { return blockColumns; }
    int rows() const { return blockRows; }
    int count() const { return static_cast<int>(flags.size()); }

    // Each of these replaces what was marked before.
    void markAll();
    void markNone();
    void mark(const std::vector<Rect>& changed);  // clipped to the picture

    int changedCount() const { return changed; }
    bool isChanged(int column, int row) const {
        return flags[static_cast<std::size_t>(row) * blockColumns + column] == 0;
    }
    // For x264: constantFlag where nothing changed.
    std::uint8_t* constantFlags() { return flags.data(); }

    // How many unchanged blocks were last coded with each quantizer: coding the picture with a
    // finer one touches those as well.
    std::array<int, maxQp + 1> unchangedByQp() const;
    // The marked picture has been coded with `qp`, all blocks of it anew or not.
    void coded(int qp, bool anew);

private:
    const int width, height;
    const int blockColumns, blockRows;
    int changed = 0;
    std::vector<std::uint8_t> flags;
    std::vector<std::uint8_t> qps;
};

}  // namespace orvel
