#include "OrvelAgent/App/LoginItem.h"

namespace orvel {

namespace {
constexpr const char* defaultedKey = "loginItemDefaulted";
}

LoginItem::LoginItem(LoginService& loginService, Defaults& defaults)
    : service(loginService), isEnabled(service.isRegistered()) {
    // Where this cannot be noted, it would come back at each start against the user's will.
    const bool isFirstRun = !defaults.boolean(defaultedKey).value_or(false);
    if (isFirstRun && defaults.set(defaultedKey, true)) setEnabled(true);
}

void LoginItem::setEnabled(bool enabled) {
    if (enabled) {
        service.registerProgram();
    } else {
        service.unregisterProgram();
    }
    isEnabled = service.isRegistered();
    Q_EMIT enabledChanged();
}

void LoginItem::refresh() {
    const bool isRegistered = service.isRegistered();
    if (isRegistered == isEnabled) return;
    isEnabled = isRegistered;
    Q_EMIT enabledChanged();
}

}  // namespace orvel
