#pragma once

#include <optional>
#include <string>
#include <variant>

#include "OrvelKit/Wire/Control.h"

namespace orvel {

// Who may drive this computer over the local network: the judgement on a hello, without effects.
struct Admission {
    struct Facts {
        bool screenRecording = false, accessibility = false;  // permissions held now
        std::optional<std::string> deviceID;  // derived from the key of the handshake
        bool isTrusted = false;               // that device ID has a trusted key
        std::optional<std::string> pairingCode;
        bool hasPeerKey = false;
    };
    struct KnownPhone {
        bool operator==(const KnownPhone&) const = default;
    };
    struct NewPairing {
        bool operator==(const NewPairing&) const = default;
    };
    using Verdict = std::variant<Rejection, KnownPhone, NewPairing>;

    static Verdict judge(const Hello& hello, const Facts& facts);

    // The longer edge of the picture that a phone gets for what it asked, pixels.
    static int streamPixels(std::int64_t maxPixels);
    static constexpr int minimumPixels = 960, defaultPixels = 1920, maximumPixels = 3840;

    Admission() = delete;
};

}  // namespace orvel
