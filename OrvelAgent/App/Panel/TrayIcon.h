#pragma once

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>

namespace orvel {

// The program's place in the menu bar or tray. It appears as soon as there is a tray, also a late
// one. Its picture tells the states apart by shape and, where icons have colours, by colour.
class TrayIcon : public QObject {
    Q_OBJECT

public:
    enum class State { starting, waiting, connected, failed };

    TrayIcon();
    void show(State state, const QString& tip);
    // Where it is, in global coordinates; nothing when there is none, or the tray does not say.
    QRect place() const;
    bool isInTray() const;

    static QIcon picture(State state, bool hasColours);

Q_SIGNALS:
    void clicked();
    void showWanted();  // from its menu, where clicks open that
    void quitWanted();

private:
    QMenu menu;  // outlives the icon
    QSystemTrayIcon icon;
};

}  // namespace orvel
