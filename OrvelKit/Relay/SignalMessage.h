#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "OrvelKit/Base/Json.h"

namespace orvel {

// A path on which a peer may be reached (ICE, RFC 8445), as browsers write it.
struct IceCandidate {
    std::string sdp;  // the candidate line
    std::optional<std::string> sdpMid;
    std::int32_t sdpMLineIndex = 0;
    bool operator==(const IceCandidate&) const = default;
};

// What a phone and the agent tell each other through the relay, always inside a SignalEnvelope.
struct SignalMessage {
    // From the phone.
    struct Probe {
        bool operator==(const Probe&) const = default;
    };
    struct Unlock {
        bool operator==(const Unlock&) const = default;
    };
    struct Offer {
        std::string sdp;
        bool operator==(const Offer&) const = default;
    };
    // From the agent.
    struct Here {
        std::string macName;
        bool busy = false;  // another phone is connected
        bool operator==(const Here&) const = default;
    };
    struct Standby {  // to be unlocked first
        std::string macName;
        bool operator==(const Standby&) const = default;
    };
    struct Unlocked {
        double until = 0;  // seconds since 1970-01-01 00:00:00 UTC
        bool operator==(const Unlocked&) const = default;
    };
    struct Answer {
        std::string sdp;
        bool operator==(const Answer&) const = default;
    };
    // From either.
    struct Candidate {
        IceCandidate candidate;
        bool operator==(const Candidate&) const = default;
    };
    struct Bye {
        bool operator==(const Bye&) const = default;
    };

    using Case =
        std::variant<Probe, Here, Standby, Unlock, Unlocked, Offer, Answer, Candidate, Bye>;
    Case value;

    template <class T>
    const T* as() const {
        return std::get_if<T>(&value);
    }
    bool operator==(const SignalMessage&) const = default;

    // JSON as described in Docs/Protocol.md. Encoding cannot fail; decoding throws JsonError.
    std::string toJson() const;
    static SignalMessage fromJson(std::string_view json);
};

}  // namespace orvel
