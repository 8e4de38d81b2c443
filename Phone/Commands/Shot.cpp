#include <memory>

#include "Phone/Commands/AgentSession.h"
#include "Phone/Interrupt.h"
#include "Phone/VideoDecoder.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration firstPatience = 15s;  // for any picture
constexpr Duration sharpPatience = 1s;   // for a better one after that
// The same over the internet, where the rate grows with time and nothing says when a picture is as
// sharp as it gets.
constexpr Duration settlePatience = 2s;
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

void shot(CommandContext& context, const ShotOptions& options) {
    const Interrupt interrupt;
    AgentSession session = AgentSession::openForVideo(context);
    auto admission = session.admit(options.maxPixels, 60s);
    const bool isFar = context.settings.internet.has_value();
    if (isFar) session.link().send({Control::Audio{false}});
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
            session.link().send({Control::RequestKeyframe{}});
        }
        if (outcome != VideoDecoder::Outcome::picture) return;
        isSharp =
            !isFar && frame->isKeyframe && newestPts && frame->ptsMicros > *newestPts + stillMicros;
        newestPts = frame->ptsMicros;
        if (!hadPicture) {
            deadline = std::chrono::steady_clock::now() + (isFar ? settlePatience : sharpPatience);
        }
    };
    for (const auto& event : admission.early)
        look(event);
    while (!isSharp && !interrupt.isRequested() && std::chrono::steady_clock::now() < deadline) {
        if (const auto event = session.link().next(100ms)) look(*event);
        if (session.link().closed() && !decoder.hasPicture()) throw session.endedError();
        if (session.link().closed()) break;
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
