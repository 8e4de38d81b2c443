#include "OrvelAgent/Platform/Linux/Checks/DisplayCheck.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "OrvelAgent/Platform/Linux/XConnect.h"

namespace orvel {

namespace {

using Level = Finding::Level;

// What each is for; without the first ones phones are refused.
struct Extension {
    const char* name;
    Level withoutIt;
    const char* meaning;
};
constexpr Extension extensions[] = {
    {"DAMAGE", Level::problem, "the screen cannot be shown"},
    {"XFIXES", Level::problem, "the screen cannot be shown"},
    {"XTEST", Level::problem, "pointer and keyboard cannot be used"},
    {"MIT-SHM", Level::warning, "the picture costs several times as much work"},
    {"RANDR", Level::warning, "several monitors look like one"},
    {"XInputExtension", Level::warning, "the pointer's movements are seen late"},
    {"XKEYBOARD", Level::warning, "held keys may repeat twice"},
};

std::string fromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool hasExtension(xcb_connection_t* connection, const char* name) {
    const std::unique_ptr<xcb_query_extension_reply_t, decltype(&std::free)> answer(
        xcb_query_extension_reply(
            connection,
            xcb_query_extension(connection, static_cast<std::uint16_t>(std::strlen(name)), name),
            nullptr),
        &std::free);
    return answer && answer->present;
}

}  // namespace

DisplayFacts DisplayFacts::look() {
    DisplayFacts facts;
    facts.display = fromEnvironment("DISPLAY");
    facts.isWayland = !fromEnvironment("WAYLAND_DISPLAY").empty() ||
                      fromEnvironment("XDG_SESSION_TYPE") == "wayland";
    if (facts.display.empty()) return facts;
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        connectToXServer(nullptr, nullptr), &xcb_disconnect);
    if (xcb_connection_has_error(connection.get())) return facts;
    for (const Extension& extension : extensions) {
        if (!hasExtension(connection.get(), extension.name))
            facts.missing.push_back(extension.name);
    }
    facts.answers = !xcb_connection_has_error(connection.get());
    return facts;
}

std::vector<Finding> displayFindings(const DisplayFacts& facts) {
    const auto finding = [](Level level, std::string text, std::string advice) {
        return Finding{level, "display", std::move(text), std::move(advice)};
    };
    if (facts.isWayland) {
        return {finding(Level::problem,
                        "a Wayland session: neither can the screen be shown, nor pointer and "
                        "keyboard be used; files work",
                        "Log out, and at the login choose a session \"on Xorg\" (X11).")};
    }
    if (facts.display.empty()) {
        return {finding(Level::problem, "no display: phones are refused",
                        "Start the agent inside the desktop session, or with DISPLAY set. For a "
                        "machine without a screen: Xvfb.")};
    }
    if (!facts.answers) {
        return {finding(Level::problem, "the X server " + facts.display + " does not answer",
                        "Look whether it runs, and whether XAUTHORITY names this session's file.")};
    }
    std::vector<Finding> findings;
    for (const Extension& extension : extensions) {
        if (std::find(facts.missing.begin(), facts.missing.end(), extension.name) ==
            facts.missing.end()) {
            continue;
        }
        findings.push_back(
            finding(extension.withoutIt,
                    std::string("the X server has no ") + extension.name + ": " + extension.meaning,
                    "Switch the extension on in the X server's configuration, or "
                    "use another X server."));
    }
    if (findings.empty()) {
        findings.push_back(
            finding(Level::ok, "X11 on " + facts.display + ", with all extensions", ""));
    }
    return findings;
}

}  // namespace orvel
