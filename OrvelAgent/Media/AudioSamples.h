#pragma once

#include <cstddef>
#include <span>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Wire/AudioFormat.h"

namespace orvel {

// A piece of captured sound. A view: its memory belongs to whoever captured it and is valid during
// the call that hands it on.
struct AudioSamples {
    PcmFormat format;
    std::size_t frameCount = 0;
    std::span<const ByteView> buffers;  // one if interleaved, else one for each channel
};

}  // namespace orvel
