#pragma once

#include <optional>
#include <string>

#include "OrvelKit/Relay/Url.h"

namespace orvel {

// A project at the hosted relay service, or at a relay of one's own that behaves like it.
struct RelayProject {
    Url baseUrl;               // without a slash at its end; paths are appended as text
    std::string anonymousKey;  // the project's public API key

    // nullopt when either is empty, or the first no address with a host.
    static std::optional<RelayProject> from(std::string baseUrl, std::string anonymousKey);

    bool operator==(const RelayProject&) const = default;
};

// Where the realtime channel connects, and the key that it shows there.
struct RelayConfig {
    Url url;  // the websocket endpoint, without query
    std::string apiKey;

    RelayConfig(Url endpoint, std::string key);
    // The project's own endpoint: "ws" for a project at "http", "wss" for any other.
    explicit RelayConfig(const RelayProject& project);

    bool operator==(const RelayConfig&) const = default;
};

}  // namespace orvel
