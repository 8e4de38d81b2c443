#include "OrvelAgent/Platform/Linux/LinuxPower.h"

#include <cstdio>

#include "OrvelAgent/Platform/Linux/XDisplay.h"

namespace orvel {

namespace {

constexpr auto answerLimit = std::chrono::seconds(2);

}  // namespace

std::unique_ptr<Power> Power::create() {
    return std::make_unique<LinuxPower>();
}

LinuxPower::LinuxPower(Duration recheckEvery) : recheckInterval(recheckEvery) {}

LinuxPower::~LinuxPower() = default;

std::uint32_t LinuxPower::preventIdleSleep(const std::string& reason) {
    const std::uint32_t assertion = ++lastAssertion;
    queue.post([this, assertion, reason] {
        queue.assertCurrent();
        assertions[assertion].reason = reason;
        holdAll();
    });
    return assertion;
}

void LinuxPower::release(std::uint32_t assertion) {
    queue.post([this, assertion] {
        queue.assertCurrent();
        assertions.erase(assertion);
        if (assertions.empty()) recheck.cancel();
    });
}

void LinuxPower::declareUserActivity(const std::string&) {
    queue.post([this] {
        queue.assertCurrent();
        wakeDisplay();
    });
}

bool LinuxPower::openSessionBus() {
    const auto address = sessionBusAddress();
    return address && sessionBus.open(*address, answerLimit);
}

void LinuxPower::holdAll() {
    systemBus.open(systemBusAddress(), answerLimit);
    openSessionBus();
    for (auto& [id, assertion] : assertions)
        hold(assertion);
    recheck = queue.after(recheckInterval, [this] {
        queue.assertCurrent();
        holdAll();
    });
}

void LinuxPower::hold(Assertion& assertion) {
    auto& [reason, login, session, display, toldMissing] = assertion;
    for (auto* inhibitor : {&login, &session, &display}) {
        if (*inhibitor && !(*inhibitor)->holds()) inhibitor->reset();
    }
    if (!login) login = inhibitByLogin(systemBus, reason);
    if (!session) session = inhibitBySession(sessionBus, reason);
    if (login || session) display.reset();
    if (login || session || display) {
        toldMissing = false;
        return;
    }
    display = inhibitByScreenSaver(sessionBus, reason);
    if (!display) display = inhibitByXServer();
    if (!display && !std::exchange(toldMissing, true)) {
        std::fputs("orvel: nothing here keeps the computer awake\n", stderr);
    }
}

void LinuxPower::wakeDisplay() {
    if (const auto display = XDisplay::open()) display->wake();
    if (!openSessionBus()) return;
    sessionBus.call({"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver",
                     "org.freedesktop.ScreenSaver", "SimulateUserActivity"},
                    g_variant_new("()"));
}

}  // namespace orvel
