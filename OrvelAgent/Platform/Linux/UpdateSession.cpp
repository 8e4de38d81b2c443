#include "OrvelAgent/Platform/Linux/UpdateSession.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "OrvelAgent/Update/VersionOrder.h"
#include "OrvelKit/Secure/Crypto.h"

namespace orvel {

namespace {

constexpr const char* skippedKey = "SUSkippedVersion";
// Steps in which the loading is told.
constexpr std::uint64_t progressSteps = 200;

}  // namespace

UpdateSession::UpdateSession(Parts sessionParts, UpdateSetup sessionSetup, Outlet sessionOutlet)
    : parts(std::move(sessionParts)),
      setup(std::move(sessionSetup)),
      outlet(std::move(sessionOutlet)),
      schedule(parts.defaults, parts.random),
      folder(setup.folder) {}

void UpdateSession::start(bool checksAutomatically) {
    parts.queue.assertCurrent();
    automatic = checksAutomatically;
    folder.prepare();  // what fails here will fail again, and be told, when it matters
    lookLater(schedule.untilFirstLook());
}

void UpdateSession::setAutomatic(bool checks) {
    automatic = checks;
}

void UpdateSession::lookLater(Duration delay) {
    lookTimer = parts.queue.after(delay, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->lookLater(UpdateSchedule::lookInterval);
        self->look();
    });
}

void UpdateSession::look() {
    const bool atRest = in<UpdateState::Idle>() || in<UpdateState::UpToDate>() ||
                        in<UpdateState::Failed>() || (in<UpdateState::Found>() && !attended);
    if (automatic && atRest && !fetch && schedule.isDue(parts.queue.wallTime())) loadFeed();
}

void UpdateSession::check() {
    if (item) {
        attend();
        outlet.state(state);
        return;
    }
    asked = true;
    become({UpdateState::Checking{}});
    if (!fetch) loadFeed();
}

void UpdateSession::loadFeed() {
    feed.clear();
    fetch = std::make_unique<HttpsFetch>(
        parts.queue, parts.http(),
        HttpsFetch::Request{setup.feed, Appcast::maxSize, feedTimeout, silence,
                            [weak = weak_from_this()](ByteView piece) {
                                if (const auto self = weak.lock()) append(self->feed, piece);
                                return true;
                            },
                            later(&UpdateSession::feedLoaded)});
}

void UpdateSession::feedLoaded(HttpsFetch::Outcome outcome) {
    fetch = nullptr;
    const Bytes text = std::exchange(feed, {});
    if (outcome == HttpsFetch::Outcome::failed) {
        return noneFound({UpdateState::Failed{UpdateFailure::unreachable}});
    }
    // A server that cannot be reached is asked again in an hour; one that answered, tomorrow.
    schedule.checked(parts.queue.wallTime());
    const auto items = outcome == HttpsFetch::Outcome::whole ? Appcast::parse(text) : std::nullopt;
    if (!items) return noneFound({UpdateState::Failed{UpdateFailure::unreadable}});
    const AppcastItem* newest = Appcast::newest(*items, setup.target);
    if (!newest || !isNewer(newest->update.version)) {
        return noneFound({UpdateState::UpToDate{}});
    }
    if (!asked && newest->update.version == parts.defaults.string(skippedKey)) {
        return noneFound({UpdateState::UpToDate{}});
    }
    const bool byUser = std::exchange(asked, false);
    if (attended || (item && item->update == newest->update)) return;  // told already
    item = *newest;
    outlet.found(item->update, byUser);
    become({UpdateState::Found{item->update}});
    if (byUser) attend();
}

void UpdateSession::noneFound(UpdateState outcome) {
    if (std::exchange(asked, false)) return become(std::move(outcome));
    const auto* failed = std::get_if<UpdateState::Failed>(&outcome.value);
    const auto reason = failed ? std::optional(failed->reason) : std::nullopt;
    if (std::exchange(lastFailure, reason) == reason || !reason) return;
    std::fprintf(stderr, "orvel: the feed of updates cannot be %s\n",
                 reason == UpdateFailure::unreachable ? "reached" : "read");
}

void UpdateSession::attend() {
    if (!std::exchange(attended, true)) outlet.attended(item->update);
}

void UpdateSession::install() {
    if (in<UpdateState::Found>()) {
        attend();
        loadPackage();
    } else if (in<UpdateState::Ready>()) {
        handOver();
    }
}

void UpdateSession::loadPackage() {
    const auto& update = item->update;
    fetch = nullptr;  // of a check that runs beside: this is what the user wants
    received = 0;
    noRoom = false;
    if (item->signature.empty()) {
        return become({UpdateState::Failed{UpdateFailure::notGenuine}});
    }
    // Characters of a version are those of a file name.
    const std::string name =
        setup.packageName + "_" + update.version + "_" + setup.target.architecture + ".deb";
    if (folder.prepare() != 0 || folder.begin(name) != 0) {
        return become({UpdateState::Failed{UpdateFailure::noRoom}});
    }
    become({UpdateState::Loading{update, 0}});
    fetch = std::make_unique<HttpsFetch>(
        parts.queue, parts.http(),
        HttpsFetch::Request{item->package, update.length, packageTimeout, silence,
                            [weak = weak_from_this()](ByteView piece) {
                                const auto self = weak.lock();
                                if (!self) return false;
                                self->noRoom = self->folder.write(piece) != 0;
                                if (self->noRoom) return false;
                                const auto& loading = self->item->update;
                                const auto step =
                                    std::max<std::uint64_t>(loading.length / progressSteps, 1);
                                const auto before = self->received / step;
                                self->received += piece.size();
                                if (self->received / step != before) {
                                    self->become({UpdateState::Loading{loading, self->received}});
                                }
                                return true;
                            },
                            later(&UpdateSession::packageLoaded)});
}

void UpdateSession::packageLoaded(HttpsFetch::Outcome outcome) {
    fetch = nullptr;
    std::optional<UpdateFailure> failure;
    if (noRoom) {
        failure = UpdateFailure::noRoom;
    } else if (outcome == HttpsFetch::Outcome::failed) {
        failure = UpdateFailure::unreachable;
    } else if (outcome != HttpsFetch::Outcome::whole) {
        failure = UpdateFailure::notGenuine;
    } else {
        failure = failureOfPackage();
    }
    if (!failure) return become({UpdateState::Ready{item->update}});
    folder.discard();
    become({UpdateState::Failed{*failure}});
}

std::optional<UpdateFailure> UpdateSession::failureOfPackage() {
    if (!isGenuine()) return UpdateFailure::notGenuine;
    if (folder.accept() != 0) return UpdateFailure::noRoom;
    const auto identity = parts.installer.identify(folder.packagePath());
    const bool fits =
        identity && identity->name == setup.packageName &&
        (identity->architecture == setup.target.architecture || identity->architecture == "all") &&
        compareVersions(identity->version, item->update.version) == 0 && isNewer(identity->version);
    if (!fits) return UpdateFailure::notGenuine;
    return std::nullopt;
}

bool UpdateSession::isGenuine() const {
    Bytes package;
    return folder.read(package) == 0 && package.size() == item->update.length &&
           verifyEd25519(setup.publicKey, package, item->signature);
}

// Than what the system's installer would replace, which may have become newer than this program
// while that ran.
bool UpdateSession::isNewer(const std::string& version) {
    const auto installed = parts.installer.installedVersion(setup.packageName);
    return compareVersions(version, installed.value_or(setup.version)) > 0;
}

void UpdateSession::handOver() {
    // It lay on the disk while the user decided.
    if (!isGenuine()) {
        folder.discard();
        return become({UpdateState::Failed{UpdateFailure::notGenuine}});
    }
    become({UpdateState::Installing{item->update}});
    parts.installer.install(folder.packagePath(), later(&UpdateSession::handedOver));
}

void UpdateSession::handedOver(PackageInstaller::Outcome outcome) {
    switch (outcome) {
        case PackageInstaller::Outcome::installed:
            folder.discard();
            return become({UpdateState::Installed{item->update}});
        case PackageInstaller::Outcome::opened:
            return become({UpdateState::Opened{item->update}});
        case PackageInstaller::Outcome::declined:
            return become({UpdateState::Ready{item->update}});
        case PackageInstaller::Outcome::failed:
            folder.discard();
            return become({UpdateState::Failed{UpdateFailure::notInstalled}});
    }
}

void UpdateSession::skip() {
    if (!in<UpdateState::Found>() && !in<UpdateState::Ready>()) return;
    parts.defaults.set(skippedKey, item->update.version);
    dismiss();
}

void UpdateSession::dismiss() {
    if (in<UpdateState::Idle>() || in<UpdateState::Installing>()) return;
    // Until the next start this program does not know better than to find it again.
    if (in<UpdateState::Installed>()) return outlet.finished();
    // The program that was given the file may still need it; the next session removes it.
    if (!in<UpdateState::Opened>()) folder.discard();
    fetch = nullptr;
    asked = attended = false;
    item = std::nullopt;
    become({UpdateState::Idle{}});
    outlet.finished();
}

void UpdateSession::become(UpdateState next) {
    state = std::move(next);
    // A failed session is over, and the next check begins anew.
    if (in<UpdateState::Failed>()) {
        item = std::nullopt;
        attended = false;
    }
    outlet.state(state);
    const bool can = !in<UpdateState::Checking>() && !in<UpdateState::Installing>();
    if (std::exchange(checkable, can) != can) outlet.canCheck(can);
}

}  // namespace orvel
