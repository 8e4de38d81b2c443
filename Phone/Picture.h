#pragma once

#include <string>

#include "OrvelKit/Base/Bytes.h"

namespace orvel::phone {

// A picture as people see it: 8-bit sRGB, three bytes a pixel, rows from the top without padding.
struct Picture {
    int width = 0, height = 0;
    Bytes rgb;

    const std::uint8_t* pixel(int x, int y) const {
        return rgb.data() + (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                             static_cast<std::size_t>(x)) *
                                3;
    }
};

// Planes of Y'CbCr 4:2:0 with 8 bits, as decoders give them; not owned.
struct YuvPlanes {
    int width = 0, height = 0;  // pixels
    const std::uint8_t* luma = nullptr;
    const std::uint8_t* cb = nullptr;  // at half size
    const std::uint8_t* cr = nullptr;
    int lumaStride = 0, chromaStride = 0;  // bytes a row
};
enum class YuvMatrix { bt601, bt709, bt2020 };

// `isFull`: the values use the full range, else the limited one (luma 16 to 235).
Picture rgbFrom(const YuvPlanes& planes, YuvMatrix matrix = YuvMatrix::bt601, bool isFull = false);

// Writes `picture` as a PNG file, replacing one that is there. Empty when it was done, else why
// not.
std::string writePng(const Picture& picture, const std::string& path);

}  // namespace orvel::phone
