#include "OrvelAgent/Media/AudioEncoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opus.h>

#include <cmath>
#include <cstring>
#include <numeric>

#include "Tests/Support/Tone.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

using Sample = PcmFormat::Sample;
using Channel = std::vector<double>;
using Sound = std::vector<Channel>;  // by channel

double amplitudeOf(double frequency, const Channel& channel) {
    return std::abs(toneIn(channel, frequency));
}

void store(Bytes& bytes, Sample format, double sample) {
    const auto add = [&](auto value) {
        const auto* raw = reinterpret_cast<const std::uint8_t*>(&value);
        bytes.insert(bytes.end(), raw, raw + sizeof value);
    };
    switch (format) {
        case Sample::float32:
            return add(static_cast<float>(sample));
        case Sample::float64:
            return add(sample);
        case Sample::int16:
            return add(static_cast<std::int16_t>(std::lround(sample * 32'767)));
        case Sample::int32:
            return add(static_cast<std::int32_t>(std::llround(sample * 2'147'483'647.0)));
    }
}

class AudioEncoderTest : public testing::Test {
protected:
    AudioEncoderTest() {
        encoder.onPacket = [this](AudioPacket packet) { packets.push_back(std::move(packet)); };
    }

    template <class Action>
    void act(Action action) {
        queue.post(std::move(action));
        time.runPending();
    }

    // Frames `from` to `from + count` of `sound`, in one call.
    void encode(const PcmFormat& format, const Sound& sound, std::size_t from, std::size_t count) {
        std::vector<Bytes> buffers(format.isInterleaved ? 1 : sound.size());
        for (std::size_t frame = from; frame < from + count; ++frame) {
            for (std::size_t channel = 0; channel < sound.size(); ++channel)
                store(buffers[format.isInterleaved ? 0 : channel], format.sample,
                      sound[channel][frame]);
        }
        const std::vector<ByteView> views(buffers.begin(), buffers.end());
        act([&] { encoder.encode({format, count, views}); });
    }
    void encode(const PcmFormat& format, const Sound& sound, std::size_t piece) {
        const std::size_t frames = sound.front().size();
        for (std::size_t from = 0; from < frames; from += piece)
            encode(format, sound, from, std::min(piece, frames - from));
    }
    void encodeSilence(std::size_t frames) {
        encode(canonicalPcm, {Channel(frames), Channel(frames)}, frames);
    }

    std::vector<AudioPacket> takePackets() { return std::exchange(packets, {}); }
    std::vector<std::uint32_t> takeNumbers() {
        std::vector<std::uint32_t> numbers;
        for (const auto& packet : takePackets())
            numbers.push_back(packet.sequence);
        return numbers;
    }

    // Left and right, without the first 0.2 s, in which everything settles.
    static Sound decoded(const std::vector<AudioPacket>& stream) {
        int error = 0;
        const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder*)> decoder(
            opus_decoder_create(48'000, 2, &error), opus_decoder_destroy);
        Sound sound(2);
        for (const auto& packet : stream) {
            std::array<float, 2 * 960> frames;
            EXPECT_EQ(opus_decode_float(decoder.get(), packet.opus.data(),
                                        static_cast<opus_int32>(packet.opus.size()), frames.data(),
                                        960, 0),
                      960);
            for (std::size_t i = 0; i < frames.size(); ++i)
                sound[i % 2].push_back(frames[i]);
        }
        for (auto& channel : sound)
            channel.erase(channel.begin(), channel.begin() + 9'600);
        return sound;
    }

    VirtualTime time;
    SerialQueue queue{"orvel.audio", time};
    AudioEncoder encoder{queue};
    std::vector<AudioPacket> packets;
};

TEST_F(AudioEncoderTest, aPacketComesWhenever960FramesAreTogether) {
    std::vector<std::size_t> counts;
    for (int i = 0; i < 16; ++i) {
        encodeSilence(1024);
        counts.push_back(takePackets().size());
    }
    // After the fifteenth nothing is left over.
    EXPECT_THAT(counts, ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 1));
    encodeSilence(895);
    EXPECT_THAT(packets, IsEmpty());
    encodeSilence(1);
    EXPECT_EQ(packets.size(), 1u);
}

TEST_F(AudioEncoderTest, packetsAreNumberedFromOneAlsoWhenNobodyListens) {
    encodeSilence(2 * 960);
    EXPECT_THAT(takeNumbers(), ElementsAre(1, 2));
    const auto listener = std::exchange(encoder.onPacket, nullptr);
    encodeSilence(3 * 960);
    encoder.onPacket = listener;
    encodeSilence(960);
    EXPECT_THAT(takeNumbers(), ElementsAre(6));
}

TEST_F(AudioEncoderTest, aResetForgetsWhatWaitsAndGoesOnNumbering) {
    encodeSilence(960 + 900);
    act([&] { encoder.reset(); });
    encodeSilence(900);
    EXPECT_THAT(takeNumbers(), ElementsAre(1));
    encodeSilence(60);
    EXPECT_THAT(takeNumbers(), ElementsAre(2));
}

TEST_F(AudioEncoderTest, afterAResetTheStreamIsThatOfAFreshEncoder) {
    const Sound sound = {tone(440, 44'100, 22'050), tone(660, 44'100, 22'050)};
    const PcmFormat format{44'100, 2, Sample::float32, true};
    encode(format, sound, 441);
    const auto first = takePackets();
    act([&] { encoder.reset(); });
    encode(format, sound, 441);
    const auto second = takePackets();
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i)
        EXPECT_EQ(first[i].opus, second[i].opus) << i;
}

struct FormatRow {
    const char* name;
    PcmFormat format;
    std::vector<double> frequencies;  // by channel
    double left, right;               // what is heard
};
const FormatRow formatRows[] = {
    {"canonical", canonicalPcm, {1000, 400}, 1000, 400},
    {"interleaved", {48'000, 2, Sample::float32, true}, {1000, 400}, 1000, 400},
    {"doubles", {48'000, 2, Sample::float64, false}, {1000, 400}, 1000, 400},
    {"16 bits", {48'000, 2, Sample::int16, true}, {1000, 400}, 1000, 400},
    {"32 bits", {48'000, 2, Sample::int32, true}, {1000, 400}, 1000, 400},
    {"mono", {48'000, 1, Sample::float32, false}, {1000}, 1000, 1000},
    {"44.1 kHz", {44'100, 2, Sample::float32, true}, {1000, 400}, 1000, 400},
    {"44.1 kHz, mono, 16 bits", {44'100, 1, Sample::int16, true}, {1000}, 1000, 1000},
    {"96 kHz", {96'000, 2, Sample::int32, false}, {1000, 400}, 1000, 400},
    {"8 kHz", {8'000, 2, Sample::int16, true}, {1000, 400}, 1000, 400},
    {"5.1: the front", canonicalPcm, {1000, 400, 2000, 100, 2500, 3100}, 1000, 400},
    {"5.1, interleaved, 44.1 kHz",
     {44'100, 6, Sample::float32, true},
     {1000, 400, 2000, 100, 2500, 3100},
     1000,
     400},
};

TEST_F(AudioEncoderTest, aToneIsHeardFromEachFormat) {
    for (const auto& row : formatRows) {
        SCOPED_TRACE(row.name);
        PcmFormat format = row.format;
        format.channels = static_cast<int>(row.frequencies.size());
        const auto frames = static_cast<std::size_t>(format.sampleRate);  // one second
        Sound sound;
        for (const double frequency : row.frequencies)
            sound.push_back(tone(frequency, format.sampleRate, frames));
        encode(format, sound, frames / 100);

        const auto stream = takePackets();
        act([&] { encoder.reset(); });
        // The resampler keeps some milliseconds back.
        EXPECT_GE(stream.size(), format.sampleRate == 48'000 ? 50u : 48u);
        EXPECT_LE(stream.size(), 50u);
        const Sound heard = decoded(stream);
        EXPECT_NEAR(amplitudeOf(row.left, heard[0]), 0.5, 0.02);
        EXPECT_NEAR(amplitudeOf(row.right, heard[1]), 0.5, 0.02);
        for (const double other : {100.0, 400.0, 1000.0, 2000.0, 2500.0, 3100.0}) {
            SCOPED_TRACE(other);
            if (other != row.left) {
                EXPECT_LT(amplitudeOf(other, heard[0]), 0.02);
            }
            if (other != row.right) {
                EXPECT_LT(amplitudeOf(other, heard[1]), 0.02);
            }
        }
        if (row.frequencies.size() == 1) {
            for (std::size_t i = 0; i < heard[0].size(); ++i)
                ASSERT_NEAR(heard[0][i], heard[1][i], 1e-3) << i;
        }
    }
}

TEST_F(AudioEncoderTest, theSizeOfThePiecesChangesNothing) {
    for (const double rate : {48'000.0, 44'100.0, 11'025.0, 192'000.0}) {
        SCOPED_TRACE(rate);
        const auto frames = static_cast<std::size_t>(rate / 2);
        const Sound sound = {tone(1000, rate, frames), tone(500, rate, frames)};
        std::vector<std::vector<AudioPacket>> streams;
        for (const std::size_t piece :
             {frames, std::size_t{1024}, std::size_t{441}, std::size_t{7}}) {
            act([&] { encoder.reset(); });
            encode({rate, 2, Sample::float32, true}, sound, piece);
            streams.push_back(takePackets());
        }
        for (const auto& stream : streams) {
            EXPECT_GE(stream.size(), 23u);  // at low rates the filters keep 26 ms back
            EXPECT_LE(stream.size(), 25u);
            // The end of a piece may come out with the next one.
            EXPECT_NEAR(static_cast<double>(stream.size()),
                        static_cast<double>(streams.front().size()), 1);
            const std::size_t common = std::min(stream.size(), streams.front().size());
            for (std::size_t i = 0; i < common; ++i)
                EXPECT_EQ(stream[i].opus, streams.front()[i].opus) << i;
        }
    }
}

TEST_F(AudioEncoderTest, aToneStaysWholeForALongTime) {
    const std::size_t seconds = 20;
    const Sound sound = {tone(1000, 44'100, seconds * 44'100),
                         tone(1000, 44'100, seconds * 44'100)};
    encode({44'100, 2, Sample::int16, true}, sound, 1024);
    EXPECT_GE(packets.size(), seconds * 50 - 2);
    // A missing or doubled frame would turn the phase and cost amplitude.
    EXPECT_NEAR(amplitudeOf(1000, decoded(packets)[0]), 0.5, 0.01);
}

TEST_F(AudioEncoderTest, packetsHaveTheBitrate) {
    std::uint32_t state = 1;
    Sound noise(2, Channel(5 * 48'000));
    for (auto& channel : noise) {
        for (double& sample : channel) {
            state = state * 1'664'525 + 1'013'904'223;
            sample = static_cast<double>(state >> 8) / (1 << 24) - 0.5;
        }
    }
    encode(canonicalPcm, noise, 960);
    const auto bytes =
        std::accumulate(packets.begin(), packets.end(), 0.0, [](double sum, const auto& packet) {
            return sum + static_cast<double>(packet.opus.size());
        });
    EXPECT_NEAR(bytes * 8 / 5, 96'000, 10'000);
}

TEST_F(AudioEncoderTest, aChangeOfFormatGoesOnWithTheNext) {
    const auto play = [&](double rate, std::size_t frames) {
        encode({rate, 2, Sample::float32, true},
               {tone(1000, rate, frames), tone(1000, rate, frames)}, frames);
    };
    play(44'100, 44'100);
    play(48'000, 48'000);
    play(32'000, 32'000);
    play(44'100, 44'100);
    const auto numbers = takeNumbers();
    EXPECT_GE(numbers.size(), 197u);
    EXPECT_LE(numbers.size(), 200u);
    EXPECT_EQ(numbers.back(), numbers.size());
}

TEST_F(AudioEncoderTest, whatCannotBeUsedIsDropped) {
    encodeSilence(959);
    const Bytes memory(100);
    const ByteView whole(memory);
    const std::vector<ByteView> two = {whole, whole}, one = {whole}, none, uneven = {whole, {}};
    const double nan = std::nan("");
    const struct {
        const char* name;
        AudioSamples samples;
    } rows[] = {
        {"no frames", {canonicalPcm, 0, two}},
        {"no buffers", {canonicalPcm, 1, none}},
        {"a buffer too few", {canonicalPcm, 1, one}},
        {"an empty buffer", {canonicalPcm, 1, uneven}},
        {"more frames than bytes", {canonicalPcm, 26, two}},
        {"very many frames", {canonicalPcm, ~std::size_t{0}, two}},
        {"no channels", {{48'000, 0, Sample::float32, true}, 1, two}},
        {"a negative number of channels", {{48'000, -1, Sample::float32, true}, 1, two}},
        {"very many channels", {{48'000, 2'000'000'000, Sample::float64, true}, 1, one}},
        {"no rate", {{0, 2, Sample::float32, false}, 1, two}},
        {"a negative rate", {{-48'000, 2, Sample::float32, false}, 1, two}},
        {"a rate that is no number", {{nan, 2, Sample::float32, false}, 1, two}},
        {"a rate beyond all sound", {{1e12, 2, Sample::float32, false}, 1, two}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        act([&] { encoder.encode(row.samples); });
        EXPECT_THAT(packets, IsEmpty());
    }
    // What waits has been kept.
    encodeSilence(1);
    EXPECT_THAT(takeNumbers(), ElementsAre(1));
}

TEST_F(AudioEncoderTest, brokenSamplesAreSilence) {
    for (const double rate : {48'000.0, 44'100.0}) {
        const auto second = static_cast<std::size_t>(rate);
        Sound sound = {tone(1000, rate, 2 * second), tone(1000, rate, 2 * second)};
        for (std::size_t i = 0; i < 100; ++i) {
            sound[0][i] = std::nan("");
            sound[1][i] = -HUGE_VAL;
        }
        encode({rate, 2, Sample::float32, false}, sound, 960);
        EXPECT_NEAR(amplitudeOf(1000, decoded(takePackets())[1]), 0.5, 0.02);
        act([&] { encoder.reset(); });
    }
}

}  // namespace
}  // namespace orvel
