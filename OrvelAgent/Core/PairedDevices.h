#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Base/Defaults.h"

namespace orvel {

struct PairedDevice {
    std::string id;    // device ID of the phone's public key
    std::string name;  // from its last admitted hello, or "Adı bilinmeyen telefon"
    std::optional<WallTime> pairedAt;
    std::optional<WallTime> lastSeen;
    bool operator==(const PairedDevice&) const = default;
};

// The phones that this computer trusts, kept in four dictionaries of the user defaults keyed by
// device ID: "trustedKeys" (public key bytes), "deviceNames", "pairedAt", "lastSeen". A phone is
// paired exactly when it has a trusted key; the others only decorate it. Nothing is cached: each
// call reads the store and writes the changed dictionary back whole. Belongs to "orvel.agent".
class PairedDevices {
public:
    explicit PairedDevices(Defaults& defaults);

    bool isTrusted(const std::string& deviceID) const;
    // A new pairing, as of `now`.
    void trust(const std::string& deviceID, const Bytes& publicKey, WallTime now);
    // Every admission: the last admitted name wins.
    void wasAdmitted(const std::string& deviceID, const std::string& name, WallTime now);
    void forget(const std::string& deviceID);
    // Only the trust: names and dates stay, and return when the same phone pairs again.
    void forgetAll();

    // The name of its last admitted hello; nullopt: none, or an empty one.
    std::optional<std::string> nameOf(const std::string& deviceID) const;

    // Newest last seen first; never seen last.
    std::vector<PairedDevice> list() const;
    // The trusted keys themselves, by device ID.
    std::map<std::string, Bytes> trustedKeys() const;

private:
    void stamp(const std::string& dictionary, const std::string& deviceID, WallTime now);
    Defaults& defaults;
};

}  // namespace orvel
