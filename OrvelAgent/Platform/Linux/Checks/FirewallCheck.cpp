#include "OrvelAgent/Platform/Linux/Checks/FirewallCheck.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <regex>
#include <sstream>

#include "OrvelAgent/Platform/Linux/Bus.h"

namespace orvel {

namespace {

using Level = Finding::Level;
using Firewall = FirewallFacts::Firewall;

constexpr auto busLimit = std::chrono::seconds(1);

std::optional<std::string> textOfFile(const std::string& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    Bytes bytes;
    if (!file || readAll(file.get(), 4 << 20, bytes) != 0) return std::nullopt;
    return std::string(textOf(bytes));
}

std::optional<std::string> outputOf(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command)
        line += word + " ";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((line + "2>/dev/null").c_str(), "re"),
                                                     &pclose);
    if (!pipe) return std::nullopt;
    std::string text;
    std::array<char, 4096> chunk;
    while (const std::size_t count = fread(chunk.data(), 1, chunk.size(), pipe.get()))
        text.append(chunk.data(), count);
    return text;
}

// /etc/ufw/user.rules has a line for each rule: "### tuple ### allow tcp 47800 0.0.0.0/0 any …".
Firewall lookAtUfw(const std::string& root, std::uint16_t port) {
    Firewall ufw;
    const auto settings = textOfFile(root + "/etc/ufw/ufw.conf");
    ufw.isActive = settings && std::regex_search(*settings, std::regex("(^|\n)ENABLED=yes"));
    if (!ufw.isActive) return ufw;
    const auto rules = textOfFile(root + "/etc/ufw/user.rules");
    if (!rules) return ufw;
    const auto defaults = textOfFile(root + "/etc/default/ufw");
    const bool acceptsAll =
        defaults && defaults->find("DEFAULT_INPUT_POLICY=\"ACCEPT\"") != std::string::npos;
    const std::string number = std::to_string(port);
    const std::regex allows("### tuple ### (allow|limit) (tcp|any) ([0-9,:]*,)?" + number + "[, ]");
    const std::regex everything(
        "### tuple ### (allow|limit) any any 0.0.0.0/0 any (0.0.0.0/0|any)");
    ufw.letsThrough =
        acceptsAll || std::regex_search(*rules, allows) || std::regex_search(*rules, everything);
    return ufw;
}

Firewall lookAtFirewalld(const std::string& busAddress, std::uint16_t port) {
    Firewall firewalld;
    constexpr const char* service = "org.fedoraproject.FirewallD1";
    Bus bus;
    if (!bus.open(busAddress, busLimit) || bus.ownerOf(service).empty()) return firewalld;
    firewalld.isActive = true;
    const auto answer = bus.call({service, "/org/fedoraproject/FirewallD1",
                                  "org.fedoraproject.FirewallD1.zone", "queryPort"},
                                 g_variant_new("(sss)", "", std::to_string(port).c_str(), "tcp"));
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(b)"))) return firewalld;
    gboolean isOpen = FALSE;
    g_variant_get(answer.get(), "(b)", &isOpen);
    firewalld.letsThrough = isOpen != FALSE;
    return firewalld;
}

}  // namespace

std::optional<bool> nftRulesLetThrough(const std::string& rules, std::uint16_t port) {
    std::istringstream lines(rules);
    bool isInput = false, drops = false, accepts = false;
    const std::regex mentions("dport (\\{[^}]*\\b|)" + std::to_string(port) + "\\b.*accept");
    for (std::string line; std::getline(lines, line);) {
        if (line.find("hook input") != std::string::npos) {
            isInput = true;
            drops = drops || line.find("policy drop") != std::string::npos;
        } else if (line.find("chain ") != std::string::npos) {
            isInput = false;
        }
        // A chain may also refuse by its last rule.
        if (isInput && std::regex_search(line, std::regex("^\\s*(counter .*)?(drop|reject.*)$"))) {
            drops = true;
        }
        accepts = accepts || std::regex_search(line, mentions);
    }
    if (!drops) return std::nullopt;
    return accepts;
}

FirewallFacts::Sources FirewallFacts::ofSystem() {
    return {"", systemBusAddress(), outputOf};
}

FirewallFacts FirewallFacts::look(const Sources& sources, std::uint16_t port) {
    FirewallFacts facts;
    facts.ufw = lookAtUfw(sources.root, port);
    facts.firewalld = lookAtFirewalld(sources.systemBusAddress, port);
    // Both of these make nftables rules themselves.
    if (facts.ufw.isActive || facts.firewalld.isActive) return facts;
    const auto rules = sources.run({"/usr/sbin/nft", "list", "ruleset"});
    if (rules && !rules->empty()) {
        const auto letsThrough = nftRulesLetThrough(*rules, port);
        facts.nftables = {letsThrough.has_value(), letsThrough};
    } else {
        // Only root sees the rules; others see whether the service that loads them is on.
        const auto state = sources.run({"systemctl", "is-active", "nftables.service"});
        facts.nftables.isActive = state && state->starts_with("active");
    }
    return facts;
}

std::vector<Finding> firewallFindings(const FirewallFacts& facts, std::uint16_t port) {
    const std::string number = std::to_string(port);
    struct Row {
        const char* name;
        const Firewall& firewall;
        std::string command;
    };
    const Row rows[] = {
        {"ufw", facts.ufw, "sudo ufw allow " + number + "/tcp"},
        {"firewalld", facts.firewalld,
         "sudo firewall-cmd --permanent --add-port=" + number +
             "/tcp && sudo firewall-cmd --reload"},
        {"nftables", facts.nftables,
         "sudo nft insert rule inet filter input tcp dport " + number +
             " accept (and the same in /etc/nftables.conf)"},
    };
    std::vector<Finding> findings;
    for (const auto& [name, firewall, command] : rows) {
        if (!firewall.isActive) continue;
        if (firewall.letsThrough.value_or(false)) {
            findings.push_back({Level::ok, "firewall",
                                std::string(name) + " lets phones through to port " + number, ""});
        } else {
            const bool isKnown = firewall.letsThrough.has_value();
            findings.push_back({Level::warning, "firewall",
                                std::string(name) +
                                    (isKnown ? " keeps phones away from port "
                                             : " may keep phones away from port ") +
                                    number,
                                command});
        }
    }
    if (findings.empty()) findings.push_back({Level::ok, "firewall", "none in the way", ""});
    return findings;
}

}  // namespace orvel
