#include "OrvelKit/Relay/RelayConfig.h"

namespace orvel {

std::optional<RelayProject> RelayProject::from(std::string baseUrl, std::string anonymousKey) {
    while (!baseUrl.empty() && baseUrl.back() == '/')
        baseUrl.pop_back();
    auto url = Url::parse(baseUrl);
    if (!url || url->host().empty() || anonymousKey.empty()) return std::nullopt;
    return RelayProject{*std::move(url), std::move(anonymousKey)};
}

RelayConfig::RelayConfig(Url endpoint, std::string key)
    : url(std::move(endpoint)), apiKey(std::move(key)) {}

RelayConfig::RelayConfig(const RelayProject& project)
    : url(project.baseUrl.withScheme(project.baseUrl.scheme() == "http" ? "ws" : "wss")
              .withPath("/realtime/v1/websocket")),
      apiKey(project.anonymousKey) {}

}  // namespace orvel
