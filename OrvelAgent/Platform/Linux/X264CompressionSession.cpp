#include "OrvelAgent/Platform/Linux/X264CompressionSession.h"

extern "C" {
#include <x264.h>
}

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <utility>

#include "OrvelAgent/Platform/Linux/ChangeEnergy.h"

namespace orvel {

namespace {

// Beyond this a second thread brings each picture out sooner; below it is not worth its wake-up.
constexpr int pixelsForTwoSlices = 2'500'000;
constexpr std::int64_t maxBitrate = 1'000'000'000;
constexpr std::size_t lengthPrefix = 4;
constexpr const char* highProfile = "H264_ConstrainedHigh_AutoLevel";
constexpr const char* baselineProfile = "H264_ConstrainedBaseline_AutoLevel";

x264_param_t parameters(int width, int height, int slices, bool isHigh) {
    x264_param_t p;
    x264_param_default_preset(&p, "ultrafast", "zerolatency");
    p.i_log_level = X264_LOG_NONE;
    p.i_width = width;
    p.i_height = height;
    p.i_csp = X264_CSP_NV12;
    p.i_fps_num = 60;
    p.i_fps_den = 1;
    p.b_vfr_input = 0;  // 1 holds each picture back until the next is there
    p.i_threads = slices;
    p.b_sliced_threads = slices > 1;

    // What to code as a keyframe, and how coarsely, is decided here and not by x264.
    p.i_keyint_max = X264_KEYINT_MAX_INFINITE;
    p.i_scenecut_threshold = 0;
    p.i_bframe = 0;
    p.rc.i_rc_method = X264_RC_CQP;
    p.rc.i_qp_constant = 31;
    p.rc.f_ip_factor = p.rc.f_pb_factor = 10;  // QP 11 to 51 may be asked for
    p.analyse.b_mb_info = 1;

    p.analyse.b_transform_8x8 = 1;
    p.analyse.intra = p.analyse.inter = X264_ANALYSE_I4x4 | X264_ANALYSE_I8x8;

    p.b_annexb = 0;  // 4-byte lengths
    p.b_repeat_headers = 0;
    p.b_aud = 0;
    p.vui.b_fullrange = 0;
    p.vui.i_colorprim = 1;  // BT.709
    p.vui.i_transfer = 13;  // sRGB
    p.vui.i_colmatrix = 6;  // BT.601; left out, decoders take 709 for large pictures
    x264_param_apply_profile(&p, isHigh ? "high" : "baseline");
    return p;
}

bool isSlice(const x264_nal_t& unit) {
    return unit.i_type == NAL_SLICE || unit.i_type == NAL_SLICE_IDR;
}

// The slices of a picture lie one behind the other, behind whatever else comes with them.
ByteView slicesOf(const x264_nal_t* units, int count) {
    const auto* end = units + count;
    const auto* first = std::find_if(units, end, isSlice);
    if (first == end) return {};
    const auto& last = end[-1];
    return {first->p_payload, last.p_payload + last.i_payload};
}

std::int64_t microseconds(MonotonicTime time) {
    return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

int coarsestQpFor(double quality) {
    return static_cast<int>(
        std::lround(BlockMap::maxQp -
                    (BlockMap::maxQp - X264CompressionSession::sharpQp) * std::pow(quality, 3)));
}

}  // namespace

CompressionSession::Created CompressionSession::create(const Specification& specification) {
    const bool isLarge =
        std::int64_t{specification.width} * specification.height > pixelsForTwoSlices;
    return X264CompressionSession::make(specification, {.slices = isLarge ? 2 : 1});
}

void X264CompressionSession::Closer::operator()(x264_t* opened) const {
    x264_encoder_close(opened);
}

CompressionSession::Created X264CompressionSession::make(const Specification& wanted,
                                                         const Options& options) {
    const auto fits = [](int length) { return length > 0 && length % 2 == 0; };
    if (!fits(wanted.width) || !fits(wanted.height)) return {nullptr, invalidArgument};
    std::unique_ptr<X264CompressionSession> session(new X264CompressionSession(wanted, options));
    if (!session->open(/*asHigh=*/true)) return {nullptr, encoderFailure};
    return {std::move(session), 0};
}

X264CompressionSession::X264CompressionSession(const Specification& specification,
                                               const Options& options)
    : width(specification.width),
      height(specification.height),
      slices(options.slices),
      blocks(width, height),
      rate(blocks.count()) {}

X264CompressionSession::~X264CompressionSession() = default;

bool X264CompressionSession::open(bool asHigh) {
    auto p = parameters(width, height, slices, asHigh);
    encoder.reset(x264_encoder_open(&p));
    isHigh = asHigh;
    return encoder && readParameterSets();
}

std::int32_t X264CompressionSession::setProfile(const Value& value) {
    const bool wantsHigh = value == Value(std::string(highProfile));
    if (!wantsHigh && value != Value(std::string(baselineProfile))) return unsupported;
    if (wantsHigh == isHigh) return 0;
    if (!encoder) return invalidSession;
    if (pictures > 0) return unsupported;
    return open(wantsHigh) ? 0 : encoderFailure;
}

bool X264CompressionSession::readParameterSets() {
    x264_nal_t* units = nullptr;
    int count = 0;
    if (x264_encoder_headers(encoder.get(), &units, &count) < 0) return false;
    for (const auto* unit = units; unit != units + count; ++unit) {
        if (static_cast<std::size_t>(unit->i_payload) <= lengthPrefix) continue;
        const Bytes set(unit->p_payload + lengthPrefix, unit->p_payload + unit->i_payload);
        if (unit->i_type == NAL_SPS) sps = set;
        if (unit->i_type == NAL_PPS) pps = set;
    }
    constexpr std::size_t constraintFlags = 2;
    if (sps.size() <= constraintFlags || pps.empty()) return false;
    // constraint_set4 and 5: progressive and without B-frames, which is Constrained High. Of
    // Baseline's x264 sets them all by itself.
    if (isHigh) sps[constraintFlags] |= 0x0C;
    return true;
}

std::int32_t X264CompressionSession::set(Property property, const Value& value) {
    const auto integer = [&](std::int64_t least, std::int64_t most) -> std::optional<std::int64_t> {
        const auto* number = std::get_if<std::int64_t>(&value);
        if (!number || *number < least || *number > most) return std::nullopt;
        return *number;
    };
    switch (property) {
        case Property::realTime:
            return std::holds_alternative<bool>(value) ? 0 : invalidArgument;
        case Property::profileLevel:
            return setProfile(value);
        case Property::allowFrameReordering:
            return value == Value(false) ? 0 : unsupported;
        case Property::averageBitRate:
            if (const auto bits = integer(1, maxBitrate)) return rate.setBitrate(*bits), 0;
            return invalidArgument;
        case Property::expectedFrameRate:
            if (const auto frames = integer(1, 240)) {
                return rate.setFrameInterval(1.0 / static_cast<double>(*frames)), 0;
            }
            return invalidArgument;
        case Property::maxKeyFrameIntervalDuration:
            if (const auto seconds = integer(1, 3600)) {
                return keyframeInterval = std::chrono::seconds(*seconds), 0;
            }
            return invalidArgument;
        case Property::quality: {
            const auto* quality = std::get_if<double>(&value);
            if (!quality || !(*quality >= 0 && *quality <= 1)) return invalidArgument;
            isSharp = *quality == 1;
            if (!isSharp) rate.setCoarsestQp(coarsestQpFor(*quality));
            return 0;
        }
    }
    return unsupported;
}

std::int32_t X264CompressionSession::prepare() {
    return encoder ? 0 : invalidSession;  // make() has allocated everything
}

bool X264CompressionSession::isKeyframeDue() const {
    return !last || latest - lastKeyframe >= keyframeInterval;
}

void X264CompressionSession::markChanges(const PixelBuffer& image) {
    if (last && image.sequence == last->sequence) {
        blocks.markNone();
    } else if (last && image.sequence == last->sequence + 1) {
        blocks.mark(image.changed);
    } else {
        blocks.markAll();
    }
}

RateControl::Load X264CompressionSession::loadOf(const PixelBuffer& image, bool isKeyframe) const {
    RateControl::Load load;
    load.isKeyframe = isKeyframe;
    if (isKeyframe) {
        load.energy = pictureEnergy(image);
        load.changedBlocks = blocks.count();
    } else {
        load.energy = changeEnergy(image, *last, blocks);
        load.changedBlocks = blocks.changedCount();
        load.unchangedByQp = blocks.unchangedByQp();
    }
    return load;
}

std::int32_t X264CompressionSession::encode(std::shared_ptr<const PixelBuffer> image,
                                            MonotonicTime time, bool forceKeyframe,
                                            OutputHandler handler) {
    if (!encoder) return invalidSession;
    if (!image || image->width != width || image->height != height) return invalidArgument;

    Sample sample;
    sample.ptsMicros = microseconds(time);

    latest = std::max(latest, time);
    const bool isKeyframe = forceKeyframe || isKeyframeDue();
    rate.advance(time);
    markChanges(*image);
    const auto load = loadOf(*image, isKeyframe);
    if (!isSharp && rate.mustSkip(load)) {
        handler(sample);
        return 0;
    }
    const int qp = isSharp ? sharpQp : rate.chooseQp(load);

    x264_picture_t input, output;
    x264_picture_init(&input);
    input.img.i_csp = X264_CSP_NV12;
    input.img.i_plane = 2;
    // x264 only reads from its input, and is done with it when the call returns.
    input.img.plane[0] = const_cast<std::uint8_t*>(image->luma);
    input.img.plane[1] = const_cast<std::uint8_t*>(image->chroma);
    input.img.i_stride[0] = image->lumaStride;
    input.img.i_stride[1] = image->chromaStride;
    input.i_pts = pictures++;
    input.i_type = isKeyframe ? X264_TYPE_IDR : X264_TYPE_P;
    input.i_qpplus1 = qp + 1;
    if (!isKeyframe) input.prop.mb_info = blocks.constantFlags();

    x264_nal_t* units = nullptr;
    int count = 0;
    if (x264_encoder_encode(encoder.get(), &units, &count, &input, &output) < 0) {
        last.reset();  // the next picture starts anew
        return encoderFailure;
    }
    sample.data = slicesOf(units, count);
    sample.notSync = !output.b_keyframe;
    if (!sample.notSync) {
        sample.parameterSets = {sps, pps};
        lastKeyframe = latest;
    }
    const auto bits = static_cast<std::int64_t>(sample.data.size()) * 8;
    if (isSharp) {
        rate.learn(load, qp, bits);
    } else {
        rate.account(load, qp, bits);
    }
    blocks.coded(qp, isKeyframe);
    last = std::move(image);
    codedQp = qp;
    handler(sample);  // last: it may invalidate the session
    return 0;
}

void X264CompressionSession::invalidate() {
    encoder.reset();
    last.reset();
}

}  // namespace orvel
