#include "OrvelAgent/Platform/Linux/Inhibitor.h"

#include <poll.h>

#include "OrvelAgent/Platform/Linux/XDisplay.h"

namespace orvel {

namespace {

constexpr const char* program = "Orvel Agent";

class LoginInhibitor final : public Inhibitor {
public:
    explicit LoginInhibitor(FileDescriptor pipeEnd) : descriptor(std::move(pipeEnd)) {}
    bool holds() override {
        // The writing end of a pipe: an error when the reader has gone.
        pollfd state{descriptor.get(), 0, 0};
        return poll(&state, 1, 0) == 0;
    }

private:
    const FileDescriptor descriptor;
};

// A service of the session that inhibits sleep, and the call that ends it.
struct SessionKeeper {
    BusMethod inhibit;
    GVariant* (*arguments)(const char* reason);
    const char* uninhibit;  // null: the answer is an object that is closed
};

constexpr std::uint32_t suspendFlag = 4;

const SessionKeeper sessionKeepers[] = {
    {{"org.gnome.SessionManager", "/org/gnome/SessionManager", "org.gnome.SessionManager",
      "Inhibit"},
     [](const char* reason) {
         return g_variant_new("(susu)", program, std::uint32_t{0}, reason, suspendFlag);
     },
     "Uninhibit"},
    {{"org.freedesktop.PowerManagement", "/org/freedesktop/PowerManagement/Inhibit",
      "org.freedesktop.PowerManagement.Inhibit", "Inhibit"},
     [](const char* reason) { return g_variant_new("(ss)", program, reason); },
     "UnInhibit"},
    {{"org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
      "org.freedesktop.portal.Inhibit", "Inhibit"},
     [](const char* reason) {
         GVariantBuilder options;
         g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
         g_variant_builder_add(&options, "{sv}", "reason", g_variant_new_string(reason));
         return g_variant_new("(sua{sv})", "", suspendFlag, &options);
     },
     nullptr},
};

const SessionKeeper screenSaver = {
    {"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver",
     "Inhibit"},
    [](const char* reason) { return g_variant_new("(ss)", program, reason); },
    "UnInhibit"};

class SessionInhibitor final : public Inhibitor {
public:
    SessionInhibitor(Bus& sessionBus, const SessionKeeper& asked, GVariantPtr given)
        : bus(sessionBus),
          keeper(asked),
          owner(bus.ownerOf(keeper.inhibit.service)),
          answer(std::move(given)) {}

    ~SessionInhibitor() override {
        if (!holds()) return;  // the cookie may be somebody else's by now
        if (keeper.uninhibit) {
            BusMethod method = keeper.inhibit;
            method.name = keeper.uninhibit;
            bus.send(method, answer.get());
        } else {
            const char* request = nullptr;
            g_variant_get(answer.get(), "(&o)", &request);
            bus.send({keeper.inhibit.service, request, "org.freedesktop.portal.Request", "Close"},
                     g_variant_new("()"));
        }
    }

    bool holds() override { return !owner.empty() && bus.ownerOf(keeper.inhibit.service) == owner; }

    static std::unique_ptr<Inhibitor> ask(Bus& bus, const SessionKeeper& keeper,
                                          const std::string& reason) {
        auto given = bus.call(keeper.inhibit, keeper.arguments(reason.c_str()));
        const auto* type = keeper.uninhibit ? G_VARIANT_TYPE("(u)") : G_VARIANT_TYPE("(o)");
        if (!given || !g_variant_is_of_type(given.get(), type)) return nullptr;
        return std::make_unique<SessionInhibitor>(bus, keeper, std::move(given));
    }

private:
    Bus& bus;
    const SessionKeeper& keeper;
    const std::string owner;
    const GVariantPtr answer;  // a cookie or an object
};

class XServerInhibitor final : public Inhibitor {
public:
    explicit XServerInhibitor(std::unique_ptr<XDisplay> suspended)
        : display(std::move(suspended)) {}
    bool holds() override { return display->isConnected(); }

private:
    const std::unique_ptr<XDisplay> display;
};

}  // namespace

std::unique_ptr<Inhibitor> inhibitByLogin(Bus& bus, const std::string& reason) {
    FileDescriptor descriptor;
    bus.call({"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
              "Inhibit"},
             g_variant_new("(ssss)", "idle", program, reason.c_str(), "block"), &descriptor);
    if (!descriptor) return nullptr;
    return std::make_unique<LoginInhibitor>(std::move(descriptor));
}

std::unique_ptr<Inhibitor> inhibitBySession(Bus& bus, const std::string& reason) {
    for (const auto& keeper : sessionKeepers) {
        if (auto inhibitor = SessionInhibitor::ask(bus, keeper, reason)) return inhibitor;
    }
    return nullptr;
}

std::unique_ptr<Inhibitor> inhibitByScreenSaver(Bus& bus, const std::string& reason) {
    return SessionInhibitor::ask(bus, screenSaver, reason);
}

std::unique_ptr<Inhibitor> inhibitByXServer() {
    auto display = XDisplay::open();
    if (!display || !display->suspendScreenSaver()) return nullptr;
    return std::make_unique<XServerInhibitor>(std::move(display));
}

}  // namespace orvel
