#pragma once

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Platform/Linux/BlockMap.h"

namespace orvel {

// Estimates of how much there is to code, from one row of luma in each block: the sum over blocks
// of the mean step between neighbouring pixels, in grey levels. 0 for an empty page, about 4 for
// each block of a page of text, 70 for noise. The bits that a picture takes grow in proportion.

// All of the picture, as if coded without another one.
double pictureEnergy(const PixelBuffer& picture);

// The marked blocks, coded after `before`: no block counts more than its difference from there.
// Both of the map's size.
double changeEnergy(const PixelBuffer& picture, const PixelBuffer& before, const BlockMap& blocks);

}  // namespace orvel
