#pragma once

#include <CoreAudioTypes/CoreAudioTypes.h>

#include <optional>

#include "OrvelKit/Wire/AudioFormat.h"

namespace orvel {

// Core Audio's description of sound; nullopt: it is compressed, or lies in memory in a way that
// nobody here reads.
inline std::optional<PcmFormat> pcmFormatOf(const AudioStreamBasicDescription& sound) {
    if (sound.mFormatID != kAudioFormatLinearPCM || sound.mSampleRate <= 0 ||
        sound.mChannelsPerFrame == 0 ||
        (sound.mFormatFlags & kAudioFormatFlagIsBigEndian) != kAudioFormatFlagsNativeEndian) {
        return std::nullopt;
    }
    PcmFormat format;
    format.sampleRate = sound.mSampleRate;
    format.channels = static_cast<int>(sound.mChannelsPerFrame);
    format.isInterleaved = !(sound.mFormatFlags & kAudioFormatFlagIsNonInterleaved);
    const bool isFloat = sound.mFormatFlags & kAudioFormatFlagIsFloat;
    const bool isSigned = sound.mFormatFlags & kAudioFormatFlagIsSignedInteger;
    if (isFloat && sound.mBitsPerChannel == 32) {
        format.sample = PcmFormat::Sample::float32;
    } else if (isFloat && sound.mBitsPerChannel == 64) {
        format.sample = PcmFormat::Sample::float64;
    } else if (!isFloat && isSigned && sound.mBitsPerChannel == 16) {
        format.sample = PcmFormat::Sample::int16;
    } else if (!isFloat && isSigned && sound.mBitsPerChannel == 32) {
        format.sample = PcmFormat::Sample::int32;
    } else {
        return std::nullopt;
    }
    // A sample in a wider place than it needs is none of these.
    const auto samples = format.isInterleaved ? sound.mChannelsPerFrame : 1;
    if (sound.mBytesPerFrame != samples * sound.mBitsPerChannel / 8) return std::nullopt;
    return format;
}

}  // namespace orvel
