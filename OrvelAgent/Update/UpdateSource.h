#pragma once

#include <optional>
#include <string>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Relay/Url.h"

namespace orvel {

// Where this build finds new versions and by whom they have to be signed: CMake cache entries
// ORVEL_UPDATE_FEED (https) and ORVEL_UPDATE_KEY (Ed25519, base64).
//
// Nothing in the environment or among the user's settings takes the place of these values. Whoever
// can set a variable of this program could otherwise have a package of their own installed with
// the rights of the system, by somebody who believes to consent to an update of this program. Tests
// bring their own; who tries out a feed makes a build for it.
struct UpdateSource {
    Url feed;
    Bytes publicKey;  // 32 bytes

    // nullopt: there are none, or one of the two makes no sense (which is logged).
    static std::optional<UpdateSource> compiledIn();
    static std::optional<UpdateSource> from(const std::string& feed, const std::string& key);
};

}  // namespace orvel
