#include "OrvelAgent/Platform/Linux/FeedUpdateDriver.h"

#include <utility>

namespace orvel {

namespace {

constexpr const char* automaticKey = "SUEnableAutomaticChecks";

}  // namespace

FeedUpdateDriver::FeedUpdateDriver(Parts driverParts, const UpdateSetup& setup)
    : parts(std::move(driverParts)),
      automatic(parts.defaults.boolean(automaticKey).value_or(setup.automatic)),
      session(std::make_shared<UpdateSession>(
          UpdateSession::Parts{parts.queue, parts.defaults, parts.installer, parts.http,
                               parts.random},
          setup, outlet())) {}

FeedUpdateDriver::~FeedUpdateDriver() {
    // What it has open belongs to the queue.
    parts.queue.post([ended = std::move(session)] {});
}

void FeedUpdateDriver::start(Callbacks given) {
    callbacks = std::move(given);
    parts.queue.post([session = session, checks = automatic] { session->start(checks); });
}

void FeedUpdateDriver::setAutomaticallyChecks(bool checks) {
    automatic = checks;
    parts.queue.post([session = session, &defaults = parts.defaults, checks] {
        defaults.set(automaticKey, checks);
        session->setAutomatic(checks);
    });
}

void FeedUpdateDriver::checkForUpdates() {
    onSession(&UpdateSession::check);
}
void FeedUpdateDriver::install() {
    onSession(&UpdateSession::install);
}
void FeedUpdateDriver::skip() {
    onSession(&UpdateSession::skip);
}
void FeedUpdateDriver::dismiss() {
    onSession(&UpdateSession::dismiss);
}

void FeedUpdateDriver::onSession(void (UpdateSession::*action)()) {
    parts.queue.post([session = session, action] { ((*session).*action)(); });
}

UpdateSession::Outlet FeedUpdateDriver::outlet() {
    const auto onMain = [&main = parts.mainQueue, weak = std::weak_ptr<int>(alive)](auto call) {
        main.post([weak, call = std::move(call)] {
            if (!weak.expired()) call();
        });
    };
    return {
        [this, onMain](const UpdateState& state) {
            onMain([this, state] { callbacks.onState(state); });
        },
        [this, onMain](const AvailableUpdate& update, bool userInitiated) {
            onMain([this, update, userInitiated] {
                callbacks.willHandleShowingUpdate(update, false, userInitiated);
            });
        },
        [this, onMain](const AvailableUpdate& update) {
            onMain([this, update] { callbacks.didReceiveUserAttention(update); });
        },
        [this, onMain] { onMain([this] { callbacks.willFinishUpdateSession(); }); },
        [this, onMain](bool can) {
            onMain([this, can] {
                checkable = can;
                callbacks.onCanCheck();
            });
        },
    };
}

}  // namespace orvel
