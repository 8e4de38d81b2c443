#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/UpdateDriver.h"
#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Relay/Url.h"

namespace orvel {

// One version in a feed, for one kind of system.
struct AppcastItem {
    AvailableUpdate update;
    std::string system;                // "macos", "linux"
    std::string type;                  // of its package, a media type
    std::string architecture;          // as the system names it; empty: any
    std::string minimumSystemVersion;  // empty: any
    Url package;                       // https
    Bytes signature;                   // of the package, Ed25519; empty: there is none
    bool operator==(const AppcastItem&) const = default;
};

// The feed of new versions: RSS 2.0 with the elements of Sparkle, so that one feed serves the Macs
// and the others. Of each item are read:
//     sparkle:version, sparkle:shortVersionString   elements, or attributes of the enclosure
//     sparkle:minimumSystemVersion, sparkle:channel, description
//     enclosure: url, length, type, sparkle:edSignature, sparkle:os ("macos" where it is missing),
//                architecture of the namespace "urn:orvel:appcast" (a feed for Macs needs none)
// Everything else is passed over. Only the package is signed, not the feed: nothing here is to be
// believed before the package has been verified.
class Appcast {
public:
    static constexpr std::size_t maxSize = 1 << 20;         // bytes of a feed
    static constexpr std::size_t maxItems = 1'000;          // what follows is passed over
    static constexpr std::size_t maxNotes = 32 << 10;       // bytes; longer ones are left out
    static constexpr std::size_t maxVersion = 64;           // characters of a version
    static constexpr std::uint64_t maxPackage = 200 << 20;  // bytes

    // nullopt: it is no feed, or one with a document type, which none needs. Items that make no
    // sense, of other channels, and such as have no package are left out.
    static std::optional<std::vector<AppcastItem>> parse(ByteView feed);

    // The machine that a package has to fit.
    struct Target {
        std::string system, type, architecture, systemVersion;
    };
    // The newest for that machine, whatever is installed; nullptr: none is for it.
    static const AppcastItem* newest(const std::vector<AppcastItem>& items, const Target& target);
};

}  // namespace orvel
