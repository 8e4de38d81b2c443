#include "Phone/VideoDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace orvel::phone {

namespace {

struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

// Only running out of memory makes these null.
template <class T>
T* allocated(T* pointer) {
    if (!pointer) std::abort();
    return pointer;
}

YuvMatrix matrixOf(const AVFrame& frame) {
    switch (frame.colorspace) {
        case AVCOL_SPC_BT709:
            return YuvMatrix::bt709;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL:
            return YuvMatrix::bt2020;
        default:
            return YuvMatrix::bt601;
    }
}

bool isPlanar8Bit(const AVFrame& frame) {
    return frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P;
}

}  // namespace

struct VideoDecoder::Codec {
    std::unique_ptr<AVCodecContext, FreeContext> context;
    std::unique_ptr<AVPacket, FreePacket> packet{allocated(av_packet_alloc())};
    std::unique_ptr<AVFrame, FreeFrame> next{allocated(av_frame_alloc())};
    std::unique_ptr<AVFrame, FreeFrame> shown{allocated(av_frame_alloc())};
};

VideoDecoder::VideoDecoder() : codec(std::make_unique<Codec>()) {
    av_log_set_level(AV_LOG_QUIET);  // what it says about bytes from outside is counted instead
}
VideoDecoder::~VideoDecoder() = default;

bool VideoDecoder::setFormat(const VideoFormat& newFormat) {
    if (format == newFormat) return true;
    format.reset();
    waitsForKeyframe = true;
    codec->context.reset();

    const Bytes configuration = avcConfiguration(newFormat);
    const auto parameters = configuration.empty()
                                ? std::nullopt
                                : SequenceParameters::parse(newFormat.parameterSets.front());
    const AVCodec* h264 = avcodec_find_decoder(AV_CODEC_ID_H264);
    if (!parameters || !h264) return false;
    std::unique_ptr<AVCodecContext, FreeContext> context(allocated(avcodec_alloc_context3(h264)));
    context->flags |= AV_CODEC_FLAG_LOW_DELAY;
    context->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    // Threads within one picture: those across pictures would each hold one back.
    context->thread_type = FF_THREAD_SLICE;
    context->thread_count =
        static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 4U));
    context->extradata = static_cast<std::uint8_t*>(
        allocated(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE)));
    std::copy(configuration.begin(), configuration.end(), context->extradata);
    context->extradata_size = static_cast<int>(configuration.size());
    if (avcodec_open2(context.get(), h264, nullptr) != 0) return false;

    codec->context = std::move(context);
    format = newFormat;
    numbers.start(*parameters);
    return true;
}

VideoDecoder::Outcome VideoDecoder::decode(const VideoFrame& frame) {
    if (!codec->context || (waitsForKeyframe && !frame.isKeyframe)) return Outcome::skipped;
    const auto damaged = [&] {
        waitsForKeyframe = true;
        return Outcome::damaged;
    };
    if (!numbers.follows(frame)) {
        ++gapCount;
        return damaged();
    }
    AVCodecContext* context = codec->context.get();
    if (waitsForKeyframe) avcodec_flush_buffers(context);
    AVPacket* packet = codec->packet.get();
    if (frame.data.empty() || av_new_packet(packet, static_cast<int>(frame.data.size())) != 0) {
        return damaged();
    }
    std::copy(frame.data.begin(), frame.data.end(), packet->data);
    if (frame.isKeyframe) packet->flags |= AV_PKT_FLAG_KEY;
    const int sent = avcodec_send_packet(context, packet);
    av_packet_unref(packet);
    if (sent != 0 || avcodec_receive_frame(context, codec->next.get()) != 0) return damaged();
    const AVFrame& received = *codec->next;
    if (received.decode_error_flags != 0 || (received.flags & AV_FRAME_FLAG_CORRUPT) != 0 ||
        !isPlanar8Bit(received)) {
        return damaged();
    }
    std::swap(codec->next, codec->shown);
    av_frame_unref(codec->next.get());
    waitsForKeyframe = false;
    return Outcome::picture;
}

bool VideoDecoder::hasPicture() const {
    return codec->shown->width > 0;
}
int VideoDecoder::width() const {
    return codec->shown->width;
}
int VideoDecoder::height() const {
    return codec->shown->height;
}

std::uint8_t VideoDecoder::luma(int x, int y) const {
    const AVFrame& frame = *codec->shown;
    return frame.data[0][static_cast<std::ptrdiff_t>(y) * frame.linesize[0] + x];
}

Picture VideoDecoder::picture() const {
    const AVFrame& frame = *codec->shown;
    const YuvPlanes planes{frame.width,   frame.height,      frame.data[0],    frame.data[1],
                           frame.data[2], frame.linesize[0], frame.linesize[1]};
    return rgbFrom(planes, matrixOf(frame), frame.color_range == AVCOL_RANGE_JPEG);
}

}  // namespace orvel::phone
