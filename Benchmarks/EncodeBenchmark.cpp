// orvel-encode-benchmark: what the encoder takes for a picture, against x264 alone.
//
// Each picture is coded by both in turn, so that whatever else runs on the machine hits both
// alike. The other side is x264 as a streaming program sets it up: ultrafast, zerolatency, the
// same average bitrate with half a second of VBV, one thread. Both streams are decoded by
// libavcodec for their PSNR, outside the measured time.

#include <time.h>

#include <cstdint>

extern "C" {
#include <x264.h>
}

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "OrvelAgent/Platform/Fake/H264Decoder.h"
#include "OrvelAgent/Platform/Fake/SyntheticScreen.h"
#include "OrvelAgent/Platform/Linux/X264CompressionSession.h"

namespace orvel {
namespace {

using Scene = SyntheticScreen::Scene;
using Property = CompressionSession::Property;
constexpr int framesPerSecond = 60;

double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Coded {
    Bytes data;
    std::vector<Bytes> parameterSets;
};

// What one side did with one scene.
class Side {
public:
    virtual ~Side() = default;

    void run(const std::shared_ptr<const PixelBuffer>& picture, MonotonicTime time, bool measures) {
        const double wallBefore = seconds(CLOCK_MONOTONIC);
        const double cpuBefore = seconds(CLOCK_PROCESS_CPUTIME_ID);
        const auto coded = encode(picture, time);
        const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID) - cpuBefore;
        const double wall = seconds(CLOCK_MONOTONIC) - wallBefore;

        std::vector<ByteView> sets(coded.parameterSets.begin(), coded.parameterSets.end());
        const auto decoded = decoder.decode(sets, coded.data);
        if (!measures) return;
        cpuTimes.push_back(cpu);
        wallTimes.push_back(wall);
        const double bits = 8.0 * static_cast<double>(coded.data.size());
        allBits += bits;
        if (decoded) {
            psnrs.push_back(lumaPsnr(*picture, *decoded));
            if (!decoded->isKeyframe) largest = std::max(largest, bits);
        }
    }

    double cpuMs() const { return 1e3 * mean(cpuTimes); }
    double wallMs(double share) const {
        auto sorted = wallTimes;
        std::sort(sorted.begin(), sorted.end());
        return 1e3 * sorted[static_cast<std::size_t>(share * double(sorted.size() - 1))];
    }
    double megabits() const {
        return allBits * framesPerSecond / static_cast<double>(cpuTimes.size()) / 1e6;
    }
    double psnr() const { return mean(psnrs); }
    double largestKilobits() const { return largest / 1e3; }

protected:
    virtual Coded encode(const std::shared_ptr<const PixelBuffer>& picture, MonotonicTime time) = 0;

private:
    static double mean(const std::vector<double>& values) {
        return std::accumulate(values.begin(), values.end(), 0.0) /
               std::max(1.0, static_cast<double>(values.size()));
    }

    H264Decoder decoder;
    std::vector<double> cpuTimes, wallTimes, psnrs;
    double allBits = 0, largest = 0;
};

class OwnSide final : public Side {
public:
    OwnSide(int width, int height, std::int64_t bitrate, int slices)
        : created(X264CompressionSession::make({width, height, true}, {slices})) {
        if (!created.session) std::exit(1);
        created.session->set(Property::averageBitRate, bitrate);
        created.session->set(Property::maxKeyFrameIntervalDuration, std::int64_t{4});
        created.session->prepare();
    }

private:
    Coded encode(const std::shared_ptr<const PixelBuffer>& picture, MonotonicTime time) override {
        Coded coded;
        created.session->encode(picture, time, false, [&](const auto& sample) {
            coded.data.assign(sample.data.begin(), sample.data.end());
            for (const auto set : sample.parameterSets)
                coded.parameterSets.emplace_back(set.begin(), set.end());
        });
        return coded;
    }

    CompressionSession::Created created;
};

class PlainSide final : public Side {
public:
    PlainSide(int width, int height, std::int64_t bitrate) {
        x264_param_t p;
        x264_param_default_preset(&p, "ultrafast", "zerolatency");
        p.i_log_level = X264_LOG_NONE;
        p.i_width = width;
        p.i_height = height;
        p.i_csp = X264_CSP_NV12;
        p.i_fps_num = framesPerSecond;
        p.i_fps_den = 1;
        p.i_threads = 1;
        p.i_keyint_max = 4 * framesPerSecond;
        p.rc.i_rc_method = X264_RC_ABR;
        p.rc.i_bitrate = p.rc.i_vbv_max_bitrate = static_cast<int>(bitrate / 1000);
        p.rc.i_vbv_buffer_size = p.rc.i_bitrate / 2;
        p.b_annexb = 0;
        p.b_repeat_headers = 1;
        encoder = x264_encoder_open(&p);
        if (!encoder) std::exit(1);
    }
    ~PlainSide() override { x264_encoder_close(encoder); }

private:
    Coded encode(const std::shared_ptr<const PixelBuffer>& picture, MonotonicTime) override {
        x264_picture_t input, output;
        x264_picture_init(&input);
        input.img.i_csp = X264_CSP_NV12;
        input.img.i_plane = 2;
        input.img.plane[0] = const_cast<std::uint8_t*>(picture->luma);
        input.img.plane[1] = const_cast<std::uint8_t*>(picture->chroma);
        input.img.i_stride[0] = picture->lumaStride;
        input.img.i_stride[1] = picture->chromaStride;
        input.i_pts = pictures++;
        x264_nal_t* units = nullptr;
        int count = 0;
        Coded coded;
        const int size = x264_encoder_encode(encoder, &units, &count, &input, &output);
        if (size > 0) coded.data.assign(units[0].p_payload, units[0].p_payload + size);
        return coded;
    }

    x264_t* encoder;
    std::int64_t pictures = 0;
};

void compare(Scene scene, int width, int height, std::int64_t bitrate, int count, int slices) {
    SyntheticScreen screen(width, height, scene);
    OwnSide own(width, height, bitrate, slices);
    PlainSide plain(width, height, bitrate);
    MonotonicTime time(std::chrono::hours(1));
    // The start, with its keyframe and its settling, is not what is compared.
    const int unmeasured = framesPerSecond;
    for (int i = 0; i < count + unmeasured; ++i) {
        const auto picture = screen.next();
        const bool measures = i >= unmeasured;
        if (i % 2 == 0) own.run(picture, time, measures);
        plain.run(picture, time, measures);
        if (i % 2 == 1) own.run(picture, time, measures);
        time += std::chrono::nanoseconds(1'000'000'000 / framesPerSecond);
    }
    std::printf("%-7s %6.2f %6.2f  %5.2f  %6.2f %6.2f  %6.2f %6.2f  %5.1f %5.1f  %6.0f %6.0f\n",
                SyntheticScreen::name(scene), own.cpuMs(), plain.cpuMs(),
                own.cpuMs() / plain.cpuMs(), own.wallMs(0.5), own.wallMs(0.95), own.megabits(),
                plain.megabits(), own.psnr(), plain.psnr(), own.largestKilobits(),
                plain.largestKilobits());
    std::fflush(stdout);
}

}  // namespace
}  // namespace orvel

int main(int argc, char** argv) {
    int width = 1920, height = 1080, frames = 300, slices = 1;
    double megabits = 3.0 * 1920 * 1080 / 1e6;
    std::string only;
    CLI::App app("CPU for each picture, quality and bitrate, against x264 alone");
    app.add_option("--width", width)->check(CLI::Range(2, 8192));
    app.add_option("--height", height)->check(CLI::Range(2, 8192));
    app.add_option("--frames", frames)->check(CLI::Range(1, 1'000'000));
    app.add_option("--megabits", megabits, "average bitrate")->check(CLI::Range(0.1, 900.0));
    app.add_option("--slices", slices)->check(CLI::Range(1, 8));
    app.add_option("--scene", only, "still, typing, scroll, video, film or noise; default: all");
    CLI11_PARSE(app, argc, argv);

    using orvel::Scene;
    std::printf("%dx%d, target %.2f Mbit/s, %d slice(s)\n", width, height, megabits, slices);
    std::printf(
        "        CPU ms a picture  ratio  own wall ms    Mbit/s         PSNR dB      "
        "largest P, kbit\n");
    std::printf(
        "scene      own  plain          50%%    95%%     own  plain    own plain     "
        "own  plain\n");
    for (auto scene :
         {Scene::still, Scene::typing, Scene::scroll, Scene::video, Scene::film, Scene::noise}) {
        if (!only.empty() && only != orvel::SyntheticScreen::name(scene)) continue;
        orvel::compare(scene, width / 2 * 2, height / 2 * 2,
                       static_cast<std::int64_t>(megabits * 1e6), frames, slices);
    }
    return 0;
}
