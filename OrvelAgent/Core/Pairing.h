#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Core/ClientSession.h"

namespace orvel {

// A new phone that waits for somebody at the computer to agree.
struct PairingRequest {
    std::string deviceID;
    std::string name;
    bool operator==(const PairingRequest&) const = default;
};

// What the computer shows of pairings under way: the code of the newest unknown phone, and, when
// its user wants to be asked, the phones that gave the right code and wait. Sessions are held
// weakly. Belongs to "orvel.agent"; the callbacks are called there.
class Pairing {
public:
    std::function<void(std::optional<std::string>)> onCode;        // nullopt hides it
    std::function<void(std::optional<PairingRequest>)> onRequest;  // nullopt: withdrawn

    // The session's code is shown, instead of any other.
    void showCode(const std::shared_ptr<ClientSession>& session);

    // The session's hello waits; a later one of the same session replaces it. The newest is shown.
    void ask(const std::shared_ptr<ClientSession>& session, const Hello& hello);

    struct Waiting {
        std::shared_ptr<ClientSession> session;
        Hello hello;
    };
    // Takes the one that waits under this device ID; nullopt when there is none (any more).
    std::optional<Waiting> allow(const std::string& deviceID);

    // The session whose request, else whose code, is shown; null when nothing is.
    std::shared_ptr<ClientSession> shown() const;

    // The session was admitted, was refused or ended: nothing of it is shown any longer.
    void remove(const ClientSession& session);

private:
    struct Asking {
        std::weak_ptr<ClientSession> session;
        Hello hello;
    };
    void erase(std::vector<Asking>::iterator position);
    void tellShown() const;

    std::weak_ptr<ClientSession> coded;
    std::vector<Asking> asking;  // the last one is shown
};

}  // namespace orvel
