#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"
#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Relay/Network.h"
#include "OrvelKit/Relay/OrvelCloud.h"

namespace orvel {

// What was found out about the relay. Nothing here is secret: no keys, no tokens.
struct RelayFacts {
    bool isConfigured = false;
    std::string host;
    std::string nameProblem;           // why its name has no address
    std::string reachProblem;          // why it cannot be connected to, its certificate included
    std::optional<int> accountStatus;  // HTTP status of its accounts; nullopt: no answer
    std::optional<WallTime> itsTime;   // by its answer
    WallTime ourTime;                  // when that came
    bool speaks = false;               // its websocket answered a message
    std::string websocketProblem;      // why not
};

// What the running agent says of it.
struct RelayUse {
    bool isOff = false;                 // remote access is
    std::optional<bool> agentIsOnline;  // nullopt: no agent runs
};

// Connects, asks the accounts something that changes nothing (a token for no session), and beside
// that opens the websocket and sends a heartbeat; calls `completion` once, when all is known or
// `limit` is over. Blocks until then, and until everything is tidied up.
void probeRelay(const OrvelCloud& cloud, const Network& network, Duration limit,
                const std::function<void(const RelayFacts&)>& completion);

std::vector<Finding> relayFindings(const RelayFacts& facts, const RelayUse& use);
// Whether this computer's clock is right enough: envelopes of 120 s ago are no longer opened.
std::vector<Finding> clockFindings(const RelayFacts& facts);

// RFC 9110, section 5.6.7: "Sun, 06 Nov 1994 08:49:37 GMT".
std::optional<WallTime> parseHttpDate(const std::string& text);

}  // namespace orvel
