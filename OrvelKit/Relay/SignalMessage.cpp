#include "OrvelKit/Relay/SignalMessage.h"

#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

template <>
struct JsonForm<IceCandidate> {
    static void members(auto& json, auto& candidate) {
        json("sdp", candidate.sdp);
        json("sdpMid", candidate.sdpMid);
        json("sdpMLineIndex", candidate.sdpMLineIndex);
    }
};

template <>
struct JsonCase<SignalMessage::Probe> {
    static constexpr const char* name = "probe";
    static void payload(auto&, auto&) {}
};

template <>
struct JsonCase<SignalMessage::Here> {
    static constexpr const char* name = "here";
    static void payload(auto& json, auto& here) {
        json("macName", here.macName);
        json("busy", here.busy);
    }
};

template <>
struct JsonCase<SignalMessage::Standby> {
    static constexpr const char* name = "standby";
    static void payload(auto& json, auto& standby) { json("macName", standby.macName); }
};

template <>
struct JsonCase<SignalMessage::Unlock> {
    static constexpr const char* name = "unlock";
    static void payload(auto&, auto&) {}
};

template <>
struct JsonCase<SignalMessage::Unlocked> {
    static constexpr const char* name = "unlocked";
    static void payload(auto& json, auto& unlocked) { json("until", unlocked.until); }
};

template <>
struct JsonCase<SignalMessage::Offer> {
    static constexpr const char* name = "offer";
    static void payload(auto& json, auto& offer) { json("sdp", offer.sdp); }
};

template <>
struct JsonCase<SignalMessage::Answer> {
    static constexpr const char* name = "answer";
    static void payload(auto& json, auto& answer) { json("sdp", answer.sdp); }
};

template <>
struct JsonCase<SignalMessage::Candidate> {
    static constexpr const char* name = "candidate";
    static void payload(auto& json, auto& trickled) { json("_0", trickled.candidate); }
};

template <>
struct JsonCase<SignalMessage::Bye> {
    static constexpr const char* name = "bye";
    static void payload(auto&, auto&) {}
};

std::string SignalMessage::toJson() const {
    return encodeJson(value);
}

SignalMessage SignalMessage::fromJson(std::string_view json) {
    return {decodeJson<Case>(json)};
}

}  // namespace orvel
