// Core Video's contract: the base addresses and rows of a pixel buffer's planes may be read between
// CVPixelBufferLockBaseAddress and its counterpart, both with the same flag, from any thread; a
// lock for reading leaves the buffer usable by the hardware encoder. A buffer made from foreign
// bytes calls its release function once, when its last reference goes, on any thread.
#include "OrvelAgent/Platform/MacOS/CVPixels.h"

#include <array>

namespace orvel {

namespace {

constexpr OSType format = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
static_assert(format == '420v');

void releaseImage(void* holder, const void*, std::size_t, std::size_t, const void*[]) {
    delete static_cast<std::shared_ptr<const PixelBuffer>*>(holder);
}

// For pictures that were cropped or scaled on the way here.
CFOwner<CVPixelBufferRef> wrapped(std::shared_ptr<const PixelBuffer> image) {
    const auto width = static_cast<std::size_t>(image->width);
    const auto height = static_cast<std::size_t>(image->height);
    // Nobody writes to it: the encoder only reads.
    std::array<void*, 2> planes{const_cast<std::uint8_t*>(image->luma),
                                const_cast<std::uint8_t*>(image->chroma)};
    std::array<std::size_t, 2> widths{width, width / 2};
    std::array<std::size_t, 2> heights{height, height / 2};
    std::array<std::size_t, 2> strides{static_cast<std::size_t>(image->lumaStride),
                                       static_cast<std::size_t>(image->chromaStride)};
    auto holder = std::make_unique<std::shared_ptr<const PixelBuffer>>(std::move(image));
    CFOwner<CVPixelBufferRef> buffer;
    const CVReturn status = CVPixelBufferCreateWithPlanarBytes(
        kCFAllocatorDefault, width, height, format, nullptr, 0, planes.size(), planes.data(),
        widths.data(), heights.data(), strides.data(), releaseImage, holder.get(), nullptr,
        buffer.receive());
    if (status != kCVReturnSuccess) return {};
    holder.release();  // releaseImage has it now
    // What a PixelBuffer promises of its colours, so that the stream can say it.
    CVBufferSetAttachment(buffer.get(), kCVImageBufferYCbCrMatrixKey,
                          kCVImageBufferYCbCrMatrix_ITU_R_601_4, kCVAttachmentMode_ShouldPropagate);
    return buffer;
}

}  // namespace

std::shared_ptr<const CVPixels> CVPixels::make(CVPixelBufferRef buffer, std::uint64_t sequence) {
    if (CVPixelBufferGetPixelFormatType(buffer) != format) return nullptr;
    if (CVPixelBufferLockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly) != kCVReturnSuccess) {
        return nullptr;
    }
    const std::shared_ptr<CVPixels> picture(new CVPixels(buffer));  // unlocks when it goes
    if (!picture->luma || !picture->chroma || picture->width <= 0 || picture->height <= 0) {
        return nullptr;
    }
    picture->sequence = sequence;
    picture->changed = {{0, 0, picture->width, picture->height}};
    return picture;
}

CVPixels::CVPixels(CVPixelBufferRef locked) : pixels(CFOwner<CVPixelBufferRef>::retaining(locked)) {
    width = static_cast<int>(CVPixelBufferGetWidth(locked));
    height = static_cast<int>(CVPixelBufferGetHeight(locked));
    luma = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(locked, 0));
    chroma = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(locked, 1));
    lumaStride = static_cast<int>(CVPixelBufferGetBytesPerRowOfPlane(locked, 0));
    chromaStride = static_cast<int>(CVPixelBufferGetBytesPerRowOfPlane(locked, 1));
}

CVPixels::~CVPixels() {
    CVPixelBufferUnlockBaseAddress(pixels.get(), kCVPixelBufferLock_ReadOnly);
}

CFOwner<CVPixelBufferRef> CVPixels::from(std::shared_ptr<const PixelBuffer> image) {
    if (const auto* own = dynamic_cast<const CVPixels*>(image.get())) return own->pixels;
    return wrapped(std::move(image));
}

}  // namespace orvel
