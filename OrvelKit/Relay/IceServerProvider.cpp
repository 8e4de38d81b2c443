#include "OrvelKit/Relay/IceServerProvider.h"

#include <algorithm>

#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

namespace {

// What the project's function answers.
struct Response {
    std::vector<IceServer> iceServers;
    std::optional<double> ttl;  // seconds
};

}  // namespace

template <>
struct JsonForm<IceServer> {
    static void members(auto& json, auto& server) {
        json("urls", server.urls);
        json("username", server.username);
        json("credential", server.credential);
    }
};

template <>
struct JsonForm<Response> {
    static void members(auto& json, auto& response) {
        json("iceServers", response.iceServers);
        json("ttl", response.ttl);
    }
};

namespace {

using Provider = IceServerProvider;

std::chrono::seconds useFor(const std::optional<double>& ttl) {
    if (!ttl) return Provider::usualUse;
    // Compared before it is converted: it may be any number.
    const double use = *ttl - static_cast<double>(Provider::expiryMargin.count());
    if (use >= static_cast<double>(Provider::maxUse.count())) return Provider::maxUse;
    if (use <= static_cast<double>(Provider::minUse.count())) return Provider::minUse;
    return std::chrono::seconds(static_cast<std::int64_t>(use));
}

}  // namespace

std::shared_ptr<IceServerProvider> IceServerProvider::make(SerialQueue& queue,
                                                           const OrvelCloud& cloud,
                                                           HttpClient& http,
                                                           std::shared_ptr<AnonymousAuth> auth) {
    return std::shared_ptr<IceServerProvider>(
        new IceServerProvider(queue, cloud, http, std::move(auth)));
}

IceServerProvider::IceServerProvider(SerialQueue& providerQueue, const OrvelCloud& orvelCloud,
                                     HttpClient& httpClient, std::shared_ptr<AnonymousAuth> account)
    : queue(providerQueue), cloud(orvelCloud), http(httpClient), auth(std::move(account)) {}

std::vector<IceServer> IceServerProvider::fallback() {
    return {{OrvelCloud::stunServers(), std::nullopt, std::nullopt}};
}

void IceServerProvider::servers(ServersHandler handler) {
    queue.post([self = shared_from_this(), handler = std::move(handler)]() mutable {
        self->queue.assertCurrent();
        self->obtain(std::move(handler));
    });
}

void IceServerProvider::prefetch() {
    servers([](const auto&) {});
}

void IceServerProvider::obtain(ServersHandler handler) {
    const auto now = queue.wallTime();
    if (cached && now >= cached->from && now < cached->until) return handler(cached->servers);
    waiting.push_back(std::move(handler));
    if (waiting.size() == 1) fetch(false);
}

void IceServerProvider::fetch(bool again) {
    const auto project = cloud.project();
    if (!project) return finish(fallback());
    auth->accessToken([self = shared_from_this(), project = *project,
                       again](const std::optional<std::string>& token) {
        self->queue.post([self, project, token, again] {
            self->queue.assertCurrent();
            if (!token) return self->finish(fallback());
            self->request(project, *token, again);
        });
    });
}

void IceServerProvider::request(const RelayProject& project, const std::string& token, bool again) {
    auto url = Url::parse(project.baseUrl.text() + "/functions/v1/tarno-turn");
    if (!url) return finish(fallback());
    http.send({"POST",
               *std::move(url),
               {{"apikey", project.anonymousKey}, {"Authorization", "Bearer " + token}},
               {},
               requestTime},
              [self = shared_from_this(), again](std::optional<HttpResponse> response) {
                  self->queue.post([self, response = std::move(response), again] {
                      self->queue.assertCurrent();
                      self->answered(response, again);
                  });
              });
}

void IceServerProvider::answered(const std::optional<HttpResponse>& response, bool again) {
    if (response && response->status == 401 && !again) {
        auth->reset();
        return fetch(true);
    }
    auto servers = fallback();
    if (!response || response->status != 200) return finish(servers);
    try {
        auto given = decodeJson<Response>(response->body);
        std::move(given.iceServers.begin(), given.iceServers.end(), std::back_inserter(servers));
        const auto now = queue.wallTime();
        cached = {servers, now, now + useFor(given.ttl)};
        finish(servers);
    } catch (const JsonError&) {
        finish(fallback());
    }
}

void IceServerProvider::finish(const std::vector<IceServer>& servers) {
    for (const auto& handler : std::exchange(waiting, {}))
        handler(servers);
}

}  // namespace orvel
