#include "OrvelAgent/Core/StrangerLimits.h"

#include <algorithm>

namespace orvel {

std::size_t StrangerLimits::count(bool isSecured, const std::string* address) const {
    return static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), [&](auto& pair) {
        const Entry& entry = pair.second;
        return entry.isSecured == isSecured && (!address || entry.address == *address);
    }));
}

std::optional<StrangerLimits::ID> StrangerLimits::connected(ID id, const std::string& address) {
    const bool addressFull = count(false, &address) >= maxHandshakingPerAddress;
    const bool full = count(false, nullptr) >= maxHandshaking;
    std::optional<ID> oldest;
    if (addressFull || full) {
        for (const auto& [other, entry] : entries) {
            if (entry.isSecured || (addressFull && entry.address != address)) continue;
            oldest = other;
            break;
        }
    }
    if (oldest) entries.erase(*oldest);
    entries.emplace(id, Entry{address});
    return oldest;
}

bool StrangerLimits::secured(ID id, bool isKnown) {
    const auto found = entries.find(id);
    if (found == entries.end()) return true;
    const std::string address = found->second.address;
    entries.erase(found);
    if (isKnown) return true;
    if (count(true, nullptr) >= maxUnknown || count(true, &address) >= maxUnknownPerAddress) {
        return false;
    }
    entries.emplace(id, Entry{address, true});
    return true;
}

void StrangerLimits::forget(ID id) {
    entries.erase(id);
}

}  // namespace orvel
