#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "OrvelKit/Base/Json.h"
#include "Phone/Commands/ControlSession.h"
#include "Phone/Percentile.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

struct PingOptions {
    std::size_t count = 10;
};

std::string inMilliseconds(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f ms", value);
    return text;
}

// The pong's round trip in ms.
double pingOnce(ControlSession& session, std::uint64_t value) {
    AgentLink& phone = session.link();
    const MonotonicTime sentAt = std::chrono::steady_clock::now();
    const MonotonicTime deadline = sentAt + 5s;
    phone.send({Control::Ping{value}});
    while (auto event = phone.next(deadline - std::chrono::steady_clock::now())) {
        const auto* pong = event->as<Control::Pong>();
        if (!pong) continue;
        if (pong->value != value) {
            throw CommandError(session.name() + " answered another number than it was sent.");
        }
        return std::chrono::duration<double, std::milli>(event->arrivedAt - sentAt).count();
    }
    if (phone.closed()) throw session.endedError();
    throw CommandError(session.name() + " does not answer.");
}

void ping(CommandContext& context, const PingOptions& options) {
    const Interrupt interrupt;
    ControlSession session = ControlSession::open(context);
    std::mt19937_64 random{std::random_device{}()};
    std::vector<double> trips;
    while (trips.size() < options.count && !interrupt.isRequested()) {
        trips.push_back(pingOnce(session, random()));
        if (!context.settings.json) context.console.say(inMilliseconds(trips.back()));
        // Nothing is owed to the pace: the next one goes 200 ms later, or at once if it took
        // longer.
        if (trips.size() < options.count) session.link().waitFor<Control::Pong>(200ms);
    }
    if (trips.empty()) return;
    const double least = percentile(trips, 0).value(), middle = median(trips).value(),
                 most = percentile(trips, 1).value();
    if (!context.settings.json) {
        return context.console.say(std::to_string(trips.size()) + " answers: least " +
                                   inMilliseconds(least) + ", median " + inMilliseconds(middle) +
                                   ", most " + inMilliseconds(most));
    }
    JsonWriter json;
    json.beginObject();
    json.key("answers");
    json.unsignedInteger(trips.size());
    json.key("minMs");
    json.number(least);
    json.key("medianMs");
    json.number(middle);
    json.key("maxMs");
    json.number(most);
    json.endObject();
    context.console.say(json.take());
}

}  // namespace

void addPing(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<PingOptions>();
    auto* command = app.add_subcommand("ping", "Measure how long an answer takes");
    command->add_option("-c,--count", options->count, "How many (10)")
        ->check(CLI::Range(1, 1'000'000));
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { ping(context, *options); };
    });
}

}  // namespace orvel::phone
