#pragma once

#include <QObject>
#include <QString>
#include <optional>

#include "OrvelAgent/Platform/UpdateDriver.h"

namespace orvel {

class Notifier;

// New versions of this program, as a person sees them. A version that was found without anybody
// asking interrupts nobody: it becomes `availableVersion`, and a notification says so once.
// Belongs to the main queue, which is Qt's main thread.
//
// Where the driver has no interface of its own (Linux), `state` is what the panel and the
// UpdateWindow show, and `interfaceWanted` asks for that window.
class Updater : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool canCheck READ canCheck NOTIFY canCheckChanged)
    Q_PROPERTY(bool automaticChecks READ automaticChecks WRITE setAutomaticChecks NOTIFY
                   automaticChecksChanged)

public:
    // Starts the driver. Both outlive this.
    Updater(UpdateDriver& updateDriver, Notifier& userNotifier, QObject* parent = nullptr);

    // Whether this build can ever look for new versions; otherwise automaticChecks is no choice.
    bool isConfigured() const;
    // Whether "check for updates" is to be offered now.
    bool canCheck() const;
    // The display version of an update that was found in the background and that nobody has
    // attended to yet.
    const std::optional<QString>& availableVersion() const { return available; }
    bool automaticChecks() const;
    void setAutomaticChecks(bool checks);

    const UpdateState& state() const { return current; }
    // The state in one line of the interface's language: "Orvel Agent güncel."; empty when idle.
    QString stateText() const;

public Q_SLOTS:
    void checkForUpdates();  // the answer is shown, whatever it is
    void install();          // the available version, or the next step of the session
    void skip();             // never offer this version again unasked
    void dismiss();          // not now; ends what is under way
    void relaunch();         // once a new version is installed

Q_SIGNALS:
    void canCheckChanged();
    void availableVersionChanged();
    void automaticChecksChanged();
    void stateChanged();
    void interfaceWanted();
    void relaunchWanted();  // end, and start again as the new version

private:
    void found(const AvailableUpdate& update, bool standardInterface, bool userInitiated);
    void stateArrived(const UpdateState& state);
    void setAvailable(std::optional<QString> version);

    UpdateDriver& driver;
    Notifier& notifier;
    std::optional<QString> available;
    UpdateState current;
};

}  // namespace orvel
