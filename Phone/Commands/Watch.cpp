#include <cstdio>
#include <memory>
#include <random>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"
#include "OrvelKit/Base/Unicode.h"
#include "Phone/Commands/AgentSession.h"
#include "Phone/Interrupt.h"
#include "Phone/LatencyMeasurement.h"
#include "Phone/LatencyProbe.h"
#include "Phone/LinkHost.h"
#include "Phone/Percentile.h"
#include "Phone/Recorder.h"
#include "Phone/VideoDecoder.h"
#include "Phone/WatchStatistics.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration firstPatience = 15s;       // for the first picture
constexpr Duration keyframePatience = 500ms;  // before a keyframe is asked for again
constexpr double frameMilliseconds = 1000.0 / 60;

MonotonicTime now() {
    return std::chrono::steady_clock::now();
}

template <class... Values>
std::string formatted(const char* format, Values... values) {
    char text[200];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

struct WatchOptions {
    std::optional<double> seconds;
    std::string film;
    std::int64_t maxPixels = 1920;
    std::optional<std::uint32_t> display;
    std::string audio = "on";
    bool events = false;
    bool latencyProbe = false;
    std::size_t samples = 200;
    std::vector<int> probeAt{32, 32};
};

// One watching, from the welcome to the summary.
class Watch {
public:
    Watch(CommandContext& commandContext, AgentSession& agentSession,
          const WatchOptions& watchOptions, const Welcome& welcome)
        : context(commandContext),
          session(agentSession),
          options(watchOptions),
          host(LinkHost::pathFor(context.settings.stateFolder, session.known()->id), welcome,
               [this](const Control& control) { session.link().send(control); }),
          statistics(session.connectStartedAt(), session.isSameMachine()) {
        if (!options.film.empty()) {
            recorder.emplace(options.film, options.audio == "on" ? Recorder::Sound::recorded
                                                                 : Recorder::Sound::none);
        }
        if (options.latencyProbe) startProbe();
        if (!host.problem().empty()) {
            context.console.remark("Other commands cannot use this connection: " + host.problem() +
                                   ".");
        }
    }

    void run(const std::vector<PhoneConnection::Event>& early) {
        const MonotonicTime begin = now();
        for (const auto& event : early)
            take(event);
        MonotonicTime nextTick = now() + 1s;
        while (!interrupt.isRequested() && !isOver(begin)) {
            MonotonicTime until = std::min({nextTick, now() + 100ms, endsAt()});
            const bool measures = measurement && decoder.hasPicture();
            if (measures) until = std::min(until, measurement->nextStep());
            if (auto event = session.link().next(until - now())) {
                take(*event);
                host.offer(*std::move(event));
            } else if (session.link().closed()) {
                break;
            }
            if (measures) measurement->step(now());
            if (now() < nextTick) continue;
            nextTick += 1s;
            showLive();
        }
        end();
    }

private:
    void startProbe() {
        // Over the internet whoever measures has to know whether it is.
        if (!context.settings.internet && !session.isSameMachine()) {
            throw CommandError(
                "--latency-probe needs the computer's display and this phone's "
                "clock to be on one machine.");
        }
        std::string problem;
        probe = LatencyProbe::open(options.probeAt[0], options.probeAt[1], problem);
        if (!probe) throw CommandError("The square cannot be shown: " + problem + ".");
        measurement.emplace([this](bool white) { return probe->show(white); }, options.samples,
                            std::random_device{}());
    }

    bool isOver(MonotonicTime begin) const {
        if (recorder && !recorder->problem().empty()) return true;
        if (measurement && measurement->isDone()) return true;
        if (!statistics.firstPictureAt()) return now() - begin > firstPatience;
        return now() >= endsAt();
    }

    MonotonicTime endsAt() const {
        const auto first = statistics.firstPictureAt();
        if (!first || !options.seconds) return MonotonicTime::max();
        const std::chrono::duration<double> length(*options.seconds);
        return *first + std::chrono::duration_cast<Duration>(length);
    }

    void take(const PhoneConnection::Event& event) {
        if (const auto* rejected = event.as<Control::Rejected>()) rejection = rejected->reason;
        if (const auto* format = event.as<VideoFormat>()) {
            decoder.setFormat(*format);
            if (recorder) recorder->add(*format, event.arrivedAt);
        }
        if (const auto* frame = event.as<VideoFrame>()) take(*frame, event.arrivedAt);
        if (const auto* packet = event.as<AudioPacket>()) {
            statistics.add(*packet);
            if (recorder) recorder->add(*packet, event.arrivedAt);
        }
        if (const auto* control = event.as<Control>()) tell(*control);
    }

    // What happens on the computer beside its picture.
    void tell(const Control& control) {
        std::string line;
        if (const auto* front = control.as<Control::FrontApp>()) {
            line = front->name.empty() && front->bundleID.empty()
                       ? "nothing is in front"
                       : "in front: " + printable(front->name) + " (" + printable(front->bundleID) +
                             ")";
        } else if (const auto* focus = control.as<Control::TextFocus>()) {
            line = focus->focused ? "a text field has the keyboard" : "no text field any more";
        } else if (const auto* clipboard = control.as<Control::Clipboard>()) {
            line = "copied: " + shortened(clipboard->text);
        } else {
            return;
        }
        if (!context.settings.json) {
            context.console.say(line);
        } else if (options.events) {
            context.console.say(control.toJson());
        }
    }

    static std::string shortened(const std::string& text) {
        constexpr std::size_t most = 60;  // characters
        std::size_t length = 0;
        for (std::size_t count = 0; count < most && length < text.size(); ++count)
            length +=
                std::max<std::size_t>(characterLength(std::string_view(text).substr(length)), 1);
        return printable(text.substr(0, length)) + (length < text.size() ? " ..." : "");
    }

    void take(const VideoFrame& frame, MonotonicTime arrivedAt) {
        const auto outcome = decoder.decode(frame);
        const MonotonicTime decodedAt = now();
        statistics.add(frame, decodedAt, outcome);
        if (outcome == VideoDecoder::Outcome::picture) {
            if (measurement) measurement->look(decoder, decodedAt);
        } else if (decodedAt >= nextKeyframeRequest) {
            session.link().send({Control::RequestKeyframe{}});
            nextKeyframeRequest = decodedAt + keyframePatience;
        }
        if (recorder) recorder->add(frame, arrivedAt);
    }

    void showLive() {
        if (context.settings.json) return;
        const auto numbers = statistics.takeInterval(now());
        std::string line = formatted("%5.1f fps  %6.2f Mbit/s", numbers.framesPerSecond,
                                     numbers.megabitsPerSecond);
        if (numbers.latencyMedian) line += formatted("  latency %.1f ms", *numbers.latencyMedian);
        if (numbers.audioPackets > 0) {
            line += formatted("  sound %.0f kbit/s", numbers.audioKilobitsPerSecond);
        }
        line += "  keyframes " + std::to_string(statistics.keyframes()) + "  drops " +
                std::to_string(statistics.drops());
        if (measurement) {
            line += "  probe " + std::to_string(measurement->samples().size()) + "/" +
                    std::to_string(options.samples);
        }
        context.console.live(line);
    }

    void end() {
        const MonotonicTime endedAt = now();
        if (recorder) recorder->finish(endedAt);
        const auto total = statistics.total(endedAt);
        if (statistics.firstPictureAt()) {
            context.settings.json ? context.console.say(json(total)) : sayTotal(total);
        }
        if (rejection) throw session.rejectedError(*rejection);
        if (session.link().closed()) throw session.endedError();
        if (recorder && !recorder->problem().empty()) {
            throw CommandError("The film cannot be written: " + recorder->problem() + ".");
        }
        if (!statistics.firstPictureAt() && !interrupt.isRequested()) {
            throw CommandError(session.name() + " sends no picture.");
        }
        if (measurement && !measurement->problem().empty()) {
            throw CommandError(measurement->problem());
        }
    }

    void sayTotal(const WatchStatistics::Numbers& total) {
        Console& console = context.console;
        console.say(formatted("%llu frames in %.1f s: %.1f fps, %.2f Mbit/s",
                              static_cast<unsigned long long>(total.frames), total.seconds,
                              total.framesPerSecond, total.megabitsPerSecond));
        console.say(formatted("keyframes %llu, drops %llu (%llu of them after a gap)",
                              static_cast<unsigned long long>(total.keyframes),
                              static_cast<unsigned long long>(total.drops),
                              static_cast<unsigned long long>(decoder.gaps())));
        if (options.audio == "on") {
            console.say(total.audioPackets == 0
                            ? "no sound"
                            : formatted("sound: %llu packets, %.0f kbit/s, %llu lost",
                                        static_cast<unsigned long long>(total.audioPackets),
                                        total.audioKilobitsPerSecond,
                                        static_cast<unsigned long long>(total.audioLost)));
        }
        if (total.latencyMedian) {
            console.say(formatted("capture to decoded picture: median %.1f ms, 95 %% %.1f ms",
                                  *total.latencyMedian, *total.latency95));
        }
        console.say(
            formatted("connect to first picture: %.0f ms", *statistics.firstPictureMilliseconds()));
        if (measurement) sayMeasurement();
        if (recorder) {
            for (const std::string& file : recorder->files())
                console.say("film: " + file);
        }
    }

    void sayMeasurement() {
        const auto& samples = measurement->samples();
        if (samples.empty()) return;
        const double middle = median(samples).value(), most = percentile(samples, 0.95).value();
        context.console.say(formatted(
            "change on the display to decoded picture, %zu samples: median %.1f ms (%.2f frame "
            "times), 95 %% %.1f ms (%.2f), not seen %zu",
            samples.size(), middle, middle / frameMilliseconds, most, most / frameMilliseconds,
            measurement->lost()));
    }

    std::string json(const WatchStatistics::Numbers& total) {
        JsonWriter writer;
        const auto number = [&](const char* key, std::optional<double> value) {
            if (!value) return;
            writer.key(key);
            writer.number(*value);
        };
        const auto count = [&](const char* key, std::uint64_t value) {
            writer.key(key);
            writer.unsignedInteger(value);
        };
        writer.beginObject();
        number("seconds", total.seconds);
        count("frames", total.frames);
        number("framesPerSecond", total.framesPerSecond);
        number("megabitsPerSecond", total.megabitsPerSecond);
        count("keyframes", total.keyframes);
        count("drops", total.drops);
        count("gaps", decoder.gaps());
        count("audioPackets", total.audioPackets);
        count("audioLost", total.audioLost);
        number("audioKilobitsPerSecond", total.audioKilobitsPerSecond);
        number("latencyMedianMs", total.latencyMedian);
        number("latency95Ms", total.latency95);
        number("firstPictureMs", statistics.firstPictureMilliseconds());
        count("width", static_cast<std::uint64_t>(decoder.width()));
        count("height", static_cast<std::uint64_t>(decoder.height()));
        if (measurement) {
            count("probeSamples", measurement->samples().size());
            count("probeLost", measurement->lost());
            number("probeMedianMs", median(measurement->samples()));
            number("probe95Ms", percentile(measurement->samples(), 0.95));
        }
        if (recorder) {
            writer.key("files");
            writer.beginArray();
            for (const std::string& file : recorder->files())
                writer.string(file);
            writer.endArray();
        }
        writer.endObject();
        return writer.take();
    }

    CommandContext& context;
    AgentSession& session;
    const WatchOptions& options;
    const Interrupt interrupt;
    LinkHost host;
    VideoDecoder decoder;
    WatchStatistics statistics;
    std::optional<Recorder> recorder;
    std::unique_ptr<LatencyProbe> probe;
    std::optional<LatencyMeasurement> measurement;
    std::optional<Rejection> rejection;
    MonotonicTime nextKeyframeRequest{};
};

// Has the computer show that display instead, unless it does already.
void selectDisplay(AgentSession& session, AgentSession::Admission& admission, std::uint32_t id) {
    if (admission.welcome.displayID == id) return;
    bool exists = false;
    for (const auto& display : admission.welcome.displays.value_or(std::vector<DisplayInfo>{}))
        exists = exists || display.id == id;
    if (!exists) {
        throw CommandError(session.name() + " has no display " + std::to_string(id) +
                           ": see orvel-phone displays.");
    }
    admission.welcome = session.selectDisplay(id);
    admission.early.clear();
    // A display that went in the meantime is answered with another one.
    if (admission.welcome.displayID != id) {
        throw CommandError(session.name() + " does not show display " + std::to_string(id) + ".");
    }
}

void watch(CommandContext& context, const WatchOptions& options) {
    AgentSession session = AgentSession::openForVideo(context);
    auto admission = session.admit(options.maxPixels, 60s);
    if (options.audio == "off") session.link().send({Control::Audio{false}});
    if (options.display) selectDisplay(session, admission, *options.display);
    admission.welcome.agentKey = session.known()->publicKey;
    Watch(context, session, options, admission.welcome).run(admission.early);
}

}  // namespace

void addWatch(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<WatchOptions>();
    auto* command = app.add_subcommand(
        "watch",
        "Watch the screen: numbers, and a film if wanted. Other commands use its "
        "connection while it runs");
    command->add_option("--seconds", options->seconds, "How long, from the first picture on")
        ->check(CLI::Range(0.001, 1e6));
    command->add_option("-o,--output", options->film,
                        "Record picture and sound to this .mp4 or .mkv file, both by their time of "
                        "arrival; after a change of the picture's size to one with -2 before its "
                        "ending, and so on");
    command->add_option("--max-pixels", options->maxPixels, "Longer edge at most (1920)")
        ->check(CLI::Range(1, 16384));
    command->add_option("--display", options->display, "The display's ID (see displays)");
    command->add_option("--audio", options->audio, "on (which it is without) or off")
        ->check(CLI::IsMember({"on", "off"}));
    command->add_flag("--events", options->events,
                      "With --json: also a line for each application that comes in front, text "
                      "field and copied text, as the computer reports it; these lines are always "
                      "there without --json");
    auto* probe = command->add_flag("--latency-probe", options->latencyProbe,
                                    "Measure from a change on $DISPLAY to the decoded picture");
    command->add_option("--samples", options->samples, "How many for --latency-probe (200)")
        ->check(CLI::Range(1, 100'000))
        ->needs(probe);
    command->add_option("--probe-at", options->probeAt, "Where its square lies: X Y (32 32)")
        ->expected(2)
        ->needs(probe);
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { watch(context, *options); };
    });
}

}  // namespace orvel::phone
