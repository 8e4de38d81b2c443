// ServiceManagement's contract: the main application's service starts its bundle at each login; the
// bundle has to be signed. Registering what is registered, or unregistering what is not, is an
// error without harm. A user can withdraw the consent in the settings, which the status tells.
#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

#include <cstdio>

#include "OrvelAgent/Platform/LoginService.h"
#include "OrvelAgent/Platform/MacOS/Text.h"

namespace orvel {

namespace {

static_assert(SMAppServiceStatusEnabled == 1);

void logFailure(NSError* error) {
    std::fprintf(stderr, "orvel: the start at login cannot be changed: %s\n",
                 textOf(error.localizedDescription).c_str());
}

class MainAppLoginService final : public LoginService {
public:
    bool isRegistered() override {
        return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
    }
    void registerProgram() override {
        NSError* error = nil;
        if (![SMAppService.mainAppService registerAndReturnError:&error]) logFailure(error);
    }
    void unregisterProgram() override {
        NSError* error = nil;
        if (![SMAppService.mainAppService unregisterAndReturnError:&error]) logFailure(error);
    }
};

}  // namespace

std::unique_ptr<LoginService> LoginService::create() {
    return std::make_unique<MainAppLoginService>();
}

}  // namespace orvel
