#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Time-limited credentials of a TURN server that shares a secret with the relay (coturn's
// "use-auth-secret"; draft-uberti-behave-turn-rest-00): nobody has to tell the server of them.
struct TurnCredentials {
    std::string username;  // when they end, in seconds since 1970-01-01 00:00:00 UTC, and for whom
    std::string credential;  // base64 of the HMAC-SHA1 of the user name under the secret

    static TurnCredentials make(const std::string& secret, const std::string& user, WallTime until);
};

// What the ICE function answers. Without servers or a secret it names none.
struct IceFunction {
    std::vector<std::string> turnUrls;
    std::string turnSecret;
    std::chrono::seconds life{3600};

    std::string answer(const std::string& user, WallTime now) const;  // JSON
};

}  // namespace orvel
