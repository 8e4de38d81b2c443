#pragma once

#include <QWidget>

class QScrollArea;

namespace orvel {

class AgentModel;
class CodeSection;
class DevicesSection;
class InternetSection;
class LoginItem;
class PermissionsSection;
class SettingsSection;
class StatusSection;
class UpdatesSection;

// Everything about the agent, one thing below the other: it shows what the model and the login
// item say, and hands them what the user does. As tall as its content, as far as the
// screen goes; then it scrolls. Main thread.
class AgentPanel : public QWidget {
    Q_OBJECT

public:
    // All outlive it. Without a login item there is no such switch.
    AgentPanel(AgentModel& model, LoginItem* login);

    // Hidden until shown; for what finds new versions. See UpdatesBinding.h.
    UpdatesSection& updates() const { return *updatesSection; }

    // Beside an icon (in global coordinates), until it loses the focus; a question of its own keeps
    // it open.
    void openAt(const QRect& icon);
    // As a window like others, where there is no icon.
    void openAsWindow();
    bool isWindowLikeOthers() const { return !isAtIcon; }

    QSize sizeHint() const override;

Q_SIGNALS:
    void aboutWanted();
    void quitWanted();

private:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

    void build();
    void connectModel();
    void connectLogin();
    void showStatus();
    void showDevices();
    void open(Qt::WindowFlags flags);
    void fit();
    QRect freeArea() const;

    AgentModel& model;
    LoginItem* const login;

    QScrollArea* scroll;
    QWidget* content;
    StatusSection* status;
    CodeSection* code;
    PermissionsSection* permissions;
    InternetSection* internet;
    DevicesSection* devices;
    SettingsSection* settings;
    UpdatesSection* updatesSection;

    bool isAtIcon = false;
    QRect icon;
};

}  // namespace orvel
