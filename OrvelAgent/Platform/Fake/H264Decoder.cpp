#include "OrvelAgent/Platform/Fake/H264Decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace orvel {

struct H264Decoder::Implementation {
    AVCodecContext* context = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
};

H264Decoder::H264Decoder() : av(std::make_unique<Implementation>()) {
    av_log_set_level(AV_LOG_ERROR);
    const auto* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    av->context = avcodec_alloc_context3(codec);
    av->context->thread_count = 1;
    // Any damage is an error, not something to paint over.
    av->context->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    av->packet = av_packet_alloc();
    av->frame = av_frame_alloc();
    if (!codec || avcodec_open2(av->context, codec, nullptr) < 0) std::abort();
}

H264Decoder::~H264Decoder() {
    av_frame_free(&av->frame);
    av_packet_free(&av->packet);
    avcodec_free_context(&av->context);
}

std::optional<H264Decoder::Picture> H264Decoder::decode(const std::vector<ByteView>& parameterSets,
                                                        ByteView data) {
    // Start codes instead of length prefixes.
    static constexpr std::uint8_t startCode[] = {0, 0, 0, 1};
    Bytes stream;
    for (const auto set : parameterSets) {
        append(stream, startCode);
        append(stream, set);
    }
    for (auto rest = data; !rest.empty();) {
        if (rest.size() < 4 || rest.size() - 4 < loadBE32(rest.data())) return std::nullopt;
        const auto length = loadBE32(rest.data());
        append(stream, startCode);
        append(stream, rest.subspan(4, length));
        rest = rest.subspan(4 + length);
    }
    if (av_new_packet(av->packet, static_cast<int>(stream.size())) < 0) std::abort();
    std::memcpy(av->packet->data, stream.data(), stream.size());
    const int sent = avcodec_send_packet(av->context, av->packet);
    av_packet_unref(av->packet);
    if (sent < 0 || avcodec_receive_frame(av->context, av->frame) < 0) return std::nullopt;

    Picture picture;
    picture.width = av->frame->width;
    picture.height = av->frame->height;
    picture.isKeyframe = av->frame->key_frame != 0;
    const auto copy = [&](int plane, int width, int height, std::vector<std::uint8_t>& to) {
        for (int y = 0; y < height; ++y) {
            const auto* row = av->frame->data[plane] + y * av->frame->linesize[plane];
            to.insert(to.end(), row, row + width);
        }
    };
    copy(0, picture.width, picture.height, picture.luma);
    copy(1, picture.width / 2, picture.height / 2, picture.cb);
    copy(2, picture.width / 2, picture.height / 2, picture.cr);
    av_frame_unref(av->frame);
    return picture;
}

H264Decoder::Colours H264Decoder::colours() const {
    return {av->context->color_primaries, av->context->color_trc, av->context->colorspace,
            av->context->color_range == AVCOL_RANGE_JPEG};
}

int H264Decoder::profile() const {
    return av->context->profile;
}

int H264Decoder::delay() const {
    return av->context->has_b_frames;
}

namespace {

double psnr(double squaredError, double samples) {
    return squaredError == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * samples / squaredError);
}

}  // namespace

double lumaPsnr(const PixelBuffer& source, const H264Decoder::Picture& decoded, const Rect& area) {
    std::int64_t sum = 0;
    for (int y = area.y; y < area.y + area.height; ++y) {
        const auto* left = source.luma + static_cast<std::ptrdiff_t>(y) * source.lumaStride;
        const auto* right = &decoded.luma[static_cast<std::size_t>(y) * decoded.width];
        for (int x = area.x; x < area.x + area.width; ++x) {
            const int difference = left[x] - right[x];
            sum += difference * difference;
        }
    }
    return psnr(static_cast<double>(sum), double(area.width) * area.height);
}

double lumaPsnr(const PixelBuffer& source, const H264Decoder::Picture& decoded) {
    return lumaPsnr(source, decoded, {0, 0, source.width, source.height});
}

double chromaPsnr(const PixelBuffer& source, const H264Decoder::Picture& decoded) {
    std::int64_t sum = 0;
    const int width = source.width / 2, height = source.height / 2;
    for (int y = 0; y < height; ++y) {
        const auto* pairs = source.chroma + static_cast<std::ptrdiff_t>(y) * source.chromaStride;
        for (int x = 0; x < width; ++x) {
            const auto at = static_cast<std::size_t>(y) * width + x;
            const int blue = pairs[2 * x] - decoded.cb[at], red = pairs[2 * x + 1] - decoded.cr[at];
            sum += blue * blue + red * red;
        }
    }
    return psnr(static_cast<double>(sum), 2.0 * width * height);
}

}  // namespace orvel
