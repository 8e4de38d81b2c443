#include "OrvelAgent/Media/AudioEncoder.h"

#include <opus.h>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

namespace orvel {

namespace {

constexpr double highestSampleRate = 1'000'000;

std::size_t sizeOf(PcmFormat::Sample sample) {
    switch (sample) {
        case PcmFormat::Sample::int16:
            return 2;
        case PcmFormat::Sample::float32:
        case PcmFormat::Sample::int32:
            return 4;
        case PcmFormat::Sample::float64:
            break;
    }
    return 8;
}

bool isUsable(const AudioSamples& samples) {
    const PcmFormat& format = samples.format;
    // Not one of them, rather than beyond: a rate may be no number.
    if (!(format.sampleRate >= 1 && format.sampleRate <= highestSampleRate)) return false;
    if (format.channels < 1 || samples.frameCount == 0) return false;
    const auto channels = static_cast<std::size_t>(format.channels);
    const std::size_t buffers = format.isInterleaved ? 1 : channels;
    const std::size_t frameSize = sizeOf(format.sample) * (format.isInterleaved ? channels : 1);
    return samples.buffers.size() >= buffers &&
           std::all_of(
               samples.buffers.begin(), samples.buffers.begin() + buffers,
               [&](ByteView buffer) { return buffer.size() / frameSize >= samples.frameCount; });
}

template <class Sample>
float toFloat(const std::uint8_t* bytes) {
    Sample sample;
    std::memcpy(&sample, bytes, sizeof sample);
    if constexpr (std::is_integral_v<Sample>) {
        return static_cast<float>(sample /
                                  -static_cast<double>(std::numeric_limits<Sample>::min()));
    } else {
        // Some program's broken sound must not get stuck in the filters.
        return std::isfinite(sample) ? static_cast<float>(sample) : 0;
    }
}

template <class Sample>
void readChannel(const AudioSamples& samples, std::size_t channel, std::vector<float>& into) {
    const bool isInterleaved = samples.format.isInterleaved;
    const std::size_t stride =
        sizeof(Sample) * (isInterleaved ? static_cast<std::size_t>(samples.format.channels) : 1);
    const std::uint8_t* bytes = isInterleaved ? samples.buffers[0].data() + channel * sizeof(Sample)
                                              : samples.buffers[channel].data();
    into.resize(samples.frameCount);
    for (float& sample : into) {
        sample = toFloat<Sample>(bytes);
        bytes += stride;
    }
}

void readChannel(const AudioSamples& samples, std::size_t channel, std::vector<float>& into) {
    switch (samples.format.sample) {
        case PcmFormat::Sample::float32:
            return readChannel<float>(samples, channel, into);
        case PcmFormat::Sample::float64:
            return readChannel<double>(samples, channel, into);
        case PcmFormat::Sample::int16:
            return readChannel<std::int16_t>(samples, channel, into);
        case PcmFormat::Sample::int32:
            return readChannel<std::int32_t>(samples, channel, into);
    }
}

OpusEncoder* makeOpusEncoder() {
    int error = 0;
    OpusEncoder* encoder = opus_encoder_create(OpusFormat::sampleRate, OpusFormat::channels,
                                               OPUS_APPLICATION_AUDIO, &error);
    // It fails for wrong arguments and without memory.
    if (!encoder || opus_encoder_ctl(encoder, OPUS_SET_BITRATE(AudioEncoder::bitrate)) != OPUS_OK) {
        std::abort();
    }
    return encoder;
}

}  // namespace

AudioEncoder::AudioEncoder(SerialQueue& audioQueue)
    : queue(audioQueue), encoder(makeOpusEncoder(), opus_encoder_destroy) {}

AudioEncoder::~AudioEncoder() = default;

void AudioEncoder::encode(const AudioSamples& samples) {
    queue.assertCurrent();
    if (!isUsable(samples)) return;
    readChannel(samples, 0, source[0]);
    readChannel(samples, samples.format.channels > 1 ? 1 : 0, source[1]);
    if (samples.format.sampleRate == canonicalPcm.sampleRate) {
        append(source);
    } else if (resample(samples.format)) {
        append(resampled);
    }
}

void AudioEncoder::reset() {
    queue.assertCurrent();
    filled = 0;
    resampler.reset();
    opus_encoder_ctl(encoder.get(), OPUS_RESET_STATE);
}

bool AudioEncoder::resample(const PcmFormat& format) {
    if (!resampler || resampler->input != format) {
        const soxr_io_spec_t splitFloats = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
        // The engine for rates that vary goes in small steps: at 44.1 kHz it is 5 ms behind, the
        // other one 21, and what it adds is still 110 dB below the sound.
        const soxr_quality_spec_t prompt = soxr_quality_spec(SOXR_HQ, SOXR_VR);
        resampler = {format,
                     {soxr_create(format.sampleRate, canonicalPcm.sampleRate, 2, nullptr,
                                  &splitFloats, &prompt, nullptr),
                      soxr_delete}};
    }
    if (!resampler->stream) return false;

    const std::size_t given = source[0].size();
    // A little more than comes out on the average; should it be full, there is another round.
    const auto room = static_cast<std::size_t>(static_cast<double>(given) *
                                               canonicalPcm.sampleRate / format.sampleRate) +
                      16;
    std::size_t taken = 0, made = 0, madeNow = 0;
    do {
        for (auto& channel : resampled)
            channel.resize(made + room);
        const float* in[] = {source[0].data() + taken, source[1].data() + taken};
        float* out[] = {resampled[0].data() + made, resampled[1].data() + made};
        std::size_t takenNow = 0;
        if (soxr_process(resampler->stream.get(), in, given - taken, &takenNow, out, room,
                         &madeNow)) {
            resampler.reset();
            return false;
        }
        taken += takenNow;
        made += madeNow;
    } while (madeNow == room);
    for (auto& channel : resampled)
        channel.resize(made);
    return true;
}

void AudioEncoder::append(const Stereo& sound) {
    for (std::size_t frame = 0; frame < sound[0].size(); ++frame) {
        chunk[2 * filled] = sound[0][frame];
        chunk[2 * filled + 1] = sound[1][frame];
        if (++filled == chunkFrames) compress();
    }
}

void AudioEncoder::compress() {
    constexpr std::size_t longestPacket = 4'000;  // what the library recommends room for
    std::array<std::uint8_t, longestPacket> packet;
    filled = 0;
    const auto length = opus_encode_float(encoder.get(), chunk.data(), OpusFormat::framesPerPacket,
                                          packet.data(), longestPacket);
    if (length <= 0) return;
    ++sequence;
    if (onPacket) onPacket({sequence, Bytes(packet.begin(), packet.begin() + length)});
}

}  // namespace orvel
