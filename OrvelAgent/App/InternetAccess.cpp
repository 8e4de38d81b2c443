#include "OrvelAgent/App/InternetAccess.h"

#include <utility>

#include "OrvelAgent/Platform/SocketOptions.h"

namespace orvel {

namespace {

Network systemNetwork() {
    return {prepareConnectedSocket, {}};
}

// With a relay on this machine the phones are here, too, and there may be no network at all.
WebRtc::Options optionsFor(const OrvelCloud& cloud) {
    const auto relay = cloud.relay();
    const std::string host = relay ? relay->url.host() : "";
    WebRtc::Options options;
    options.loopbackToo = host == "localhost" || host == "::1" || host.starts_with("127.");
    return options;
}

}  // namespace

InternetAccess::InternetAccess(Parts parts)
    : realtimeQueue(parts.realtimeQueue),
      cloud(parts.defaults),
      http(makeSystemHttpClient(parts.accountQueue, systemNetwork())),
      auth(AnonymousAuth::make(parts.accountQueue, cloud, *http, parts.secrets,
                               parts.host.bundleIdentifier())),
      iceServers(IceServerProvider::make(parts.accountQueue, cloud, *http, auth)),
      webRtc(std::move(parts.compression), optionsFor(cloud)) {}

InternetAccess::~InternetAccess() = default;

RemotePresence::Parts InternetAccess::presence() {
    return {[this] { return cloud.relay(); },
            [this](const RelayConfig& config, const std::string& topic) {
                return RealtimeChannel::make(realtimeQueue, systemWebSockets(systemNetwork()),
                                             config, topic);
            },
            [this](IceServerProvider::ServersHandler handler) {
                iceServers->servers(std::move(handler));
            },
            [this] { iceServers->prefetch(); }, webRtc.factory()};
}

}  // namespace orvel
