#include "OrvelAgent/App/Updater.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Platform/Fake/FakeNotifier.h"
#include "OrvelAgent/Platform/Fake/FakeUpdateDriver.h"

namespace orvel {
namespace {

const AvailableUpdate update{"57", "1.4", "", 1000};

struct UpdaterTest : testing::Test {
    FakeUpdateDriver driver;
    FakeNotifier notifier;
    Updater updater{driver, notifier};
    int availableChanges = 0, wanted = 0;

    UpdaterTest() {
        QObject::connect(&updater, &Updater::availableVersionChanged,
                         [this] { ++availableChanges; });
        QObject::connect(&updater, &Updater::interfaceWanted, [this] { ++wanted; });
    }
    std::string available() const {
        return updater.availableVersion() ? updater.availableVersion()->toStdString() : "none";
    }
};

TEST_F(UpdaterTest, remindsOfWhatNobodyAskedForAndNobodyShows) {
    struct Row {
        bool standardInterface, userInitiated, reminds;
    };
    for (const Row& row : {Row{true, true, false}, Row{true, false, false}, Row{false, true, false},
                           Row{false, false, true}}) {
        driver.callbacks.willHandleShowingUpdate(update, row.standardInterface, row.userInitiated);
        EXPECT_EQ(available(), row.reminds ? "1.4" : "none");
        EXPECT_EQ(notifier.posted.size(), row.reminds ? 1u : 0u);
    }
    EXPECT_EQ(notifier.posted.front(),
              (Notifier::Notification{"update-1.4", "Orvel Agent güncellemesi hazır",
                                      "Sürüm 1.4. Menü çubuğundaki Orvel'den yükleyebilirsin."}));
    EXPECT_EQ(availableChanges, 1);
    EXPECT_EQ(wanted, 0);
}

TEST_F(UpdaterTest, forgetsTheVersionOnceItIsAttendedToOrOver) {
    for (const bool attends : {true, false}) {
        driver.callbacks.willHandleShowingUpdate(update, false, false);
        EXPECT_EQ(available(), "1.4");
        if (attends) driver.callbacks.didReceiveUserAttention(update);
        if (!attends) driver.callbacks.willFinishUpdateSession();
        EXPECT_EQ(available(), "none");
    }
    EXPECT_EQ(availableChanges, 4);
    driver.callbacks.willFinishUpdateSession();
    EXPECT_EQ(availableChanges, 4);
}

TEST_F(UpdaterTest, handsOverToTheDriverAndAsksForAWindowWhereItHasNone) {
    updater.checkForUpdates();
    updater.install();
    updater.skip();
    updater.dismiss();
    EXPECT_EQ(wanted, 2);
    driver.interface = true;
    updater.checkForUpdates();
    updater.install();
    EXPECT_EQ(wanted, 2);
    int toggles = 0;
    QObject::connect(&updater, &Updater::automaticChecksChanged, [&] { ++toggles; });
    updater.setAutomaticChecks(true);
    updater.setAutomaticChecks(false);
    EXPECT_FALSE(updater.automaticChecks());
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(driver.calls, (std::vector<std::string>{"check", "install", "skip", "dismiss",
                                                      "check", "install", "automatic off"}));
    int changes = 0;
    QObject::connect(&updater, &Updater::canCheckChanged, [&] { ++changes; });
    driver.setCheckable(false);
    EXPECT_FALSE(updater.canCheck());
    EXPECT_EQ(changes, 1);
}

TEST_F(UpdaterTest, saysHowFarItIs) {
    const std::pair<UpdateState, const char*> rows[] = {
        {{UpdateState::Checking{}}, "Güncellemeler denetleniyor…"},
        {{UpdateState::UpToDate{}}, "Orvel Agent güncel."},
        {{UpdateState::Found{update}}, "Sürüm 1.4 hazır."},
        {{UpdateState::Loading{update, 1}}, "Sürüm 1.4 indiriliyor…"},
        {{UpdateState::Loading{update, 1000}}, "Paket doğrulanıyor…"},
        {{UpdateState::Failed{UpdateFailure::notGenuine}},
         "İndirilen paket doğrulanamadı ve silindi. Hiçbir şey kurulmadı."},
        {{UpdateState::Installed{update}},
         "Sürüm 1.4 kuruldu. Orvel Agent yeniden başlayınca kullanılır."},
        {{UpdateState::Idle{}}, ""},
    };
    int changes = 0, relaunches = 0;
    QObject::connect(&updater, &Updater::stateChanged, [&] { ++changes; });
    QObject::connect(&updater, &Updater::relaunchWanted, [&] { ++relaunches; });
    for (const auto& [state, text] : rows) {
        driver.become(state);
        driver.become(state);
        EXPECT_EQ(updater.stateText().toStdString(), text);
        updater.relaunch();
    }
    EXPECT_EQ(changes, static_cast<int>(std::size(rows)));
    EXPECT_EQ(relaunches, 1);
}

}  // namespace
}  // namespace orvel
