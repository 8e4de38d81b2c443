#include "OrvelAgent/Platform/Linux/Checks/AnnouncementCheck.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/simple-watch.h>

#include <algorithm>
#include <chrono>
#include <memory>

namespace orvel {

namespace {

using Level = Finding::Level;
using Clock = std::chrono::steady_clock;

constexpr const char* serviceType = "_orvel._tcp";

struct Browsing {
    AvahiClient* client = nullptr;
    AnnouncementFacts facts;
};

void resolved(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent event,
              const char*, const char*, const char*, const char*, const AvahiAddress*,
              std::uint16_t port, AvahiStringList*, AvahiLookupResultFlags, void* given) {
    if (event == AVAHI_RESOLVER_FOUND) {
        static_cast<Browsing*>(given)->facts.ports.push_back(port);
    }
    avahi_service_resolver_free(resolver);
}

void browsed(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
             AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
             AvahiLookupResultFlags flags, void* given) {
    if (event != AVAHI_BROWSER_NEW || (flags & AVAHI_LOOKUP_RESULT_LOCAL) == 0) return;
    // Freed by its callback, or with the client.
    avahi_service_resolver_new(static_cast<Browsing*>(given)->client, interface, protocol, name,
                               type, domain, AVAHI_PROTO_UNSPEC, AVAHI_LOOKUP_NO_TXT, resolved,
                               given);
}

}  // namespace

AnnouncementFacts AnnouncementFacts::look(std::uint16_t port, Duration limit) {
    Browsing browsing;
    const std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)> poll(
        avahi_simple_poll_new(), &avahi_simple_poll_free);
    const std::unique_ptr<AvahiClient, decltype(&avahi_client_free)> client(
        avahi_client_new(
            avahi_simple_poll_get(poll.get()), AvahiClientFlags{},
            [](AvahiClient*, AvahiClientState, void*) {}, nullptr, nullptr),
        &avahi_client_free);
    if (!client) return browsing.facts;
    browsing.client = client.get();
    browsing.facts.daemonAnswers = true;
    if (port == 0) return browsing.facts;
    avahi_service_browser_new(client.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, serviceType,
                              nullptr, AvahiLookupFlags{}, browsed, &browsing);
    const auto& ports = browsing.facts.ports;
    const auto deadline = Clock::now() + limit;
    constexpr int tenthOfSecond = 100;
    while (Clock::now() < deadline && std::find(ports.begin(), ports.end(), port) == ports.end()) {
        if (avahi_simple_poll_iterate(poll.get(), tenthOfSecond) != 0) break;
    }
    return browsing.facts;
}

std::vector<Finding> announcementFindings(const AnnouncementFacts& facts,
                                          const Examined& examined) {
    const auto finding = [](Level level, std::string text, std::string advice) {
        return std::vector{Finding{level, "network name", std::move(text), std::move(advice)}};
    };
    if (examined.runs && !examined.announced) {
        return finding(Level::ok, "the agent was told not to announce itself", "");
    }
    if (!facts.daemonAnswers) {
        return finding(Level::warning,
                       "the Avahi daemon does not answer: phones do not find this computer by "
                       "themselves",
                       "sudo apt install avahi-daemon && sudo systemctl enable --now avahi-daemon");
    }
    if (!examined.runs) return finding(Level::ok, "the Avahi daemon answers", "");
    if (std::find(facts.ports.begin(), facts.ports.end(), examined.port) == facts.ports.end()) {
        return finding(Level::warning, "the Avahi daemon runs, but does not show the agent",
                       "Look what holds it back: journalctl -u avahi-daemon");
    }
    return finding(Level::ok, "announced on the local network", "");
}

}  // namespace orvel
