#include "OrvelAgent/Core/Pairing.h"

#include <algorithm>

namespace orvel {

void Pairing::showCode(const std::shared_ptr<ClientSession>& session) {
    coded = session;
    onCode(session->pairingCode());
}

void Pairing::ask(const std::shared_ptr<ClientSession>& session, const Hello& hello) {
    std::erase_if(asking, [&](auto& other) { return other.session.lock() == session; });
    asking.push_back({session, hello});
    tellShown();
}

std::optional<Pairing::Waiting> Pairing::allow(const std::string& deviceID) {
    const auto found = std::find_if(asking.begin(), asking.end(),
                                    [&](auto& one) { return one.hello.deviceID == deviceID; });
    if (found == asking.end()) return std::nullopt;
    Waiting waiting{found->session.lock(), found->hello};
    erase(found);
    if (!waiting.session) return std::nullopt;
    return waiting;
}

std::shared_ptr<ClientSession> Pairing::shown() const {
    if (!asking.empty()) return asking.back().session.lock();
    return coded.lock();
}

void Pairing::remove(const ClientSession& session) {
    const auto found = std::find_if(asking.begin(), asking.end(), [&](auto& one) {
        return one.session.lock().get() == &session;
    });
    if (found != asking.end()) erase(found);
    if (coded.lock().get() == &session) {
        coded.reset();
        onCode(std::nullopt);
    }
}

void Pairing::erase(std::vector<Asking>::iterator position) {
    const bool wasShown = position + 1 == asking.end();
    asking.erase(position);
    if (wasShown) tellShown();
}

void Pairing::tellShown() const {
    if (asking.empty()) return onRequest(std::nullopt);
    const Hello& hello = asking.back().hello;
    onRequest(PairingRequest{hello.deviceID, hello.deviceName});
}

}  // namespace orvel
