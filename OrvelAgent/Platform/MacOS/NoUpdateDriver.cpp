#include "OrvelAgent/Platform/UpdateDriver.h"

namespace orvel {

namespace {

// A build without the update framework: there is nothing that could check.
class NoUpdateDriver final : public UpdateDriver {
public:
    void start(Callbacks) override {}
    bool hasInterface() const override { return true; }
    bool isConfigured() const override { return false; }
    bool canCheck() const override { return false; }
    bool automaticallyChecks() const override { return false; }
    void setAutomaticallyChecks(bool) override {}
    void checkForUpdates() override {}
    void install() override {}
    void skip() override {}
    void dismiss() override {}
};

}  // namespace

std::unique_ptr<UpdateDriver> UpdateDriver::create(SerialQueue&, Defaults&, HostInfo&,
                                                   const StateLocation&) {
    return std::make_unique<NoUpdateDriver>();
}

}  // namespace orvel
