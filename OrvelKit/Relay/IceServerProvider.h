#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/AnonymousAuth.h"

namespace orvel {

// A STUN or TURN server (RFC 7064, RFC 7065), as browsers write it.
struct IceServer {
    std::vector<std::string> urls;
    std::optional<std::string> username, credential;  // of TURN
    bool operator==(const IceServer&) const = default;
};

// The servers that a WebRTC session uses: two public STUN servers always, and the project's TURN
// servers with credentials that the project's function gives for a while. Whatever goes wrong
// leaves the first.
//
// Serialises itself on the queue, the account's; the public functions may be called from any
// thread. Everything given outlives it.
class IceServerProvider : public std::enable_shared_from_this<IceServerProvider> {
public:
    static constexpr std::chrono::seconds requestTime{5};
    // Credentials are not used in their last ten minutes, but for one minute at least; without a
    // lifetime for fifty, and never for longer than a day.
    static constexpr std::chrono::seconds expiryMargin{600}, minUse{60}, usualUse{3000},
        maxUse{86'400};

    static std::shared_ptr<IceServerProvider> make(SerialQueue& queue, const OrvelCloud& cloud,
                                                   HttpClient& http,
                                                   std::shared_ptr<AnonymousAuth> auth);

    // Answers on the queue, STUN servers first. Calls that come during a request share its answer.
    using ServersHandler = UniqueFunction<void(std::vector<IceServer>)>;
    void servers(ServersHandler handler);

    // Has the answer ready for the first offer.
    void prefetch();

    static std::vector<IceServer> fallback();

private:
    IceServerProvider(SerialQueue& queue, const OrvelCloud& cloud, HttpClient& http,
                      std::shared_ptr<AnonymousAuth> auth);
    void obtain(ServersHandler handler) RUNS_ON(queue);
    void fetch(bool again) RUNS_ON(queue);
    void request(const RelayProject& project, const std::string& token, bool again) RUNS_ON(queue);
    void answered(const std::optional<HttpResponse>& response, bool again) RUNS_ON(queue);
    void finish(const std::vector<IceServer>& servers) RUNS_ON(queue);

    struct Cached {
        std::vector<IceServer> servers;
        WallTime from, until;  // a clock that was set back ends it too
    };

    SerialQueue& queue;
    const OrvelCloud& cloud;
    HttpClient& http;
    const std::shared_ptr<AnonymousAuth> auth;
    std::optional<Cached> cached OWNED_BY(queue);
    std::vector<ServersHandler> waiting OWNED_BY(queue);  // for the request that is under way
};

}  // namespace orvel
