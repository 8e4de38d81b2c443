#include "OrvelAgent/Platform/Linux/PulseMonitor.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include "OrvelAgent/Platform/Linux/PulseLoop.h"
#include "OrvelAgent/Platform/Linux/XConnect.h"

using namespace std::chrono_literals;

namespace orvel {

namespace {

constexpr Duration firstRetry = 250ms, longestRetry = 8s;

// A server that restarts, or an output that is replaced, is no reason to complain.
constexpr int failuresToMention = 3;

// The output is asked to run in steps of this length. Left alone it may run two seconds ahead, and
// its monitor with it.
constexpr Duration pieceLength = 20ms;

// What waits in the server at most when this queue cannot keep up; older sound is of no use.
constexpr Duration longestBacklog = 500ms;

// Computers play nothing most of the time, and every piece of it would wake the whole way to the
// phone.
constexpr Duration silenceTold = 1s;

constexpr std::uint32_t channels = 2;

std::uint32_t bytesOf(Duration duration, const pa_sample_spec& format) {
    const auto frames = duration * format.rate / Duration(1s);
    return static_cast<std::uint32_t>(frames * pa_frame_size(&format));
}

template <auto Free>
struct Freeing {
    template <class Thing>
    void operator()(Thing* thing) const {
        Free(thing);
    }
};

bool isSilent(ByteView sound) {
    for (; sound.size() >= sizeof(float); sound = sound.subspan(sizeof(float))) {
        float sample = 0;
        std::memcpy(&sample, sound.data(), sizeof sample);
        if (sample != 0) return false;
    }
    return true;
}

// Nobody waits for it: its callback comes, or the connection ends.
void letRun(pa_operation* operation) {
    if (operation) pa_operation_unref(operation);
}

}  // namespace

// From the attempt to connect until the next one; what failed does nothing any more.
struct PulseMonitor::Connection {
    explicit Connection(PulseMonitor& owner) : loop(owner.queue) {
        const std::unique_ptr<pa_proplist, Freeing<pa_proplist_free>> properties(pa_proplist_new());
        pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_NAME, "Orvel");
        // It looks on the X server for the name of a sound server.
        const auto hold = holdXConnecting();
        context.reset(pa_context_new_with_proplist(loop.api(), nullptr, properties.get()));
        pa_context_set_state_callback(
            context.get(),
            [](pa_context*, void* monitor) {
                auto& self = of(monitor);
                self.queue.assertCurrent();
                self.connectionChanged();
            },
            &owner);
        pa_context_set_subscribe_callback(
            context.get(),
            [](pa_context*, pa_subscription_event_type_t event, std::uint32_t, void* monitor) {
                auto& self = of(monitor);
                self.queue.assertCurrent();
                // An output changes with every step of its volume, which is nothing to us.
                const bool isOutput =
                    (event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SINK;
                const bool isChange =
                    (event & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_CHANGE;
                if (!(isOutput && isChange)) self.followDefault();
            },
            &owner);
    }

    // It may be one of libpulse's callbacks that brings this about; nothing is called from here on.
    ~Connection() {
        endStream();
        pa_context_set_state_callback(context.get(), nullptr, nullptr);
        pa_context_set_subscribe_callback(context.get(), nullptr, nullptr);
        pa_context_disconnect(context.get());
    }

    void endStream() {
        if (!stream) return;
        pa_stream_set_state_callback(stream.get(), nullptr, nullptr);
        pa_stream_set_read_callback(stream.get(), nullptr, nullptr);
        pa_stream_disconnect(stream.get());
        stream.reset();
    }

    PulseLoop loop;
    std::unique_ptr<pa_context, Freeing<pa_context_unref>> context;
    bool isReady = false;

    bool isAsking = false;  // for the default output
    bool asksAgain = false;
    struct Source {
        std::string monitor;  // its name; empty: there is none
        std::uint32_t rate = 0;
        bool operator==(const Source&) const = default;
    };
    Source wanted;  // the default output

    std::unique_ptr<pa_stream, Freeing<pa_stream_unref>> stream;
    Source heard;        // where it comes from, and its rate
    Duration silence{};  // since the last sound
};

PulseMonitor& PulseMonitor::of(void* monitor) {
    return *static_cast<PulseMonitor*>(monitor);
}

PulseMonitor::PulseMonitor(SerialQueue& audioQueue, std::string serverName)
    : queue(audioQueue), server(std::move(serverName)) {}

PulseMonitor::~PulseMonitor() = default;

void PulseMonitor::start(Receiver onSound) {
    queue.assertCurrent();
    stop();
    receiver = std::make_shared<const Receiver>(std::move(onSound));
    connect();
}

void PulseMonitor::stop() {
    queue.assertCurrent();
    receiver.reset();
    nextTry.cancel();
    connection.reset();
    failures = 0;
}

void PulseMonitor::connect() {
    connection = std::make_unique<Connection>(*this);
    pa_context* const context = connection->context.get();
    const int error = pa_context_connect(context, server.empty() ? nullptr : server.c_str(),
                                         PA_CONTEXT_NOAUTOSPAWN, nullptr);
    // Mostly connectionChanged() was told of it.
    if (error < 0 && !nextTry.isPending()) retry(pa_strerror(pa_context_errno(context)));
}

void PulseMonitor::connectionChanged() {
    pa_context* const context = connection->context.get();
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY:
            connection->isReady = true;
            letRun(pa_context_subscribe(
                context,
                static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SERVER |
                                                    PA_SUBSCRIPTION_MASK_SINK),
                nullptr, nullptr));
            followDefault();
            break;
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            connection->isReady = false;
            connection->endStream();
            retry(pa_strerror(pa_context_errno(context)));
            break;
        default:
            break;
    }
}

// Once for several calls while the answer is not there yet.
void PulseMonitor::followDefault() {
    if (!connection->isReady) return;
    connection->asksAgain = connection->isAsking;
    if (std::exchange(connection->isAsking, true)) return;
    connection->wanted = {};
    letRun(pa_context_get_sink_info_by_name(
        connection->context.get(), "@DEFAULT_SINK@",
        [](pa_context*, const pa_sink_info* output, int end, void* monitor) {
            auto& self = of(monitor);
            self.queue.assertCurrent();
            auto& asked = *self.connection;
            if (!end) {
                const char* const name = output->monitor_source_name;
                asked.wanted = {name ? name : "", output->sample_spec.rate};
                return;
            }
            asked.isAsking = false;
            if (asked.asksAgain) return self.followDefault();
            self.listen();
        },
        this));
}

void PulseMonitor::listen() {
    if (connection->wanted.monitor.empty()) {
        connection->endStream();
        return retry("there is no output");
    }
    if (connection->stream && connection->heard == connection->wanted) return;
    connection->endStream();

    // Whoever has another rate is resampled here, better than a server does it by default.
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, connection->wanted.rate, channels};
    connection->stream.reset(
        pa_stream_new(connection->context.get(), "What the computer plays", &format, nullptr));
    pa_stream* const stream = connection->stream.get();
    if (!stream) return retry(pa_strerror(pa_context_errno(connection->context.get())));
    connection->heard = connection->wanted;
    pa_stream_set_state_callback(
        stream,
        [](pa_stream*, void* monitor) {
            auto& self = of(monitor);
            self.queue.assertCurrent();
            self.streamChanged();
        },
        this);
    pa_stream_set_read_callback(
        stream,
        [](pa_stream*, std::size_t, void* monitor) {
            auto& self = of(monitor);
            self.queue.assertCurrent();
            self.read();
        },
        this);
    constexpr auto serversChoice = static_cast<std::uint32_t>(-1);
    const pa_buffer_attr buffer{bytesOf(longestBacklog, format), serversChoice, serversChoice,
                                serversChoice, bytesOf(pieceLength, format)};
    // By its name and fixed to it: @DEFAULT_MONITOR@ fixed gives nothing under PipeWire, and one
    // that the server moves may come to hear a microphone.
    if (pa_stream_connect_record(
            stream, connection->heard.monitor.c_str(), &buffer,
            static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE)) < 0) {
        streamChanged();
    }
}

void PulseMonitor::streamChanged() {
    if (PA_STREAM_IS_GOOD(pa_stream_get_state(connection->stream.get()))) return;
    // The output was removed, or the server does not let anybody listen.
    connection->endStream();
    retry(pa_strerror(pa_context_errno(connection->context.get())));
}

void PulseMonitor::read() {
    const auto held = shared_from_this();  // the receiver may let go of us
    pa_stream* const stream = connection->stream.get();
    const void* data = nullptr;
    std::size_t size = 0;
    while (pa_stream_peek(stream, &data, &size) == 0 && size > 0) {
        if (!deliver(data, size)) return;
        pa_stream_drop(stream);
    }
}

// `data` null: nothing was played for so long. False: the receiver ended what was being read.
bool PulseMonitor::deliver(const void* data, std::size_t size) {
    static constexpr std::array<std::uint8_t, 4096> silence = {};

    failures = 0;
    saidThereIsNone = false;
    const auto frames = static_cast<std::int64_t>(size / (channels * sizeof(float)));
    if (data && !isSilent({static_cast<const std::uint8_t*>(data), size})) {
        connection->silence = {};
    } else if (connection->silence >= silenceTold) {
        return true;
    } else {
        connection->silence += frames * Duration(1s) / connection->heard.rate;
    }
    const auto current = receiver;
    const PcmFormat format{static_cast<double>(connection->heard.rate), channels,
                           PcmFormat::Sample::float32, true};
    for (std::size_t done = 0; done < size;) {
        const ByteView piece = data
                                   ? ByteView(static_cast<const std::uint8_t*>(data), size)
                                   : ByteView(silence).first(std::min(size - done, silence.size()));
        (*current)({format, piece.size() / (channels * sizeof(float)), {&piece, 1}});
        if (receiver != current) return false;
        done += piece.size();
    }
    return true;
}

void PulseMonitor::retry(const char* reason) {
    if (++failures >= failuresToMention && !std::exchange(saidThereIsNone, true)) {
        std::fprintf(stderr, "orvel: the sound cannot be captured, only the picture: %s\n", reason);
    }
    const Duration delay = std::min(firstRetry * (1 << std::min(failures - 1, 8)), longestRetry);
    nextTry = queue.after(delay, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        if (self->connection->isReady) {
            self->followDefault();
        } else {
            self->connect();
        }
    });
}

}  // namespace orvel
