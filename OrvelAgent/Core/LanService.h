#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "OrvelAgent/Core/ClientSession.h"
#include "OrvelAgent/Core/Connection.h"
#include "OrvelAgent/Core/HandshakePacer.h"
#include "OrvelAgent/Core/StrangerLimits.h"
#include "OrvelAgent/Platform/ServiceAdvertiser.h"
#include "OrvelKit/Secure/Identity.h"

namespace orvel {

// The agent's place on the local network: listens, advertises, and turns accepted connections into
// sessions, as many strangers among them as StrangerLimits allows and no faster than HandshakePacer
// lets them try. Belongs to "orvel.agent".
class LanService {
public:
    struct Options {
        std::string name;                           // as advertised
        std::uint16_t preferredPort = Orvel::port;  // any free port if it is taken
        std::string address;                        // empty: every address
    };
    struct Handlers {
        std::function<void(std::uint16_t port)> onReady;
        std::function<void(std::string description)> onFailed;  // no retry
        // Not yet started; the receiver keeps it until its onEnd.
        std::function<void(std::shared_ptr<ClientSession>)> onSession;
    };

    // `advertiser` may be null: then nobody is told of the service.
    LanService(SerialQueue& queue, std::unique_ptr<Listener> listener,
               std::unique_ptr<ServiceAdvertiser> advertiser, Identity identity);
    ~LanService();

    void start(const Options& options, Handlers handlers);
    void stop();

    // What the sessions' owner tells of them, for the limits.
    // False: there are too many strangers, and the session must end.
    bool secured(const ClientSession& session, bool isKnown);
    void admitted(const ClientSession& session);
    void ended(const ClientSession& session);

private:
    void accept(std::unique_ptr<Connection> connection) RUNS_ON(queue);

    SerialQueue& queue;
    const std::unique_ptr<Listener> listener OWNED_BY(queue);
    const std::unique_ptr<ServiceAdvertiser> advertiser OWNED_BY(queue);
    const Identity identity;
    Handlers handlers OWNED_BY(queue);
    StrangerLimits limits OWNED_BY(queue);
    HandshakePacer pacer OWNED_BY(queue);
    StrangerLimits::ID lastID OWNED_BY(queue) = 0;
    std::map<StrangerLimits::ID, std::weak_ptr<ClientSession>> strangers OWNED_BY(queue);
    std::map<const ClientSession*, StrangerLimits::ID> ids OWNED_BY(queue);
    // Handlers of the listener outlive nothing: they hold this weakly.
    std::shared_ptr<int> alive OWNED_BY(queue) = std::make_shared<int>();
};

}  // namespace orvel
