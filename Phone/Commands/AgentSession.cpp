#include "Phone/Commands/AgentSession.h"

#include <algorithm>
#include <utility>

#include "OrvelKit/Relay/OrvelCloud.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration handshakePatience = 10s;
constexpr Duration onePatience = 10s, eachPatience = 4s;  // for connecting to an address

std::unique_ptr<PhoneConnection> connectTo(const Identity& identity, AgentTarget& target,
                                           AgentAddress& reached, std::string& problem) {
    const Duration patience = target.addresses.size() > 1 ? eachPatience : onePatience;
    for (const AgentAddress& address : target.addresses) {
        auto connection = std::make_unique<PhoneConnection>(identity);
        if (connection->connect(address.host, address.port, patience)) {
            reached = address;
            return connection;
        }
        problem = target.name + ": " + connection->closed()->describe();
    }
    return nullptr;
}

// Where to meet: a whole project, or a websocket for the signaling alone.
std::optional<InternetConnection::Way> wayFor(const InternetWish& wish) {
    const auto through = [](const std::optional<RelayProject>& project) {
        return project ? std::optional(InternetConnection::Way{RelayConfig(*project), project})
                       : std::nullopt;
    };
    if (!wish.relay) {
        auto project = OrvelCloud::deployedProject();
        if (project && wish.relayKey) project->anonymousKey = *wish.relayKey;
        return through(project);
    }
    const std::string key = wish.relayKey.value_or("local");
    const auto url = Url::parse(*wish.relay);
    if (url && (url->scheme() == "ws" || url->scheme() == "wss")) {
        return InternetConnection::Way{RelayConfig(*url, key)};
    }
    return through(RelayProject::from(*wish.relay, key));
}

}  // namespace

AgentSession::Choice AgentSession::choose(const CommandContext& context) {
    const Settings& settings = context.settings;
    Choice choice{std::make_unique<PhoneState>(settings.stateFolder), {}, {}};
    for (const std::string& warning : choice.state->warnings())
        context.console.remark(warning);
    choice.known = choice.state->agents();
    AgentChoice made =
        AgentChoice::make(settings.wish, choice.known,
                          settings.internet ? [] { return Discovered{}; } : settings.discover);
    if (settings.internet && !(made.target && made.target->expected)) {
        throw CommandError(
            "Over the internet only paired computers are reached: pair it on its own network "
            "first, with `orvel-phone pair`.");
    }

    if (!made.target) throw CommandError(made.problem);
    choice.target = *std::move(made.target);
    return choice;
}

AgentSession AgentSession::open(const CommandContext& context, Choice choice, bool replacesKey) {
    const Settings& settings = context.settings;
    AgentSession session;
    session.console = &context.console;
    session.phoneName = settings.phoneName;
    session.phoneState = std::move(choice.state);
    const auto& known = choice.known;
    AgentTarget& target = choice.target;

    std::string problem = target.name + " cannot be found on this network.";
    const Identity& identity = session.phoneState->identity();
    session.connection = connectTo(identity, target, session.agentAddress, problem);
    if (!session.connection && target.lookUp) {
        for (const FoundAgent& agent : settings.discover().agents) {
            if (agent.name == *target.lookUp) target.addresses = AgentChoice::addressesOf(agent);
        }
        session.connection = connectTo(identity, target, session.agentAddress, problem);
    }
    if (!session.connection) throw CommandError(problem);
    session.agentName = target.name;
    if (!session.connection->secure(handshakePatience)) throw session.endedError();

    const Bytes key = session.connection->agentKey();
    const auto isPresented = [&](const KnownAgent& agent) { return agent.publicKey == key; };
    const auto match = std::find_if(known.begin(), known.end(), isPresented);
    if (match != known.end()) session.knownAgent = *match;
    if (target.expected && !isPresented(*target.expected) &&
        !(target.byAddressOnly && (session.knownAgent || replacesKey))) {
        throw CommandError(
            "DANGER: the computer at " + session.agentAddress.host + " port " +
            std::to_string(session.agentAddress.port) + " is not " + target.expected->name +
            ", as which it was paired. Its ID is " + session.connection->agentID() +
            " and should be " + target.expected->id +
            ". Somebody may be in between. Nothing was sent to it. If another computer is there "
            "rightfully, pair it with: orvel-phone --host " +
            session.agentAddress.host + " --port " + std::to_string(session.agentAddress.port) +
            " pair --replace");
    }
    if (session.knownAgent) session.agentName = session.knownAgent->name;
    return session;
}

AgentSession AgentSession::openOverInternet(const CommandContext& context, Choice choice,
                                            Video video) {
    const InternetWish& wish = context.settings.internet.value();
    const KnownAgent& agent = choice.target.expected.value();
    auto way = wayFor(wish);
    if (!way) {
        throw CommandError(
            "There is no relay to meet on: name one with --relay, or in ORVEL_PROJECT_URL and "
            "ORVEL_PROJECT_KEY.");
    }
    way->stateFolder = context.settings.stateFolder;
    way->relayOnly = wish.relayOnly;
    way->asksForVideo = video == Video::wanted;
    AgentSession session;
    session.console = &context.console;
    session.phoneName = context.settings.phoneName;
    session.phoneState = std::move(choice.state);
    session.agentName = agent.name;
    session.agentAddress = {agent.host, agent.port};
    session.knownAgent = agent;
    session.remote =
        std::make_unique<InternetConnection>(session.phoneState->identity(), agent.publicKey, *way);
    using Outcome = InternetConnection::Outcome;
    switch (session.remote->connect(wish.unlocks ? InternetConnection::Unlock::yes
                                                 : InternetConnection::Unlock::no)) {
        case Outcome::connected:
            break;
        case Outcome::standby:
            throw CommandError(agent.name + " is in standby: --unlock opens it for a session.");
        case Outcome::noAnswer:
            throw CommandError(agent.name + " does not answer on the relay " +
                               way->relay.url.host() + ".");
        case Outcome::noConnection:
            throw session.endedError();
    }
    return session;
}

AgentSession AgentSession::openForVideo(const CommandContext& context) {
    return context.settings.internet ? openOverInternet(context, choose(context), Video::wanted)
                                     : open(context);
}

MonotonicTime AgentSession::connectStartedAt() const {
    return remote ? remote->connectStartedAt() : connection->connectStartedAt();
}

bool AgentSession::isSameMachine() const {
    return connection && connection->isSameMachine();
}

AgentLink& AgentSession::link() const {
    return remote ? *remote : static_cast<AgentLink&>(*connection);
}

Bytes AgentSession::agentKey() const {
    return remote ? knownAgent->publicKey : connection->agentKey();
}

AgentSession::Admission AgentSession::admit(std::int64_t maxPixels, Duration patience) {
    if (!knownAgent) throw rejectedError(Rejection::pinRequired);
    return greet(std::nullopt, maxPixels, patience, [] {});
}

AgentSession::Admission AgentSession::admitWithCode(std::int64_t maxPixels, Duration patience,
                                                    const std::function<void()>& onWaiting) {
    return greet(connection->code(), maxPixels, patience, onWaiting);
}

AgentSession::Admission AgentSession::greet(std::optional<std::string> code, std::int64_t maxPixels,
                                            Duration patience,
                                            const std::function<void()>& onWaiting) {
    const Identity& identity = phoneState->identity();
    Hello hello;
    hello.deviceID = identity.fingerprint();
    hello.deviceName = phoneName;
    hello.pin = std::move(code);
    hello.publicKey = identity.publicKey();
    hello.maxPixels = maxPixels;
    link().send({hello});
    const MonotonicTime begin = std::chrono::steady_clock::now();
    Admission admission;
    bool saidWaiting = false;
    for (;;) {
        auto event = link().next(1s);
        if (!event) {
            if (link().closed()) throw endedError();
            if (std::chrono::steady_clock::now() - begin > patience) {
                throw CommandError(agentName + " does not answer.");
            }
            if (!std::exchange(saidWaiting, true)) onWaiting();
            continue;
        }
        if (event->as<PhoneConnection::Closed>()) throw endedError();
        if (const auto* rejected = event->as<Control::Rejected>()) {
            throw rejectedError(rejected->reason);
        }
        if (const auto* welcome = event->as<Welcome>()) {
            accept(*welcome);
            admission.welcome = *welcome;
            return admission;
        }
        if (event->as<VideoFormat>() || event->as<VideoFrame>() || event->as<AudioPacket>()) {
            admission.early.push_back(*std::move(event));
        }
    }
}

void AgentSession::accept(const Welcome& welcome) {
    if (welcome.agentKey && *welcome.agentKey != agentKey()) {
        throw CommandError("The computer names another key than the one it has shown.");
    }
    if (welcome.protocolVersion.value_or(Orvel::protocolVersion) < Orvel::protocolVersion) {
        throw rejectedError(Rejection::versionMismatch);
    }
    agentName = welcome.macName;
    const Bytes key = agentKey();
    KnownAgent agent{Identity::fingerprint(key), key, welcome.macName, agentAddress.host,
                     agentAddress.port,          {}};
    try {
        phoneState->remember(agent);
    } catch (const PhoneState::Error& error) {
        if (!knownAgent) throw;
        console->remark(error.what());
    }
    knownAgent = std::move(agent);
}

Welcome AgentSession::selectDisplay(std::uint32_t id) {
    link().send({Control::SelectDisplay{id}});
    const MonotonicTime deadline = std::chrono::steady_clock::now() + 30s;
    while (auto event = link().next(deadline - std::chrono::steady_clock::now())) {
        if (const auto* welcome = event->as<Welcome>()) return *welcome;
        if (const auto* rejected = event->as<Control::Rejected>()) {
            throw rejectedError(rejected->reason);
        }
    }
    if (link().closed()) throw endedError();
    throw CommandError(agentName + " does not answer.");
}

CommandError AgentSession::endedError() const {
    const auto closed = link().closed();
    return CommandError(agentName + ": " + (closed ? closed->describe() : "It does not answer."));
}

RejectedError AgentSession::rejectedError(Rejection reason) const {
    const auto because = [&](const std::string& sentence) {
        return RejectedError(reason, sentence);
    };
    switch (reason) {
        case Rejection::pinRequired:
            return because("This phone is not paired with " + agentName +
                           " (any more): run `orvel-phone pair` first.");
        case Rejection::wrongPin:
            return because(agentName + " does not accept the code.");
        case Rejection::phoneOutdated:
            return because("This phone is too old for " + agentName +
                           ": a newer orvel-phone is needed.");
        case Rejection::permissionsMissing:
            return because(agentName +
                           " may not show its screen or be controlled: somebody has to allow that "
                           "there, or there is no display.");
        case Rejection::versionMismatch:
            return because(agentName +
                           " speaks another version of the protocol: the agent there has to be "
                           "updated.");
    }
    return because(agentName + " refuses this phone.");
}

}  // namespace orvel::phone
