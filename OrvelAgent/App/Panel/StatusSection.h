#pragma once

#include <QWidget>

namespace orvel {

class PanelButton;
class SymbolView;
class TextLabel;

// Who is connected, or why nobody is.
class StatusSection : public QWidget {
    Q_OBJECT

public:
    enum class Kind {
        starting,
        waiting,
        notPermitted,  // waiting, but the system does not let phones in yet
        connected,
        failed
    };

    explicit StatusSection(QWidget* parent = nullptr);
    // `detail` may be empty.
    void show(Kind kind, const QString& title, const QString& detail);

Q_SIGNALS:
    void disconnectWanted();

private:
    SymbolView* symbol;
    TextLabel* title;
    TextLabel* detail;
    PanelButton* disconnectButton;
};

}  // namespace orvel
