#include "Phone/Recorder.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

#include "Phone/NumberedName.h"

namespace orvel::phone {

namespace {

constexpr AVRational microseconds{1, 1'000'000};

}  // namespace

struct Recorder::File {
    AVFormatContext* context = nullptr;
    bool hasHeader = false;
    MonotonicTime start;
    // The newest frame: how long it stands is not known before the next one comes.
    std::optional<VideoFrame> held;
    MonotonicTime heldSince;
    std::int64_t lastStamp = -1;

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

Recorder::Recorder(std::string filePath) : path(std::move(filePath)) {}

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
        if (!open(arrivedAt)) return false;
    } else if (!write(arrivedAt)) {
        return false;
    }
    file->held = frame;
    file->heldSince = arrivedAt;
    ++frameCount;
    return true;
}

bool Recorder::finish(MonotonicTime now) {
    if (!file) return trouble.empty();
    const bool written = write(std::max(now, file->heldSince));
    const int error = file->close();
    file.reset();
    return written && (error >= 0 || fail(paths.back(), error));
}

bool Recorder::open(MonotonicTime start) {
    const std::string name = numberedName(path, paths.size() + 1);
    auto opened = std::make_unique<File>();
    int error = avformat_alloc_output_context2(&opened->context, nullptr, "mp4", name.c_str());
    if (error < 0) return fail(name, error);
    opened->context->flags |= AVFMT_FLAG_FLUSH_PACKETS;  // a fragment that is done is on the disk
    AVStream* stream = avformat_new_stream(opened->context, nullptr);
    if (!stream) std::abort();
    const auto parameters = SequenceParameters::parse(format.parameterSets.front());
    if (!parameters) return fail(name, AVERROR_INVALIDDATA);
    const Bytes configuration = avcConfiguration(format);
    AVCodecParameters& codec = *stream->codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.codec_id = AV_CODEC_ID_H264;
    codec.width = parameters->width;
    codec.height = parameters->height;
    codec.extradata =
        static_cast<std::uint8_t*>(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!codec.extradata) std::abort();
    std::copy(configuration.begin(), configuration.end(), codec.extradata);
    codec.extradata_size = static_cast<int>(configuration.size());
    stream->time_base = microseconds;

    error = avio_open(&opened->context->pb, name.c_str(), AVIO_FLAG_WRITE);
    if (error < 0) return fail(name, error);
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    av_dict_set(&options, "frag_duration", "1000000", 0);
    error = avformat_write_header(opened->context, &options);
    av_dict_free(&options);
    if (error < 0) return fail(name, error);
    opened->hasHeader = true;
    opened->start = start;
    file = std::move(opened);
    paths.push_back(name);
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
    AVPacket* packet = av_packet_alloc();
    const VideoFrame& frame = *file->held;
    if (!packet || av_new_packet(packet, static_cast<int>(frame.data.size())) != 0) std::abort();
    std::copy(frame.data.begin(), frame.data.end(), packet->data);
    // Two frames that arrived in one read still need different stamps.
    packet->pts = packet->dts = std::max(stamp(file->heldSince), file->lastStamp + 1);
    packet->duration = std::max<std::int64_t>(stamp(until) - packet->pts, 1);
    if (frame.isKeyframe) packet->flags |= AV_PKT_FLAG_KEY;
    file->lastStamp = packet->pts;
    file->held.reset();
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
