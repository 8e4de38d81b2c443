#include "OrvelAgent/App/Updater.h"

#include <utility>

#include "OrvelAgent/Platform/Notifier.h"

namespace orvel {

namespace {

QString failureText(UpdateFailure failure) {
    switch (failure) {
        case UpdateFailure::unreachable:
            return QStringLiteral(
                "Güncelleme sunucusuna ulaşılamadı. Bağlantını denetleyip yeniden dene.");
        case UpdateFailure::unreadable:
            return QStringLiteral("Güncelleme listesi okunamadı. Daha sonra yeniden dene.");
        case UpdateFailure::notGenuine:
            return QStringLiteral(
                "İndirilen paket doğrulanamadı ve silindi. Hiçbir şey kurulmadı.");
        case UpdateFailure::noRoom:
            return QStringLiteral("Paket diske yazılamadı. Yer açıp yeniden dene.");
        case UpdateFailure::notInstalled:
            return QStringLiteral("Paket kurulamadı. Orvel Agent değişmedi.");
    }
    return {};
}

QString versionOf(const AvailableUpdate& update) {
    return QString::fromStdString(update.displayVersion);
}

struct StateText {
    QString operator()(const UpdateState::Idle&) const { return {}; }
    QString operator()(const UpdateState::Checking&) const {
        return QStringLiteral("Güncellemeler denetleniyor…");
    }
    QString operator()(const UpdateState::UpToDate&) const {
        return QStringLiteral("Orvel Agent güncel.");
    }
    QString operator()(const UpdateState::Found& found) const {
        return QStringLiteral("Sürüm %1 hazır.").arg(versionOf(found.update));
    }
    QString operator()(const UpdateState::Loading& loading) const {
        return loading.received >= loading.update.length
                   ? QStringLiteral("Paket doğrulanıyor…")
                   : QStringLiteral("Sürüm %1 indiriliyor…").arg(versionOf(loading.update));
    }
    QString operator()(const UpdateState::Ready& ready) const {
        return QStringLiteral("Sürüm %1 indirildi ve doğrulandı.").arg(versionOf(ready.update));
    }
    QString operator()(const UpdateState::Installing& installing) const {
        return QStringLiteral("Sürüm %1 kuruluyor…").arg(versionOf(installing.update));
    }
    QString operator()(const UpdateState::Installed& installed) const {
        return QStringLiteral("Sürüm %1 kuruldu. Orvel Agent yeniden başlayınca kullanılır.")
            .arg(versionOf(installed.update));
    }
    QString operator()(const UpdateState::Opened&) const {
        return QStringLiteral("Paket açıldı. Kurulumu orada tamamla.");
    }
    QString operator()(const UpdateState::Failed& failed) const {
        return failureText(failed.reason);
    }
};

}  // namespace

Updater::Updater(UpdateDriver& updateDriver, Notifier& userNotifier, QObject* parent)
    : QObject(parent), driver(updateDriver), notifier(userNotifier) {
    driver.start({[this] { Q_EMIT canCheckChanged(); },
                  [this](const AvailableUpdate& update, bool standardInterface,
                         bool userInitiated) { found(update, standardInterface, userInitiated); },
                  [this](const AvailableUpdate&) { setAvailable(std::nullopt); },
                  [this] { setAvailable(std::nullopt); },
                  [this](const UpdateState& state) { stateArrived(state); }});
}

bool Updater::isConfigured() const {
    return driver.isConfigured();
}
bool Updater::canCheck() const {
    return driver.canCheck();
}
bool Updater::automaticChecks() const {
    return driver.automaticallyChecks();
}

void Updater::setAutomaticChecks(bool checks) {
    if (checks == automaticChecks()) return;
    driver.setAutomaticallyChecks(checks);
    Q_EMIT automaticChecksChanged();
}

QString Updater::stateText() const {
    return std::visit(StateText(), current.value);
}

void Updater::checkForUpdates() {
    driver.checkForUpdates();
    if (!driver.hasInterface()) Q_EMIT interfaceWanted();
}

void Updater::install() {
    driver.install();
    if (!driver.hasInterface()) Q_EMIT interfaceWanted();
}

void Updater::skip() {
    driver.skip();
}
void Updater::dismiss() {
    driver.dismiss();
}

void Updater::relaunch() {
    if (std::holds_alternative<UpdateState::Installed>(current.value)) Q_EMIT relaunchWanted();
}

void Updater::found(const AvailableUpdate& update, bool standardInterface, bool userInitiated) {
    if (standardInterface || userInitiated) return;
    const std::string version = update.displayVersion;
    notifier.post({"update-" + version, "Orvel Agent güncellemesi hazır",
                   "Sürüm " + version + ". Menü çubuğundaki Orvel'den yükleyebilirsin."});
    setAvailable(QString::fromStdString(version));
}

void Updater::stateArrived(const UpdateState& state) {
    if (state == current) return;
    current = state;
    Q_EMIT stateChanged();
}

void Updater::setAvailable(std::optional<QString> version) {
    if (version == available) return;
    available = std::move(version);
    Q_EMIT availableVersionChanged();
}

}  // namespace orvel
