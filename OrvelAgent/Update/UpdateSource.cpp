#include "OrvelAgent/Update/UpdateSource.h"

#include <cstdio>
#include <utility>

namespace orvel {

std::optional<UpdateSource> UpdateSource::compiledIn() {
    const std::string feed = ORVEL_UPDATE_FEED, key = ORVEL_UPDATE_KEY;
    auto source = from(feed, key);
    if (!source && !(feed.empty() && key.empty())) {
        std::fprintf(stderr, "orvel: the feed of updates or its key is none, going on without\n");
    }
    return source;
}

std::optional<UpdateSource> UpdateSource::from(const std::string& feed, const std::string& key) {
    auto url = Url::parse(feed);
    auto bytes = fromBase64(key);
    const bool usable =
        url && url->scheme() == "https" && !url->host().empty() && bytes && bytes->size() == 32;
    if (!usable) return std::nullopt;
    return UpdateSource{*std::move(url), *std::move(bytes)};
}

}  // namespace orvel
