#include "Phone/Discovery.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>
#include <net/if.h>

#include <algorithm>
#include <map>
#include <memory>

#include "OrvelKit/Wire/Control.h"

namespace orvel::phone {

namespace {

class Browse {
public:
    explicit Browse(Duration patience)
        : deadline(std::chrono::steady_clock::now() + patience),
          poll(avahi_simple_poll_new(), avahi_simple_poll_free) {}

    Discovered run() {
        int error = 0;
        const std::unique_ptr<AvahiClient, decltype(&avahi_client_free)> client(
            avahi_client_new(avahi_simple_poll_get(poll.get()), AvahiClientFlags{}, onClient, this,
                             &error),
            avahi_client_free);
        if (!client) return {{}, avahi_strerror(error)};
        // Freed by the client, like the resolvers.
        if (!avahi_service_browser_new(client.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                       Orvel::serviceType, nullptr, AvahiLookupFlags{}, onService,
                                       this)) {
            return {{}, avahi_strerror(avahi_client_errno(client.get()))};
        }
        while (problem.empty() && (!listed || resolving > 0)) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) break;
            if (avahi_simple_poll_iterate(poll.get(), static_cast<int>(left.count())) != 0) break;
        }
        Discovered result{{}, problem};
        for (auto& [name, agent] : found) {
            std::stable_sort(agent.addresses.begin(), agent.addresses.end(),
                             [](const std::string& a, const std::string& b) {
                                 return isVersion4(a) && !isVersion4(b);
                             });
            result.agents.push_back(std::move(agent));
        }
        return result;
    }

private:
    static bool isVersion4(const std::string& address) {
        return address.find(':') == std::string::npos;
    }

    static void onClient(AvahiClient* client, AvahiClientState state, void* self) {
        if (state == AVAHI_CLIENT_FAILURE) {
            static_cast<Browse*>(self)->problem = avahi_strerror(avahi_client_errno(client));
        }
    }

    static void onService(AvahiServiceBrowser* browser, AvahiIfIndex interface,
                          AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                          const char* type, const char* domain, AvahiLookupResultFlags,
                          void* userdata) {
        auto* self = static_cast<Browse*>(userdata);
        AvahiClient* client = avahi_service_browser_get_client(browser);
        switch (event) {
            case AVAHI_BROWSER_NEW:
                if (avahi_service_resolver_new(client, interface, protocol, name, type, domain,
                                               AVAHI_PROTO_UNSPEC, AvahiLookupFlags{}, onAddress,
                                               self)) {
                    ++self->resolving;
                }
                break;
            case AVAHI_BROWSER_ALL_FOR_NOW:
                self->listed = true;
                break;
            case AVAHI_BROWSER_FAILURE:
                self->problem = avahi_strerror(avahi_client_errno(client));
                break;
            case AVAHI_BROWSER_REMOVE:
            case AVAHI_BROWSER_CACHE_EXHAUSTED:
                break;
        }
    }

    static void onAddress(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol,
                          AvahiResolverEvent event, const char* name, const char*, const char*,
                          const char* hostName, const AvahiAddress* address, std::uint16_t port,
                          AvahiStringList*, AvahiLookupResultFlags, void* userdata) {
        auto* self = static_cast<Browse*>(userdata);
        if (event == AVAHI_RESOLVER_FOUND) {
            FoundAgent& agent = self->found[name];
            agent.name = name;
            agent.hostName = hostName;
            agent.port = port;
            std::string text = textOf(*address, interface);
            if (std::find(agent.addresses.begin(), agent.addresses.end(), text) ==
                agent.addresses.end()) {
                agent.addresses.push_back(std::move(text));
            }
        }
        --self->resolving;
        avahi_service_resolver_free(resolver);
    }

    static std::string textOf(const AvahiAddress& address, AvahiIfIndex interface) {
        char text[AVAHI_ADDRESS_STR_MAX] = "";
        avahi_address_snprint(text, sizeof text, &address);
        const bool isLinkLocal = address.proto == AVAHI_PROTO_INET6 &&
                                 address.data.ipv6.address[0] == 0xFE &&
                                 (address.data.ipv6.address[1] & 0xC0) == 0x80;
        char interfaceName[IF_NAMESIZE] = "";
        if (!isLinkLocal || interface < 0 ||
            !if_indextoname(static_cast<unsigned>(interface), interfaceName)) {
            return text;
        }
        return std::string(text) + "%" + interfaceName;
    }

    const MonotonicTime deadline;
    const std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)> poll;
    std::map<std::string, FoundAgent> found;  // by name
    std::string problem;
    bool listed = false;
    int resolving = 0;
};

}  // namespace

Discovered discoverAgents(Duration patience) {
    return Browse(patience).run();
}

}  // namespace orvel::phone
