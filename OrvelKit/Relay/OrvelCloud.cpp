#include "OrvelKit/Relay/OrvelCloud.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace orvel {

namespace {

std::string fromEnvironment(const char* name, const char* compiledIn) {
    const char* value = std::getenv(name);
    return value ? value : compiledIn;
}

}  // namespace

std::optional<RelayProject> OrvelCloud::deployedProject() {
    auto url = fromEnvironment("ORVEL_PROJECT_URL", ORVEL_PROJECT_URL);
    auto key = fromEnvironment("ORVEL_PROJECT_KEY", ORVEL_PROJECT_KEY);
    const bool wanted = !url.empty() && !key.empty();
    auto project = RelayProject::from(std::move(url), std::move(key));
    if (wanted && !project) {
        std::fprintf(stderr, "orvel: the relay project's address is none, going on without\n");
    }
    return project;
}

OrvelCloud::OrvelCloud(Defaults& userDefaults) : OrvelCloud(userDefaults, deployedProject()) {}

OrvelCloud::OrvelCloud(Defaults& userDefaults, std::optional<RelayProject> project)
    : defaults(userDefaults), ownProject(std::move(project)) {}

std::optional<Url> OrvelCloud::override() const {
    const auto text = defaults.string("relayURL");
    return text ? Url::parse(*text) : std::nullopt;
}

std::optional<RelayConfig> OrvelCloud::relay() const {
    if (auto url = override()) {
        return RelayConfig(*std::move(url), defaults.string("relayKey").value_or("local"));
    }
    if (ownProject) return RelayConfig(*ownProject);
    return std::nullopt;
}

std::optional<RelayProject> OrvelCloud::project() const {
    return override() ? std::nullopt : ownProject;
}

std::vector<std::string> OrvelCloud::stunServers() {
    std::vector<std::string> servers;
    const std::pair<std::string, const char*> rows[] = {{ORVEL_STUN_HOST_3478, ":3478"},
                                                        {ORVEL_STUN_HOST_19302, ":19302"}};
    for (const auto& [host, port] : rows) {
        if (!host.empty()) servers.push_back("stun:" + host + port);
    }
    return servers;
}

}  // namespace orvel
