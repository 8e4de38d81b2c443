#include "OrvelAgent/Core/LanService.h"

namespace orvel {

LanService::LanService(SerialQueue& serviceQueue, std::unique_ptr<Listener> serviceListener,
                       std::unique_ptr<ServiceAdvertiser> serviceAdvertiser, Identity agentIdentity)
    : queue(serviceQueue),
      listener(std::move(serviceListener)),
      advertiser(std::move(serviceAdvertiser)),
      identity(std::move(agentIdentity)),
      pacer(queue) {}

LanService::~LanService() = default;

void LanService::start(const Options& options, Handlers serviceHandlers) {
    queue.assertCurrent();
    handlers = std::move(serviceHandlers);
    const std::weak_ptr<int> weak = alive;
    const Listener::Handlers listening{[this, weak](std::unique_ptr<Connection> connection) {
                                           if (weak.expired()) return;
                                           queue.assertCurrent();
                                           accept(std::move(connection));
                                       },
                                       [this, weak](const std::string& description) {
                                           if (weak.expired()) return;
                                           queue.assertCurrent();
                                           handlers.onFailed(description);
                                       }};
    auto result = listener->listen(options.address, options.preferredPort, listening);
    if (result.port == 0 && options.preferredPort != 0) {
        result = listener->listen(options.address, 0, listening);
    }
    if (result.port == 0) return handlers.onFailed(result.error);
    if (advertiser) advertiser->start(options.name, Orvel::serviceType, result.port);
    handlers.onReady(result.port);
}

void LanService::stop() {
    queue.assertCurrent();
    listener->stop();
    if (advertiser) advertiser->stop();
}

void LanService::accept(std::unique_ptr<Connection> connection) {
    const std::string address = connection->remoteAddress();
    auto session = std::make_shared<ClientSession>(queue, std::move(connection), identity);
    session->onCommitted = [this, weak = std::weak_ptr<int>(alive),
                            address](UniqueFunction<void()> answer) {
        if (weak.expired()) return;
        queue.assertCurrent();
        pacer.request(address, std::move(answer));
    };
    const auto id = ++lastID;
    const auto displaced = limits.connected(id, address);
    strangers[id] = session;
    ids[session.get()] = id;
    if (displaced) {
        if (const auto oldest = strangers[*displaced].lock()) oldest->close();
    }
    handlers.onSession(std::move(session));
}

bool LanService::secured(const ClientSession& session, bool isKnown) {
    queue.assertCurrent();
    const auto found = ids.find(&session);
    return found == ids.end() || limits.secured(found->second, isKnown);
}

void LanService::admitted(const ClientSession& session) {
    queue.assertCurrent();
    if (const auto found = ids.find(&session); found != ids.end()) limits.forget(found->second);
}

void LanService::ended(const ClientSession& session) {
    queue.assertCurrent();
    const auto found = ids.find(&session);
    if (found == ids.end()) return;
    if (session.hasAnswered() && !session.isAuthenticated()) pacer.failed();
    limits.forget(found->second);
    strangers.erase(found->second);
    ids.erase(found);
}

}  // namespace orvel
