// VideoToolbox's contract: a session made without an output callback hands each picture's sample to
// the block given with the picture, on a thread of its own, in the order of the pictures when frame
// reordering is off; a picture that the rate control leaves out comes as a status of 0 without a
// sample. CompleteFrames returns when all have come out. After Invalidate the session is used no
// more; as it is not said that a block cannot be under way then, a gate of our own is shut before.
// Samples hold NAL units behind 4-byte lengths; the parameter sets are in the format description.
#include <CoreMedia/CoreMedia.h>
#import <Foundation/Foundation.h>
#include <VideoToolbox/VideoToolbox.h>

#include <mutex>

#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelAgent/Platform/MacOS/CVPixels.h"

namespace orvel {

namespace {

using Property = CompressionSession::Property;

static_assert(kCMVideoCodecType_H264 == 'avc1');
static_assert(noErr == 0);

CFStringRef keyOf(Property property) {
    switch (property) {
        case Property::realTime:
            return kVTCompressionPropertyKey_RealTime;
        case Property::profileLevel:
            return kVTCompressionPropertyKey_ProfileLevel;
        case Property::allowFrameReordering:
            return kVTCompressionPropertyKey_AllowFrameReordering;
        case Property::averageBitRate:
            return kVTCompressionPropertyKey_AverageBitRate;
        case Property::expectedFrameRate:
            return kVTCompressionPropertyKey_ExpectedFrameRate;
        case Property::maxKeyFrameIntervalDuration:
            return kVTCompressionPropertyKey_MaxKeyFrameIntervalDuration;
        case Property::quality:
            return kVTCompressionPropertyKey_Quality;
    }
    return nullptr;
}

// By the port's name for it; nil for any other.
NSString* profileNamed(const std::string& name) {
    if (name == "H264_ConstrainedHigh_AutoLevel") {
        return (__bridge NSString*)kVTProfileLevel_H264_ConstrainedHigh_AutoLevel;
    }
    if (name == "H264_ConstrainedBaseline_AutoLevel") {
        return (__bridge NSString*)kVTProfileLevel_H264_ConstrainedBaseline_AutoLevel;
    }
    return nil;
}

id objectOf(Property property, const CompressionSession::Value& value) {
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? @YES : @NO;
    if (const auto* integer = std::get_if<std::int64_t>(&value)) return @(*integer);
    if (const auto* number = std::get_if<double>(&value)) return @(*number);
    return property == Property::profileLevel ? profileNamed(std::get<std::string>(value)) : nil;
}

// A sample that needs earlier ones says so; without the attachment it is a keyframe.
bool needsEarlierOnes(CMSampleBufferRef sample) {
    const CFArrayRef all = CMSampleBufferGetSampleAttachmentsArray(sample, false);
    if (!all || CFArrayGetCount(all) == 0) return false;
    const auto first = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(all, 0));
    const void* notSync = nullptr;
    return CFDictionaryGetValueIfPresent(first, kCMSampleAttachmentKey_NotSync, &notSync) &&
           CFEqual(notSync, kCFBooleanTrue);
}

// SPS first, then PPS, as the description has them.
std::vector<ByteView> parameterSetsOf(CMSampleBufferRef sample) {
    const CMFormatDescriptionRef format = CMSampleBufferGetFormatDescription(sample);
    std::vector<ByteView> sets;
    std::size_t count = 0;
    if (!format || CMVideoFormatDescriptionGetH264ParameterSetAtIndex(format, 0, nullptr, nullptr,
                                                                      &count, nullptr) != noErr) {
        return sets;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* bytes = nullptr;
        std::size_t size = 0;
        if (CMVideoFormatDescriptionGetH264ParameterSetAtIndex(format, i, &bytes, &size, nullptr,
                                                               nullptr) == noErr &&
            bytes && size > 0) {
            sets.emplace_back(bytes, size);
        }
    }
    return sets;
}

// In one piece, as it mostly is already; `copy` has room for it otherwise.
ByteView dataOf(CMSampleBufferRef sample, Bytes& copy) {
    const CMBlockBufferRef block = CMSampleBufferGetDataBuffer(sample);
    if (!block) return {};
    const std::size_t size = CMBlockBufferGetDataLength(block);
    if (size == 0) return {};
    char* start = nullptr;
    if (CMBlockBufferIsRangeContiguous(block, 0, size) &&
        CMBlockBufferGetDataPointer(block, 0, nullptr, nullptr, &start) == kCMBlockBufferNoErr) {
        return {reinterpret_cast<const std::uint8_t*>(start), size};
    }
    copy.resize(size);
    if (CMBlockBufferCopyDataBytes(block, 0, size, copy.data()) != kCMBlockBufferNoErr) return {};
    return copy;
}

void deliver(OSStatus status, CMSampleBufferRef buffer,
             const CompressionSession::OutputHandler& handler) {
    CompressionSession::Sample sample;
    sample.status = status;
    Bytes copy;
    if (status == noErr && buffer) {
        sample.notSync = needsEarlierOnes(buffer);
        const CMTime time = CMSampleBufferGetPresentationTimeStamp(buffer);
        if (CMTIME_IS_NUMERIC(time)) {
            sample.ptsMicros =
                CMTimeConvertScale(time, 1'000'000, kCMTimeRoundingMethod_RoundTowardZero).value;
        }
        sample.data = dataOf(buffer, copy);
        if (!sample.notSync) sample.parameterSets = parameterSetsOf(buffer);
    }
    handler(sample);
}

class VideoToolboxSession final : public CompressionSession {
public:
    explicit VideoToolboxSession(CFOwner<VTCompressionSessionRef> created)
        : session(std::move(created)) {}
    ~VideoToolboxSession() override { invalidate(); }

    std::int32_t set(Property property, const Value& value) override {
        if (!session) return kVTInvalidSessionErr;
        @autoreleasepool {
            const id object = objectOf(property, value);
            if (!object) return kVTParameterErr;
            return VTSessionSetProperty(session.get(), keyOf(property), (__bridge CFTypeRef)object);
        }
    }

    std::int32_t prepare() override {
        return session ? VTCompressionSessionPrepareToEncodeFrames(session.get())
                       : kVTInvalidSessionErr;
    }

    std::int32_t encode(std::shared_ptr<const PixelBuffer> image, MonotonicTime time,
                        bool forceKeyframe, OutputHandler handler) override {
        if (!session) return kVTInvalidSessionErr;
        const auto pixels = CVPixels::from(image);
        if (!pixels) return kVTAllocationFailedErr;
        const auto nanoseconds =
            std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch());
        const CFDictionaryRef properties =
            forceKeyframe ? (__bridge CFDictionaryRef)keyframeProperties : nullptr;
        // The picture stays locked, and out of the capture's pool, until it is encoded.
        const std::weak_ptr<Gate> weak = gate;
        return VTCompressionSessionEncodeFrameWithOutputHandler(
            session.get(), pixels.get(), CMTimeMake(nanoseconds.count(), 1'000'000'000),
            kCMTimeInvalid, properties, nullptr,
            ^(OSStatus status, VTEncodeInfoFlags, CMSampleBufferRef sample) {
              static_cast<void>(image);
              const auto open = weak.lock();
              if (!open) return;
              const std::lock_guard hold(open->mutex);
              if (open->isOpen) deliver(status, sample, handler);
            });
    }

    void completeFrames() override {
        if (session) VTCompressionSessionCompleteFrames(session.get(), kCMTimeInvalid);
    }

    void invalidate() override {
        if (!session) return;
        {
            const std::lock_guard hold(gate->mutex);
            gate->isOpen = false;
        }
        VTCompressionSessionInvalidate(session.get());
        session = {};
    }

private:
    // Held while a handler runs, so that none does once invalidate() has returned.
    struct Gate {
        std::mutex mutex;
        bool isOpen = true;
    };

    NSDictionary* const keyframeProperties =
        @{(__bridge NSString*)kVTEncodeFrameOptionKey_ForceKeyFrame : @YES};
    CFOwner<VTCompressionSessionRef> session;
    const std::shared_ptr<Gate> gate = std::make_shared<Gate>();
};

}  // namespace

CompressionSession::Created CompressionSession::create(const Specification& wanted) {
    NSDictionary* const specification =
        wanted.lowLatencyRateControl
            ? @{(__bridge NSString*)kVTVideoEncoderSpecification_EnableLowLatencyRateControl : @YES}
            : nil;
    CFOwner<VTCompressionSessionRef> session;
    const OSStatus status =
        VTCompressionSessionCreate(kCFAllocatorDefault, wanted.width, wanted.height,
                                   kCMVideoCodecType_H264, (__bridge CFDictionaryRef)specification,
                                   nullptr, nullptr, nullptr, nullptr, session.receive());
    if (status != noErr || !session) return {nullptr, status};
    return {std::make_unique<VideoToolboxSession>(std::move(session)), 0};
}

}  // namespace orvel
