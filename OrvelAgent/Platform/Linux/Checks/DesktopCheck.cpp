#include "OrvelAgent/Platform/Linux/Checks/DesktopCheck.h"

#include <fcntl.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

#include "OrvelAgent/Platform/Linux/Bus.h"
#include "OrvelAgent/Platform/Linux/XConnect.h"
#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

namespace {

using Level = Finding::Level;
using Service = DesktopFacts::Service;
using SecretChoice = DesktopFacts::SecretChoice;

constexpr const char* secretService = "org.freedesktop.secrets";
constexpr const char* trayWatcher = "org.kde.StatusNotifierWatcher";

// The names that a service would be started for.
std::set<std::string> startableNames(Bus& bus) {
    std::set<std::string> names;
    const auto answer = bus.call({"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "ListActivatableNames"},
                                 g_variant_new("()"));
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(as)"))) return names;
    const GVariantPtr list(g_variant_get_child_value(answer.get(), 0));
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        const GVariantPtr name(g_variant_get_child_value(list.get(), i));
        names.insert(g_variant_get_string(name.get(), nullptr));
    }
    return names;
}

std::optional<bool> booleanProperty(Bus& bus, const char* service, const char* path,
                                    const char* interface, const char* name) {
    const auto answer = bus.call({service, path, "org.freedesktop.DBus.Properties", "Get"},
                                 g_variant_new("(ss)", interface, name));
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(v)"))) return std::nullopt;
    GVariant* unowned = nullptr;
    g_variant_get(answer.get(), "(v)", &unowned);
    const GVariantPtr value(unowned);
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN)) return std::nullopt;
    return g_variant_get_boolean(value.get()) != FALSE;
}

std::optional<bool> areSecretsLocked(Bus& bus) {
    const auto answer = bus.call(
        {secretService, "/org/freedesktop/secrets", "org.freedesktop.Secret.Service", "ReadAlias"},
        g_variant_new("(s)", "default"));
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(o)"))) return std::nullopt;
    const char* collection = nullptr;
    g_variant_get(answer.get(), "(&o)", &collection);
    if (std::strcmp(collection, "/") == 0) return std::nullopt;
    return booleanProperty(bus, secretService, collection, "org.freedesktop.Secret.Collection",
                           "Locked");
}

SecretChoice recordedChoice(const StateLocation& state) {
    const auto places = StatePlaces::of(state);
    if (!places.secretChoiceFile) return SecretChoice::files;
    const FileDescriptor file(
        open(places.secretChoiceFile->c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    Bytes record;
    if (file) readAll(file.get(), 64, record);
    const std::string text(textOf(record));
    if (text == "files\n") return SecretChoice::files;
    return text == "secret-service\n" ? SecretChoice::desktop : SecretChoice::none;
}

// Somebody shows icons as the System Tray Protocol of freedesktop.org has it.
bool hasTrayOfX11() {
    int number = 0;
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        connectToXServer(nullptr, &number), &xcb_disconnect);
    if (xcb_connection_has_error(connection.get())) return false;
    const std::string name = "_NET_SYSTEM_TRAY_S" + std::to_string(number);
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(
            connection.get(),
            xcb_intern_atom(connection.get(), 1, static_cast<std::uint16_t>(name.size()),
                            name.c_str()),
            nullptr),
        &std::free);
    if (!atom || atom->atom == XCB_ATOM_NONE) return false;
    const std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> owner(
        xcb_get_selection_owner_reply(
            connection.get(), xcb_get_selection_owner(connection.get(), atom->atom), nullptr),
        &std::free);
    return owner && owner->owner != XCB_WINDOW_NONE;
}

Finding secretFinding(const DesktopFacts& facts) {
    const auto finding = [](Level level, std::string text, std::string advice = {}) {
        return Finding{level, "secrets", std::move(text), std::move(advice)};
    };
    switch (facts.secretChoice) {
        case SecretChoice::files:
            return finding(Level::ok, "in files that only this user may read");
        case SecretChoice::none:
            return finding(Level::ok, facts.secrets == Service::absent
                                          ? "none yet; will be in files"
                                          : "none yet; will be in the desktop's store");
        case SecretChoice::desktop:
            break;
    }
    if (facts.secrets == Service::absent) {
        return finding(Level::problem,
                       "in the desktop's store (Secret Service), which does not run: this "
                       "computer uses another key, which paired phones do not know",
                       "Start the store that was there before, gnome-keyring or KWallet, then "
                       "the agent again.");
    }
    if (facts.secretsLocked.value_or(false)) {
        return finding(Level::problem,
                       "in the desktop's store (Secret Service), which is locked: this computer "
                       "uses another key, which paired phones do not know",
                       "Unlock it, by a login with the password or in the desktop's program for "
                       "passwords, then start the agent again.");
    }
    return finding(Level::ok, "in the desktop's store (Secret Service), unlocked");
}

}  // namespace

DesktopFacts DesktopFacts::look(const StateLocation& state, Duration limit) {
    DesktopFacts facts;
    const char* display = std::getenv("DISPLAY");
    facts.hasDisplay = display && *display;
    facts.secretChoice = recordedChoice(state);
    if (facts.hasDisplay) facts.hasTray = hasTrayOfX11();
    const auto address = sessionBusAddress();
    Bus bus;
    facts.hasBus = address && bus.open(*address, limit);
    if (!facts.hasBus) return facts;
    const auto startable = startableNames(bus);
    const auto find = [&](const char* name) {
        if (!bus.ownerOf(name).empty()) return Service::running;
        return startable.contains(name) ? Service::startable : Service::absent;
    };
    facts.secrets = find(secretService);
    if (facts.secrets == Service::running) facts.secretsLocked = areSecretsLocked(bus);
    facts.accessibility = find("org.a11y.Bus");
    facts.notifications = find("org.freedesktop.Notifications");
    facts.hasTray = facts.hasTray || booleanProperty(bus, trayWatcher, "/StatusNotifierWatcher",
                                                     trayWatcher, "IsStatusNotifierHostRegistered")
                                         .value_or(false);
    return facts;
}

std::vector<Finding> desktopFindings(const DesktopFacts& facts) {
    std::vector<Finding> findings;
    const auto add = [&](Level level, const char* subject, std::string text,
                         std::string advice = {}) {
        findings.push_back({level, subject, std::move(text), std::move(advice)});
    };
    if (!facts.hasBus) {
        add(Level::warning, "session bus",
            "none: no notifications, no focus of texts, and the computer may fall asleep",
            "Start the agent inside the desktop session, or install dbus-user-session and log in "
            "again.");
    } else {
        add(Level::ok, "session bus", "answers");
    }
    findings.push_back(secretFinding(facts));
    if (facts.hasBus && facts.hasDisplay) {
        if (facts.accessibility == Service::absent) {
            add(Level::warning, "text focus",
                "no accessibility bus: phones do not learn when a text can be typed",
                "sudo apt install at-spi2-core, and log in again.");
        } else {
            add(Level::ok, "text focus", "the accessibility bus is there");
        }
        if (facts.notifications == Service::absent) {
            add(Level::warning, "notifications",
                "nobody shows them: a new phone or an unlock shows in the panel only",
                "Install a notification daemon, for example: sudo apt install dunst");
        } else {
            add(Level::ok, "notifications", "are shown");
        }
    }
    if (facts.hasDisplay) {
        if (facts.hasTray) {
            add(Level::ok, "tray", "is there");
        } else {
            add(Level::warning, "tray", "none: the agent has a window instead of an icon",
                "On GNOME: sudo apt install gnome-shell-extension-appindicator, and log in again. "
                "Or use the commands: orvel-agent status");
        }
    }
    return findings;
}

}  // namespace orvel
