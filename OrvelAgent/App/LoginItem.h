#pragma once

#include <QObject>

#include "OrvelAgent/Platform/LoginService.h"
#include "OrvelKit/Base/Defaults.h"

namespace orvel {

// The switch "start when the computer does". A fresh installation is switched on once; the user
// default "loginItemDefaulted" (Boolean) says that this has happened, and from then on the user
// alone decides. Made for the user's own agent only: not for a headless run, and not for one beside
// it on a state folder of its own. Main queue.
class LoginItem : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)

public:
    // Both outlive it.
    LoginItem(LoginService& service, Defaults& defaults);

    bool enabled() const { return isEnabled; }
    // Asks the system, then tells what became of it: where the system refuses, `enabled` stays as
    // it was, and enabledChanged comes all the same, so that a switch falls back.
    void setEnabled(bool enabled);
    // Looks again: other programs have such switches, too.
    void refresh();

Q_SIGNALS:
    void enabledChanged();

private:
    LoginService& service;
    bool isEnabled;
};

}  // namespace orvel
