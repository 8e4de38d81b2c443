#include "Phone/Recorder.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <utility>

#include "OrvelKit/Wire/AudioFormat.h"
#include "Phone/NumberedName.h"
#include "Phone/SoundTimeline.h"

namespace orvel::phone {

namespace {

constexpr AVRational microseconds{1, 1'000'000};
constexpr AVRational samples{1, OpusFormat::sampleRate};

// 20 ms of digital silence, stereo.
constexpr std::uint8_t silence[] = {0xFC, 0xFF, 0xFE};

// What the encoder adds in front, at 48 kHz; its usual look-ahead, since the stream does not say.
constexpr int preSkip = 312;
constexpr int seekPreroll = 3840;  // RFC 7845, section 4.6: 80 ms

// The identification header, RFC 7845, section 5.1; little-endian.
constexpr std::uint8_t opusHead[] = {'O',
                                     'p',
                                     'u',
                                     's',
                                     'H',
                                     'e',
                                     'a',
                                     'd',
                                     1,
                                     OpusFormat::channels,
                                     preSkip & 0xFF,
                                     preSkip >> 8,
                                     OpusFormat::sampleRate & 0xFF,
                                     OpusFormat::sampleRate >> 8 & 0xFF,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0};

// The packet before it without its frame: a decoder conceals such a one (RFC 6716, section 3.2.1).
std::array<std::uint8_t, 1> lostAfter(ByteView opus) {
    return {static_cast<std::uint8_t>(opus.empty() ? silence[0] : opus[0] & 0xFC)};
}

void setExtradata(AVCodecParameters& codec, ByteView bytes) {
    codec.extradata =
        static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!codec.extradata) std::abort();
    std::copy(bytes.begin(), bytes.end(), codec.extradata);
    codec.extradata_size = static_cast<int>(bytes.size());
}

}  // namespace

struct Recorder::File {
    AVFormatContext* context = nullptr;
    bool hasHeader = false;
    MonotonicTime start;
    // The newest frame: how long it stands is not known before the next one comes.
    std::optional<VideoFrame> held;
    MonotonicTime heldSince;
    std::int64_t lastStamp = -1;
    SoundTimeline timeline;
    std::int64_t soundStamp = 0;  // in samples
    Bytes lastSound;

    File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { close(); }

    // 0 or what libavformat says.
    int close() {
        if (!context) return 0;
        const int trailer = hasHeader ? av_write_trailer(context) : 0;
        const int closed = avio_closep(&context->pb);
        avformat_free_context(std::exchange(context, nullptr));
        return trailer < 0 ? trailer : closed;
    }
};

Recorder::Recorder(std::string filePath, Sound whichSound)
    : path(std::move(filePath)), sound(whichSound) {}

Recorder::~Recorder() {
    if (file) finish(file->heldSince);
}

bool Recorder::add(const VideoFormat& newFormat, MonotonicTime arrivedAt) {
    if (!trouble.empty()) return false;
    if (newFormat == format) return true;
    format = newFormat;
    return finish(arrivedAt);
}

bool Recorder::add(const VideoFrame& frame, MonotonicTime arrivedAt) {
    if (!trouble.empty()) return false;
    if (!file) {
        if (!frame.isKeyframe || avcConfiguration(format).empty()) return true;
        if (!open(arrivedAt)) {
            file.reset();
            paths.pop_back();
            return false;
        }
    } else if (!write(arrivedAt)) {
        return false;
    }
    file->held = frame;
    file->heldSince = arrivedAt;
    ++frameCount;
    return true;
}

bool Recorder::add(const AudioPacket& packet, MonotonicTime arrivedAt) {
    if (!trouble.empty()) return false;
    if (!file || sound == Sound::none) return true;
    const auto step = file->timeline.add(packet.sequence, arrivedAt - file->start);
    const auto lost = lostAfter(file->lastSound);
    file->lastSound = packet.opus;
    return writeSound(silence, step.silence) && writeSound(lost, step.lost) &&
           writeSound(packet.opus, step.isDropped ? 0 : 1);
}

bool Recorder::finish(MonotonicTime now) {
    if (!file) return trouble.empty();
    const MonotonicTime end = std::max(now, file->heldSince);
    bool written = trouble.empty() && write(end);
    if (written && sound == Sound::recorded) {
        written = writeSound(silence, file->timeline.silenceToEnd(end - file->start));
    }
    const int error = file->close();
    file.reset();
    return written && (error >= 0 || fail(paths.back(), error));
}

bool Recorder::open(MonotonicTime start) {
    const std::string name = numberedName(path, paths.size() + 1);
    const char* const container = path.ends_with(".mkv") ? "matroska" : "mp4";
    file = std::make_unique<File>();
    file->start = start;
    paths.push_back(name);
    int error = avformat_alloc_output_context2(&file->context, nullptr, container, name.c_str());
    if (error < 0) return fail(name, error);
    file->context->flags |= AVFMT_FLAG_FLUSH_PACKETS;  // a fragment that is done is on the disk
    if (!addVideoTrack()) return fail(name, AVERROR_INVALIDDATA);
    if (sound == Sound::recorded) addSoundTrack();
    error = avio_open(&file->context->pb, name.c_str(), AVIO_FLAG_WRITE);
    return error < 0 ? fail(name, error) : writeHeader();
}

// False: the parameter sets make no sense.
bool Recorder::addVideoTrack() {
    const auto parameters = SequenceParameters::parse(format.parameterSets.front());
    if (!parameters) return false;
    AVStream* stream = avformat_new_stream(file->context, nullptr);
    if (!stream) std::abort();
    AVCodecParameters& codec = *stream->codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.codec_id = AV_CODEC_ID_H264;
    codec.width = parameters->width;
    codec.height = parameters->height;
    setExtradata(codec, avcConfiguration(format));
    stream->time_base = microseconds;
    return true;
}

void Recorder::addSoundTrack() {
    AVStream* stream = avformat_new_stream(file->context, nullptr);
    if (!stream) std::abort();
    AVCodecParameters& codec = *stream->codecpar;
    codec.codec_type = AVMEDIA_TYPE_AUDIO;
    codec.codec_id = AV_CODEC_ID_OPUS;
    codec.sample_rate = OpusFormat::sampleRate;
    codec.frame_size = OpusFormat::framesPerPacket;
    codec.initial_padding = preSkip;
    codec.seek_preroll = seekPreroll;
    av_channel_layout_default(&codec.ch_layout, OpusFormat::channels);
    setExtradata(codec, opusHead);
    stream->time_base = samples;
}

bool Recorder::writeHeader() {
    AVDictionary* options = nullptr;
    // For either container; each ignores what is the other's.
    av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    av_dict_set(&options, "frag_duration", "1000000", 0);
    av_dict_set(&options, "cluster_time_limit", "1000", 0);
    const int error = avformat_write_header(file->context, &options);
    av_dict_free(&options);
    if (error < 0) return fail(paths.back(), error);
    file->hasHeader = true;
    return true;
}

bool Recorder::write(MonotonicTime until) {
    if (!file->held) return true;
    AVStream* stream = file->context->streams[0];
    const auto stamp = [&](MonotonicTime time) {
        const auto since =
            std::chrono::duration_cast<std::chrono::microseconds>(time - file->start);
        return av_rescale_q(since.count(), microseconds, stream->time_base);
    };
    const VideoFrame frame = *std::exchange(file->held, std::nullopt);
    // Two frames that arrived in one read still need different stamps.
    const std::int64_t begin = std::max(stamp(file->heldSince), file->lastStamp + 1);
    file->lastStamp = begin;
    if (!writePacket(0, frame.data, begin, std::max<std::int64_t>(stamp(until) - begin, 1),
                     frame.isKeyframe)) {
        return false;
    }
    if (sound == Sound::none) return true;
    return writeSound(silence, file->timeline.silenceUntil(until - file->start));
}

bool Recorder::writeSound(ByteView opus, std::size_t times) {
    AVStream* stream = file->context->streams[1];
    for (std::size_t i = 0; i < times; ++i) {
        const std::int64_t begin = av_rescale_q(file->soundStamp, samples, stream->time_base);
        file->soundStamp += OpusFormat::framesPerPacket;
        const std::int64_t end = av_rescale_q(file->soundStamp, samples, stream->time_base);
        if (!writePacket(1, opus, begin, end - begin, true)) return false;
    }
    return true;
}

bool Recorder::writePacket(int track, ByteView data, std::int64_t begin, std::int64_t duration,
                           bool isKey) {
    AVPacket* packet = av_packet_alloc();
    if (!packet || av_new_packet(packet, static_cast<int>(data.size())) != 0) std::abort();
    std::copy(data.begin(), data.end(), packet->data);
    packet->stream_index = track;
    packet->pts = packet->dts = begin;
    packet->duration = duration;
    if (isKey) packet->flags |= AV_PKT_FLAG_KEY;
    const int error = av_write_frame(file->context, packet);
    av_packet_free(&packet);
    return error >= 0 || fail(paths.back(), error);
}

bool Recorder::fail(const std::string& name, int error) {
    char said[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, said, sizeof said);
    trouble = name + ": " + said;
    return false;
}

}  // namespace orvel::phone
