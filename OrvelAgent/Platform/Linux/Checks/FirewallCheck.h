#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"

namespace orvel {

// Whether a phone of the local network gets through to a port. What only root may know is unknown
// to others.
struct FirewallFacts {
    struct Firewall {
        bool isActive = false;
        std::optional<bool> letsThrough;  // nullopt: not known
    };
    Firewall ufw, firewalld, nftables;

    // Where to look; in a test, somewhere else.
    struct Sources {
        std::string root;              // "" for the system itself
        std::string systemBusAddress;  // firewalld's
        // Output of a program of the system; nullopt when it fails.
        std::function<std::optional<std::string>(const std::vector<std::string>& command)> run;
    };
    static Sources ofSystem();
    static FirewallFacts look(const Sources& sources, std::uint16_t port);
};

std::vector<Finding> firewallFindings(const FirewallFacts& facts, std::uint16_t port);

// What the rules that `nft list ruleset` prints do with a new TCP connection from outside to the
// port: nullopt when they have no chain for input, or none that drops.
std::optional<bool> nftRulesLetThrough(const std::string& rules, std::uint16_t port);

}  // namespace orvel
