#include "OrvelAgent/Platform/MacOS/Checks/MacFindings.h"

namespace orvel {

namespace {

using Level = Finding::Level;

constexpr std::uint64_t littleSpace = 1 << 20;

Check::Findings one(const char* subject, Level level, std::string text, std::string advice = {}) {
    return {Finding{level, subject, std::move(text), std::move(advice)}};
}

}  // namespace

Check::Findings displayFindings(const MacDisplayFacts& facts, const Examined& examined) {
    constexpr const char* subject = "display";
    if (facts.displays == 0) {
        return one(subject, Level::problem, "no display: phones are refused",
                   "Open the lid, or connect a display or a plug that stands in for one.");
    }
    const std::string count =
        facts.displays == 1 ? "1 display" : std::to_string(facts.displays) + " displays";
    if (facts.screenRecording && facts.accessibility) return one(subject, Level::ok, count);
    const std::string places = std::string(facts.screenRecording ? "" : "Screen Recording") +
                               (facts.screenRecording || facts.accessibility ? "" : " and ") +
                               (facts.accessibility ? "" : "Accessibility");
    const std::string advice = "System Settings > Privacy & Security > " + places +
                               ": switch on Orvel Agent" +
                               (facts.screenRecording ? "." : ", then start it again.");
    // The running agent knows better what it may do.
    if (examined.runs) return one(subject, Level::ok, count, advice);
    return one(subject, Level::warning,
               count +
                   "; this program may lack a permission (what a terminal starts has the "
                   "terminal's)",
               advice);
}

Check::Findings announcementFindings(bool answers, const Examined& examined) {
    constexpr const char* subject = "network name";
    if (examined.runs && !examined.announced) {
        return one(subject, Level::ok, "the agent was told not to announce itself");
    }
    if (!answers) {
        return one(subject, Level::warning,
                   "mDNSResponder does not answer: phones do not find this Mac by themselves",
                   "Restart the Mac.");
    }
    return one(subject, Level::ok, "mDNSResponder answers");
}

Check::Findings firewallFindings(std::optional<MacFirewall> firewall) {
    constexpr const char* subject = "firewall";
    if (!firewall) return one(subject, Level::ok, "cannot be looked at");
    switch (*firewall) {
        case MacFirewall::off:
            break;
        case MacFirewall::on:
            return one(subject, Level::ok,
                       "is on, and lets those programs through that its list allows");
        case MacFirewall::blocksAll:
            return one(subject, Level::warning,
                       "blocks all incoming connections: phones on the local network do not get "
                       "through",
                       "System Settings > Network > Firewall > Options: switch off \"Block all "
                       "incoming connections\".");
    }
    return one(subject, Level::ok, "none in the way");
}

std::optional<MacFirewall> firewallFromText(std::string_view text) {
    constexpr std::string_view before = "State = ";
    const auto found = text.find(before);
    if (found == std::string_view::npos) return std::nullopt;
    switch (text.substr(found + before.size(), 1).empty() ? 0 : text[found + before.size()]) {
        case '0':
            return MacFirewall::off;
        case '1':
            return MacFirewall::on;
        case '2':
            return MacFirewall::blocksAll;
    }
    return std::nullopt;
}

Check::Findings stateFindings(const MacStateFacts& facts, const Examined& examined) {
    constexpr const char* subject = "state";
    Check::Findings findings;
    if (!facts.hasIdentity && examined.runs) {
        findings = one(subject, Level::problem,
                       "the keychain does not keep this Mac's key: phones have to pair anew after "
                       "each start",
                       "Look in Keychain Access whether the login keychain can be unlocked, then "
                       "start the agent again.");
    }
    if (facts.freeBytes && *facts.freeBytes < littleSpace) {
        findings.push_back(
            {Level::problem, subject, "the disk is full: nothing new is kept", "Make room."});
    }
    if (!findings.empty()) return findings;
    return one(subject, Level::ok,
               examined.state.folder ? "is kept in the folder that was given"
                                     : "is kept in the login keychain and the user defaults");
}

Check::Findings bundleFindings(const MacBundleFacts& facts) {
    constexpr const char* subject = "program";
    if (!facts.isBundle) {
        return one(subject, Level::warning,
                   "runs outside its application: no notifications, no start at login",
                   "Start the one inside \"Orvel Agent.app\".");
    }
    if (!facts.hasCertificate) {
        return one(subject, Level::warning,
                   "is not signed: macOS forgets its permissions with each new build",
                   "Install a released one, or sign this one with a certificate of your own.");
    }
    return one(subject, Level::ok, "is signed");
}

Check::Findings startFindings(MacLogin login, const Examined& examined) {
    constexpr const char* subject = "start";
    if (examined.state.folder) {
        return one(subject, Level::ok, "an agent with a folder of its own is started by hand");
    }
    switch (login) {
        case MacLogin::enabled:
            return one(subject, Level::ok, "at login");
        case MacLogin::withdrawn:
            return one(subject, Level::warning, "at login, but the system settings forbid it",
                       "System Settings > General > Login Items: allow Orvel Agent.");
        case MacLogin::off:
            break;
    }
    return one(subject, Level::warning,
               "by hand only: after a restart phones do not reach this computer",
               "Switch on the start at login in the agent's panel.");
}

}  // namespace orvel
