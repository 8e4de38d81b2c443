#pragma once

#include <QWidget>
#include <array>
#include <functional>

#include "OrvelAgent/App/Updater.h"

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace orvel {

// What the updater's driver does not show by itself: the answer of a check, what is new in a
// version, how far its package is loaded, and what became of it. Comes up when the updater wants
// it, and changes with its state. Closing it is "not now", except that nothing stops an
// installation.
class UpdateWindow : public QWidget {
    Q_OBJECT

public:
    // `installedVersion`: of this program, for people. The updater outlives the window.
    UpdateWindow(Updater& updater, QString installedVersion, QWidget* parent = nullptr);

protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    struct Look;
    struct Looks;
    void present();
    void refresh();
    void display(const Look& look);
    void choose(std::size_t button);

    Updater& updater;
    const QString installedVersion;
    bool wanted = false;    // to be seen as soon as there is something to see
    std::size_t shown = 0;  // which alternative of the state
    QLabel* const heading;
    QLabel* const detail;
    QPlainTextEdit* const notes;
    QProgressBar* const progress;
    // From the edge where the text begins: rare, no, yes (which Return chooses).
    std::array<QPushButton*, 3> buttons;
    std::array<std::function<void()>, 3> actions;
};

}  // namespace orvel
