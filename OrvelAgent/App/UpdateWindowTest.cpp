#include "OrvelAgent/App/UpdateWindow.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QPushButton>
#include <cstdlib>
#include <filesystem>

#include "OrvelAgent/Platform/Fake/FakeNotifier.h"
#include "OrvelAgent/Platform/Fake/FakeUpdateDriver.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/XServer.h"

// What fonts and the toolkit hold until the end of the process.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\nleak:libQt6\nleak:libX11.so\nleak:libxcb.so\nleak:libxkbcommon\n"
           "leak:libdbus-1.so\nleak:libglib-2.0.so\n";
}

namespace orvel {
namespace {

const AvailableUpdate newVersion{
    "1.4.0-1", "1.4",
    "<h2>Yenilikler</h2><ul><li>Görüntü daha hızlı.</li><li>Pano metni "
    "<a href='https://h/'>daha uzun</a> olabilir.</li></ul><script>alert(1)</script>"
    "<img src='file:///etc/passwd'>",
    23'400'000};

// An X server and the toolkit on it, for all tests of this program.
struct Desktop {
    XServer server;
    ScopedEnvironment display{"DISPLAY", server.display()};
    ScopedEnvironment platform{"QT_QPA_PLATFORM", "xcb"};
    int count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QApplication application{count, arguments};
};

struct UpdateWindowTest : testing::Test {
    static void SetUpTestSuite() { desktop = std::make_unique<Desktop>(); }
    static void TearDownTestSuite() { desktop.reset(); }

    static std::unique_ptr<Desktop> desktop;
    FakeUpdateDriver driver;
    FakeNotifier notifier;
    Updater updater{driver, notifier};
    UpdateWindow window{updater, "1.3"};

    // The visible buttons, first to last.
    std::vector<QPushButton*> buttons() const {
        std::vector<QPushButton*> shown;
        for (auto* button : window.findChildren<QPushButton*>()) {
            if (button->isVisible()) shown.push_back(button);
        }
        return shown;
    }
    std::string captions() const {
        std::string text;
        for (const auto* button : buttons())
            text += "[" + button->text().toStdString() + "]";
        return text;
    }
    // Pictures of the window, for people to look at: in the folder $ORVEL_PICTURES.
    void picture(const std::string& name) {
        const char* folder = std::getenv("ORVEL_PICTURES");
        if (!folder) return;
        QCoreApplication::processEvents();
        std::filesystem::create_directories(folder);
        const auto path = std::filesystem::path(folder) / ("update-" + name + ".png");
        EXPECT_TRUE(window.grab().save(QString::fromStdString(path.string())));
    }
};

std::unique_ptr<Desktop> UpdateWindowTest::desktop;

TEST_F(UpdateWindowTest, showsEachStateOfWhatSomebodyAskedFor) {
    struct Row {
        const char* name;
        UpdateState state;
        const char* captions;
    };
    const Row rows[] = {
        {"checking", {UpdateState::Checking{}}, "[Vazgeç]"},
        {"up-to-date", {UpdateState::UpToDate{}}, "[Tamam]"},
        {"found", {UpdateState::Found{newVersion}}, "[Bu sürümü atla][Sonra][Yükle]"},
        {"loading", {UpdateState::Loading{newVersion, 9'700'000}}, "[Vazgeç]"},
        {"ready", {UpdateState::Ready{newVersion}}, "[Sonra][Kur]"},
        {"installing", {UpdateState::Installing{newVersion}}, ""},
        {"installed", {UpdateState::Installed{newVersion}}, "[Sonra][Yeniden başlat]"},
        {"opened", {UpdateState::Opened{newVersion}}, "[Tamam]"},
        {"failed", {UpdateState::Failed{UpdateFailure::notGenuine}}, "[Kapat][Yeniden dene]"},
    };
    driver.become({UpdateState::Found{newVersion}});
    EXPECT_FALSE(window.isVisible());  // found by itself: nobody is interrupted
    driver.become({UpdateState::Idle{}});
    updater.checkForUpdates();
    EXPECT_FALSE(window.isVisible());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        driver.become(row.state);
        EXPECT_TRUE(window.isVisible());
        EXPECT_EQ(captions(), row.captions);
        if (!buttons().empty()) {
            EXPECT_EQ(window.focusWidget(), buttons().back());
        }
        picture(row.name);
    }
    driver.become({UpdateState::Idle{}});
    EXPECT_FALSE(window.isVisible());
}

TEST_F(UpdateWindowTest, passesOnWhatIsChosen) {
    const auto press = [this](UpdateState state, std::size_t which) {
        driver.calls.clear();
        driver.become({UpdateState::Idle{}});
        updater.checkForUpdates();
        driver.calls.clear();
        driver.become(std::move(state));
        buttons().at(which)->click();
        std::string calls;
        for (const auto& call : driver.calls)
            calls += call + " ";
        return calls + (window.isVisible() ? "open" : "closed");
    };
    EXPECT_EQ(press({UpdateState::Found{newVersion}}, 0),
              "skip open");  // the driver goes idle next
    EXPECT_EQ(press({UpdateState::Found{newVersion}}, 1), "dismiss closed");
    EXPECT_EQ(press({UpdateState::Found{newVersion}}, 2), "install open");
    EXPECT_EQ(press({UpdateState::Loading{newVersion, 1}}, 0), "dismiss closed");
    EXPECT_EQ(press({UpdateState::Ready{newVersion}}, 1), "install open");
    EXPECT_EQ(press({UpdateState::Failed{UpdateFailure::unreachable}}, 1), "check open");
    EXPECT_EQ(press({UpdateState::UpToDate{}}, 0), "dismiss closed");
}

}  // namespace
}  // namespace orvel
