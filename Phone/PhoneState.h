#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Secure/Identity.h"

namespace orvel::phone {

// A computer that this phone is paired with.
struct KnownAgent {
    std::string id;   // device ID
    Bytes publicKey;  // 32 bytes, compared in full
    std::string name;
    std::string host;  // where it was reached last
    std::uint16_t port = 0;
    WallTime lastUsed;
    bool operator==(const KnownAgent&) const = default;
};

// What the phone keeps in its state folder: `identity` (the raw private key, 0600) and
// `agents.json`. Files are replaced whole; several processes may share a folder.
class PhoneState {
public:
    // A sentence for people: the state cannot be used as it is.
    struct Error : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    // $XDG_DATA_HOME/orvel-phone, else ~/.local/share/orvel-phone.
    static std::string defaultFolder();

    // Creates folder and key where there are none. A key that is there but cannot be read, or is
    // none, is an Error: with a new one every computer would have to be paired again, so that is
    // for the user to decide. A list of computers that makes no sense is moved aside; one that
    // cannot be read is an Error.
    explicit PhoneState(std::string folder);

    const Identity& identity() const { return ownIdentity; }
    // What was noticed while reading, for people; empty mostly.
    const std::vector<std::string>& warnings() const { return noticed; }

    // The one used last comes first. Reads the file anew.
    std::vector<KnownAgent> agents() const;

    // Adds or replaces the one with this ID and stamps `lastUsed`; another one that was last seen
    // at the same address is no longer known to be there. Throws Error when it cannot be written.
    void remember(KnownAgent agent);

private:
    Identity loadIdentity();
    std::vector<KnownAgent> readAgents() const;

    const std::string folder, identityPath, agentsPath;
    mutable std::vector<std::string> noticed;
    const Identity ownIdentity;
};

}  // namespace orvel::phone
