#pragma once

#include <memory>
#include <optional>

#include "OrvelAgent/Platform/Linux/UpdateSession.h"
#include "OrvelAgent/Platform/UpdateDriver.h"

namespace orvel {

// The driver without a framework: the session on a queue of its own, and without an interface of
// its own. The user's setting is the default "SUEnableAutomaticChecks" (Boolean).
class FeedUpdateDriver : public UpdateDriver {
public:
    struct Parts {
        SerialQueue& mainQueue;
        SerialQueue& queue;  // "orvel.updates"; gone before `installer` is
        Defaults& defaults;
        PackageInstaller& installer;
        std::function<std::unique_ptr<HttpClient>()> http;  // certificates checked as they should
        std::function<double()> random;
    };

    FeedUpdateDriver(Parts driverParts, const UpdateSetup& setup);
    ~FeedUpdateDriver() override;

    void start(Callbacks given) override;
    bool hasInterface() const override { return false; }
    bool canCheck() const override { return checkable; }
    bool automaticallyChecks() const override { return automatic; }
    void setAutomaticallyChecks(bool checks) override;
    void checkForUpdates() override;
    void install() override;
    void skip() override;
    void dismiss() override;

private:
    UpdateSession::Outlet outlet();
    void onSession(void (UpdateSession::*action)());

    const Parts parts;
    Callbacks callbacks;
    const std::shared_ptr<int> alive = std::make_shared<int>();
    bool checkable = true;
    bool automatic = true;
    std::shared_ptr<UpdateSession> session;  // of the queue
};

}  // namespace orvel
