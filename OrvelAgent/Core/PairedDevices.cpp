#include "OrvelAgent/Core/PairedDevices.h"

#include <algorithm>

namespace orvel {

namespace {

constexpr const char* unknownName = "Adı bilinmeyen telefon";

template <class Value>
std::optional<Value> lookUp(const std::map<std::string, Value>& dictionary,
                            const std::string& key) {
    const auto found = dictionary.find(key);
    if (found == dictionary.end()) return std::nullopt;
    return found->second;
}

}  // namespace

PairedDevices::PairedDevices(Defaults& store) : defaults(store) {}

std::map<std::string, Bytes> PairedDevices::trustedKeys() const {
    return defaults.dataDictionary("trustedKeys").value_or(std::map<std::string, Bytes>());
}

bool PairedDevices::isTrusted(const std::string& deviceID) const {
    return trustedKeys().contains(deviceID);
}

std::optional<std::string> PairedDevices::nameOf(const std::string& deviceID) const {
    const auto names = defaults.stringDictionary("deviceNames");
    auto name = names ? lookUp(*names, deviceID) : std::nullopt;
    if (name && name->empty()) name.reset();
    return name;
}

void PairedDevices::trust(const std::string& deviceID, const Bytes& publicKey, WallTime now) {
    auto keys = trustedKeys();
    keys[deviceID] = publicKey;
    defaults.set("trustedKeys", keys);
    stamp("pairedAt", deviceID, now);
}

void PairedDevices::wasAdmitted(const std::string& deviceID, const std::string& name,
                                WallTime now) {
    auto names =
        defaults.stringDictionary("deviceNames").value_or(std::map<std::string, std::string>());
    names[deviceID] = name;
    defaults.set("deviceNames", names);
    stamp("lastSeen", deviceID, now);
}

void PairedDevices::stamp(const std::string& dictionary, const std::string& deviceID,
                          WallTime now) {
    auto dates = defaults.dateDictionary(dictionary).value_or(std::map<std::string, WallTime>());
    dates[deviceID] = now;
    defaults.set(dictionary, dates);
}

void PairedDevices::forget(const std::string& deviceID) {
    auto keys = trustedKeys();
    keys.erase(deviceID);
    defaults.set("trustedKeys", keys);
    auto names =
        defaults.stringDictionary("deviceNames").value_or(std::map<std::string, std::string>());
    names.erase(deviceID);
    defaults.set("deviceNames", names);
    for (const char* dictionary : {"pairedAt", "lastSeen"}) {
        auto dates =
            defaults.dateDictionary(dictionary).value_or(std::map<std::string, WallTime>());
        dates.erase(deviceID);
        defaults.set(dictionary, dates);
    }
}

void PairedDevices::forgetAll() {
    defaults.set("trustedKeys", std::map<std::string, Bytes>());
}

std::vector<PairedDevice> PairedDevices::list() const {
    const auto names =
        defaults.stringDictionary("deviceNames").value_or(std::map<std::string, std::string>());
    const auto paired =
        defaults.dateDictionary("pairedAt").value_or(std::map<std::string, WallTime>());
    const auto seen =
        defaults.dateDictionary("lastSeen").value_or(std::map<std::string, WallTime>());
    std::vector<PairedDevice> devices;
    for (const auto& [id, key] : trustedKeys()) {
        devices.push_back(
            {id, lookUp(names, id).value_or(unknownName), lookUp(paired, id), lookUp(seen, id)});
    }
    std::stable_sort(devices.begin(), devices.end(), [](const auto& a, const auto& b) {
        return a.lastSeen.value_or(WallTime::min()) > b.lastSeen.value_or(WallTime::min());
    });
    return devices;
}

}  // namespace orvel
