#include "OrvelAgent/Platform/Linux/PixelBufferPool.h"

#include <libyuv/convert_from_argb.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace orvel {

namespace {

constexpr std::align_val_t rowAlignment{64};  // what SIMD code likes best

struct AlignedDelete {
    void operator()(std::uint8_t* memory) const { ::operator delete[](memory, rowAlignment); }
};

int alignedStride(int width) {
    const int alignment = static_cast<int>(rowAlignment);
    return (width + alignment - 1) / alignment * alignment;
}

}  // namespace

struct PixelBufferPool::Slot : PixelBuffer {
    Slot(int pictureWidth, int pictureHeight) : stale(pictureWidth, pictureHeight) {
        width = pictureWidth;
        height = pictureHeight;
        lumaStride = chromaStride = alignedStride(pictureWidth);
        const auto lumaSize = static_cast<std::size_t>(lumaStride) * pictureHeight;
        memory.reset(new (rowAlignment) std::uint8_t[lumaSize + lumaSize / 2]);
        luma = memory.get();
        chroma = memory.get() + lumaSize;
        stale.addAll();
    }

    // Even edges only: then the chroma of a part is that of the whole.
    void convert(const BgrxPixels& pixels, const Rect& part) {
        libyuv::ARGBToNV12(
            pixels.data + std::ptrdiff_t{part.y} * pixels.stride + std::ptrdiff_t{part.x} * 4,
            pixels.stride, memory.get() + std::ptrdiff_t{part.y} * lumaStride + part.x, lumaStride,
            memory.get() + std::ptrdiff_t{lumaStride} * height +
                std::ptrdiff_t{part.y / 2} * chromaStride + part.x,
            chromaStride, part.width, part.height);
    }

    std::unique_ptr<std::uint8_t[], AlignedDelete> memory;
    ChangedTiles stale;  // what it does not show yet
    // False from picture() until the last reader has let go.
    std::atomic<bool> isFree{true};
};

PixelBufferPool::PixelBufferPool(int pictureWidth, int pictureHeight, int maxBuffers)
    : width(pictureWidth), height(pictureHeight), depth(maxBuffers) {}

PixelBufferPool::~PixelBufferPool() = default;

bool PixelBufferPool::hasFree() const {
    return slots.size() < static_cast<std::size_t>(depth) ||
           std::any_of(slots.begin(), slots.end(), [](const auto& slot) {
               return slot->isFree.load(std::memory_order_acquire);
           });
}

std::shared_ptr<const PixelBuffer> PixelBufferPool::picture(const BgrxPixels& pixels,
                                                            const ChangedTiles& changed,
                                                            std::uint64_t sequence) {
    for (const auto& slot : slots)
        slot->stale.add(changed);

    // The one filled last has the least to catch up with.
    std::shared_ptr<Slot> chosen;
    for (const auto& slot : slots) {
        // Acquire: what the readers did with the memory is over before it is written to.
        if (!slot->isFree.load(std::memory_order_acquire)) continue;
        if (!chosen || slot->sequence > chosen->sequence) chosen = slot;
    }
    if (!chosen) {
        if (slots.size() >= static_cast<std::size_t>(depth)) std::abort();  // asked hasFree()?
        chosen = slots.emplace_back(std::make_shared<Slot>(width, height));
    }

    for (const Rect& part : chosen->stale.rects())
        chosen->convert(pixels, part);
    chosen->stale.clear();
    chosen->sequence = sequence;
    chosen->changed =
        std::exchange(isFirst, false) ? std::vector<Rect>{{0, 0, width, height}} : changed.rects();
    chosen->isFree.store(false, std::memory_order_relaxed);
    auto* shown = chosen.get();
    return {shown, [slot = std::move(chosen)](const PixelBuffer*) {
                slot->isFree.store(true, std::memory_order_release);
            }};
}

}  // namespace orvel
