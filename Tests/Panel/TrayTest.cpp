// The icon in a real tray, and what a click on it does.

#include <QPainter>

#include "OrvelAgent/App/Panel/AgentWindows.h"
#include "Tests/Panel/PanelDesk.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/XDesk.h"

namespace orvel {
namespace {

constexpr int patience = 20'000;

class TrayTest : public PanelTest {
protected:
    void start() {
        // Qt hears of the end of a former test's tray in its loop.
        ASSERT_TRUE(
            QTest::qWaitFor([] { return !QSystemTrayIcon::isSystemTrayAvailable(); }, patience));
        QApplication::setDoubleClickInterval(1);  // none here: each click counts
        agent.start();
        windows.emplace(AgentWindows::Parts{*agent.model, nullptr, nullptr, "1", "", true});
        windows->start();
    }
    static std::unique_ptr<BackgroundProcess> trayer() {
        return std::make_unique<BackgroundProcess>(
            BackgroundProcess::Options{.command = {"trayer", "--edge", "top", "--align", "right",
                                                   "--widthtype", "request", "--height", "24"},
                                       .environment = {{"DISPLAY", desk->server.display()}},
                                       .outputFile = log / "trayer"});
    }
    static AgentPanel* panel() {
        for (QWidget* each : QApplication::topLevelWidgets()) {
            auto* found = qobject_cast<AgentPanel*>(each);
            if (found && found->isVisible()) return found;
        }
        return nullptr;
    }
    // The icon's window, in a tray and painted.
    static bool hasIcon(const TrayIcon& icon) {
        return QTest::qWaitFor([&] { return icon.place().isValid() && icon.place().y() < 40; },
                               patience);
    }

    static inline TemporaryFolder log;
    std::optional<AgentWindows> windows;
};

TEST_F(TrayTest, aLateTrayTakesTheIconAndItsClicksOpenAndCloseThePanel) {
    start();
    const TrayIcon& icon = windows->icon();
    EXPECT_FALSE(icon.isInTray());
    const auto tray = trayer();
    ASSERT_TRUE(hasIcon(icon)) << fileText(log / "trayer");
    XDesk hand(desk->server.display());
    // The tray may still be moving its icons about.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            hand.click(icon.place().center().x(), icon.place().center().y());
            return QTest::qWaitFor([] { return panel() != nullptr; }, 1000);
        },
        patience));
    const QRect opened = panel()->frameGeometry();
    EXPECT_LT(opened.top(), 60);
    EXPECT_LE(std::abs(opened.center().x() - icon.place().center().x()), opened.width());
    ASSERT_TRUE(QTest::qWaitForWindowActive(panel(), patience));
    hand.click(icon.place().center().x(), icon.place().center().y());
    EXPECT_TRUE(QTest::qWaitFor([] { return panel() == nullptr; }, patience));
}

TEST_F(TrayTest, withoutATrayThePanelIsAWindow) {
    start();
    EXPECT_FALSE(panel());
    windows->showPanel();
    ASSERT_TRUE(panel());
    EXPECT_TRUE(panel()->isWindowLikeOthers());
    EXPECT_EQ(panel()->windowTitle(), "Orvel Agent");
    windows->showPanel();  // once more brings the same one up
    ASSERT_TRUE(panel());
    panel()->close();
    EXPECT_FALSE(panel());
}

// By shape as well as by colour: not everybody sees those apart.
TEST_F(TrayTest, theIconTellsTheStatesApart) {
    using State = TrayIcon::State;
    for (const bool coloured : {true, false}) {
        QList<QImage> pictures;
        for (const State state : {State::waiting, State::connected, State::failed}) {
            QImage bar(22, 22, QImage::Format_Grayscale8);
            bar.fill(Qt::white);
            QPainter(&bar).drawPixmap(0, 0,
                                      TrayIcon::picture(state, coloured).pixmap(bar.size(), 1));
            pictures << bar;
        }
        for (int i = 0; i < 3; ++i) {
            const QImage &a = pictures[i], &b = pictures[(i + 1) % 3];
            int different = 0;
            for (int y = 0; y < a.height(); ++y) {
                for (int x = 0; x < a.width(); ++x)
                    different += std::abs(qGray(a.pixel(x, y)) - qGray(b.pixel(x, y))) > 60;
            }
            EXPECT_GT(different, 20) << i << (coloured ? " coloured" : " plain");
        }
    }
}

}  // namespace
}  // namespace orvel
