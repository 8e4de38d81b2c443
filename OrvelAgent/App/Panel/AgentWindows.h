#pragma once

#include <QObject>
#include <functional>
#include <memory>

#include "OrvelAgent/App/Panel/TrayIcon.h"

namespace orvel {

class AboutWindow;
class AgentModel;
class AgentPanel;
class LoginItem;
class PairingWindow;
class UpdatesSection;

// What the program shows: the tray icon, the panel that opens at it, or as a window where there is
// no tray, and the window of a new phone. Needs the application object. Main thread.
class AgentWindows : public QObject {
    Q_OBJECT

public:
    // Desktops start their trays and their programs side by side: so long one is waited for.
    static constexpr std::chrono::seconds trayPatience{3};

    struct Parts {
        AgentModel& model;
        LoginItem* login;  // null: this agent is none that could be started at login
        // Fills the panel's section about new versions; may be empty.
        std::function<void(UpdatesSection&)> connectUpdates;
        QString version;  // of the program, for people
        QString webHost;  // of the product's web site; may be empty
        // The desktop has started the program, not a person: no window comes up by itself.
        bool startedByDesktop = false;
    };
    explicit AgentWindows(Parts parts);
    ~AgentWindows() override;

    void start();  // once
    const TrayIcon& icon() const { return tray; }

public Q_SLOTS:
    // Brings the panel up, for somebody who started the program once more. Main thread.
    void showPanel();

Q_SIGNALS:
    void quitWanted();

private:
    void togglePanel();
    void showStatus();
    void showPairing();
    void showAbout();
    AgentPanel& panel();

    const Parts parts;
    TrayIcon tray;
    std::unique_ptr<AgentPanel> openedPanel;  // made at its first opening
    std::unique_ptr<PairingWindow> pairing;   // while a new phone is there
    std::unique_ptr<AboutWindow> about;
};

}  // namespace orvel
