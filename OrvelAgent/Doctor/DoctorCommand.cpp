#include "OrvelAgent/Doctor/DoctorCommand.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <cstdlib>
#include <ostream>

#include "OrvelAgent/Control/AgentSession.h"
#include "OrvelAgent/Control/AgentTexts.h"
#include "OrvelAgent/Doctor/Doctor.h"
#include "OrvelAgent/Doctor/RelayCheck.h"
#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

namespace {

using Level = Finding::Level;
using Status = AgentCore::Status;

constexpr auto relayTime = std::chrono::milliseconds(2500);

void takeOverEnvironment(AgentSession& agent) {
    const JsonDocument answer(agent.ask(R"({"environment":{}})"));
    const auto variables = answer.root().member("environment");
    for (const char* name : AgentSnapshot::sessionVariables) {
        const auto value = variables ? variables->member(name) : std::nullopt;
        if (value && value->string()) {
            ::setenv(name, std::string(*value->string()).c_str(), 1);
        } else {
            ::unsetenv(name);
        }
    }
}

// As the agent would try it.
bool isPortTaken(std::uint16_t port) {
    using boost::asio::ip::tcp;
    boost::asio::io_context context;
    for (const auto& protocol : {tcp::v6(), tcp::v4()}) {
        tcp::acceptor acceptor(context);
        boost::system::error_code error;
        acceptor.open(protocol, error);
        if (error) continue;  // this computer has no such addresses
        acceptor.set_option(tcp::acceptor::reuse_address(true), error);
        if (protocol == tcp::v6()) {
            acceptor.set_option(boost::asio::ip::v6_only(true), error);
        }
        acceptor.bind({protocol, port}, error);
        if (error == boost::asio::error::address_in_use) return true;
    }
    return false;
}

Check relayCheck(const DoctorParts& parts, const RelayUse& use) {
    return {"relay", [parts, use](const Check::Report& report) {
                const auto stores = StateStores::create(parts.state);
                const OrvelCloud cloud(*stores.defaults);
                probeRelay(cloud, parts.network, relayTime, [&](const RelayFacts& facts) {
                    auto findings = relayFindings(facts, use);
                    const auto clock = clockFindings(facts);
                    findings.insert(findings.end(), clock.begin(), clock.end());
                    report(std::move(findings));
                });
            }};
}

}  // namespace

std::vector<Finding> agentFindings(const std::optional<AgentSnapshot>& agent) {
    std::vector<Finding> findings;
    const auto add = [&](Level level, std::string text, std::string advice = {}) {
        findings.push_back({level, "agent", std::move(text), std::move(advice)});
    };
    if (!agent) {
        add(Level::warning, "does not run: no phone can connect", "Start it: orvel-agent");
        return findings;
    }
    const std::string version = "version " + agent->version + ", ";
    if (const auto* failed = std::get_if<Status::Failed>(&agent->status.value)) {
        add(Level::problem, version + "failed: " + failed->message,
            "Start it again: orvel-agent quit, then orvel-agent");
    } else {
        add(Level::ok, version + statusText(agent->status));
    }
    const auto& granted = agent->permissions;
    if (!granted.screenRecording || !granted.accessibility) {
        add(Level::problem,
            std::string("may not ") + (granted.screenRecording ? "" : "see the screen") +
                (granted.screenRecording || granted.accessibility ? "" : ", nor ") +
                (granted.accessibility ? "" : "use pointer and keyboard") + ": phones are refused",
            "See what is said of the display.");
    }
    return findings;
}

std::vector<Finding> portFindings(const std::optional<AgentSnapshot>& agent, bool isTaken) {
    const auto finding = [](Level level, std::string text, std::string advice = {}) {
        return std::vector{Finding{level, "port", std::move(text), std::move(advice)}};
    };
    const std::string usual = std::to_string(Orvel::port);
    const std::string whose = "See who has it: ss -ltnp sport = :" + usual;
    if (agent && agent->listening) {
        const std::string port = std::to_string(agent->listening->port);
        if (agent->listening->port == Orvel::port || !isTaken) {
            return finding(Level::ok, "listens on port " + port);
        }
        return finding(Level::warning,
                       "listens on port " + port + ", since another program has " + usual, whose);
    }
    if (agent) return finding(Level::problem, "listens on no port", "See what the agent says.");
    if (isTaken) {
        return finding(Level::warning,
                       "another program has port " + usual + ": the agent will take any other",
                       whose);
    }
    return finding(Level::ok, "port " + usual + " is free for the agent");
}

int runDoctor(const DoctorParts& parts, const DoctorCommand& command, std::ostream& out) {
    std::optional<AgentSnapshot> agent;
    std::vector<Finding> silence;
    if (ControlClient::open(parts.state)) {
        try {
            AgentSession session(parts.state);
            agent = session.snapshot();
            takeOverEnvironment(session);
        } catch (const CommandError& error) {
            silence.push_back({Level::problem, "agent", error.what(),
                               "End it with a signal, and start it again."});
        }
    }
    Examined examined{parts.state, agent.has_value()};
    examined.port = agent && agent->listening ? agent->listening->port : Orvel::port;
    examined.announced = !agent || !agent->listening || agent->listening->announced;
    RelayUse use;
    if (agent) {
        use.isOff = agent->remoteAccess == RemoteAccess::off;
        use.agentIsOnline = agent->relay;
    }

    std::vector<Check> checks{
        Check::of("agent", [=] { return silence.empty() ? agentFindings(agent) : silence; }),
        Check::of("port", [=] { return portFindings(agent, isPortTaken(Orvel::port)); })};
    const auto add = [&](Check check) { checks.push_back(std::move(check)); };
    for (Check& check : parts.systemChecks(examined))
        add(std::move(check));
    add(relayCheck(parts, use));

    const Diagnosis diagnosis = examine(std::move(checks));
    if (command.json) {
        for (const Finding& finding : diagnosis.findings)
            out << findingLine(finding) << '\n';
    } else {
        for (const std::string& line : diagnosisLines(diagnosis.findings))
            out << line << '\n';
    }
    out.flush();
    const int status = diagnosis.hasProblems() ? 1 : 0;
    // Nothing may be destroyed below a check that still runs.
    if (diagnosis.isUnfinished) std::_Exit(status);
    return status;
}

}  // namespace orvel
