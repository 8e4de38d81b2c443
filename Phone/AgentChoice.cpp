#include "Phone/AgentChoice.h"

#include <algorithm>
#include <utility>

#include "OrvelKit/Wire/Control.h"

namespace orvel::phone {

namespace {

AgentChoice problem(std::string sentences) {
    return {std::nullopt, std::move(sentences)};
}

AgentChoice knownAgent(const KnownAgent& agent) {
    AgentTarget target{agent.name, {}, agent, false, agent.name};
    if (!agent.host.empty()) target.addresses.push_back({agent.host, agent.port});
    return {std::move(target), ""};
}

AgentChoice foundAgent(const FoundAgent& agent) {
    return {AgentTarget{agent.name, AgentChoice::addressesOf(agent), std::nullopt, false, {}}, ""};
}

std::string listOf(const std::vector<FoundAgent>& agents) {
    std::string list;
    for (const FoundAgent& agent : agents) {
        list += "\n  " + agent.name + "  (" + agent.hostName + ", port " +
                std::to_string(agent.port) + ")";
    }
    return list;
}

AgentChoice fromNetwork(const Discovered& discovered) {
    if (!discovered.problem.empty()) {
        return problem("Computers on this network cannot be looked for (" + discovered.problem +
                       "): name one with --host.");
    }
    const auto& agents = discovered.agents;
    if (agents.empty()) {
        return problem("No computer shows itself on this network: name one with --host.");
    }
    if (agents.size() > 1) {
        return problem("There are several computers; choose one with --agent:" + listOf(agents));
    }
    return foundAgent(agents.front());
}

AgentChoice byAddress(const AgentWish& wish, const std::vector<KnownAgent>& known) {
    const AgentAddress address{*wish.host, wish.port.value_or(Orvel::port)};
    const auto match = std::find_if(known.begin(), known.end(), [&](const KnownAgent& agent) {
        return agent.host == address.host && agent.port == address.port;
    });
    AgentTarget target{address.host, {address}, std::nullopt, true, {}};
    if (match != known.end()) target.expected = *match;
    return {std::move(target), ""};
}

AgentChoice byName(const AgentWish& wish, const std::vector<KnownAgent>& known,
                   const AgentChoice::Discover& discover) {
    std::vector<KnownAgent> matches;
    for (const KnownAgent& agent : known) {
        if (agent.id == *wish.agent || agent.name == *wish.agent) matches.push_back(agent);
    }
    if (matches.size() > 1) {
        std::string list;
        for (const KnownAgent& agent : matches)
            list += "\n  " + agent.id + "  (" + agent.host + ")";
        return problem("Several paired computers have this name; choose one by its ID:" + list);
    }
    if (matches.size() == 1) {
        AgentChoice choice = knownAgent(matches.front());
        if (wish.host) {
            choice.target->addresses = {{*wish.host, wish.port.value_or(Orvel::port)}};
            choice.target->lookUp.reset();
        }
        return choice;
    }
    if (wish.host) {
        return problem("No paired computer is called " + *wish.agent +
                       ": leave --agent out, or pair it first.");
    }
    const Discovered discovered = discover();
    for (const FoundAgent& agent : discovered.agents) {
        if (agent.name == *wish.agent) return foundAgent(agent);
    }
    if (!discovered.problem.empty() || discovered.agents.empty()) return fromNetwork(discovered);
    return problem("No computer called " + *wish.agent +
                   " shows itself; there are:" + listOf(discovered.agents));
}

}  // namespace

AgentChoice AgentChoice::make(const AgentWish& wish, const std::vector<KnownAgent>& known,
                              const Discover& discover) {
    if (wish.agent) return byName(wish, known, discover);
    if (wish.host) return byAddress(wish, known);
    if (!wish.forPairing && !known.empty()) return knownAgent(known.front());
    AgentChoice choice = fromNetwork(discover());
    if (choice.target) return choice;
    return known.size() == 1 ? knownAgent(known.front()) : choice;
}

std::vector<AgentAddress> AgentChoice::addressesOf(const FoundAgent& agent) {
    std::vector<AgentAddress> addresses;
    for (const std::string& address : agent.addresses)
        addresses.push_back({address, agent.port});
    return addresses;
}

}  // namespace orvel::phone
