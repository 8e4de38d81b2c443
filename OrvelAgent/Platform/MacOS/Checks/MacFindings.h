#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"

namespace orvel {

// What `orvel-agent doctor` says of a Mac. The facts are the frameworks' (SystemChecks.mm), what to
// make of them is portable.

struct MacDisplayFacts {
    std::size_t displays = 0;
    // As this process is granted them; one that a terminal started has the terminal's.
    bool screenRecording = false, accessibility = false;
};
Check::Findings displayFindings(const MacDisplayFacts& facts, const Examined& examined);

// Whether the system's DNS-SD service answers.
Check::Findings announcementFindings(bool answers, const Examined& examined);

enum class MacFirewall { off, on, blocksAll };
// nullopt: it cannot be told.
Check::Findings firewallFindings(std::optional<MacFirewall> firewall);
// From what the firewall's own program says of its state: "... (State = 1)".
std::optional<MacFirewall> firewallFromText(std::string_view text);

struct MacStateFacts {
    bool hasIdentity = true;                 // the keychain has this Mac's key
    std::optional<std::uint64_t> freeBytes;  // where the state lies
};
Check::Findings stateFindings(const MacStateFacts& facts, const Examined& examined);

struct MacBundleFacts {
    bool isBundle = false;
    bool hasCertificate = false;  // signed by somebody, not just sealed by the linker
};
Check::Findings bundleFindings(const MacBundleFacts& facts);

enum class MacLogin { enabled, withdrawn, off };
Check::Findings startFindings(MacLogin login, const Examined& examined);

}  // namespace orvel
