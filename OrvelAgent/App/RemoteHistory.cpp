#include "OrvelAgent/App/RemoteHistory.h"

#include <utility>

namespace orvel {

namespace {
constexpr const char* key = "remoteEvents";
}

RemoteHistory::RemoteHistory(Defaults& userDefaults)
    : defaults(userDefaults), kept(defaults.strings(key).value_or(std::vector<std::string>())) {
    if (kept.size() > maxLines) kept.resize(maxLines);
}

void RemoteHistory::add(std::string line) {
    kept.insert(kept.begin(), std::move(line));
    if (kept.size() > maxLines) kept.resize(maxLines);
    defaults.set(key, kept);
}

}  // namespace orvel
