#include "OrvelAgent/Core/Admission.h"

#include <algorithm>

namespace orvel {

Admission::Verdict Admission::judge(const Hello& hello, const Facts& facts) {
    if (hello.version < Orvel::minimumProtocolVersion) return Rejection::phoneOutdated;
    if (!facts.screenRecording || !facts.accessibility) return Rejection::permissionsMissing;
    if (!facts.deviceID || hello.deviceID != *facts.deviceID) return Rejection::pinRequired;
    // The key itself need not be compared again: the ID is derived from it.
    if (facts.isTrusted) return KnownPhone{};
    if (!facts.pairingCode || !facts.hasPeerKey) return Rejection::pinRequired;
    if (!hello.pin) return Rejection::pinRequired;
    if (*hello.pin != *facts.pairingCode) return Rejection::wrongPin;
    return NewPairing{};
}

int Admission::streamPixels(std::int64_t maxPixels) {
    return static_cast<int>(std::clamp<std::int64_t>(maxPixels, minimumPixels, maximumPixels));
}

}  // namespace orvel
