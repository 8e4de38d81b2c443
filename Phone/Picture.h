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

// Writes `picture` as a PNG file, replacing one that is there. Empty when it was done, else why
// not.
std::string writePng(const Picture& picture, const std::string& path);

}  // namespace orvel::phone
