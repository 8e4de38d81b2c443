#pragma once

#include <memory>

#include "OrvelAgent/Core/RemotePresence.h"
#include "OrvelAgent/Platform/HostInfo.h"
#include "OrvelAgent/Rtc/WebRtc.h"
#include "OrvelKit/Base/Defaults.h"
#include "OrvelKit/Base/SecretStore.h"
#include "OrvelKit/Relay/HttpClient.h"
#include "OrvelKit/Relay/OrvelCloud.h"

namespace orvel {

// What the way in from the internet is made of, beside the core: the relay's clients, the account
// there, the ICE servers and the WebRTC library. Costs nothing until the relay is configured and a
// phone offers a session.
//
// Made after the queues and everything else that it is given, and before the core, which it
// outlives.
class InternetAccess {
public:
    struct Parts {
        SerialQueue& realtimeQueue;  // "orvel.realtime"
        SerialQueue& accountQueue;   // "orvel.account": the secret store may make it wait
        Defaults& defaults;
        SecretStore& secrets;
        HostInfo& host;
        CompressionSession::Factory compression;
    };

    explicit InternetAccess(Parts parts);
    ~InternetAccess();

    // For the core; they refer to this.
    RemotePresence::Parts presence();

private:
    SerialQueue& realtimeQueue;
    OrvelCloud cloud;
    const std::unique_ptr<HttpClient> http;
    const std::shared_ptr<AnonymousAuth> auth;
    const std::shared_ptr<IceServerProvider> iceServers;
    WebRtc webRtc;
};

}  // namespace orvel
