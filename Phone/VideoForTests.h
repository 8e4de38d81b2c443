#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <functional>
#include <stdexcept>
#include <vector>

#include "OrvelKit/Wire/Media.h"

namespace orvel::phone {

// H.264 as an agent makes it, by an encoder that is not the agent's: parameter sets apart, units
// behind 4-byte lengths, no reordering, BT.601 limited range.
class VideoForTests {
public:
    VideoForTests(int pictureWidth, int pictureHeight)
        : width(pictureWidth), height(pictureHeight) {
        av_log_set_level(AV_LOG_QUIET);
        const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
        if (!codec) throw std::runtime_error("libavcodec has no x264");
        context = avcodec_alloc_context3(codec);
        context->width = width;
        context->height = height;
        context->pix_fmt = AV_PIX_FMT_YUV420P;
        context->time_base = {1, 60};
        context->gop_size = 1000;
        context->max_b_frames = 0;
        context->colorspace = AVCOL_SPC_SMPTE170M;
        context->color_range = AVCOL_RANGE_MPEG;
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_opt_set(context->priv_data, "preset", "ultrafast", 0);
        av_opt_set(context->priv_data, "tune", "zerolatency", 0);
        av_opt_set(context->priv_data, "crf", "10", 0);
        av_opt_set(context->priv_data, "x264-params", "scenecut=0", 0);
        av_opt_set(context->priv_data, "forced-idr", "1", 0);
        if (avcodec_open2(context, codec, nullptr) != 0) throw std::runtime_error("no encoder");
        picture = av_frame_alloc();
        picture->format = context->pix_fmt;
        picture->width = width;
        picture->height = height;
        if (av_frame_get_buffer(picture, 0) != 0) throw std::bad_alloc();
        for (const Bytes& unit :
             units({context->extradata, static_cast<std::size_t>(context->extradata_size)})) {
            if ((unit[0] & 0x1F) == 7 || (unit[0] & 0x1F) == 8)
                format.parameterSets.push_back(unit);
        }
    }
    ~VideoForTests() {
        av_frame_free(&picture);
        avcodec_free_context(&context);
    }
    VideoForTests(const VideoForTests&) = delete;
    VideoForTests& operator=(const VideoForTests&) = delete;

    struct Colour {
        std::uint8_t y, u, v;
    };
    VideoFrame frame(const std::function<Colour(int x, int y)>& draw, bool isKeyframe,
                     std::uint64_t ptsMicros) {
        if (av_frame_make_writable(picture) != 0) throw std::bad_alloc();
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const Colour colour = draw(x, y);
                picture->data[0][y * picture->linesize[0] + x] = colour.y;
                picture->data[1][y / 2 * picture->linesize[1] + x / 2] = colour.u;
                picture->data[2][y / 2 * picture->linesize[2] + x / 2] = colour.v;
            }
        }
        picture->pts = count++;
        picture->pict_type = isKeyframe ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
        AVPacket* packet = av_packet_alloc();
        if (avcodec_send_frame(context, picture) != 0 ||
            avcodec_receive_packet(context, packet) != 0) {
            throw std::runtime_error("no packet for a picture");
        }
        VideoFrame frame{(packet->flags & AV_PKT_FLAG_KEY) != 0, ptsMicros, {}};
        for (const Bytes& unit : units({packet->data, static_cast<std::size_t>(packet->size)})) {
            std::uint8_t length[4];
            storeBE32(length, static_cast<std::uint32_t>(unit.size()));
            append(frame.data, length);
            append(frame.data, unit);
        }
        av_packet_free(&packet);
        return frame;
    }
    // All of one brightness.
    VideoFrame grey(std::uint8_t luma, bool isKeyframe = false, std::uint64_t ptsMicros = 0) {
        return frame([=](int, int) { return Colour{luma, 128, 128}; }, isKeyframe, ptsMicros);
    }

    const int width, height;
    VideoFormat format;

private:
    // What lies between the start codes.
    static std::vector<Bytes> units(ByteView stream) {
        std::vector<Bytes> found;
        const auto isCode = [&](std::size_t at) {
            return at + 3 <= stream.size() && stream[at] == 0 && stream[at + 1] == 0 &&
                   stream[at + 2] == 1;
        };
        std::size_t at = 0;
        while (at < stream.size() && !isCode(at))
            ++at;
        while (at < stream.size()) {
            std::size_t end = at + 3;
            while (end < stream.size() && !isCode(end))
                ++end;
            std::size_t length = end - at - 3;
            while (length > 0 && stream[at + 3 + length - 1] == 0)
                --length;
            const ByteView unit = stream.subspan(at + 3, length);
            found.emplace_back(unit.begin(), unit.end());
            at = end;
        }
        return found;
    }

    AVCodecContext* context = nullptr;
    AVFrame* picture = nullptr;
    std::int64_t count = 0;
};

}  // namespace orvel::phone
