#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// The messages of the hosted realtime service: Phoenix channels, serializer version 1.0.0, one JSON
// object each. See Docs/Protocol.md.

// What the channel reads of one.
struct RealtimeMessage {
    std::string event;
    std::optional<std::string> ref;
    std::optional<std::string> status;        // the payload's
    std::optional<std::string> innerPayload;  // the payload's payload, when an object, as JSON

    // nullopt: not JSON, no object, or without an event.
    static std::optional<RealtimeMessage> parse(std::string_view text);

    bool operator==(const RealtimeMessage&) const = default;

    // What the channel writes. `ref` numbers the message.
    static std::string join(const std::string& topic, std::int64_t ref, const std::string& key);
    static std::string heartbeat(std::int64_t ref);
    // nullopt when the payload is not the text of a JSON object.
    static std::optional<std::string> broadcast(const std::string& topic, std::int64_t ref,
                                                const std::string& joinRef, ByteView payload);
};

}  // namespace orvel
