#include <algorithm>
#include <memory>
#include <mutex>

#include "Phone/Commands/AgentSession.h"
#include "Phone/Interrupt.h"
#include "Phone/VideoDecoder.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration firstPatience = 15s;  // for any picture
constexpr Duration sharpPatience = 1s;   // for a better one after that
constexpr Duration settlePatience = 2s;  // the same over the internet
// An agent sharpens a picture that has been still for 0.4 s; any other keyframe comes closer to
// the frame before, or with its time.
constexpr std::uint64_t stillMicros = 300'000;

struct ShotOptions {
    std::string path;
    std::int64_t maxPixels = 3840;
};

void save(CommandContext& context, const Picture& picture, const std::string& path) {
    const std::string problem = writePng(picture, path);
    if (!problem.empty()) throw CommandError(path + " cannot be written: " + problem + ".");
    context.console.say(path + ": " + std::to_string(picture.width) + "x" +
                        std::to_string(picture.height));
}

// Over the internet nothing says when a picture is as sharp as it gets, so what counts is time.
class NewestPicture {
public:
    // On the decoder's thread, which a conversion of every picture would hold up.
    void take(const RtcPhone::Picture& next) {
        // A plane may end with its last pixel rather than with its last row's stride.
        const auto rows = [](const std::uint8_t* plane, int width, int height, int stride) {
            Bytes copy(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
            std::copy_n(plane, static_cast<std::ptrdiff_t>(stride) * (height - 1) + width,
                        copy.begin());
            return copy;
        };
        const int halfWidth = (next.width + 1) / 2, halfHeight = (next.height + 1) / 2;
        const std::lock_guard hold(mutex);
        shape = next;
        luma = rows(next.luma, next.width, next.height, next.lumaStride);
        cb = rows(next.cb, halfWidth, halfHeight, next.chromaStride);
        cr = rows(next.cr, halfWidth, halfHeight, next.chromaStride);
    }
    bool hasPicture() const {
        const std::lock_guard hold(mutex);
        return !luma.empty();
    }
    Picture get() const {
        const std::lock_guard hold(mutex);
        return rgbFrom({shape.width, shape.height, luma.data(), cb.data(), cr.data(),
                        shape.lumaStride, shape.chromaStride});
    }

private:
    mutable std::mutex mutex;
    RtcPhone::Picture shape;  // without its planes, which are the library's
    Bytes luma, cb, cr;
};

void shotOverInternet(CommandContext& context, const ShotOptions& options) {
    const Interrupt interrupt;
    NewestPicture newest;
    AgentSession session = AgentSession::openOverInternet(
        context, AgentSession::choose(context),
        [&newest](const RtcPhone::Picture& picture) { newest.take(picture); });
    session.admit(options.maxPixels, 60s);
    session.link().send({Control::Audio{false}});
    const MonotonicTime begin = std::chrono::steady_clock::now();
    std::optional<MonotonicTime> first;
    for (;;) {
        session.link().next(50ms);
        const MonotonicTime now = std::chrono::steady_clock::now();
        if (!first && newest.hasPicture()) first = now;
        if (interrupt.isRequested() || session.link().closed()) break;
        if (now >= (first ? *first + settlePatience : begin + firstPatience)) break;
    }
    if (!newest.hasPicture() && session.link().closed()) throw session.endedError();
    if (!newest.hasPicture()) throw CommandError(session.name() + " sends no picture.");
    save(context, newest.get(), options.path);
}

void shot(CommandContext& context, const ShotOptions& options) {
    if (context.settings.internet) return shotOverInternet(context, options);
    const Interrupt interrupt;
    AgentSession session = AgentSession::open(context);
    auto admission = session.admit(options.maxPixels, 60s);
    VideoDecoder decoder;
    std::optional<std::uint64_t> newestPts;
    MonotonicTime deadline = std::chrono::steady_clock::now() + firstPatience;
    bool isSharp = false;
    const auto look = [&](const PhoneConnection::Event& event) {
        if (const auto* format = event.as<VideoFormat>()) decoder.setFormat(*format);
        const auto* frame = event.as<VideoFrame>();
        if (!frame) return;
        const bool hadPicture = decoder.hasPicture();
        const auto outcome = decoder.decode(*frame);
        if (outcome == VideoDecoder::Outcome::damaged) {
            session.phone().send({Control::RequestKeyframe{}});
        }
        if (outcome != VideoDecoder::Outcome::picture) return;
        isSharp = frame->isKeyframe && newestPts && frame->ptsMicros > *newestPts + stillMicros;
        newestPts = frame->ptsMicros;
        if (!hadPicture) deadline = std::chrono::steady_clock::now() + sharpPatience;
    };
    for (const auto& event : admission.early)
        look(event);
    while (!isSharp && !interrupt.isRequested() && std::chrono::steady_clock::now() < deadline) {
        if (const auto event = session.phone().next(100ms)) look(*event);
        if (session.phone().closed() && !decoder.hasPicture()) throw session.endedError();
        if (session.phone().closed()) break;
    }
    if (!decoder.hasPicture()) throw CommandError(session.name() + " sends no picture.");
    save(context, decoder.picture(), options.path);
}

}  // namespace

void addShot(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ShotOptions>();
    auto* command = app.add_subcommand("shot", "Save the screen as a picture");
    command->add_option("FILE", options->path, "The PNG file")->required();
    command->add_option("--max-pixels", options->maxPixels, "Longer edge at most (3840)")
        ->check(CLI::Range(1, 16384));
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { shot(context, *options); };
    });
}

}  // namespace orvel::phone
