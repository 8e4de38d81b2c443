#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace orvel {

// How many connections may wait on this computer before their phones are known: enough for a
// household, too few to fill memory or to keep a known phone out. A connection counts from its
// arrival until it is admitted or ends; the secured connection of a known phone does not count.
// A value; its owner calls it on one queue.
class StrangerLimits {
public:
    static constexpr std::size_t maxHandshaking = 64, maxHandshakingPerAddress = 16;
    static constexpr std::size_t maxUnknown = 32, maxUnknownPerAddress = 4;

    using ID = std::uint64_t;  // of a connection, counting up: a smaller one is older

    // A new connection begins its handshake. Returns the connection that must end for it: the
    // oldest unfinished one, of the same address if that has its fill.
    std::optional<ID> connected(ID id, const std::string& address);
    // Its handshake is done. False: it is one stranger too many and must end.
    bool secured(ID id, bool isKnown);
    // Admitted or ended: it no longer counts. Unknown IDs are ignored.
    void forget(ID id);

private:
    struct Entry {
        std::string address;
        bool isSecured = false;
    };
    std::size_t count(bool isSecured, const std::string* address) const;

    std::map<ID, Entry> entries;
};

}  // namespace orvel
