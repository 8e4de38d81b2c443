#include <algorithm>
#include <cstdio>
#include <mutex>

#include "OrvelKit/Base/Json.h"
#include "Phone/Commands/WatchOptions.h"
#include "Phone/Interrupt.h"
#include "Phone/LinkHost.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration firstPatience = 15s;  // for the first picture

MonotonicTime now() {
    return std::chrono::steady_clock::now();
}

double secondsFrom(MonotonicTime begin, MonotonicTime end) {
    return std::chrono::duration<double>(end - begin).count();
}

template <class... Values>
std::string formatted(const char* format, Values... values) {
    char text[200];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

// What the decoder's thread leaves for the one that watches.
class PictureCount {
public:
    struct Numbers {
        std::uint64_t pictures = 0;
        int width = 0, height = 0;  // of the newest
        std::optional<MonotonicTime> firstAt;
    };
    void add(const RtcPhone::Picture& picture) {
        const std::lock_guard hold(mutex);
        if (!numbers.firstAt) numbers.firstAt = now();
        ++numbers.pictures;
        numbers.width = picture.width;
        numbers.height = picture.height;
    }
    Numbers get() const {
        const std::lock_guard hold(mutex);
        return numbers;
    }

private:
    mutable std::mutex mutex;
    Numbers numbers;
};

struct Total {
    PictureCount::Numbers count;
    RtcPhone::VideoStatistics video;
    std::uint64_t audioPackets = 0;
    double seconds = 0, firstMilliseconds = 0;

    double framesPerSecond() const {
        return seconds > 0 ? static_cast<double>(count.pictures) / seconds : 0;
    }
    double megabitsPerSecond() const {
        return seconds > 0 ? static_cast<double>(video.bytesReceived) * 8e-6 / seconds : 0;
    }

    std::string json() const {
        JsonWriter writer;
        const auto number = [&](const char* key, double value) {
            writer.key(key);
            writer.number(value);
        };
        const auto whole = [&](const char* key, std::uint64_t value) {
            writer.key(key);
            writer.unsignedInteger(value);
        };
        writer.beginObject();
        number("seconds", seconds);
        whole("frames", count.pictures);
        number("framesPerSecond", framesPerSecond());
        number("megabitsPerSecond", megabitsPerSecond());
        whole("keyframes", video.keyframesDecoded);
        whole("drops", video.framesDropped);
        whole("audioPackets", audioPackets);
        number("firstPictureMs", firstMilliseconds);
        whole("width", static_cast<std::uint64_t>(count.width));
        whole("height", static_cast<std::uint64_t>(count.height));
        writer.endObject();
        return writer.take();
    }

    void sayTo(Console& console) const {
        console.say(formatted("%llu frames in %.1f s: %.1f fps, %.2f Mbit/s",
                              static_cast<unsigned long long>(count.pictures), seconds,
                              framesPerSecond(), megabitsPerSecond()));
        console.say(formatted("%dx%d, %s, keyframes %u, drops %u", count.width, count.height,
                              video.codec.c_str(), video.keyframesDecoded, video.framesDropped));
        console.say(
            formatted("sound: %llu packets", static_cast<unsigned long long>(audioPackets)));
        console.say(formatted("connect to first picture: %.0f ms", firstMilliseconds));
    }
};

}  // namespace

void watchOverInternet(CommandContext& context, const WatchOptions& options) {
    if (!options.film.empty()) throw CommandError("Over the internet nothing can be recorded.");
    if (options.latencyProbe) {
        throw CommandError("--latency-probe works on the local network only.");
    }
    const Interrupt interrupt;
    PictureCount pictures;
    const MonotonicTime begin = now();
    AgentSession session = AgentSession::openOverInternet(
        context, AgentSession::choose(context),
        [&pictures](const RtcPhone::Picture& picture) { pictures.add(picture); });
    auto admission = session.admit(options.maxPixels, 60s);
    AgentLink& link = session.link();
    if (options.audio == "off") link.send({Control::Audio{false}});
    if (options.display) selectDisplay(session, admission, *options.display);
    admission.welcome.agentKey = session.known()->publicKey;
    LinkHost host(LinkHost::pathFor(context.settings.stateFolder, session.known()->id),
                  admission.welcome, [&link](const Control& control) { link.send(control); });

    Total total;
    std::uint64_t shown = 0;
    MonotonicTime nextTick = now() + 1s;
    const auto isOver = [&] {
        const auto first = pictures.get().firstAt;
        if (!first) return now() - begin > firstPatience;
        return options.seconds && secondsFrom(*first, now()) >= *options.seconds;
    };
    while (!interrupt.isRequested() && !isOver()) {
        if (auto event = link.next(std::min<Duration>(nextTick - now(), 50ms))) {
            total.audioPackets += event->as<AudioPacket>() != nullptr;
            host.offer(*std::move(event));
        } else if (link.closed()) {
            break;
        }
        if (now() < nextTick) continue;
        nextTick += 1s;
        const auto count = pictures.get().pictures;
        if (!context.settings.json) {
            context.console.live(formatted(
                "%3llu fps", static_cast<unsigned long long>(count - std::exchange(shown, count))));
        }
    }
    total.count = pictures.get();
    if (total.count.firstAt) {
        total.seconds = secondsFrom(*total.count.firstAt, now());
        total.firstMilliseconds = secondsFrom(begin, *total.count.firstAt) * 1000;
        total.video = session.internet().videoStatistics(1s).value_or(RtcPhone::VideoStatistics{});
        context.settings.json ? context.console.say(total.json()) : total.sayTo(context.console);
    }
    if (link.closed()) throw session.endedError();
    if (!total.count.firstAt && !interrupt.isRequested()) {
        throw CommandError(session.name() + " sends no picture.");
    }
}

}  // namespace orvel::phone
