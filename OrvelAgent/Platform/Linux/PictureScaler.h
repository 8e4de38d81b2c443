#pragma once

#include <cstdint>
#include <vector>

#include "OrvelAgent/Platform/Linux/ChangedTiles.h"
#include "OrvelAgent/Platform/Linux/PixelBufferPool.h"

namespace orvel {

// Keeps a scaled copy of pixels that change in places; scaling only what changed gives the very
// pixels that scaling everything would. Text stays readable: more than halving goes by steps that
// average, so that no thin line falls between the samples. Where the sizes differ by no more than
// a last odd column or row, nothing is scaled and that is cut off.
class PictureScaler {
public:
    // Pixels. The picture's are even.
    PictureScaler(int sourceWidth, int sourceHeight, int pictureWidth, int pictureHeight);

    // Follows a change of `source`, which has the source's size, inside of `changed`. The first
    // call takes everything as changed. Adds what changed of the picture.
    void update(const BgrxPixels& source, const std::vector<Rect>& changed,
                ChangedTiles& changedPicture);

    // The picture. Not scaled, it is the source itself: valid while that is.
    const BgrxPixels& picture() const { return shown; }

private:
    // One scaling, of all of the pixels before it to its own.
    struct Step {
        Step(int sourceWidth, int sourceHeight, int width, int height);
        void scale(const BgrxPixels& source, const std::vector<Rect>& changed);
        Rect reach(const Rect& source) const;
        BgrxPixels result() const;

        int sourceWidth, sourceHeight;
        int width, height;
        std::vector<std::uint8_t> pixels;
        ChangedTiles changed;  // by the last scale()
    };

    std::vector<Step> steps;
    BgrxPixels shown;
    bool isFirst = true;
};

}  // namespace orvel
