#pragma once

#include <CoreVideo/CoreVideo.h>

#include <cstdint>
#include <memory>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Platform/MacOS/CFOwner.h"

namespace orvel {

// A picture of the system's as a PixelBuffer, not copied: locked for reading as long as this lives.
class CVPixels final : public PixelBuffer {
public:
    // Null: it is not 420v, is empty, or cannot be mapped.
    static std::shared_ptr<const CVPixels> make(CVPixelBufferRef buffer, std::uint64_t sequence);
    ~CVPixels() override;

    CVPixelBufferRef buffer() const { return pixels.get(); }

    // The system's form of any picture: the one inside a CVPixels, else one that shares the memory
    // of `image` and keeps it alive. Empty when there is no memory for it.
    static CFOwner<CVPixelBufferRef> from(std::shared_ptr<const PixelBuffer> image);

private:
    explicit CVPixels(CVPixelBufferRef locked);

    const CFOwner<CVPixelBufferRef> pixels;
};

}  // namespace orvel
